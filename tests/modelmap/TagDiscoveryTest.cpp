// Building a map from a rig's tags: nodes, reference poses, extraction objects, span directions,
// the splice of untagged nodes, decompositions; capture maps; element access and cleanup.
#include <cmath>

#include "MapTestSupport.h"
#include "mocap/Mocap.h"
#include "shell/Util.h"

using maptest::AddExtractionTag;
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
using ZUK::ModelMap;

namespace {

bool IsIdentity(const CTransformation& t) {
    return t.GetTranslation().Equals(CVector3(), 0.0) && t.GetRotation().Equals(CRotation(), 0.0) &&
           t.GetScaling().Equals(CVector3(1, 1, 1), 0.0);
}

std::vector<int> Parents(const ZUK::ModelStructure& s) {
    std::vector<int> parents;
    for (int i = 0; i < s.numNodes; ++i) parents.push_back(s.nodes[i].Parent);
    return parents;
}

}  // namespace

TEST_F(MapTest, ConstructorBindsEveryTaggedObjectToItsNode) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    auto s = LoadStructure();
    ASSERT_TRUE(s);
    ModelMap map(rig.model, s.get());
    EXPECT_TRUE(map.valid);
    EXPECT_DOUBLE_EQ(map.legScale, 1.0);
    ASSERT_EQ(map.nodes.size(), 9u);
    ASSERT_EQ(map.planes.size(), 2u);
    EXPECT_TRUE(map.structure == s.get());
    EXPECT_EQ(map.mocap, nullptr);
    EXPECT_EQ(map.motion, nullptr);
    EXPECT_TRUE(static_cast<ORV::Model&>(map) == rig.model);
    const ORV::X3DObject objects[9] = {rig.cog,   rig.spine,     rig.chest,    rig.lthigh, rig.lshin,
                                       rig.lfoot, rig.lupperarm, rig.lforearm, rig.lhand};
    for (int i = 0; i < 9; ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(map.nodes[i].object == objects[i]);
        EXPECT_EQ(map.nodes[i].translationSource, -1);
        EXPECT_EQ(map.nodes[i].rotationSource, -1);
        EXPECT_EQ(map.nodes[i].constraintIndex, -1);
        EXPECT_EQ(map.nodes[i].extraction, nullptr);
    }
    // Directions come from the tag's six parameters.
    EXPECT_TRUE(map.nodes[5].align.Equals(CVector3(0, 0, 1), 0.0));
    EXPECT_TRUE(map.nodes[5].roll.Equals(CVector3(0, 1, 0), 0.0));
    EXPECT_TRUE(map.nodes[3].align.Equals(CVector3(0, -1, 0), 0.0));
    // All nodes tagged: the structure keeps its parents.
    EXPECT_EQ(Parents(*s), (std::vector<int>{-1, 0, 1, 0, 3, 3, 2, 6, 6}));
}

TEST_F(MapTest, RigWithNoTagsHasNoObjectsReadsIdentityAndNoSpanDirection) {
    MiniRig rig = BuildMiniRig();
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    for (size_t i = 0; i < map.nodes.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_FALSE(map.nodes[i].object.IsValid());
        EXPECT_TRUE(IsIdentity(map.nodes[i].global));
    }
    for (const ZUK::PlaneMap& plane : map.planes) {
        EXPECT_TRUE(plane.spanDirection.Equals(CVector3(), 0.0));
        EXPECT_EQ(plane.sign, 1);
        EXPECT_DOUBLE_EQ(plane.stretch, 1.0);
        EXPECT_DOUBLE_EQ(plane.roll, 0.0);
    }
    EXPECT_TRUE(Messages(4).empty());
}

TEST_F(MapTest, TagNamingNoStructureNodeIsIgnoredWithoutMessage) {
    MiniRig rig = BuildMiniRig();
    AddTag(rig.cog, L"tail");
    AddTag(rig.spine, L"spine");
    auto s = LoadStructure();
    orvhost::ClearLog();
    ModelMap map(rig.model, s.get());
    EXPECT_FALSE(map.nodes[0].object.IsValid());
    EXPECT_TRUE(map.nodes[1].object == rig.spine);
    for (size_t i = 2; i < map.nodes.size(); ++i) EXPECT_FALSE(map.nodes[i].object.IsValid());
    EXPECT_TRUE(Messages(4).empty());
    EXPECT_TRUE(Messages(2).empty());
}

