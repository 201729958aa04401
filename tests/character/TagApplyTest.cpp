// Putting tags on a rig (from a tag panel's values and from a tag map), marking capture nodes,
// expressing the canonical directions in an object's own space, and removing tags.
#include <cfloat>
#include <cmath>
#include <memory>

#include "mocap/Mocap.h"
#include "modelmap/MapTestSupport.h"
#include "shell/Util.h"

using maptest::AddNullAt;
using maptest::AddTag;
using maptest::BuildMiniRig;
using maptest::GlobalOf;
using maptest::MapTest;
using maptest::Messages;
using maptest::MiniRig;
using maptest::Text;
using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::TagMap;

namespace {

bool HasProperty(const ORV::X3DObject& object, const wchar_t* name) {
    ORV::Property p;
    return ZUK::Util::findCustomPSet(object, name, p);
}

ORV::Property PropertyOf(const ORV::X3DObject& object, const wchar_t* name) {
    ORV::Property p;
    if (!ZUK::Util::findCustomPSet(object, name, p)) return ORV::Property();
    return p;
}

int CountProperties(const ORV::X3DObject& object, const wchar_t* prefix) {
    int count = 0;
    ORV::CRefArray properties = object.GetProperties();
    for (long k = 0; k < properties.GetCount(); ++k) {
        if (Text(ORV::Property(properties[k]).GetName()).rfind(prefix, 0) == 0) ++count;
    }
    return count;
}

std::wstring StringParam(const ORV::X3DObject& object, const wchar_t* property, const wchar_t* name) {
    return Text(PropertyOf(object, property).GetParameterValue(name).GetAsText());
}

CVector3 Directions(const ORV::X3DObject& object, const wchar_t* property, const wchar_t* first) {
    ORV::Property p = PropertyOf(object, property);
    const std::wstring base(first);  // "align" or "roll"
    return CVector3(static_cast<double>(p.GetParameterValue((base + L"x").c_str())),
                    static_cast<double>(p.GetParameterValue((base + L"y").c_str())),
                    static_cast<double>(p.GetParameterValue((base + L"z").c_str())));
}

// A float parameter holds the value narrowed to float.
CVector3 AsFloats(const CVector3& v) {
    return CVector3(static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z));
}

// The directions a node of the mini structure has in the object's own space, computed here:
// the canonical vector as a row times the transpose of the object's rotation matrix (the
// inverse of a rotation), negated for an object mirrored in X.
void ExpectedDirections(const CVector3& align, const CVector3& roll, const CTransformation& global,
                        CVector3& a, CVector3& r) {
    const ORV::MATH::CMatrix3 m = global.GetRotation().GetMatrix();
    auto back = [&](const CVector3& v) {
        return CVector3(v.x * m(0, 0) + v.y * m(0, 1) + v.z * m(0, 2),
                        v.x * m(1, 0) + v.y * m(1, 1) + v.z * m(1, 2),
                        v.x * m(2, 0) + v.y * m(2, 1) + v.z * m(2, 2));
    };
    a = back(align);
    r = back(roll);
    if (global.GetScaling().x < 0) {
        a = -a;
        r = -r;
    }
}

class TagApply : public MapTest {
protected:
    void SetUp() override {
        MapTest::SetUp();
        rig = BuildMiniRig();
        structure = LoadStructure();
        ASSERT_TRUE(structure);
    }

    // A tag panel's property: four settings, then one parameter per tag whose value is
    // "control|extraction".
    ORV::CustomProperty Panel(std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> tags) {
        ORV::CustomProperty p(rig.model.AddProperty(L"CustomProperty", false, L"TagPanel").GetRef());
        ORV::Parameter ignored;
        for (const wchar_t* setting : {L"StructureFile", L"Mode", L"Version", L"Side"})
            p.AddParameter(setting, ORV::ovString, 4, L"", L"", ORV::CValue(ORV::CString(L"lhand")), ignored);
        for (const auto& tag : tags)
            p.AddParameter(tag.first, ORV::ovString, 4, L"", L"", ORV::CValue(ORV::CString(tag.second)),
                           ignored);
        return p;
    }

