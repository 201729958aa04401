// Tag templates through the commands: a rig tagged and applied by "SetTagValue" and
// "ApplyTagsToRig" is saved with "SaveTagTemplateFile", and a second copy of the rig that loads
// it with "LoadTagTemplateFile" ends with the same stored setup. Then damaged templates.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <sstream>

#include "TagPanelTestSupport.h"
#include "panels/TagPPG.h"

namespace {

using tagtest::Log;
using tagtest::ReadAll;
using tagtest::ScratchDir;
using tagtest::TagPanelTest;
using tagtest::WriteAll;

// Splits stored text into tokens at white space and commas.
std::vector<std::wstring> Tokens(const std::wstring& text) {
    std::vector<std::wstring> out;
    std::wstring cur;
    for (wchar_t c : text) {
        if (c == L',' || std::iswspace(c)) {
            if (!cur.empty()) out.push_back(cur);
            cur.clear();
        } else {
            cur += c;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

bool AsNumber(const std::wstring& text, double& value) {
    if (text.empty()) return false;
    wchar_t* end = nullptr;
    value = std::wcstod(text.c_str(), &end);
    return end && *end == L'\0';
}

// Two stored texts are the same: numbers within 1e-9, everything else letter for letter.
::testing::AssertionResult SameText(const std::wstring& where, const std::wstring& a, const std::wstring& b) {
    const std::vector<std::wstring> x = Tokens(a), y = Tokens(b);
    if (x.size() != y.size()) {
        return ::testing::AssertionFailure()
               << modelmaptest::Narrow(where) << ": " << x.size() << " tokens against " << y.size();
    }
    for (size_t k = 0; k < x.size(); ++k) {
        double u = 0.0, v = 0.0;
        if (AsNumber(x[k], u) && AsNumber(y[k], v)) {
            if (std::fabs(u - v) > 1e-9) {
                return ::testing::AssertionFailure()
                       << modelmaptest::Narrow(where) << ": " << u << " against " << v;
            }
        } else if (x[k] != y[k]) {
            return ::testing::AssertionFailure()
                   << modelmaptest::Narrow(where) << ": " << modelmaptest::Narrow(x[k]) << " against "
                   << modelmaptest::Narrow(y[k]);
        }
    }
    return ::testing::AssertionSuccess();
}

// The stored content of a property: each parameter's name and value, grids cell by cell.
std::wstring Content(const ORV::Property& property) {
    std::wostringstream out;
    ORV::CRefArray parameters = property.GetParameters();
    for (long k = 0; k < parameters.GetCount(); ++k) {
        ORV::Parameter p(parameters[k]);
        out << p.GetScriptName().GetWideString() << L" ";
        const ORV::CValue value = p.GetValue();
        ORV::GridData grid;
        if (value.GetType() == ORV::ovRef) grid = ORV::GridData(static_cast<ORV::CRef>(value));
        if (grid.IsValid()) {
            out << grid.GetRowCount() << L" " << grid.GetColumnCount() << L" ";
            const ORV::CValueArray cells = grid.GetData();
            for (long c = 0; c < cells.GetCount(); ++c)
                out << L"\"" << cells[c].GetAsText().GetWideString() << L"\" ";
        } else {
            out << value.GetAsText().GetWideString();
        }
        out << L"\n";
    }
    return out.str();
}

::testing::AssertionResult SameProperty(ORV::X3DObject a, ORV::X3DObject b, const wchar_t* name) {
    const ORV::Property pa = modelmaptest::FindProperty(a, name), pb = modelmaptest::FindProperty(b, name);
    if (pa.IsValid() != pb.IsValid()) {
        return ::testing::AssertionFailure()
               << modelmaptest::Narrow(a.GetName()) << " has " << modelmaptest::Narrow(std::wstring(name))
               << ": " << pa.IsValid() << ", its copy: " << pb.IsValid();
    }
    if (!pa.IsValid()) return ::testing::AssertionSuccess();
    return SameText(std::wstring(a.GetName().GetWideString()) + L"." + name, Content(pa), Content(pb));
}

class TagTemplate : public TagPanelTest {
protected:
    // A rig tagged with the CMU biped tagging and applied, all through commands.
    ORV::Model TaggedRig(const wchar_t* name) {
        ORV::Model model = CmuRig(name);
        for (const auto& p : bvhrig::CmuMotionBuilderTagging()) {
            EXPECT_TRUE(SetTag(model, p.first.c_str(), p.second.c_str())) << modelmaptest::Narrow(p.first);
        }
        EXPECT_TRUE(static_cast<bool>(Exec(L"ApplyTagsToRig", {model.GetRef()})));
        return model;
    }

    bool Save(ORV::Model model, const std::string& file) {
        return static_cast<bool>(Exec(L"SaveTagTemplateFile", {model.GetRef(), ORV::CString(file.c_str())}));
    }

    bool Load(ORV::Model model, const std::string& file) {
        return static_cast<bool>(Exec(L"LoadTagTemplateFile", {model.GetRef(), ORV::CString(file.c_str())}));
    }

    // A bare copy of the skeleton, tagged by nothing.
    ORV::Model BareRig(const wchar_t* name) {
        bvhrig::BvhRig rig = bvhrig::BuildBvhRig(ORV::Application().GetActiveSceneRoot(), skeleton, name);
        return rig.model;
    }

    // The template of a fully tagged rig, as text.
    std::string SavedTemplate() {
        ORV::Model source = TaggedRig(L"Source");
        const std::string file = scratch.File("source.tagt");
        EXPECT_TRUE(Save(source, file));
        return ReadAll(file);
    }

    ScratchDir scratch;
};

TEST_F(TagTemplate, ASecondCopyOfTheRigLoadsTheSameSetup) {
    ORV::Model first = TaggedRig(L"First");
    const std::string file = scratch.File("cmu.tagt");
    orvhost::ClearLog();
    ASSERT_TRUE(Save(first, file));
    EXPECT_TRUE(Messages().empty());
    EXPECT_EQ(Value(first, L"TemplateFile"), structtest::Wide(file));

    ORV::Model second = BareRig(L"Second");
    orvhost::ClearLog();
    ASSERT_TRUE(Load(second, file));
    EXPECT_TRUE(Messages().empty());
    // The word for an empty value names no object: each such row is noted, and stays empty.
    Log missing;
    for (const auto& note : Notes())
        if (note.first.rfind(L"Node ", 0) == 0) missing.push_back(note);
    EXPECT_EQ(missing,
              (Log{{L"Node <EmptyFieldorv> is missing.", 8}, {L"Node <EmptyFieldorv> is missing.", 8}}));
    EXPECT_EQ(Value(second, L"lforearmtwist"), L"");
    EXPECT_EQ(Value(second, L"TemplateFile"), structtest::Wide(file));
    EXPECT_FALSE(Dirty(second));

    for (const wchar_t* name : {L"ZUKStructure", L"ZUKMap", L"ZUKGlue"}) {
        EXPECT_TRUE(modelmaptest::FindProperty(first, name).IsValid());
        EXPECT_TRUE(SameProperty(first, second, name));
    }
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray objects = first.FindChildren(L"", L"", families, true);
    int tagged = 0;
    for (long k = 0; k < objects.GetCount(); ++k) {
        ORV::X3DObject a(objects[k]);
        ORV::X3DObject b = second.FindChild(a.GetName());
        ASSERT_TRUE(b.IsValid());
        const ORV::Property ta = modelmaptest::FindProperty(a, L"ZUKTag");
        const ORV::Property tb = modelmaptest::FindProperty(b, L"ZUKTag");
        ASSERT_EQ(ta.IsValid(), tb.IsValid()) << modelmaptest::Narrow(a.GetName());
        if (!ta.IsValid()) continue;
        ++tagged;
        // A tag from a template holds its tag name where a tag from the panel holds the pose
        // at tagging time; the map's measures carry the pose instead.
        std::wstring ca = Content(ta), cb = Content(tb);
        const std::wstring pose = L"tpose_transform ";
        ca.erase(ca.find(pose));
        cb.erase(cb.find(pose));
        EXPECT_TRUE(SameText(std::wstring(a.GetName().GetWideString()), ca, cb));
        EXPECT_EQ(tb.GetParameterValue(L"tpose_transform").GetAsText(),
                  ta.GetParameterValue(L"tagname").GetAsText());
    }
    EXPECT_EQ(tagged, static_cast<int>(bvhrig::CmuMotionBuilderTagging().size()));
    // The tag values of the panel come along.
    for (const auto& p : bvhrig::CmuMotionBuilderTagging()) {
        EXPECT_EQ(Value(second, p.first.c_str()), p.second);
    }
}

TEST_F(TagTemplate, TheTemplateHeaderListsEveryTagWithAWordForEmptyOnes) {
    const std::string text = SavedTemplate();
    std::istringstream in(text);
    std::string type, name, value, source;
    int count = 0;
    in >> type >> count;
    EXPECT_EQ(type, "biped");
    std::unique_ptr<ZUK::ModelStructure> structure = modelmaptest::LoadStructure(L"biped");
    ASSERT_EQ(count, structure->numNodes + 2);
    const bvhrig::Tagging tagging = bvhrig::CmuMotionBuilderTagging();
    for (int k = 0; k < count; ++k) {
        in >> name >> value;
        const std::wstring expected = bvhrig::JointOf(tagging, structtest::Wide(name));
        EXPECT_EQ(structtest::Wide(value), expected.empty() ? L"<EmptyFieldorv>" : expected) << name;
    }
    int version = 0;
    std::string magic;
    in >> source >> version >> magic;
    EXPECT_EQ(source, "biped");
    EXPECT_EQ(version, 8);
    EXPECT_EQ(magic, "MapFile2.0");
}

TEST_F(TagTemplate, SavingAppliesChangedTagsFirst) {
    ORV::Model model = TaggedRig(L"Rig");
    ASSERT_TRUE(SetTag(model, L"head", L"Neck1"));
    ASSERT_TRUE(Dirty(model));
    const std::string file = scratch.File("dirty.tagt");
    ASSERT_TRUE(Save(model, file));
    EXPECT_FALSE(Dirty(model));
    ORV::Property tag = modelmaptest::FindProperty(model.FindChild(L"Neck1"), L"ZUKTag");
    ASSERT_TRUE(tag.IsValid());
    EXPECT_EQ(tag.GetParameterValue(L"override").GetAsText(), ORV::CString(L"head"));
    EXPECT_NE(ReadAll(file).find("head Neck1"), std::string::npos);
}

TEST_F(TagTemplate, SavingAnUntaggedModelIsRefused) {
    ORV::Model bare = BareRig(L"Bare");
    const std::string file = scratch.File("none.tagt");
    EXPECT_FALSE(Save(bare, file));
    EXPECT_EQ(Messages(), (Log{{L"Model not tagged. Please tag the model.", 4}}));
    ORV::Model unapplied = CmuRig(L"Unapplied");
    EXPECT_FALSE(Save(unapplied, file));
    EXPECT_EQ(Messages(), (Log{{L"Incorrect tagging. Please re-tag.", 4}}));
    EXPECT_TRUE(ReadAll(file).empty());
}

TEST_F(TagTemplate, SavingWithoutAFileNameAnswersFalseSilently) {
    ORV::Model model = TaggedRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_FALSE(ZUK::TagPPG::SaveTagTemplateFile(model, L""));
    EXPECT_TRUE(Messages().empty());
}

TEST_F(TagTemplate, SavingIntoAFolderThatCannotBeWrittenIsReported) {
    ORV::Model model = TaggedRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_FALSE(Save(model, scratch.dir + "/no/such/folder/x.tagt"));
    EXPECT_EQ(Messages(),
              (Log{{L"You do not have permission to save to this directory.  File not saved.", 4}}));
    EXPECT_EQ(Value(model, L"TemplateFile"), L"");
}

TEST_F(TagTemplate, LoadingNeedsAModelAndAFileName) {
    EXPECT_FALSE(ZUK::TagPPG::LoadTagTemplateFile(ORV::Model(), L"x.tagt"));
    ORV::Model model = BareRig(L"Rig");
    EXPECT_FALSE(Load(model, ""));
    EXPECT_EQ(Messages(),
              (Log{{L"It is ambiguous which character is to receive the inheritance.  Please select the "
                    L"desired character.",
                    4},
                   {L"Please specify a tag template file (*.tagt)", 4}}));
    EXPECT_EQ(orvhost::MessageBoxes().size(), 2u);
}

TEST_F(TagTemplate, AMissingTemplateFileIsNotReportedAndOnlyRemembered) {
    ORV::Model model = BareRig(L"Rig");
    const std::string file = scratch.dir + "/absent.tagt";
    EXPECT_TRUE(Load(model, file));
    EXPECT_TRUE(orvhost::LogEntries().empty());
    EXPECT_EQ(Value(model, L"TemplateFile"), structtest::Wide(file));
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKStructure").IsValid());
}

TEST_F(TagTemplate, AnXmlTemplateIsAcceptedAndChangesNothing) {
    ORV::Model model = BareRig(L"Rig");
    const std::string file = scratch.File("x.xml");
    WriteAll(file, "<?xml version=\"1.0\"?>\n<TagTemplate/>\n");
    EXPECT_TRUE(Load(model, file));
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"TagPPG").IsValid());
}

// Replaces the first occurrence of `from` in `text`.
std::string Replace(std::string text, const std::string& from, const std::string& to) {
    const size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
    return text;
}

TEST_F(TagTemplate, FewerValuesLeaveTheOtherTagsAsTheStructureLeftThem) {
    std::string text = SavedTemplate();
    std::unique_ptr<ZUK::ModelStructure> structure = modelmaptest::LoadStructure(L"biped");
    // Keep the first five lines of values: cog, spine, chest, neck, head.
    std::istringstream in(text);
    std::string line, header, type;
    std::getline(in, type);
    std::getline(in, line);
    std::string kept;
    for (int k = 0; k < structure->numNodes + 2; ++k) {
        std::getline(in, line);
        if (k < 5) kept += line + "\n";
    }
    const std::string rest = text.substr(static_cast<size_t>(in.tellg()));
    const std::string file = scratch.File("fewer.tagt");
    WriteAll(file, type + "\n5 \n" + kept + rest);

    ORV::Model model = BareRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_TRUE(Load(model, file));
    EXPECT_TRUE(Messages().empty());
    EXPECT_EQ(Value(model, L"head"), L"Head");
    EXPECT_EQ(Value(model, L"lthigh"), L"");
    EXPECT_EQ(Value(model, L"rhand"), L"");
    // The map's entries still tag the rig.
    EXPECT_TRUE(modelmaptest::FindProperty(model.FindChild(L"RightHand"), L"ZUKTag").IsValid());
}

TEST_F(TagTemplate, NamesThatDoNotMatchAreAlertedOnceEachAndValuesGoByPosition) {
    std::string text = SavedTemplate();
    text = Replace(text, "\ncog Hips", "\nroot Hips");
    text = Replace(text, "\nneck Neck1", "\nthroat Neck1");
    const std::string file = scratch.File("renamed.tagt");
    WriteAll(file, text);
    ORV::Model model = BareRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_TRUE(Load(model, file));
    EXPECT_EQ(Messages(), (Log{{L"Failed to load template file: Tag name root is missing.", 4},
                               {L"Failed to load template file: Tag name throat is missing.", 4}}));
    EXPECT_EQ(Value(model, L"cog"), L"Hips");
    EXPECT_EQ(Value(model, L"neck"), L"Neck1");
}

TEST_F(TagTemplate, ASubControllerValueTagsItsObjectUnlessItHasAnExtractionPart) {
    const std::string text = SavedTemplate();
    const std::string plain = scratch.File("plain.tagt"), split = scratch.File("split.tagt");
    WriteAll(plain, Replace(text, "lforearmtwist <EmptyFieldorv>", "lforearmtwist LeftFingerBase"));
    WriteAll(split, Replace(text, "lforearmtwist <EmptyFieldorv>", "lforearmtwist LeftFingerBase|LThumb"));

    ORV::Model a = BareRig(L"A");
    ASSERT_TRUE(Load(a, plain));
    ORV::Property tag = modelmaptest::FindProperty(a.FindChild(L"LeftFingerBase"), L"ZUKTag");
    ASSERT_TRUE(tag.IsValid());
    EXPECT_EQ(tag.GetParameters().GetCount(), 1);
    EXPECT_EQ(tag.GetParameterValue(L"tagname").GetAsText(), ORV::CString(L"lforearmtwist"));

    ORV::Model b = BareRig(L"B");
    ASSERT_TRUE(Load(b, split));
    EXPECT_EQ(Value(b, L"lforearmtwist"), L"LeftFingerBase|LThumb");
    EXPECT_FALSE(modelmaptest::FindProperty(b.FindChild(L"LeftFingerBase"), L"ZUKTag").IsValid());
}

TEST_F(TagTemplate, MissingObjectsAreNotedAndTheValueKeepsWhatExists) {
    const std::string text = SavedTemplate();
    const std::string file = scratch.File("missing.tagt");
    std::string edited = Replace(text, "\nhead Head", "\nhead Helmet");
    edited = Replace(edited, "lforearmtwist <EmptyFieldorv>", "lforearmtwist LeftFingerBase|Ghost");
    WriteAll(file, edited);
    ORV::Model model = BareRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_TRUE(Load(model, file));
    const Log notes = Notes();
    ASSERT_GE(notes.size(), 2u);
    EXPECT_NE(
        std::find(notes.begin(), notes.end(), std::pair<std::wstring, int>{L"Node Helmet is missing.", 8}),
        notes.end());
    EXPECT_NE(std::find(notes.begin(), notes.end(),
                        std::pair<std::wstring, int>{L"Extraction node Ghost is missing.", 8}),
              notes.end());
    EXPECT_EQ(Value(model, L"head"), L"");
    EXPECT_EQ(Value(model, L"lforearmtwist"), L"LeftFingerBase");
}

TEST_F(TagTemplate, AnOldTemplateVersionIsRefusedWithTheValuesInPlace) {
    std::string text = SavedTemplate();
    text = Replace(text, "\nbiped\n8 \nMapFile2.0", "\nbiped\n6 \nMapFile2.0");
    const std::string file = scratch.File("old.tagt");
    WriteAll(file, text);
    ORV::Model model = BareRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_FALSE(Load(model, file));
    EXPECT_EQ(Messages(), (Log{{L"Failed to inherit the template data. Template is out of date.", 4}}));
    EXPECT_TRUE(Dirty(model));
    EXPECT_EQ(Value(model, L"cog"), L"Hips");
    EXPECT_FALSE(modelmaptest::FindProperty(model.FindChild(L"Hips"), L"ZUKTag").IsValid());
}

// ---- Damaged templates ----------------------------------------------------------------------

TEST_F(TagTemplate, AnUnknownStructureTypeIsRefusedAndTheRigKeepsNoSetup) {
    std::string text = SavedTemplate();
    text = Replace(text, "\nbiped\n8 \n", "\nnosuchskeleton\n8 \n");
    const std::string file = scratch.File("wrongtype.tagt");
    WriteAll(file, text);
    ORV::Model model = BareRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_FALSE(Load(model, file));
    const Log log = Messages();
    ASSERT_GE(log.size(), 2u);
    EXPECT_EQ(log[log.size() - 2], (std::pair<std::wstring, int>{L"Error Loading Structure File.", 4}));
    EXPECT_EQ(log.back(),
              (std::pair<std::wstring, int>{L"Cannot find orriginal structure file :nosuchskeleton", 4}));
    EXPECT_FALSE(modelmaptest::FindProperty(model.FindChild(L"Hips"), L"ZUKTag").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
}

TEST_F(TagTemplate, ATemplateNamingAnotherStructureAlertsEveryNameAndNeverCrashes) {
    std::string text = SavedTemplate();
    text = Replace(text, "\nbiped\n8 \n", "\nquadruped\n8 \n");
    const std::string file = scratch.File("quad.tagt");
    WriteAll(file, text);
    ORV::Model model = BareRig(L"Rig");
    orvhost::ClearLog();
    const bool loaded = Load(model, file);
    const Log log = Messages();
    ASSERT_FALSE(log.empty());
    // The torso's names are shared; the limbs of a quadruped are named otherwise.
    EXPECT_EQ(log.front(), (std::pair<std::wstring, int>{
                               L"Failed to load template file: Tag name lthigh is missing.", 4}));
    EXPECT_EQ(Value(model, L"StructureFile"), L"quadruped");
    // The biped's measures do not read on a quadruped: no map is stored.
    EXPECT_FALSE(loaded);
    EXPECT_EQ(log.back(),
              (std::pair<std::wstring, int>{L"Failed to inherit the template data.  The measures in " +
                                                structtest::Wide(file) + L" are damaged.",
                                            4}));
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
    EXPECT_TRUE(Dirty(model));
}

TEST_F(TagTemplate, AnObjectMissingFromTheRigStopsTheLoad) {
    const std::string text = SavedTemplate();
    const std::string file = scratch.File("cmu.tagt");
    WriteAll(file, text);
    ORV::Model model = BareRig(L"Rig");
    // The rig lacks its left toe.
    ORV::X3DObject toe = model.FindChild(L"LeftToeBase");
    ASSERT_TRUE(toe.IsValid());
    ORV::CValueArray args;
    args.Add(toe.GetFullName());
    ORV::CValue ignored;
    ORV::Application().ExecuteCommand(L"DeleteObj", args, ignored);
    ASSERT_FALSE(model.FindChild(L"LeftToeBase").IsValid());
    orvhost::ClearLog();
    EXPECT_FALSE(Load(model, file));
    const Log log = Messages();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), (std::pair<std::wstring, int>{
                              L"Failed to inherit the template data.  Template does not match the rig.", 4}));
    const Log notes = Notes();
    EXPECT_NE(std::find(notes.begin(), notes.end(),
                        std::pair<std::wstring, int>{L"Node LeftToeBase is missing.", 8}),
              notes.end());
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
    EXPECT_TRUE(Dirty(model));
}

TEST_F(TagTemplate, ATemplateCutInItsMeasuresStoresNoMap) {
    const std::string text = SavedTemplate();
    // The measures begin with their version, the structure's source and its type.
    const size_t measures = text.rfind("\n4 \nbiped\nbiped\n");
    ASSERT_NE(measures, std::string::npos);
    const std::string file = scratch.File("cut.tagt");
    WriteAll(file, text.substr(0, measures + (text.size() - measures) / 2));
    ORV::Model model = BareRig(L"Rig");
    orvhost::ClearLog();
    EXPECT_FALSE(Load(model, file));
    EXPECT_EQ(Messages(), (Log{{L"Failed to inherit the template data.  The measures in " +
                                    structtest::Wide(file) + L" are damaged.",
                                4}}));
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
    EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKGlue").IsValid());
    EXPECT_TRUE(Dirty(model));
    EXPECT_EQ(Value(model, L"cog"), L"Hips");
}

TEST_F(TagTemplate, ATemplateCutAnywhereNeverCrashesAndAFailedLoadStoresNoMap) {
    const std::string text = SavedTemplate();
    const std::string file = scratch.File("cut.tagt");
    const size_t step = text.size() / 37 + 1;
    for (size_t at = 1; at < text.size() - 1; at += step) {
        SCOPED_TRACE(at);
        WriteAll(file, text.substr(0, at));
        orvhost::ResetScene();
        orvhost::ClearLog();
        ORV::Model model = BareRig(L"Rig");
        if (!Load(model, file)) {
            EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
            EXPECT_FALSE(Messages().empty());
        }
    }
}

TEST_F(TagTemplate, RandomBytesNeverCrashAndLeaveNoSetup) {
    std::mt19937 random(13);
    const std::string file = scratch.File("noise.tagt");
    for (int round = 0; round < 8; ++round) {
        std::string bytes(2000 + round * 500, '\0');
        for (char& c : bytes) c = static_cast<char>(random() & 0xff);
        WriteAll(file, bytes);
        orvhost::ResetScene();
        orvhost::ClearLog();
        ORV::Model model = BareRig(L"Rig");
        EXPECT_FALSE(Load(model, file));
        const Log log = Messages();
        ASSERT_FALSE(log.empty());
        EXPECT_EQ(log.back().first.rfind(L"Cannot find orriginal structure file :", 0), 0u);
        EXPECT_FALSE(modelmaptest::FindProperty(model, L"ZUKMap").IsValid());
        EXPECT_FALSE(modelmaptest::FindProperty(model.FindChild(L"Hips"), L"ZUKTag").IsValid());
    }
}

}  // namespace
