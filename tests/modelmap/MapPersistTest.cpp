// The measures of a map kept on the model ("ZUKMap") and in tag templates (the text form):
// layout, round trips (in one process and through a scene file opened by another process),
// versions, and every message with its severity.
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "MapTestSupport.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "mocap/TempFile.h"
#include "shell/Util.h"

using maptest::AddExtractionTag;
using maptest::AddNullAt;
using maptest::AddTag;
using maptest::BuildMiniRig;
using maptest::MapTest;
using maptest::Messages;
using maptest::MiniRig;
using maptest::Text;
using ORV::MATH::CQuaternion;
using ORV::MATH::CRotation;
using ORV::MATH::CVector3;
using ZUK::ModelMap;

namespace {

std::string Narrow(const std::wstring& w) { return ORV::CString(w).GetAsciiString(); }

// Distinct values on every stored field: lengths and offsets with full double precision, an
// axis offset per node, and an extraction on lfoot (5) read on the object "lfootDriver".
void FillMeasures(ModelMap& map) {
    for (size_t i = 0; i < map.nodes.size(); ++i) {
        ZUK::NodeMap& node = map.nodes[i];
        node.length = 100.0 / (static_cast<double>(i) + 3.0) + M_PI;
        node.esrOffset.SetRotation(CRotation(0.1 * static_cast<double>(i) + 0.05, -0.3, 1.0 / 7.0));
        node.esrOffsetInverse = ZUK::Util::invertTransform(node.esrOffset);
    }
    map.hipOffset = -2.0 / 3.0;
    map.legLength = std::sqrt(8000.0);
}

ORV::Null AddDriver(MiniRig& rig) {
    ORV::Null driver = AddNullAt(rig.model, L"lfootDriver", CVector3(10, 5, 0));
    AddExtractionTag(driver, CVector3(0, 0, 1), CVector3(0, 1, 0));
    ZUK::TagMap::cleanupTags(rig.lshin);  // lfoot's tag goes, to come back with the extraction
    AddTag(rig.lfoot, L"lfoot", CVector3(0, 0, 1), CVector3(0, 1, 0), L"", L"", L"lfootDriver");
    return driver;
}

void GiveExtraction(ModelMap& map, ORV::X3DObject object) {
    ZUK::NodeMap& foot = map.nodes[5];
    if (!foot.extraction) foot.extraction = new ZUK::ExtractionMap();
    foot.extraction->object = object;
    foot.extraction->esrOffsetInverse.SetRotation(CRotation(0.7, 0.2, -0.4));
}

// Every value the stored forms keep, one per line, numbers with 17 digits.
std::string Dump(ModelMap& map) {
    std::ostringstream out;
    char number[64];
    auto put = [&](const char* key, double v) {
        std::snprintf(number, sizeof number, "%.17g", v);
        out << key << " " << number << "\n";
    };
    for (size_t i = 0; i < map.nodes.size(); ++i) {
        const ZUK::NodeMap& node = map.nodes[i];
        out << "node " << i << "\n";
        put("length", node.length);
        const CQuaternion q = node.esrOffset.GetRotationQuaternion();
        put("rw", q.GetW());
        put("rx", q.GetX());
        put("ry", q.GetY());
        put("rz", q.GetZ());
        // The inverse is the conjugate of the offset.
        const CQuaternion qi = node.esrOffsetInverse.GetRotationQuaternion();
        put("iw", qi.GetW());
        put("ix", -qi.GetX());
        put("iy", -qi.GetY());
        put("iz", -qi.GetZ());
        if (node.extraction) {
            const CQuaternion e = node.extraction->esrOffsetInverse.GetRotationQuaternion();
            put("ew", e.GetW());
            put("ex", e.GetX());
            put("ey", e.GetY());
            put("ez", e.GetZ());
            out << "eobject " << node.extraction->object.GetFullName().GetAsciiString() << "\n";
        }
    }
    put("hipOffset", map.hipOffset);
    put("legLength", map.legLength);
    return out.str();
}

// Lengths, names and the map's measures must be equal to the bit; a rotation rebuilt from its
// stored quaternion is normalised again, which may move the last bit of a component.
void ExpectSameDump(const std::string& expected, const std::string& got) {
    std::istringstream a(expected), b(got);
    std::string lineA, lineB;
    int line = 0;
    while (std::getline(a, lineA)) {
        ++line;
        ASSERT_TRUE(static_cast<bool>(std::getline(b, lineB))) << "missing line " << line << ": " << lineA;
        std::istringstream fa(lineA), fb(lineB);
        std::string keyA, keyB, valueA, valueB;
        fa >> keyA >> valueA;
        fb >> keyB >> valueB;
        ASSERT_EQ(keyA, keyB) << "line " << line;
        const bool rotation = keyA.size() == 2 && (keyA[0] == 'r' || keyA[0] == 'i' || keyA[0] == 'e');
        if (rotation) {
            EXPECT_NEAR(std::atof(valueA.c_str()), std::atof(valueB.c_str()), 1e-15)
                << lineA << " / " << lineB;
        } else {
            EXPECT_EQ(valueA, valueB) << "line " << line;
        }
    }
    EXPECT_FALSE(static_cast<bool>(std::getline(b, lineB))) << "extra line: " << lineB;
}

ORV::CustomProperty MapProperty(ORV::Model model) {
    ORV::Property p;
    if (!ZUK::Util::findCustomPSet(model, ModelMap::PROPERTY_NAME, p)) return ORV::CustomProperty();
    return ORV::CustomProperty(p.GetRef());
}

ORV::GridData NodesGrid(ORV::Model model) {
    return ORV::GridData(static_cast<ORV::CRef>(MapProperty(model).GetParameter(L"Nodes").GetValue()));
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

class MapPersist : public MapTest {
protected:
    void SetUp() override {
        MapTest::SetUp();
        rig = BuildMiniRig();
        rig.TagAll();
        structure = LoadStructure();
        ASSERT_TRUE(structure);
    }

    // A map of the rig with the measures filled, saved on the model.
    std::unique_ptr<ModelMap> SavedMap() {
        auto map = std::make_unique<ModelMap>(rig.model, structure.get());
        FillMeasures(*map);
        map->SaveToCustomProperty();
        return map;
    }

    // A new map of the rig on a fresh structure, loaded from the property.
    std::unique_ptr<ModelMap> Reloaded() {
        fresh = LoadStructure();
        auto map = std::make_unique<ModelMap>(rig.model, fresh.get());
        orvhost::ClearLog();
        map->LoadFromCustomProperty();
        return map;
    }

    MiniRig rig;
    std::unique_ptr<ZUK::ModelStructure> structure, fresh;
};

}  // namespace

TEST_F(MapPersist, SavedPropertyHasItsParametersInOrderWithTheirTypesAndTheNodeGrid) {
    auto map = SavedMap();
    ORV::CustomProperty property = MapProperty(rig.model);
    ASSERT_TRUE(property.IsValid());
    EXPECT_EQ(Text(property.GetType()), L"CustomProperty");
    ORV::CRefArray parameters = property.GetParameters();
    ASSERT_EQ(parameters.GetCount(), 6);
    const wchar_t* names[6] = {L"Version", L"Source", L"Type", L"Nodes", L"HipOffset", L"LegLength"};
    for (long k = 0; k < 6; ++k) EXPECT_EQ(Text(ORV::Parameter(parameters[k]).GetScriptName()), names[k]);
    const ORV::Parameter version(parameters[0]), source(parameters[1]), type(parameters[2]);
    const ORV::Parameter hip(parameters[4]), leg(parameters[5]);
    EXPECT_EQ(version.GetValueType(), ORV::ovString);
    EXPECT_EQ(version.GetCapabilities(), 4);
    EXPECT_EQ(Text(version.GetDescription()), L"Version of the map format");
    EXPECT_EQ(Text(version.GetValue().GetAsText()), L"4");
    EXPECT_EQ(source.GetValueType(), ORV::ovString);
    EXPECT_EQ(source.GetCapabilities(), 4);
    EXPECT_EQ(Text(source.GetDescription()), L"Source file for the map structure");
    EXPECT_EQ(Text(source.GetValue().GetAsText()), L"mini");
    EXPECT_EQ(type.GetValueType(), ORV::ovString);
    EXPECT_EQ(type.GetCapabilities(), 4);
    EXPECT_EQ(Text(type.GetDescription()), L"Type of the simple rig used for mapping");
    EXPECT_EQ(Text(type.GetValue().GetAsText()), L"mini");
    EXPECT_EQ(hip.GetValueType(), ORV::ovDouble);
    EXPECT_EQ(hip.GetCapabilities(), 4);
    EXPECT_EQ(static_cast<double>(hip.GetValue()), -2.0 / 3.0);
    EXPECT_EQ(leg.GetValueType(), ORV::ovDouble);
    EXPECT_EQ(leg.GetCapabilities(), 4);
    EXPECT_EQ(static_cast<double>(leg.GetValue()), std::sqrt(8000.0));

    ORV::GridData grid = NodesGrid(rig.model);
    ASSERT_EQ(grid.GetColumnCount(), 11);
    ASSERT_EQ(grid.GetRowCount(), 9);
    const wchar_t* labels[11] = {L"Name",  L"Length", L"RotW",  L"RotX",  L"RotY", L"RotZ",
                                 L"eRotW", L"eRotX",  L"eRotY", L"eRotZ", L"eName"};
    for (long c = 0; c < 11; ++c) EXPECT_EQ(Text(grid.GetColumnLabel(c)), labels[c]);
    for (long r = 0; r < 9; ++r) {
        SCOPED_TRACE(r);
        EXPECT_EQ(Text(grid.GetCell(0, r).GetAsText()), Text(structure->nodes[r].Name));
        EXPECT_EQ(static_cast<double>(grid.GetCell(1, r)), map->nodes[static_cast<size_t>(r)].length);
        const CQuaternion q = map->nodes[static_cast<size_t>(r)].esrOffset.GetRotationQuaternion();
        EXPECT_EQ(static_cast<double>(grid.GetCell(2, r)), q.GetW());
        EXPECT_EQ(static_cast<double>(grid.GetCell(3, r)), q.GetX());
        EXPECT_EQ(static_cast<double>(grid.GetCell(4, r)), q.GetY());
        EXPECT_EQ(static_cast<double>(grid.GetCell(5, r)), q.GetZ());
        // No extraction: four zeros and an empty name.
        for (long c = 6; c < 10; ++c) EXPECT_EQ(static_cast<double>(grid.GetCell(c, r)), 0.0);
        EXPECT_EQ(Text(grid.GetCell(10, r).GetAsText()), L"");
    }
}

TEST_F(MapPersist, SavingAgainReplacesTheProperty) {
    auto map = SavedMap();
    map->legLength = 12.5;
    map->SaveToCustomProperty();
    int count = 0;
    ORV::CRefArray properties = rig.model.GetProperties();
    for (long k = 0; k < properties.GetCount(); ++k) {
        const ORV::CString name = ORV::Property(properties[k]).GetName();
        if (Text(name).rfind(L"ZUKMap", 0) == 0) ++count;
    }
    EXPECT_EQ(count, 1);
    EXPECT_EQ(static_cast<double>(MapProperty(rig.model).GetParameterValue(L"LegLength")), 12.5);
}

TEST_F(MapPersist, LoadRestoresEveryStoredValueOntoAMapBuiltFromTheTags) {
    ORV::Null driver = AddDriver(rig);
    auto map = std::make_unique<ModelMap>(rig.model, structure.get());
    FillMeasures(*map);
    GiveExtraction(*map, driver);
    map->SaveToCustomProperty();
    EXPECT_EQ(Text(NodesGrid(rig.model).GetCell(10, 5).GetAsText()), L"lfootDriver");

    auto loaded = Reloaded();
    EXPECT_TRUE(loaded->valid);
    EXPECT_TRUE(Messages(0).empty());
    ExpectSameDump(Dump(*map), Dump(*loaded));
    // A restored extraction keeps only its offset and object: its directions stay zero... but
    // this map found the extraction in the tags first, and the load put a new record in place.
    ASSERT_NE(loaded->nodes[5].extraction, nullptr);
    EXPECT_TRUE(loaded->nodes[5].extraction->object == driver);
    EXPECT_TRUE(loaded->nodes[5].extraction->align.Equals(CVector3(), 0.0));
    EXPECT_TRUE(loaded->nodes[5].extraction->roll.Equals(CVector3(), 0.0));
}

TEST_F(MapPersist, OlderVersionInThePropertyLoads) {
    auto map = SavedMap();
    MapProperty(rig.model).PutParameterValue(L"Version", ORV::CValue(ORV::CString(L"3")));
    auto loaded = Reloaded();
    EXPECT_TRUE(loaded->valid);
    EXPECT_TRUE(Messages(0).empty());
    ExpectSameDump(Dump(*map), Dump(*loaded));
}

TEST_F(MapPersist, NewerVersionInThePropertyIsRefused) {
    auto map = SavedMap();
    MapProperty(rig.model).PutParameterValue(L"Version", ORV::CValue(ORV::CString(L"5")));
    auto loaded = Reloaded();
    EXPECT_FALSE(loaded->valid);
    EXPECT_EQ(Messages(8),
              std::vector<std::wstring>{L"ModelMap property has version 5, was expecting 4 or lower"});
    EXPECT_EQ(Messages(0).size(), 1u);
    // Nothing was taken.
    EXPECT_EQ(loaded->legLength, 0.0);
    EXPECT_EQ(loaded->nodes[0].length, 0.0);
}

TEST_F(MapPersist, MissingPropertyIsReported) {
    auto loaded = Reloaded();
    EXPECT_FALSE(loaded->valid);
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"ModelMap property not found"});
    EXPECT_EQ(Messages(0).size(), 1u);
}