    MiniRig rig;
    std::unique_ptr<ZUK::ModelStructure> structure;
};

}  // namespace

// ---- Directions in the object's own space ------------------------------------------------------

TEST_F(TagApply, DirectionsAreTheCanonicalOnesSeenFromTheObject) {
    // A quarter turn about Z takes X to Y; the arm's X direction is then -Y in the object.
    rig.lupperarm.GetKinematics().GetGlobal().PutTransform(
        CTransformation()
            .SetTranslationFromValues(15, 140, 0)
            .SetRotation(CRotation(CVector3(0, 0, 1), M_PI / 2)));
    CVector3 align, roll;
    ZUK::CalcAlignAndRollForRigNodes(L"lupperarm", structure.get(), rig.lupperarm, align, roll);
    EXPECT_TRUE(align.Equals(CVector3(0, -1, 0), 1e-12));
    EXPECT_TRUE(roll.Equals(CVector3(0, 0, 1), 1e-12));
    // A general turn, checked against the transpose of the object's matrix.
    rig.lshin.GetKinematics().GetGlobal().PutTransform(
        CTransformation().SetTranslationFromValues(10, 50, 5).SetRotation(CRotation(0.3, -1.1, 2.0)));
    ZUK::CalcAlignAndRollForRigNodes(L"lfoot", structure.get(), rig.lshin, align, roll);
    CVector3 a, r;
    ExpectedDirections(CVector3(0, 0, 1), CVector3(0, 1, 0), GlobalOf(rig.lshin), a, r);
    EXPECT_TRUE(align.Equals(a, 1e-12));
    EXPECT_TRUE(roll.Equals(r, 1e-12));
}

TEST_F(TagApply, ObjectMirroredByANegativeXScaleGetsNegatedDirections) {
    CTransformation mirrored;
    mirrored.SetTranslationFromValues(70, 140, 0);
    mirrored.SetRotation(CRotation(0, 0.5, 0));
    mirrored.SetScalingFromValues(-1, 1, 1);
    rig.lhand.GetKinematics().GetGlobal().PutTransform(mirrored);
    ASSERT_LT(GlobalOf(rig.lhand).GetScaling().x, 0.0);
    CVector3 align, roll;
    ZUK::CalcAlignAndRollForRigNodes(L"lhand", structure.get(), rig.lhand, align, roll);
    CVector3 a, r;
    ExpectedDirections(CVector3(1, 0, 0), CVector3(0, 0, 1), GlobalOf(rig.lhand), a, r);
    EXPECT_LT(a.x, 0.0);  // the negation did happen: the unmirrored X direction has x > 0
    EXPECT_TRUE(align.Equals(a, 1e-12)) << align.x << " " << align.y << " " << align.z;
    EXPECT_TRUE(roll.Equals(r, 1e-12));
}

TEST_F(TagApply, UnknownTagLeavesTheDirectionsAsTheyCame) {
    CVector3 align(1, 2, 3), roll(4, 5, 6);
    ZUK::CalcAlignAndRollForRigNodes(L"tail", structure.get(), rig.cog, align, roll);
    EXPECT_TRUE(align.Equals(CVector3(1, 2, 3), 0.0));
    EXPECT_TRUE(roll.Equals(CVector3(4, 5, 6), 0.0));
}

// ---- From a tag panel's values -----------------------------------------------------------------