TEST_F(MapTest, SevenFieldReferencePoseIsReadAsAxisAngleAndTranslation) {
    MiniRig rig = BuildMiniRig();
    AddTag(rig.cog, L"cog", CVector3(0, 1, 0), CVector3(0, 0, 1), L"", L"0,0,1,1.5707963267948966,1,2,3");
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    const CTransformation& tpose = map.nodes[0].tpose;
    EXPECT_TRUE(tpose.GetTranslation().Equals(CVector3(1, 2, 3), 1e-12));
    // A quarter turn about Z takes X to Y.
    CVector3 x(1, 0, 0);
    x.MulByRotationInPlace(tpose.GetRotation());
    EXPECT_TRUE(x.Equals(CVector3(0, 1, 0), 1e-12));
}

TEST_F(MapTest, ReferencePoseWithSixOrEightFieldsFallsBackToTheCurrentPose) {
    MiniRig rig = BuildMiniRig();
    // The hip turned, so that the fallback is not the identity.
    ORV::MATH::CTransformation turned = GlobalOf(rig.cog);
    turned.SetRotation(CRotation(0.3, -0.2, 0.5));
    rig.cog.GetKinematics().GetGlobal().PutTransform(turned);
    AddTag(rig.cog, L"cog", CVector3(0, 1, 0), CVector3(0, 0, 1), L"", L"0,0,1,1.57,1,2");
    AddTag(rig.spine, L"spine", CVector3(0, 1, 0), CVector3(0, 0, 1), L"", L"0,0,1,1.57,1,2,3,4");
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    EXPECT_TRUE(map.nodes[0].tpose.GetTranslation().Equals(CVector3(0, 100, 0), 1e-9));
    EXPECT_TRUE(map.nodes[0].tpose.GetRotation().Equals(CRotation(0.3, -0.2, 0.5), 1e-9));
    EXPECT_TRUE(map.nodes[1].tpose.GetTranslation().Equals(GlobalOf(rig.spine).GetTranslation(), 1e-9));
    EXPECT_TRUE(map.nodes[1].tpose.GetRotation().Equals(GlobalOf(rig.spine).GetRotation(), 1e-9));
}

TEST_F(MapTest, TwoObjectsWithTheSameTagTheLaterInTheWalkWins) {
    MiniRig rig = BuildMiniRig();
    // The walk is depth first: spine (under cog) comes before lthigh (under cog, added later).
    AddTag(rig.spine, L"chest", CVector3(1, 0, 0), CVector3(0, 1, 0), L"lhand");
    AddTag(rig.lthigh, L"chest", CVector3(0, 0, 1), CVector3(1, 0, 0), L"");
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    EXPECT_TRUE(map.nodes[2].object == rig.lthigh);
    EXPECT_TRUE(map.nodes[2].align.Equals(CVector3(0, 0, 1), 0.0));
    EXPECT_TRUE(map.nodes[2].roll.Equals(CVector3(1, 0, 0), 0.0));
    EXPECT_EQ(Text(map.nodes[2].overrideTag), L"");
}

TEST_F(MapTest, OverrideParameterFillsOverrideTag) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    ORV::Property tag;
    ASSERT_TRUE(ZUK::Util::findCustomPSet(rig.lfoot, ZUK::TagMap::PROPERTY_NAME, tag));
    tag.PutParameterValue(L"override", ORV::CValue(ORV::CString(L"ltoe")));
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    EXPECT_EQ(Text(map.nodes[5].overrideTag), L"ltoe");
    EXPECT_EQ(Text(map.nodes[4].overrideTag), L"");
}

