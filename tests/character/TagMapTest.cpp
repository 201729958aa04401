// Tag maps in their two serial forms, and the files that carry the text form: tag templates
// and BVH map files.
#include <fstream>
#include <memory>
#include <sstream>

#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "core/XMLFileStream.h"
#include "mocap/TempFile.h"
#include "modelmap/MapTestSupport.h"
#include "shell/Util.h"

using maptest::AddTag;
using maptest::BuildMiniRig;
using maptest::MapTest;
using maptest::Messages;
using maptest::MiniRig;
using maptest::Text;
using ORV::MATH::CVector3;
using ZUK::ModelMap;
using ZUK::TagMap;

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::unique_ptr<TagMap> ReadText(const std::string& text) {
    trovotest::TempFile file(text, ".txt");
    ZUK::InputStream stream(file.Path());
    return std::unique_ptr<TagMap>(TagMap::createFromStream(stream));
}

void ExpectEntry(const TagMap::TagEntry& e, const wchar_t* tag, const wchar_t* object, const CVector3& align,
                 const CVector3& roll, const wchar_t* overrideTag) {
    EXPECT_EQ(Text(e.tag_name), tag);
    EXPECT_EQ(Text(e.obj_name), object);
    EXPECT_TRUE(e.align.Equals(align, 0.0)) << e.align.x << " " << e.align.y << " " << e.align.z;
    EXPECT_TRUE(e.roll.Equals(roll, 0.0)) << e.roll.x << " " << e.roll.y << " " << e.roll.z;
    EXPECT_EQ(Text(e.override), overrideTag);
    EXPECT_EQ(Text(e.test_name), L"");
    EXPECT_EQ(Text(e.else_name), L"");
}

void ExpectSameEntries(const TagMap& a, const TagMap& b) {
    EXPECT_EQ(Text(a.structure_file), Text(b.structure_file));
    ASSERT_EQ(a.entries.size(), b.entries.size());
    for (size_t k = 0; k < a.entries.size(); ++k) {
        SCOPED_TRACE(k);
        const TagMap::TagEntry& e = a.entries[k];
        ExpectEntry(b.entries[k], Text(e.tag_name).c_str(), Text(e.obj_name).c_str(), e.align, e.roll,
                    Text(e.override).c_str());
    }
}

// The rig with its objects renamed away from the node names, directions that a float holds
// exactly, and overrides on two nodes.
class TagMapForms : public MapTest {
protected:
    void SetUp() override {
        MapTest::SetUp();
        rig = BuildMiniRig();
        rig.TagAll();
        rig.cog.PutName(L"Hips");
        rig.lthigh.PutName(L"LeftUpLeg");
        SetOverride(rig.lhand, L"lfingers");
        SetOverride(rig.chest, L"neck");
        structure = LoadStructure();
        map = std::make_unique<ModelMap>(rig.model, structure.get());
    }

    static void SetOverride(ORV::X3DObject object, const wchar_t* tag) {
        ORV::Property p;
        ASSERT_TRUE(ZUK::Util::findCustomPSet(object, TagMap::PROPERTY_NAME, p));
        p.PutParameterValue(L"override", ORV::CValue(ORV::CString(tag)));
    }

    MiniRig rig;
    std::unique_ptr<ZUK::ModelStructure> structure;
    std::unique_ptr<ModelMap> map;
};

}  // namespace

TEST_F(TagMapForms, TextWriterWritesTheExactBytesOfTaggedNodesInIndexOrder) {
    ZUK::TagMap::cleanupTags(rig.model);
    AddTag(rig.cog, L"cog", CVector3(0, 1, 0), CVector3(0, 0, 1), L"spine");
    AddTag(rig.lthigh, L"lthigh", CVector3(0.5, -1, 0.25), CVector3(-2, 0, 1));
    ModelMap tagged(rig.model, structure.get());
    trovotest::TempFile file("", ".txt");
    {
        ZUK::OutputStream out(file.Path());
        TagMap::WriteToStream(out, tagged);
    }
    EXPECT_EQ(ReadFile(file.Narrow()),
              "MapFile2.0\nmini\n\n2 \n"
              "cog {\n\tHips;\n\t0 1 0 \n\t0 0 1 \n\t*spine\n}\n\n"
              "lthigh {\n\tLeftUpLeg;\n\t0.5 -1 0.25 \n\t-2 0 1 \n}\n\n");
}