TEST_F(MapPersist, PropertyWithoutVersionIsReported) {
    ORV::CustomProperty p(rig.model.AddProperty(L"CustomProperty", false, ModelMap::PROPERTY_NAME).GetRef());
    ORV::Parameter ignored;
    p.AddParameter(L"Type", ORV::ovString, 4, L"", L"", ORV::CValue(ORV::CString(L"mini")), ignored);
    auto loaded = Reloaded();
    EXPECT_FALSE(loaded->valid);
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"ModelMap property is missing Version parameter"});
}

TEST_F(MapPersist, PropertyWithoutTypeIsReported) {
    ORV::CustomProperty p(rig.model.AddProperty(L"CustomProperty", false, ModelMap::PROPERTY_NAME).GetRef());
    ORV::Parameter ignored;
    p.AddParameter(L"Version", ORV::ovString, 4, L"", L"", ORV::CValue(4), ignored);
    auto loaded = Reloaded();
    EXPECT_FALSE(loaded->valid);
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"ModelMap property is missing Type parameter"});
}

TEST_F(MapPersist, PropertyOfAnotherStructureTypeIsRefused) {
    auto map = SavedMap();
    MapProperty(rig.model).PutParameterValue(L"Type", ORV::CValue(ORV::CString(L"biped")));
    auto loaded = Reloaded();
    EXPECT_FALSE(loaded->valid);
    EXPECT_EQ(Messages(8),
              std::vector<std::wstring>{L"ModelMap property has type biped, was expecting mini"});
    EXPECT_EQ(loaded->nodes[0].length, 0.0);
}