TEST_F(MapTest, ExtractNodeWithExtractionTagGivesAnExtractionRecord) {
    MiniRig rig = BuildMiniRig();
    ORV::Null driver = AddNullAt(rig.model, L"lfootDriver", CVector3(10, 5, 0));
    AddExtractionTag(driver, CVector3(0.5, 0, 0.5), CVector3(0, 1, 0));
    AddTag(rig.lfoot, L"lfoot", CVector3(0, 0, 1), CVector3(0, 1, 0), L"", L"", L"lfootDriver");
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    ASSERT_NE(map.nodes[5].extraction, nullptr);
    EXPECT_TRUE(map.nodes[5].extraction->object == driver);
    EXPECT_TRUE(map.nodes[5].extraction->align.Equals(CVector3(0.5, 0, 0.5), 0.0));
    EXPECT_TRUE(map.nodes[5].extraction->roll.Equals(CVector3(0, 1, 0), 0.0));
}

TEST_F(MapTest, ExtractNodeWithoutObjectOrWithoutExtractionTagLeavesNoRecordSilently) {
    MiniRig rig = BuildMiniRig();
    AddNullAt(rig.model, L"untagged", CVector3(0, 0, 0));
    AddTag(rig.lfoot, L"lfoot", CVector3(0, 0, 1), CVector3(0, 1, 0), L"", L"", L"nobody");
    AddTag(rig.lshin, L"lshin", CVector3(0, -1, 0), CVector3(0, 0, 1), L"", L"", L"untagged");
    AddTag(rig.lthigh, L"lthigh", CVector3(0, -1, 0), CVector3(0, 0, 1), L"", L"", L"");
    auto s = LoadStructure();
    orvhost::ClearLog();
    ModelMap map(rig.model, s.get());
    EXPECT_EQ(map.nodes[5].extraction, nullptr);
    EXPECT_EQ(map.nodes[4].extraction, nullptr);
    EXPECT_EQ(map.nodes[3].extraction, nullptr);
    EXPECT_TRUE(Messages(4).empty());
}

TEST_F(MapTest, SpanDirectionIsTheSpanSeenFromTheMiddleBoneInItsOwnSpace) {
    MiniRig rig = BuildMiniRig();
    // The knee turned about X, so that its own space differs from the world's.
    CTransformation knee = GlobalOf(rig.lshin);
    knee.SetRotation(CRotation(CVector3(1, 0, 0), 0.4));
    rig.lshin.GetKinematics().GetGlobal().PutTransform(knee);
    rig.lfoot.GetKinematics().GetGlobal().PutTransform(CTransformation().SetTranslationFromValues(10, 5, 0));
    rig.TagAll();
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    // Foot minus knee, (0, -45, -5), turned back by -0.4 about X: the row-vector product with
    // the inverse rotation's matrix, worked out by hand.
    const double c = std::cos(0.4), sn = std::sin(0.4);
    const CVector3 d(0, -45, -5);
    CVector3 expected(0, d.y * c + d.z * sn, -d.y * sn + d.z * c);
    expected.NormalizeInPlace();
    EXPECT_TRUE(map.planes[0].spanDirection.Equals(expected, 1e-12))
        << map.planes[0].spanDirection.x << " " << map.planes[0].spanDirection.y << " "
        << map.planes[0].spanDirection.z;
    EXPECT_NEAR(map.planes[0].spanDirection.GetLength(), 1.0, 1e-12);
    // The middle bone's local pose is the object's own local pose.
    const CTransformation local = rig.lshin.GetKinematics().GetLocal().GetTransform(ModelMap::NOW);
    EXPECT_TRUE(map.nodes[4].local.GetTranslation().Equals(local.GetTranslation(), 1e-9));
}

TEST_F(MapTest, PlaneWithUntaggedSpanGetsNoSpanDirection) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    ZUK::TagMap::cleanupTags(rig.lforearm);  // lhand loses its tag
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    EXPECT_FALSE(map.nodes[8].object.IsValid());
    EXPECT_TRUE(map.planes[1].spanDirection.Equals(CVector3(), 0.0));
    EXPECT_GT(map.planes[0].spanDirection.GetLength(), 0.5);
}