TEST_F(TagMapForms, MapWithNoTaggedNodeWritesACountOfZeroAndNoBlocks) {
    ZUK::TagMap::cleanupTags(rig.model);
    ModelMap untagged(rig.model, structure.get());
    trovotest::TempFile file("", ".txt");
    {
        ZUK::OutputStream out(file.Path());
        TagMap::WriteToStream(out, untagged);
    }
    EXPECT_EQ(ReadFile(file.Narrow()), "MapFile2.0\nmini\n\n0 \n");
    std::unique_ptr<TagMap> back = ReadText(ReadFile(file.Narrow()));
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->entries.empty());
}

TEST_F(TagMapForms, TextFormReadsBackEntryForEntry) {
    trovotest::TempFile file("", ".txt");
    {
        ZUK::OutputStream out(file.Path());
        TagMap::WriteToStream(out, *map);
    }
    orvhost::ClearLog();
    std::unique_ptr<TagMap> back = ReadText(ReadFile(file.Narrow()));
    ASSERT_TRUE(back);
    // The magic word is logged as a note.
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"MapFile2.0"});
    EXPECT_TRUE(Messages(4).empty());
    EXPECT_EQ(Text(back->structure_file), L"mini");
    ASSERT_EQ(back->entries.size(), 9u);
    const wchar_t* objects[9] = {L"Hips",  L"spine",     L"chest",    L"LeftUpLeg", L"lshin",
                                 L"lfoot", L"lupperarm", L"lforearm", L"lhand"};
    for (size_t i = 0; i < 9; ++i) {
        SCOPED_TRACE(i);
        const ZUK::NodeMap& node = map->nodes[i];
        const wchar_t* overrideTag = i == 8 ? L"lfingers" : (i == 2 ? L"neck" : L"");
        ExpectEntry(back->entries[i], Text(structure->nodes[i].Name).c_str(), objects[i], node.align,
                    node.roll, overrideTag);
    }
}

TEST_F(TagMapForms, XmlFormReadsBackEntryForEntryAndAgreesWithTheTextForm) {
    trovotest::TempFile textFile("", ".txt");
    {
        ZUK::OutputStream out(textFile.Path());
        TagMap::WriteToStream(out, *map);
    }
    std::unique_ptr<TagMap> fromText = ReadText(ReadFile(textFile.Narrow()));
    ASSERT_TRUE(fromText);

    trovotest::TempFile xmlFile("", ".xml");
    {
        XMLFileStream out(xmlFile.Path(), false, true);
        TagMap::WriteToXMLStream(out, *map);
    }
    const std::string xml = ReadFile(xmlFile.Narrow());
    EXPECT_NE(xml.find("<TAG_MAP structure_file=\"mini\" version=\"MapFile2.0\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<TAGS num_tags=\"9\">"), std::string::npos) << xml;
    EXPECT_NE(xml.find("<TAG align=\"0,1,0\" obj_name=\"Hips\" roll=\"0,0,1\" tag_name=\"cog\"/>"),
              std::string::npos)
        << xml;
    EXPECT_NE(xml.find("override=\"lfingers\""), std::string::npos);

    orvhost::ClearLog();
    XMLFileStream in(xmlFile.Path(), true, false);
    std::unique_ptr<TagMap> fromXml(TagMap::createFromXMLStream(in));
    ASSERT_TRUE(fromXml);
    // The version is logged, not compared; a tag without "override" reads none, silently.
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"MapFile2.0"});
    EXPECT_EQ(in.errors.GetCount(), 0);
    ExpectSameEntries(*fromText, *fromXml);
}

TEST_F(TagMapForms, XmlDocumentWithoutATagMapGivesNullWithoutAMessage) {
    trovotest::TempFile file("<?xml version=\"1.0\"?>\n<ROOT><OTHER/></ROOT>\n", ".xml");
    orvhost::ClearLog();
    XMLFileStream in(file.Path(), true, false);
    EXPECT_EQ(TagMap::createFromXMLStream(in), nullptr);
    EXPECT_TRUE(Messages(0).empty());
    EXPECT_EQ(in.errors.GetCount(), 0);
}

TEST_F(TagMapForms, XmlTagMapWithoutTagsGivesNull) {
    trovotest::TempFile file(
        "<?xml version=\"1.0\"?>\n<ROOT><TAG_MAP version=\"v9\" structure_file=\"mini\"/></ROOT>\n", ".xml");
    orvhost::ClearLog();
    XMLFileStream in(file.Path(), true, false);
    EXPECT_EQ(TagMap::createFromXMLStream(in), nullptr);
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"v9"});
}