TEST_F(MapPersist, PropertyRowWithAnotherNameIsLoggedAndTakenAllTheSame) {
    auto map = SavedMap();
    NodesGrid(rig.model).PutCell(0, 4, ORV::CValue(ORV::CString(L"lknee")));
    auto loaded = Reloaded();
    EXPECT_TRUE(loaded->valid);
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"name mismatch: got lknee, was expecting lshin"});
    EXPECT_EQ(Messages(0).size(), 1u);
    ExpectSameDump(Dump(*map), Dump(*loaded));
}

TEST_F(MapPersist, ShortExtractionQuaternionMeansNoExtractionAndTheTagsRecordStays) {
    AddDriver(rig);
    auto map = std::make_unique<ModelMap>(rig.model, structure.get());
    FillMeasures(*map);
    map->SaveToCustomProperty();  // no extraction record was stored: row 5 holds zeros
    // A quaternion of length exactly 0.5 is still "no extraction".
    ORV::GridData grid = NodesGrid(rig.model);
    grid.PutCell(6, 5, ORV::CValue(0.5));
    grid.PutCell(10, 5, ORV::CValue(ORV::CString(L"cog")));
    auto loaded = Reloaded();
    EXPECT_TRUE(loaded->valid);
    // The record FindTags made from the tags, with its directions, stands as it was.
    ASSERT_NE(loaded->nodes[5].extraction, nullptr);
    EXPECT_EQ(Text(loaded->nodes[5].extraction->object.GetName()), L"lfootDriver");
    EXPECT_TRUE(loaded->nodes[5].extraction->align.Equals(CVector3(0, 0, 1), 0.0));
    EXPECT_TRUE(loaded->nodes[5].extraction->esrOffsetInverse.GetRotation().Equals(CRotation(), 0.0));
    for (size_t i = 0; i < loaded->nodes.size(); ++i) {
        if (i != 5) {
            EXPECT_EQ(loaded->nodes[i].extraction, nullptr);
        }
    }
}