TEST_F(TagApply, PanelValuesPutATagPropertyOnEachObject) {
    rig.lshin.GetKinematics().GetGlobal().PutTransform(
        CTransformation().SetTranslationFromValues(10, 50, 5).SetRotation(CRotation(0.2, 0.4, -0.3)));
    ORV::CustomProperty panel = Panel({{L"cog", L"cog"}, {L"lshin", L"lshin"}});
    EXPECT_TRUE(TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false));

    ORV::Property tag = PropertyOf(rig.lshin, TagMap::PROPERTY_NAME);
    ASSERT_TRUE(tag.IsValid());
    EXPECT_EQ(Text(tag.GetType()), L"CustomProperty");
    ORV::CRefArray parameters = tag.GetParameters();
    const wchar_t* names[10] = {L"tagname", L"override", L"alignx", L"aligny",          L"alignz",
                                L"rollx",   L"rolly",    L"rollz",  L"tpose_transform", L"extractNode"};
    ASSERT_EQ(parameters.GetCount(), 10);
    for (long k = 0; k < 10; ++k) {
        SCOPED_TRACE(k);
        ORV::Parameter p(parameters[k]);
        EXPECT_EQ(Text(p.GetScriptName()), names[k]);
        EXPECT_EQ(p.GetCapabilities(), 6);
        EXPECT_EQ(Text(p.GetDescription()), L"");
        const bool direction = k >= 2 && k <= 7;
        EXPECT_EQ(p.GetValueType(), direction ? ORV::ovFloat : ORV::ovString);
        if (direction) {
            EXPECT_EQ(static_cast<double>(p.GetMin()), -3.4028234663852886e38);
            EXPECT_EQ(static_cast<double>(p.GetMax()), 3.4028234663852886e38);
            EXPECT_EQ(static_cast<double>(p.GetSuggestedMin()), -3.4028234663852886e38);
            EXPECT_EQ(static_cast<double>(p.GetSuggestedMax()), 3.4028234663852886e38);
        }
    }
    EXPECT_EQ(StringParam(rig.lshin, TagMap::PROPERTY_NAME, L"tagname"), L"lshin");
    EXPECT_EQ(StringParam(rig.lshin, TagMap::PROPERTY_NAME, L"override"), L"");
    EXPECT_EQ(StringParam(rig.lshin, TagMap::PROPERTY_NAME, L"extractNode"), L"");
    CVector3 a, r;
    ExpectedDirections(CVector3(0, -1, 0), CVector3(0, 0, 1), GlobalOf(rig.lshin), a, r);
    EXPECT_TRUE(Directions(rig.lshin, TagMap::PROPERTY_NAME, L"align").Equals(AsFloats(a), 0.0));
    EXPECT_TRUE(Directions(rig.lshin, TagMap::PROPERTY_NAME, L"roll").Equals(AsFloats(r), 0.0));
    // The pose when tagged: axis, angle, translation, as the host writes numbers.
    double angle = 0.0;
    const CVector3 axis = CRotation(0.2, 0.4, -0.3).GetAxisAngle(angle);
    std::wstring pose;
    for (double v : {axis.x, axis.y, axis.z, angle, 10.0, 50.0, 5.0}) {
        if (!pose.empty()) pose += L",";
        pose += Text(ORV::CValue(v).GetAsText());
    }
    const std::wstring written = StringParam(rig.lshin, TagMap::PROPERTY_NAME, L"tpose_transform");
    ORV::CStringArray parts = ORV::CString(written.c_str()).Split(L",");
    ASSERT_EQ(parts.GetCount(), 7);
    const double expected[7] = {axis.x, axis.y, axis.z, angle, 10, 50, 5};
    for (long k = 0; k < 7; ++k)
        EXPECT_NEAR(static_cast<double>(ORV::CValue(parts[k])), expected[k], 1e-12) << k;
    EXPECT_TRUE(HasProperty(rig.cog, TagMap::PROPERTY_NAME));
    EXPECT_FALSE(HasProperty(rig.spine, TagMap::PROPERTY_NAME));
    // The map reads the pose back.
    ZUK::ModelMap map(rig.model, structure.get());
    EXPECT_TRUE(map.nodes[4].tpose.GetTranslation().Equals(CVector3(10, 50, 5), 1e-9));
    EXPECT_TRUE(map.nodes[4].tpose.GetRotation().Equals(CRotation(0.2, 0.4, -0.3), 1e-9));
}