TEST_F(TagMapForms, XmlCountBeyondTheTagsStopsAtTheLastTag) {
    trovotest::TempFile file(
        "<?xml version=\"1.0\"?>\n<ROOT><TAG_MAP version=\"MapFile2.0\" structure_file=\"mini\">"
        "<TAGS num_tags=\"3\"><TAG tag_name=\"cog\" obj_name=\"Hips\" align=\"0,1,0\" "
        "roll=\"0,0,1\" override=\"spine\"/></TAGS></TAG_MAP></ROOT>\n",
        ".xml");
    XMLFileStream in(file.Path(), true, false);
    std::unique_ptr<TagMap> back(TagMap::createFromXMLStream(in));
    ASSERT_TRUE(back);
    ASSERT_EQ(back->entries.size(), 1u);
    ExpectEntry(back->entries[0], L"cog", L"Hips", CVector3(0, 1, 0), CVector3(0, 0, 1), L"spine");
}

// ---- The text reader ------------------------------------------------------------------------

TEST(TagMapText, CountLargerThanTheEntriesEndsQuietlyAtTheEndOfTheStream) {
    orvhost::ClearLog();
    std::unique_ptr<TagMap> map = ReadText(
        "MapFile2.0\nbiped\n\n5 \ncog {\n\tHips;\n\t0 1 0 \n\t0 0 1 \n}\n\n"
        "lthigh {\n\tLeftUpLeg;\n\t0 -1 0 \n\t0 0 1 \n\t*lfoot\n}\n\n");
    ASSERT_TRUE(map);
    EXPECT_EQ(Text(map->structure_file), L"biped");
    ASSERT_EQ(map->entries.size(), 2u);
    ExpectEntry(map->entries[0], L"cog", L"Hips", CVector3(0, 1, 0), CVector3(0, 0, 1), L"");
    ExpectEntry(map->entries[1], L"lthigh", L"LeftUpLeg", CVector3(0, -1, 0), CVector3(0, 0, 1), L"lfoot");
    EXPECT_TRUE(Messages(4).empty());
}

TEST(TagMapText, TagBlockWithoutOverrideEndsAtTheBraceAfterTheTwoVectors) {
    std::unique_ptr<TagMap> map =
        ReadText("MapFile2.0 biped 2\nhead {\tHead; 0 1 0  0 0 1 }\nneck { Neck; 1 2 3 4 5 6 *head }");
    ASSERT_TRUE(map);
    ASSERT_EQ(map->entries.size(), 2u);
    ExpectEntry(map->entries[0], L"head", L"Head", CVector3(0, 1, 0), CVector3(0, 0, 1), L"");
    ExpectEntry(map->entries[1], L"neck", L"Neck", CVector3(1, 2, 3), CVector3(4, 5, 6), L"head");
}

TEST(TagMapText, ObjectNameFollowedByAQuestionMarkLogsTheSemicolonErrorAndGivesNull) {
    orvhost::ClearLog();
    EXPECT_EQ(ReadText("MapFile2.0 biped 1\ncog {\n\tHips?;\n\t0 1 0 \n\t0 0 1 \n}\n"), nullptr);
    EXPECT_EQ(Messages(4), std::vector<std::wstring>{L"parse error: ';' or '?' expected for tag cog"});
}

TEST(TagMapText, MissingOpeningBraceIsAParseError) {
    orvhost::ClearLog();
    EXPECT_EQ(ReadText("MapFile2.0 biped 1\ncog\n\tHips;\n\t0 1 0 \n\t0 0 1 \n}\n"), nullptr);
    EXPECT_EQ(Messages(4), std::vector<std::wstring>{L"parse error: '{' expected for tag cog"});
}

TEST(TagMapText, MissingClosingBraceIsAParseError) {
    orvhost::ClearLog();
    EXPECT_EQ(ReadText("MapFile2.0 biped 2\ncog {\n\tHips;\n\t0 1 0 \n\t0 0 1 \nspine {\n\tSpine;\n"),
              nullptr);
    EXPECT_EQ(Messages(4), std::vector<std::wstring>{L"parse error: '}' expected for tag cog"});
}