TEST_F(MapPersist, ExtractionQuaternionAboveHalfMakesARecordOnTheNamedObject) {
    auto map = SavedMap();
    ORV::GridData grid = NodesGrid(rig.model);
    grid.PutCell(6, 2, ORV::CValue(0.0));
    grid.PutCell(7, 2, ORV::CValue(0.6));
    grid.PutCell(8, 2, ORV::CValue(0.0));
    grid.PutCell(9, 2, ORV::CValue(0.0));
    grid.PutCell(10, 2, ORV::CValue(ORV::CString(L"lupperarm")));
    auto loaded = Reloaded();
    ASSERT_NE(loaded->nodes[2].extraction, nullptr);
    EXPECT_TRUE(loaded->nodes[2].extraction->object == rig.lupperarm);
    // Normalised: a half turn about X.
    EXPECT_TRUE(loaded->nodes[2].extraction->esrOffsetInverse.GetRotation().Equals(
        CRotation(CVector3(1, 0, 0), M_PI), 1e-12));
}

// ---- The text form ----------------------------------------------------------------------------

TEST_F(MapPersist, MapWithoutExtractionWritesFourZerosAndAnEmptyNameOnEachRow) {
    ModelMap map(rig.model, structure.get());
    for (size_t i = 0; i < map.nodes.size(); ++i) map.nodes[i].length = 0.5 + static_cast<double>(i);
    map.nodes[1].esrOffset.SetRotationFromQuaternion(CQuaternion(0, 0, 0, 1));  // a half turn about Z
    map.hipOffset = -1.25;
    map.legLength = 90;
    trovotest::TempFile file("", ".txt");
    {
        ZUK::OutputStream out(ORV::CString(file.Narrow().c_str()));
        ASSERT_NE(out.file, nullptr);
        map.WriteToStream(out);
    }
    std::string expected = "4 \nmini\nmini\n";
    const char* names[9] = {"cog",   "spine",     "chest",    "lthigh", "lshin",
                            "lfoot", "lupperarm", "lforearm", "lhand"};
    for (int i = 0; i < 9; ++i) {
        char length[16];
        std::snprintf(length, sizeof length, "%g", 0.5 + i);
        expected +=
            std::string(names[i]) + "\n" + length + " " + (i == 1 ? "0 0 0 1 " : "1 0 0 0 ") + "0 0 0 0 \n";
    }
    expected += "-1.25 90 ";
    EXPECT_EQ(ReadFile(file.Narrow()), expected);
}