TEST_F(MapTest, RemovingTheMiddleTagReparentsChildrenToTheGrandparentUntilAFreshStructure) {
    MiniRig rig = BuildMiniRig();
    // chest (2), the middle of spine, chest, lupperarm, is left untagged, and lshin (4) too.
    AddTag(rig.cog, L"cog");
    AddTag(rig.spine, L"spine");
    AddTag(rig.lthigh, L"lthigh");
    AddTag(rig.lfoot, L"lfoot");
    AddTag(rig.lupperarm, L"lupperarm");
    AddTag(rig.lforearm, L"lforearm");
    AddTag(rig.lhand, L"lhand");
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    // lupperarm (6) now hangs from spine (1); lfoot's Parent is its anchor (3), not lshin.
    EXPECT_EQ(Parents(*s), (std::vector<int>{-1, 0, 1, 0, 3, 3, 1, 6, 6}));
    auto fresh = LoadStructure();
    EXPECT_EQ(Parents(*fresh), (std::vector<int>{-1, 0, 1, 0, 3, 3, 2, 6, 6}));
}

TEST_F(MapTest, UntaggedNodesSpliceInIndexOrderAndAnUntaggedRootKeepsItsParent) {
    MiniRig rig = BuildMiniRig();
    AddTag(rig.spine, L"spine");
    AddTag(rig.lthigh, L"lthigh");
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    // cog (0) untagged: spine and lthigh get cog's parent, -1, and cog keeps its own -1.
    // chest (2): lupperarm (6) gets spine (1). lupperarm (6), untagged too: lforearm and lhand
    // get its parent as it stands by then, spine.
    EXPECT_EQ(Parents(*s), (std::vector<int>{-1, -1, 1, -1, 3, 3, 1, 1, 1}));
}

TEST_F(MapTest, DecompositionTakesTheObjectsOfItsTargetsWithTheirChannels) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    ORV::Null twist = AddNullAt(rig.lforearm, L"twistObj", CVector3(50, 140, 0));
    ORV::Null slide = AddNullAt(rig.lforearm, L"slideObj", CVector3(55, 140, 0));
    AddTag(twist, L"ltwist");
    AddTag(slide, L"lslide");
    auto s = LoadStructure();
    orvhost::ClearLog();
    ModelMap map(rig.model, s.get());
    const std::vector<ZUK::DecompMap>& decomps = map.nodes[7].decomps;
    ASSERT_EQ(decomps.size(), 2u);
    EXPECT_TRUE(decomps[0].object == twist);
    EXPECT_EQ(Text(decomps[0].tagName), L"ltwist");
    EXPECT_EQ(decomps[0].nodeIndex, 7);
    // RX and RZ: one object takes both channels.
    EXPECT_EQ(decomps[0].mask, static_cast<unsigned>(ZUK::DECOMP_RX | ZUK::DECOMP_RZ));
    EXPECT_TRUE(decomps[1].object == slide);
    EXPECT_EQ(decomps[1].mask, static_cast<unsigned>(ZUK::DECOMP_RTOP_Z));
    for (size_t i = 0; i < map.nodes.size(); ++i) {
        if (i != 7) {
            EXPECT_TRUE(map.nodes[i].decomps.empty());
        }
    }
    // The trace of every comparison up to the match: the "PX" column (empty) and the name.
    std::vector<std::wstring> trace;
    for (const char* name : {"cog", "spine", "chest", "lthigh", "lshin", "lfoot", "lupperarm", "lforearm"})
        trace.push_back(L" vs. " + structtest::Wide(name));
    EXPECT_EQ(Messages(8), trace);
}