TEST(TagMapText, WrongMagicWordLogsTheWordThenThatTheFileCannotBeParsed) {
    orvhost::ClearLog();
    EXPECT_EQ(ReadText("MapFile1.0 biped 0\n"), nullptr);
    const std::vector<orvhost::LogEntry>& log = orvhost::LogEntries();
    ASSERT_EQ(log.size(), 2u);
    EXPECT_EQ(log[0].severity, 8);
    EXPECT_EQ(log[0].text, L"MapFile1.0");
    EXPECT_EQ(log[1].severity, 4);
    EXPECT_EQ(log[1].text, L"Could not parse the map file");
}

// ---- Files that carry the text form ------------------------------------------------------------

namespace {

const char* const TEMPLATE =
    "mini\n"
    "3 \n"
    "cog Hips\n"
    "spine <EmptyFieldorv>\n"
    "chest Chest|ChestDriver\n"
    "mini\n"
    "8 \n"
    "MapFile2.0\nmini\n\n1 \ncog {\n\tHips;\n\t0 1 0 \n\t0 0 1 \n}\n\n"
    "4 \nmini\nmini\n";

}  // namespace

TEST(TagMapFiles, TemplateWithTheSuffixTagtIsReadPastItsHeader) {
    for (const char* suffix : {".tagt", ".TagT"}) {
        SCOPED_TRACE(suffix);
        trovotest::TempFile file(TEMPLATE, suffix);
        orvhost::ClearLog();
        std::unique_ptr<TagMap> map(TagMap::createFromMapFile(file.Path()));
        ASSERT_TRUE(map);
        EXPECT_EQ(Text(map->structure_file), L"mini");
        ASSERT_EQ(map->entries.size(), 1u);
        ExpectEntry(map->entries[0], L"cog", L"Hips", CVector3(0, 1, 0), CVector3(0, 0, 1), L"");
        EXPECT_TRUE(Messages(4).empty());
    }
}

TEST(TagMapFiles, EmptyTagValueInATemplateStandsAsTheEmptyFieldWord) {
    trovotest::TempFile file(TEMPLATE, ".tagt");
    ZUK::InputStream stream(file.Path());
    ORV::CString type, name, value;
    int count = 0;
    stream >> type >> count;
    ASSERT_EQ(count, 3);
    stream >> name >> value >> name >> value;
    EXPECT_EQ(Text(name), L"spine");
    EXPECT_EQ(Text(value), L"<EmptyFieldorv>");
    // The header of a template with such a value is two words a line all the same.
    ZUK::InputStream again(file.Path());
    EXPECT_TRUE(TagMap::skipTemplateHeader(again));
    ORV::CString magic;
    again >> magic;
    EXPECT_EQ(Text(magic), L"MapFile2.0");
}

TEST(TagMapFiles, MapFileStartingWithBvhIsReadAfterThatWord) {
    trovotest::TempFile file("BVH\nMapFile2.0\nbiped\n\n1 \ncog {\n\tHips;\n\t0 1 0 \n\t0 0 1 \n}\n", ".map");
    std::unique_ptr<TagMap> map(TagMap::createFromMapFile(file.Path()));
    ASSERT_TRUE(map);
    EXPECT_EQ(Text(map->structure_file), L"biped");
    ASSERT_EQ(map->entries.size(), 1u);
}

TEST(TagMapFiles, MapFileStartingWithAnotherWordIsRefused) {
    trovotest::TempFile file("MapFile2.0\nbiped\n\n1 \ncog {\n\tHips;\n\t0 1 0 \n\t0 0 1 \n}\n", ".map");
    orvhost::ClearLog();
    EXPECT_EQ(TagMap::createFromMapFile(file.Path()), nullptr);
    EXPECT_EQ(Messages(4),
              std::vector<std::wstring>{
                  L"To retarget a BVH file the mapfile must be built from the corresponding BVH ref pose"});
    EXPECT_EQ(Messages(0).size(), 1u);
}

TEST(TagMapFiles, MissingMapFileIsReported) {
    orvhost::ClearLog();
    EXPECT_EQ(TagMap::createFromMapFile(L"/nonexistent/trovo/walk.map"), nullptr);
    EXPECT_EQ(Messages(4), std::vector<std::wstring>{L"Could not read mapfile."});
}

TEST(TagMapFiles, TruncatedTemplateNeverCrashes) {
    const std::string whole = TEMPLATE;
    for (size_t n = 0; n <= whole.size(); ++n) {
        trovotest::TempFile file(whole.substr(0, n), ".tagt");
        std::unique_ptr<TagMap> map(TagMap::createFromMapFile(file.Path()));
        if (map) {
            EXPECT_LE(map->entries.size(), 1u);
        }
    }
}