TEST_F(MapPersist, TextFormReadsBackEveryValue) {
    ORV::Null driver = AddDriver(rig);
    ModelMap map(rig.model, structure.get());
    FillMeasures(map);
    GiveExtraction(map, driver);
    trovotest::TempFile file("", ".txt");
    {
        ZUK::OutputStream out(ORV::CString(file.Narrow().c_str()));
        map.WriteToStream(out);
    }
    fresh = LoadStructure();
    ModelMap other(rig.model, fresh.get());
    ZUK::InputStream in(ORV::CString(file.Narrow().c_str()));
    orvhost::ClearLog();
    other.ReadFromStream(in);
    EXPECT_TRUE(other.valid);
    EXPECT_TRUE(Messages(0).empty());
    ExpectSameDump(Dump(map), Dump(other));
}

TEST_F(MapPersist, StreamOfAnotherVersionIsAMismatch) {
    trovotest::TempFile file("3 \nmini\nmini\ncog\n7 1 0 0 0 0 0 0 0 \n");
    ModelMap map(rig.model, structure.get());
    ZUK::InputStream in(ORV::CString(file.Narrow().c_str()));
    orvhost::ClearLog();
    map.ReadFromStream(in);
    EXPECT_FALSE(map.valid);
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"Map version mismatch"});
    EXPECT_EQ(map.nodes[0].length, 0.0);
}

TEST_F(MapPersist, StreamOfAnotherStructureSourceOrTypeIsAMismatch) {
    {
        trovotest::TempFile file("4 \nother\nmini\ncog\n7 1 0 0 0 0 0 0 0 \n");
        ModelMap map(rig.model, structure.get());
        ZUK::InputStream in(ORV::CString(file.Narrow().c_str()));
        orvhost::ClearLog();
        map.ReadFromStream(in);
        EXPECT_FALSE(map.valid);
        EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"Structure source file mismatch"});
        EXPECT_EQ(map.nodes[0].length, 0.0);
    }
    {
        trovotest::TempFile file("4 \nmini\nother\ncog\n7 1 0 0 0 0 0 0 0 \n");
        ModelMap map(rig.model, structure.get());
        ZUK::InputStream in(ORV::CString(file.Narrow().c_str()));
        orvhost::ClearLog();
        map.ReadFromStream(in);
        EXPECT_FALSE(map.valid);
        EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"Structure type mismatch"});
    }
}