TEST_F(MapTest, EmptyDecompositionChannelPairsWithNoObject) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    ORV::Null twist = AddNullAt(rig.lforearm, L"twistObj", CVector3(50, 140, 0));
    AddTag(twist, L"ltwist");
    auto s = LoadStructure();
    ASSERT_FALSE(s->decomps.empty());
    // A structure read back from a model stores its unused channels as empty targets; every
    // tagged object has an empty override, so an empty target must not take any of them.
    s->decomps[0].targets.Add(L"");
    ModelMap map(rig.model, s.get());
    const std::vector<ZUK::DecompMap>& decomps = map.nodes[7].decomps;
    ASSERT_EQ(decomps.size(), 1u);
    EXPECT_TRUE(decomps[0].object == twist);
    for (const ZUK::DecompMap& entry : decomps) EXPECT_FALSE(entry.tagName.IsEmpty());
}

TEST_F(MapTest, DecompositionWhoseSourceNamesNoNodeLogsOneLinePerNodeAndAddsNothing) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    AddTag(AddNullAt(rig.lforearm, L"twistObj", CVector3(50, 140, 0)), L"ltwist");
    auto s = LoadStructure("stray");
    ASSERT_TRUE(s);
    orvhost::ClearLog();
    ModelMap map(rig.model, s.get());
    std::vector<std::wstring> trace;
    for (const char* name :
         {"cog", "spine", "chest", "lthigh", "lshin", "lfoot", "lupperarm", "lforearm", "lhand"})
        trace.push_back(L" vs. " + structtest::Wide(name));
    EXPECT_EQ(Messages(8), trace);
    for (const ZUK::NodeMap& node : map.nodes) EXPECT_TRUE(node.decomps.empty());
}

TEST_F(MapTest, OverrideEqualToADecompositionTargetIsTakenWhenNoEarlierObjectHasThatTagname) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    // lfoot's tag names "ltwist" as its override, and lfoot lies before twistObj in the walk.
    ORV::Property footTag;
    ASSERT_TRUE(ZUK::Util::findCustomPSet(rig.lfoot, ZUK::TagMap::PROPERTY_NAME, footTag));
    footTag.PutParameterValue(L"override", ORV::CValue(ORV::CString(L"ltwist")));
    ORV::Null twist = AddNullAt(rig.model, L"twistObj", CVector3(50, 140, 0));
    AddTag(twist, L"ltwist");
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    ASSERT_EQ(map.nodes[7].decomps.size(), 1u);
    EXPECT_TRUE(map.nodes[7].decomps[0].object == rig.lfoot);
    EXPECT_EQ(map.nodes[7].decomps[0].mask, static_cast<unsigned>(ZUK::DECOMP_RX | ZUK::DECOMP_RZ));
}

TEST_F(MapTest, TagnameEarlierInTheWalkBeatsALaterOverride) {
    MiniRig rig = BuildMiniRig();
    rig.TagAll();
    // The walk: cog, spine, chest, lupperarm, lforearm, lhand, twistObj, lthigh, lshin, lfoot.
    ORV::Null twist = AddNullAt(rig.chest, L"twistObj", CVector3(50, 140, 0));
    AddTag(twist, L"ltwist");
    ORV::Property footTag;
    ASSERT_TRUE(ZUK::Util::findCustomPSet(rig.lfoot, ZUK::TagMap::PROPERTY_NAME, footTag));
    footTag.PutParameterValue(L"override", ORV::CValue(ORV::CString(L"ltwist")));
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    ASSERT_EQ(map.nodes[7].decomps.size(), 1u);
    EXPECT_TRUE(map.nodes[7].decomps[0].object == twist);
}

TEST_F(MapTest, NodeMapIndexOutOfRangeIsLoggedAndStillAnswered) {
    MiniRig rig = BuildMiniRig();
    auto s = LoadStructure();
    ModelMap map(rig.model, s.get());
    orvhost::ClearLog();
    EXPECT_EQ(map.nodeMap(3), &map.nodes[3]);
    EXPECT_EQ(map.planeMap(1), &map.planes[1]);
    EXPECT_TRUE(Messages(0).empty());
    // The element computed from the index comes back; it is not dereferenced here.
    EXPECT_EQ(map.nodeMap(9), map.nodes.data() + 9);
    EXPECT_EQ(map.nodeMap(-1), map.nodes.data() - 1);
    EXPECT_EQ(map.planeMap(2), map.planes.data() + 2);
    EXPECT_EQ(Messages(4),
              (std::vector<std::wstring>{L"invalid nodeMap index! 9", L"invalid nodeMap index! -1",
                                         L"invalid planeMap index! 2"}));
}