TEST_F(TagApply, SecondTagOnAnObjectBecomesItsOverride) {
    ORV::CustomProperty panel = Panel({{L"lforearm", L"lforearm"}, {L"lhand", L"lforearm"}});
    TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false);
    EXPECT_EQ(CountProperties(rig.lforearm, TagMap::PROPERTY_NAME), 1);
    EXPECT_EQ(StringParam(rig.lforearm, TagMap::PROPERTY_NAME, L"tagname"), L"lforearm");
    EXPECT_EQ(StringParam(rig.lforearm, TagMap::PROPERTY_NAME, L"override"), L"lhand");
}

TEST_F(TagApply, SecondTagCogLeavesThePropertyAsItStands) {
    ORV::CustomProperty panel = Panel({{L"spine", L"cog"}, {L"cog", L"cog"}});
    TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false);
    EXPECT_EQ(CountProperties(rig.cog, TagMap::PROPERTY_NAME), 1);
    EXPECT_EQ(StringParam(rig.cog, TagMap::PROPERTY_NAME, L"tagname"), L"spine");
    EXPECT_EQ(StringParam(rig.cog, TagMap::PROPERTY_NAME, L"override"), L"");
}

TEST_F(TagApply, ExtractionObjectGetsItsOwnDirectionsInAnExtractionTag) {
    ORV::Null driver = AddNullAt(rig.model, L"footDriver", CVector3(10, 0, 0), CRotation(0.0, 1.0, 0.0));
    ORV::CustomProperty panel = Panel({{L"lfoot", L"lfoot|footDriver"}});
    TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false);
    EXPECT_EQ(StringParam(rig.lfoot, TagMap::PROPERTY_NAME, L"extractNode"), L"footDriver");
    ORV::Property extraction = PropertyOf(driver, TagMap::EXTRACTION_NAME);
    ASSERT_TRUE(extraction.IsValid());
    ORV::CRefArray parameters = extraction.GetParameters();
    ASSERT_EQ(parameters.GetCount(), 6);
    EXPECT_EQ(Text(ORV::Parameter(parameters[0]).GetScriptName()), L"alignx");
    EXPECT_EQ(Text(ORV::Parameter(parameters[5]).GetScriptName()), L"rollz");
    CVector3 a, r;
    ExpectedDirections(CVector3(0, 0, 1), CVector3(0, 1, 0), GlobalOf(driver), a, r);
    EXPECT_TRUE(Directions(driver, TagMap::EXTRACTION_NAME, L"align").Equals(AsFloats(a), 0.0));
    EXPECT_TRUE(Directions(driver, TagMap::EXTRACTION_NAME, L"roll").Equals(AsFloats(r), 0.0));
    EXPECT_FALSE(HasProperty(driver, TagMap::PROPERTY_NAME));
    // The map finds the extraction through the tags.
    ZUK::ModelMap map(rig.model, structure.get());
    ASSERT_NE(map.nodes[5].extraction, nullptr);
    EXPECT_TRUE(map.nodes[5].extraction->object == driver);
}

TEST_F(TagApply, ExtractionNameEqualToTheControlNameGivesAnEmptyExtractNode) {
    ORV::CustomProperty panel = Panel({{L"lfoot", L"lfoot|lfoot"}});
    TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false);
    EXPECT_EQ(StringParam(rig.lfoot, TagMap::PROPERTY_NAME, L"extractNode"), L"");
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray all = rig.model.FindChildren(L"", L"", families, true);
    for (long k = 0; k < all.GetCount(); ++k)
        EXPECT_FALSE(HasProperty(ORV::X3DObject(all[k]), TagMap::EXTRACTION_NAME));
}