TEST_F(MapPersist, StreamRowWithAnotherNameIsLoggedAndEndsTheReading) {
    trovotest::TempFile file(
        "4 \nmini\nmini\ncog\n7 1 0 0 0 0 0 0 0 \nspine\n8 1 0 0 0 0 0 0 0 \n"
        "torso\n9 1 0 0 0 0 0 0 0 \nlthigh\n10 1 0 0 0 0 0 0 0 \n");
    ModelMap map(rig.model, structure.get());
    ZUK::InputStream in(ORV::CString(file.Narrow().c_str()));
    orvhost::ClearLog();
    map.ReadFromStream(in);
    EXPECT_FALSE(map.valid);
    EXPECT_EQ(Messages(8), std::vector<std::wstring>{L"name mismatch: got torso, was expecting chest"});
    EXPECT_EQ(map.nodes[0].length, 7.0);
    EXPECT_EQ(map.nodes[1].length, 8.0);
    EXPECT_EQ(map.nodes[2].length, 0.0);
    EXPECT_EQ(map.nodes[3].length, 0.0);
}

TEST_F(MapPersist, TruncatedTextFormNeverCrashesAndEndsInvalidBeforeTheLastNode) {
    ORV::Null driver = AddDriver(rig);
    ModelMap map(rig.model, structure.get());
    FillMeasures(map);
    GiveExtraction(map, driver);
    trovotest::TempFile file("", ".txt");
    {
        ZUK::OutputStream out(file.Path());
        map.WriteToStream(out);
    }
    const std::string whole = ReadFile(file.Narrow());
    const size_t lastNode = whole.rfind("lhand\n");
    ASSERT_NE(lastNode, std::string::npos);
    for (size_t n = 0; n <= whole.size(); n += 3) {
        trovotest::TempFile part(whole.substr(0, n), ".txt");
        fresh = LoadStructure();
        ModelMap other(rig.model, fresh.get());
        ZUK::InputStream in(part.Path());
        other.ReadFromStream(in);
        if (n < lastNode) {
            EXPECT_FALSE(other.valid) << n;
        }
    }
}

// ---- Through a scene file and another process -------------------------------------------------

TEST_F(MapPersist, MapSavedInASceneFileLoadsInAnotherProcessWithEveryValueEqual) {
    if (const char* scene = std::getenv("TROVO_MAP_CHILD_SCENE")) {
        // The child: a new scene opened from the file, a map built from its tags and loaded.
        orvhost::ResetScene();
        std::wstring error;
        ASSERT_TRUE(orvhost::OpenScene(scene, error)) << Narrow(error);
        ORV::Model model(ORV::CRef::FromPath(L"Rig"));
        ASSERT_TRUE(model.IsValid());
        auto s = LoadStructure();
        ModelMap map(model, s.get());
        map.LoadFromCustomProperty();
        ASSERT_TRUE(map.valid);
        WriteFile(std::getenv("TROVO_MAP_CHILD_OUT"), Dump(map));
        return;
    }
    ORV::Null driver = AddDriver(rig);
    ModelMap map(rig.model, structure.get());
    FillMeasures(map);
    GiveExtraction(map, driver);
    map.SaveToCustomProperty();
    const std::string expected = Dump(map);

    const std::string base = std::string(::testing::TempDir()) + "zukmap_child_" + std::to_string(::getpid());
    const std::string scenePath = base + ".orvscene", outPath = base + ".txt";
    std::wstring error;
    ASSERT_TRUE(orvhost::SaveScene(scenePath, error)) << Narrow(error);
    char self[4096];
    const ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
    ASSERT_GT(n, 0);
    self[n] = '\0';
    const std::string command =
        "TROVO_MAP_CHILD_SCENE='" + scenePath + "' TROVO_MAP_CHILD_OUT='" + outPath + "' '" +
        std::string(self) +
        "' --gtest_filter=MapPersist."
        "MapSavedInASceneFileLoadsInAnotherProcessWithEveryValueEqual > /dev/null 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0);
    const std::string got = ReadFile(outPath);
    ASSERT_FALSE(got.empty());
    ExpectSameDump(expected, got);
    std::remove(scenePath.c_str());
    std::remove(outPath.c_str());
}