TEST_F(MapTest, CleanupRemovesTheMapPropertyAndNothingElse) {
    MiniRig rig = BuildMiniRig();
    rig.model.AddProperty(L"CustomProperty", false, ModelMap::PROPERTY_NAME);
    rig.model.AddProperty(L"CustomProperty", false, L"Other");
    ORV::Property found;
    ASSERT_TRUE(ZUK::Util::findCustomPSet(rig.model, ModelMap::PROPERTY_NAME, found));
    ModelMap::cleanup(rig.model);
    EXPECT_FALSE(ZUK::Util::findCustomPSet(rig.model, ModelMap::PROPERTY_NAME, found));
    EXPECT_TRUE(ZUK::Util::findCustomPSet(rig.model, L"Other", found));
    // A model without the property is left alone.
    ModelMap::cleanup(rig.model);
    EXPECT_TRUE(ZUK::Util::findCustomPSet(rig.model, L"Other", found));
}

TEST_F(MapTest, DefaultMapIsEmpty) {
    ModelMap map;
    EXPECT_FALSE(map.IsValid());
    EXPECT_EQ(map.structure, nullptr);
    EXPECT_EQ(map.mocap, nullptr);
    EXPECT_EQ(map.motion, nullptr);
    EXPECT_EQ(map.keyTiming, nullptr);
    EXPECT_EQ(map.numFrames, 0);
    EXPECT_EQ(map.numKeyTiming, 0);
    EXPECT_TRUE(map.nodes.empty());
    EXPECT_TRUE(map.planes.empty());
    EXPECT_TRUE(map.valid);
    EXPECT_DOUBLE_EQ(map.legScale, 1.0);
}

TEST_F(MapTest, CaptureMapBindsCaptureNodesByTheirTagsAndTakesTheirDirections) {
    ZUK::MocapData capture;
    ASSERT_TRUE(capture.allocate(3));
    capture.nodes[0].name = L"Hips";
    capture.nodes[1].name = L"LeftUpLeg";
    capture.nodes[1].parent = 0;
    capture.nodes[2].name = L"lshin";  // named as a structure node, but untagged
    capture.nodes[2].parent = 1;
    capture.nodes[0].tagged = true;
    capture.nodes[0].tag = L"cog";
    capture.nodes[0].align = CVector3(0, 1, 0);
    capture.nodes[0].roll = CVector3(0, 0, 1);
    capture.nodes[1].tagged = true;
    capture.nodes[1].tag = L"lthigh";
    capture.nodes[1].align = CVector3(0, -1, 0);
    capture.nodes[1].roll = CVector3(1, 0, 0);
    auto s = LoadStructure();
    ModelMap map(&capture, s.get());
    EXPECT_FALSE(map.IsValid());
    EXPECT_EQ(map.mocap, &capture);
    ASSERT_EQ(map.nodes.size(), 9u);
    EXPECT_EQ(map.nodes[0].mocapNode, &capture.nodes[0]);
    EXPECT_EQ(map.nodes[3].mocapNode, &capture.nodes[1]);
    EXPECT_TRUE(map.nodes[3].align.Equals(CVector3(0, -1, 0), 0.0));
    EXPECT_TRUE(map.nodes[3].roll.Equals(CVector3(1, 0, 0), 0.0));
    // A joint's own name binds nothing: only its tag does.
    for (int i : {1, 2, 4, 5, 6, 7, 8}) {
        EXPECT_EQ(map.nodes[i].mocapNode, nullptr);
        EXPECT_FALSE(map.nodes[i].object.IsValid());
    }
    // Nothing else runs: no pose was read, the structure keeps its parents.
    EXPECT_TRUE(IsIdentity(map.nodes[0].global));
    EXPECT_EQ(Parents(*s), (std::vector<int>{-1, 0, 1, 0, 3, 3, 2, 6, 6}));
}