TEST_F(TagApply, ExtractionNameThatNoObjectBearsGivesAnEmptyExtractNodeSilently) {
    ORV::CustomProperty panel = Panel({{L"lfoot", L"lfoot|nobody"}});
    orvhost::ClearLog();
    TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false);
    EXPECT_EQ(StringParam(rig.lfoot, TagMap::PROPERTY_NAME, L"extractNode"), L"");
    EXPECT_TRUE(Messages(4).empty());
    EXPECT_TRUE(Messages(2).empty());
}

TEST_F(TagApply, EmptyOrUnknownControlNamesAreSkipped) {
    ORV::CustomProperty panel =
        Panel({{L"cog", L""}, {L"spine", L"|spine"}, {L"chest", L"Nobody"}, {L"lhand", L"lhand"}});
    orvhost::ClearLog();
    EXPECT_TRUE(TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false));
    EXPECT_FALSE(HasProperty(rig.cog, TagMap::PROPERTY_NAME));
    EXPECT_FALSE(HasProperty(rig.spine, TagMap::PROPERTY_NAME));
    EXPECT_FALSE(HasProperty(rig.chest, TagMap::PROPERTY_NAME));
    EXPECT_TRUE(HasProperty(rig.lhand, TagMap::PROPERTY_NAME));
    EXPECT_TRUE(Messages(4).empty());
}

TEST_F(TagApply, NamesAsTagsTakeTheObjectNamedAfterTheNodeAndNoExtraction) {
    AddNullAt(rig.model, L"driver", CVector3());
    // The values are ignored: the object is the one named as the tag.
    ORV::CustomProperty panel = Panel({{L"lthigh", L"lshin|driver"}});
    TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, true);
    EXPECT_EQ(StringParam(rig.lthigh, TagMap::PROPERTY_NAME, L"tagname"), L"lthigh");
    EXPECT_EQ(StringParam(rig.lthigh, TagMap::PROPERTY_NAME, L"extractNode"), L"");
    EXPECT_FALSE(HasProperty(rig.lshin, TagMap::PROPERTY_NAME));
}

TEST_F(TagApply, PanelValuesReplaceEarlierTags) {
    AddTag(rig.chest, L"chest");
    AddTag(rig.lhand, L"lhand");
    ORV::CustomProperty panel = Panel({{L"lhand", L"lhand"}});
    TagMap::ApplyTagsToModel(rig.model, structure.get(), panel, false);
    EXPECT_FALSE(HasProperty(rig.chest, TagMap::PROPERTY_NAME));
    EXPECT_EQ(CountProperties(rig.lhand, TagMap::PROPERTY_NAME), 1);
}

// ---- From a tag map -----------------------------------------------------------------------------

namespace {

TagMap::TagEntry Entry(const wchar_t* tag, const wchar_t* object, const CVector3& align = CVector3(0, 1, 0),
                       const CVector3& roll = CVector3(0, 0, 1), const wchar_t* overrideTag = L"") {
    TagMap::TagEntry e;
    e.tag_name = tag;
    e.obj_name = object;
    e.align = align;
    e.roll = roll;
    e.override = overrideTag;
    return e;
}

}  // namespace

TEST_F(TagApply, TagMapPutsItsEntriesOnTheNamedObjects) {
    TagMap map;
    map.entries.push_back(Entry(L"cog", L"cog", CVector3(0.5, 1, 0), CVector3(0, 0.25, 1)));
    map.entries.push_back(Entry(L"lforearm", L"lforearm", CVector3(1, 0, 0), CVector3(0, 0, 1), L"lhand"));
    // An older property named as the tag goes.
    rig.cog.AddProperty(L"CustomProperty", false, L"cog");
    EXPECT_TRUE(map.applyToModel(rig.model));
    EXPECT_FALSE(HasProperty(rig.cog, L"cog"));
    EXPECT_EQ(StringParam(rig.cog, TagMap::PROPERTY_NAME, L"tagname"), L"cog");
    EXPECT_EQ(StringParam(rig.cog, TagMap::PROPERTY_NAME, L"override"), L"");
    EXPECT_TRUE(Directions(rig.cog, TagMap::PROPERTY_NAME, L"align").Equals(CVector3(0.5, 1, 0), 0.0));
    EXPECT_TRUE(Directions(rig.cog, TagMap::PROPERTY_NAME, L"roll").Equals(CVector3(0, 0.25, 1), 0.0));
    // Not a pose: the tag's own name, on which the map falls back to the current pose.
    EXPECT_EQ(StringParam(rig.cog, TagMap::PROPERTY_NAME, L"tpose_transform"), L"cog");
    EXPECT_EQ(StringParam(rig.lforearm, TagMap::PROPERTY_NAME, L"override"), L"lhand");
    ORV::CRefArray parameters = PropertyOf(rig.lforearm, TagMap::PROPERTY_NAME).GetParameters();
    ASSERT_EQ(parameters.GetCount(), 9);
    EXPECT_EQ(Text(ORV::Parameter(parameters[8]).GetScriptName()), L"tpose_transform");
    ZUK::ModelMap modelMap(rig.model, structure.get());
    EXPECT_TRUE(modelMap.nodes[0].object == rig.cog);
    EXPECT_TRUE(modelMap.nodes[0].tpose.GetTranslation().Equals(CVector3(0, 100, 0), 1e-9));
}

TEST_F(TagApply, TagMapWithAMissingObjectStopsThereAndKeepsWhatItDid) {
    AddTag(rig.chest, L"chest");
    TagMap map;
    map.entries.push_back(Entry(L"cog", L"cog"));
    map.entries.push_back(Entry(L"lhand", L"Nobody"));
    map.entries.push_back(Entry(L"lfoot", L"lfoot"));
    orvhost::ClearLog();
    EXPECT_FALSE(map.applyToModel(rig.model));
    EXPECT_EQ(Messages(4), std::vector<std::wstring>{L"cannot apply tag lhand, node not found: Nobody"});
    // From the last entry to the first: lfoot was tagged before the failure, cog never; the
    // old tags went first.
    EXPECT_TRUE(HasProperty(rig.lfoot, TagMap::PROPERTY_NAME));
    EXPECT_FALSE(HasProperty(rig.cog, TagMap::PROPERTY_NAME));
    EXPECT_FALSE(HasProperty(rig.chest, TagMap::PROPERTY_NAME));
}

TEST_F(TagApply, TestNameChoosesBetweenTheObjectAndTheElseName) {
    TagMap map;
    TagMap::TagEntry present = Entry(L"cog", L"cog");
    present.test_name = L"spine";
    present.else_name = L"chest";
    TagMap::TagEntry absent = Entry(L"lhand", L"lhand");
    absent.test_name = L"Nobody";
    absent.else_name = L"lforearm";
    map.entries = {present, absent};
    EXPECT_TRUE(map.applyToModel(rig.model));
    EXPECT_EQ(StringParam(rig.cog, TagMap::PROPERTY_NAME, L"tagname"), L"cog");
    EXPECT_FALSE(HasProperty(rig.chest, TagMap::PROPERTY_NAME));
    EXPECT_EQ(StringParam(rig.lforearm, TagMap::PROPERTY_NAME, L"tagname"), L"lhand");
    EXPECT_FALSE(HasProperty(rig.lhand, TagMap::PROPERTY_NAME));
}

TEST_F(TagApply, TagMapOnCaptureMarksTheNamedNodesWithTheirTags) {
    ZUK::MocapData capture;
    ASSERT_TRUE(capture.allocate(3));
    capture.nodes[0].name = L"Hips";
    capture.nodes[1].name = L"LeftUpLeg";
    capture.nodes[2].name = L"LeftLeg";
    TagMap map;
    map.entries.push_back(Entry(L"cog", L"hips", CVector3(0, 1, 0), CVector3(0, 0, 1)));  // any case
    map.entries.push_back(Entry(L"lthigh", L"LeftUpLeg", CVector3(0, -1, 0), CVector3(1, 0, 0)));
    EXPECT_TRUE(map.applyToMocap(&capture));
    EXPECT_TRUE(capture.nodes[0].tagged);
    EXPECT_EQ(Text(capture.nodes[0].tag), L"cog");
    EXPECT_TRUE(capture.nodes[1].tagged);
    EXPECT_EQ(Text(capture.nodes[1].tag), L"lthigh");
    EXPECT_TRUE(capture.nodes[1].align.Equals(CVector3(0, -1, 0), 0.0));
    EXPECT_TRUE(capture.nodes[1].roll.Equals(CVector3(1, 0, 0), 0.0));
    EXPECT_FALSE(capture.nodes[2].tagged);
    EXPECT_EQ(Text(capture.nodes[2].tag), L"");
}

TEST_F(TagApply, TagMapNamingANodeMissingFromTheCaptureLogsItAndStillAnswersTrue) {
    ZUK::MocapData capture;
    ASSERT_TRUE(capture.allocate(1));
    capture.nodes[0].name = L"Hips";
    TagMap map;
    map.entries.push_back(Entry(L"cog", L"Hips"));
    map.entries.push_back(Entry(L"lfingers", L"LeftHandIndex1"));
    map.entries.push_back(Entry(L"head", L"Head"));
    orvhost::ClearLog();
    EXPECT_TRUE(map.applyToMocap(&capture));
    // From the last entry to the first, going on after each miss.
    EXPECT_EQ(Messages(4),
              (std::vector<std::wstring>{L"cannot apply tag head, node not found: Head",
                                         L"cannot apply tag lfingers, node not found: LeftHandIndex1"}));
    EXPECT_TRUE(capture.nodes[0].tagged);
}

TEST_F(TagApply, TwoEntriesOnOneCaptureNodeTheFirstEntryWins) {
    ZUK::MocapData capture;
    ASSERT_TRUE(capture.allocate(1));
    capture.nodes[0].name = L"Hips";
    TagMap map;
    map.entries.push_back(Entry(L"cog", L"Hips"));
    map.entries.push_back(Entry(L"spine", L"Hips"));
    EXPECT_TRUE(map.applyToMocap(&capture));
    EXPECT_EQ(Text(capture.nodes[0].tag), L"cog");
}

// ---- Removing tags ------------------------------------------------------------------------------

TEST_F(TagApply, CleanupTagsRemovesTheTagsOfAllObjectsAtAnyDepthButNotOfTheObjectItself) {
    rig.TagAll();
    ORV::Null driver = AddNullAt(rig.lhand, L"deep", CVector3());
    maptest::AddExtractionTag(driver, CVector3(1, 0, 0), CVector3(0, 1, 0));
    rig.lhand.AddProperty(L"CustomProperty", false, L"Keep");
    TagMap::cleanupTags(rig.lthigh);
    EXPECT_TRUE(HasProperty(rig.lthigh, TagMap::PROPERTY_NAME));
    EXPECT_FALSE(HasProperty(rig.lshin, TagMap::PROPERTY_NAME));
    EXPECT_FALSE(HasProperty(rig.lfoot, TagMap::PROPERTY_NAME));
    EXPECT_TRUE(HasProperty(rig.cog, TagMap::PROPERTY_NAME));

    TagMap::cleanup(rig.model);
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray all = rig.model.FindChildren(L"", L"", families, true);
    ASSERT_GE(all.GetCount(), 10);
    for (long k = 0; k < all.GetCount(); ++k) {
        ORV::X3DObject object(all[k]);
        EXPECT_FALSE(HasProperty(object, TagMap::PROPERTY_NAME)) << Text(object.GetName()).size();
        EXPECT_FALSE(HasProperty(object, TagMap::EXTRACTION_NAME));
    }
    EXPECT_TRUE(HasProperty(rig.lhand, L"Keep"));
}
