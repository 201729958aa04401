// Pose copying and the limb solver on hand-made maps: a source of stored (normalised) motion,
// so that each rule is seen alone, without a scene in the way.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "glue/GlueMap.h"
#include "modelmap/ModelMap.h"

namespace {

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::ModelMap;
using ZUK::ModelStructure;

struct NodeSpec {
    int parent;
    int type;
};

// A structure of the given nodes (named N0, N1, ...) and planes given as bone lists (span first).
ModelStructure* MakeStructure(const std::vector<NodeSpec>& specs, const std::vector<std::vector<long>>& planes = {}) {
    auto* s = new ModelStructure(static_cast<int>(specs.size()), static_cast<int>(planes.size()), L"test");
    for (size_t i = 0; i < specs.size(); ++i) {
        s->nodes[i].Name = ORV::CString(L"N") + ORV::CString(std::to_wstring(i).c_str());
        s->nodes[i].Parent = specs[i].parent;
        s->nodes[i].Type = specs[i].type;
        s->nodes[i].objIsValid = true;
    }
    for (size_t p = 0; p < planes.size(); ++p) {
        ModelStructure::Plane& plane = s->planes[p];
        for (long b : planes[p]) plane.bones.Add(b);
        plane.Span = static_cast<int>(planes[p].front());
        plane.Mid = static_cast<int>(planes[p][planes[p].size() - 2]);
        plane.AnchorIndex = static_cast<int>(planes[p].back());
        plane.Name = s->nodes[plane.Mid].Name;
    }
    return s;
}

// A map over `structure` with its arrays sized, as the constructors leave them.
void SizeMap(ModelMap& map, ModelStructure* structure) {
    map.structure = structure;
    map.nodes.resize(structure->numNodes);
    map.planes.resize(structure->numPlanes);
}

CTransformation At(double x, double y, double z) {
    CTransformation t;
    t.SetTranslationFromValues(x, y, z);
    return t;
}

// A source of stored motion: one frame per entry of `frames`, each one global per node.
struct MotionSource {
    ModelStructure* structure;
    ModelMap map;
    MotionSource(const std::vector<NodeSpec>& specs, const std::vector<std::vector<CTransformation>>& frames)
        : structure(MakeStructure(specs)) {
        SizeMap(map, structure);
        map.numFrames = static_cast<int>(frames.size());
        map.motion = new CTransformation[frames.size() * specs.size()];
        for (size_t f = 0; f < frames.size(); ++f)
            for (size_t n = 0; n < specs.size(); ++n) map.motion[f * specs.size() + n] = frames[f][n];
    }
    ~MotionSource() {
        map.structure = nullptr;
        delete structure;
    }
};

struct Target {
    ModelStructure* structure;
    ModelMap map;
    explicit Target(const std::vector<NodeSpec>& specs, const std::vector<std::vector<long>>& planes = {})
        : structure(MakeStructure(specs, planes)) {
        SizeMap(map, structure);
    }
    ~Target() {
        map.structure = nullptr;
        delete structure;
    }
};

void ExpectNear(const CVector3& a, const CVector3& b, double eps = 1e-12) {
    EXPECT_NEAR(a.x, b.x, eps);
    EXPECT_NEAR(a.y, b.y, eps);
    EXPECT_NEAR(a.z, b.z, eps);
}

TEST(PoseCopy, NodesFedByTheSourceRootKeepTheirRestOffset) {
    // Target node 1 points at source node 0: only sources of 1 and above carry positions.
    MotionSource src({{-1, 0}, {0, 0}}, {{At(1, 2, 3), At(100, 100, 100)}});
    Target tgt({{-1, 0}, {0, 0}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.nodes[1].translationSource = 0;
    tgt.map.nodes[1].local = At(0, 5, 0);

    ASSERT_TRUE(tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0));
    ExpectNear(tgt.map.nodes[0].global.GetTranslation(), CVector3(1, 2, 3));
    ExpectNear(tgt.map.nodes[1].global.GetTranslation(), CVector3(1, 7, 3));
}

TEST(PoseCopy, AFreeNodeFedByTheSourceRootIsNeverTestedForFallingBehind) {
    // The rest-offset branch skips the free-node test: a free node pointing at source node 0
    // stays free even where the source root lies behind it.
    MotionSource src({{-1, 0}, {0, 3}}, {{At(0, 0, -5), At(0, 0, 0)}});
    Target tgt({{-1, 0}, {0, 3}});
    tgt.map.nodes[0].align = CVector3(0, 0, 1);
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.nodes[1].translationSource = 0;
    tgt.map.nodes[1].local = At(0, 0, -1);
    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    EXPECT_EQ(tgt.structure->nodes[1].Type, 3);
}

TEST(PoseCopy, SourceNodesFromOneUpCarryTheirPositionToLimbEnds) {
    // A limb end fed by source node 1 goes where the source's direction points, at the
    // target's own length: source bone 2 long along X, target bone 5 long.
    MotionSource src({{-1, 0}, {0, 2}}, {{At(0, 0, 0), At(2, 0, 0)}});
    src.map.nodes[1].length = 2.0;
    Target tgt({{-1, 0}, {0, 2}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.nodes[1].translationSource = 1;
    tgt.map.nodes[1].length = 5.0;
    tgt.map.nodes[1].local = At(0, 5, 0);

    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    ExpectNear(tgt.map.nodes[1].global.GetTranslation(), CVector3(5, 0, 0));
}

TEST(PoseCopy, ASourceBoneShorterThanTheThresholdLeavesTheTargetLocalAsItWas) {
    MotionSource src({{-1, 0}, {0, 2}}, {{At(0, 0, 0), At(0, 3, 0)}});
    src.map.nodes[1].length = 0.00005;
    Target tgt({{-1, 0}, {0, 2}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.nodes[1].translationSource = 1;
    tgt.map.nodes[1].length = 5.0;
    tgt.map.nodes[1].local = At(0, 5, 0);

    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    ExpectNear(tgt.map.nodes[1].local.GetTranslation(), CVector3(0, 5, 0));
    ExpectNear(tgt.map.nodes[1].global.GetTranslation(), CVector3(0, 5, 0));
}

TEST(PoseCopy, ASourceWithoutLegLengthLeavesTheRootUnscaled) {
    MotionSource src({{-1, 0}}, {{At(1, 2, 3)}});
    src.map.legLength = 0.0;
    src.map.hipOffset = 0.5;
    Target tgt({{-1, 0}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.legLength = 2.0;
    tgt.map.hipOffset = 1.0;

    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    ExpectNear(tgt.map.nodes[0].global.GetTranslation(), CVector3(1, 2, 3));
    ExpectNear(tgt.map.nodes[0].local.GetTranslation(), CVector3(1, 2, 3));
}

TEST(PoseCopy, TheRootScalesByLegLengthAroundBothHipOffsets) {
    // p = (t - a * srcHip) * (leg / srcLeg) + a * hip, a the root's align in the world.
    MotionSource src({{-1, 0}}, {{At(1, 2, 3)}});
    src.map.legLength = 1.0;
    src.map.hipOffset = 0.5;
    Target tgt({{-1, 0}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.nodes[0].align = CVector3(0, 2, 0);  // normalised by the copy
    tgt.map.legLength = 2.0;
    tgt.map.hipOffset = 1.0;

    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    ExpectNear(tgt.map.nodes[0].global.GetTranslation(), CVector3(2, 4, 6));
    ExpectNear(tgt.map.nodes[0].local.GetTranslation(), CVector3(2, 4, 6));
}

TEST(PoseCopy, AFreeNodeThatFallsBehindItsParentStaysAChildForTheRestOfTheTransfer) {
    // The root's bone runs along +Z; the free node is behind it in frame 0, ahead in frame 1.
    MotionSource src({{-1, 0}, {0, 3}, {0, 3}},
                     {{At(0, 0, 0), At(0, 0, -1), At(0, 0, 1)}, {At(0, 0, 0), At(0, 0, 1), At(0, 0, 1)}});
    src.map.nodes[1].length = 1.0;
    src.map.nodes[2].length = 1.0;
    Target tgt({{-1, 0}, {0, 3}, {0, 3}});
    tgt.map.nodes[0].align = CVector3(0, 0, 1);
    for (int i = 0; i < 3; ++i) tgt.map.nodes[i].translationSource = i;
    tgt.map.nodes[1].length = 1.0;
    tgt.map.nodes[2].length = 1.0;

    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    EXPECT_EQ(tgt.structure->nodes[1].Type, 1);
    EXPECT_EQ(tgt.structure->nodes[2].Type, 3);
    tgt.map.CopyPoseFromSrcModelMap(src.map, 1.0);
    EXPECT_EQ(tgt.structure->nodes[1].Type, 1);
    EXPECT_EQ(tgt.structure->nodes[2].Type, 3);
}

TEST(PoseCopy, AnOverrideTakesTheRotationOfItsSourceNode) {
    CTransformation turned = At(0, 0, 0);
    turned.SetRotation(CRotation(CVector3(0, 1, 0), 0.7));
    MotionSource src({{-1, 0}, {0, 0}}, {{At(0, 0, 0), turned}});
    Target tgt({{-1, 0}, {0, 0}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.nodes[0].rotationSource = 1;
    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    EXPECT_TRUE(tgt.map.nodes[0].global.GetRotation().Equals(turned.GetRotation(), 1e-12));
}

TEST(PoseCopy, RotationsCrossThroughBothRigsAxisOffsets) {
    // The stored motion is normalised; the target's offset is put back in front of it.
    CTransformation pose = At(0, 0, 0);
    pose.SetRotation(CRotation(0.3, -0.2, 0.9));
    MotionSource src({{-1, 0}}, {{pose}});
    Target tgt({{-1, 0}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.nodes[0].esrOffset.SetRotation(CRotation(CVector3(1, 0, 0), 1.5707963267948966));
    tgt.map.CopyPoseFromSrcModelMap(src.map, 0.0);
    CRotation expected;
    expected.Mul(tgt.map.nodes[0].esrOffset.GetRotation(), pose.GetRotation());
    EXPECT_TRUE(tgt.map.nodes[0].global.GetRotation().Equals(expected, 1e-12));
}

TEST(PoseCopy, StoredMotionIsReadAtTheTruncatedFrameAndTheHostsNowReadsFrameZero) {
    MotionSource src({{-1, 0}}, {{At(1, 0, 0)}, {At(2, 0, 0)}, {At(3, 0, 0)}});
    Target tgt({{-1, 0}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.CopyPoseFromSrcModelMap(src.map, 1.9);
    ExpectNear(tgt.map.nodes[0].global.GetTranslation(), CVector3(2, 0, 0));
    tgt.map.CopyPoseFromSrcModelMap(src.map, ModelMap::NOW);
    ExpectNear(tgt.map.nodes[0].global.GetTranslation(), CVector3(1, 0, 0));
    // Past the clip: its last frame, never a read past the stored motion.
    tgt.map.CopyPoseFromSrcModelMap(src.map, 7.0);
    ExpectNear(tgt.map.nodes[0].global.GetTranslation(), CVector3(3, 0, 0));
}

// A limb R (node 1) - M (node 2) - S (node 3) under a root, with R at the origin.
struct Limb {
    Target tgt{{{-1, 0}, {0, 1}, {1, 0}, {1, 2}}, {{3, 2, 1}}};
    Limb(double upper, double lower, const CVector3& goal, const CVector3& normal) {
        ModelMap& m = tgt.map;
        m.nodes[2].length = upper;
        m.nodes[3].length = upper + lower;
        m.nodes[2].local = At(upper, 0, 0);  // the middle joint along R's X
        m.nodes[3].global = At(goal.x, goal.y, goal.z);
        m.planes[0].normal = normal;
        m.planes[0].spanDirection = CVector3(1, 0, 0);
    }
};

TEST(SolveIK, ThreeBonesTakeTheMiddleLengthAloneForTheUpperBone) {
    // Upper 3, lower 4, goal 5 away: the right angle of a 3-4-5 triangle sits at the middle.
    Limb limb(3.0, 4.0, CVector3(5, 0, 0), CVector3(0, 0, 1));
    limb.tgt.map.solveIK();
    const ModelMap& m = limb.tgt.map;
    const CVector3 mid = m.nodes[2].global.GetTranslation();
    EXPECT_NEAR(mid.GetLength(), 3.0, 1e-9);
    EXPECT_NEAR((CVector3(5, 0, 0) - mid).GetLength(), 4.0, 1e-9);
}

TEST(SolveIK, TheMiddleJointBendsToTheSideTheNormalAndSignGive) {
    // Bend about +Z (u x v of a limb toward +X): the middle joint lies on +Y; sign -1 flips it.
    for (int sign : {1, -1}) {
        Limb limb(3.0, 4.0, CVector3(5, 0, 0), CVector3(0, 0, 1));
        limb.tgt.map.planes[0].sign = sign;
        limb.tgt.map.solveIK();
        const CVector3 mid = limb.tgt.map.nodes[2].global.GetTranslation();
        EXPECT_NEAR(mid.x, 9.0 / 5.0, 1e-9);
        EXPECT_NEAR(mid.y, sign * 12.0 / 5.0, 1e-9);
        EXPECT_NEAR(mid.z, 0.0, 1e-9);
    }
}

TEST(SolveIK, TheLowerBonePointsAtTheGoal) {
    // A limb's normal is perpendicular to its anchor-goal line: (2, 3, 1) x (0, 0, 1).
    CVector3 normal(3, -2, 0);
    normal.NormalizeInPlace();
    Limb limb(3.0, 4.0, CVector3(2, 3, 1), normal);
    limb.tgt.map.solveIK();
    const ModelMap& m = limb.tgt.map;
    // spanDirection (X of the middle joint) now runs from the middle joint to the goal.
    CVector3 e;
    e.MulByMatrix3(CVector3(1, 0, 0), m.nodes[2].global.GetRotationMatrix3());
    CVector3 t = CVector3(2, 3, 1) - m.nodes[2].global.GetTranslation();
    EXPECT_NEAR(e.GetAngle(t), 0.0, 1e-7);
    EXPECT_NEAR(t.GetLength(), 4.0, 1e-9);
    EXPECT_NEAR(m.nodes[2].global.GetTranslation().GetLength(), 3.0, 1e-9);
}

TEST(SolveIK, MiddleBonesCountIntoTheUpperReach) {
    // Four bones: R (1), B (2), M (3), S (4). bones = {S, M, B, R}: bones[2] is B, bones[1] M.
    // The solver works on B and M; the lower length is S's path length minus M's and B's.
    Target tgt({{-1, 0}, {0, 1}, {1, 0}, {2, 0}, {1, 2}}, {{4, 3, 2, 1}});
    ModelMap& m = tgt.map;
    m.nodes[2].length = 2.0;  // B above R
    m.nodes[3].length = 3.0;  // M above B
    m.nodes[4].length = 9.0;  // path R-B-M-S: lower bone 4
    m.nodes[2].global = At(0, 2, 0);
    m.nodes[3].local = At(3, 0, 0);
    m.nodes[4].global = At(5, 2, 0);
    m.planes[0].normal = CVector3(0, 0, 1);
    m.planes[0].spanDirection = CVector3(1, 0, 0);
    m.solveIK();
    const CVector3 mid = m.nodes[3].global.GetTranslation();
    EXPECT_NEAR((mid - CVector3(0, 2, 0)).GetLength(), 3.0, 1e-9);
    EXPECT_NEAR((CVector3(5, 2, 0) - mid).GetLength(), 4.0, 1e-9);
}

TEST(InheritsTranslationFromCOG, TheRootInherits) {
    Target tgt({{-1, 0}});
    EXPECT_TRUE(ModelMap::InheritsTranslationFromCOG(&tgt.map, 0));
}

TEST(InheritsTranslationFromCOG, AFootBelowPlainBonesInheritsWhateverItsOwnKind) {
    // root - hip (0) - foot (2, a limb end): the foot's own kind does not count.
    Target tgt({{-1, 0}, {0, 0}, {1, 2}});
    EXPECT_TRUE(ModelMap::InheritsTranslationFromCOG(&tgt.map, 2));
}

TEST(InheritsTranslationFromCOG, AFootBelowAFreeNodeOrALimbEndDoesNot) {
    Target freeChest({{-1, 0}, {0, 3}, {1, 0}, {2, 2}});
    EXPECT_FALSE(ModelMap::InheritsTranslationFromCOG(&freeChest.map, 3));
    EXPECT_TRUE(ModelMap::InheritsTranslationFromCOG(&freeChest.map, 1));
    Target belowGoal({{-1, 0}, {0, 2}, {1, 0}});
    EXPECT_FALSE(ModelMap::InheritsTranslationFromCOG(&belowGoal.map, 2));
}

}  // namespace

namespace {

// Hamilton product q * o, as the normalising step composes a pose with an offset.
ORV::MATH::CQuaternion Hamilton(const ORV::MATH::CQuaternion& q, const ORV::MATH::CQuaternion& o) {
    return ORV::MATH::CQuaternion(q.w * o.w - q.x * o.x - q.y * o.y - q.z * o.z,
                                  q.w * o.x + o.w * q.x + q.y * o.z - o.y * q.z,
                                  q.w * o.y + o.w * q.y + q.z * o.x - o.z * q.x,
                                  q.w * o.z + o.w * q.z + q.x * o.y - o.x * q.y);
}

TEST(PoseCopy, ARigSourceIsReadOnItsExtractionObjectsWithTheirOffsets) {
    orvhost::NewScene();
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Source", model);
    ORV::Null bone, extractor;
    model.AddNull(L"Bone", bone);
    model.AddNull(L"Extractor", extractor);
    CTransformation pose = At(1, 2, 3);
    pose.SetRotation(CRotation(0.4, 0.1, -0.3));
    bone.GetKinematics().GetGlobal().PutTransform(pose);
    CTransformation other = At(4, 5, 6);
    other.SetRotation(CRotation(-0.2, 0.8, 0.5));
    extractor.GetKinematics().GetGlobal().PutTransform(other);

    ModelStructure* structure = MakeStructure({{-1, 0}});
    ModelMap src;
    SizeMap(src, structure);
    src.nodes[0].object = bone;
    src.nodes[0].esrOffsetInverse.SetRotation(CRotation(CVector3(0, 0, 1), 0.6));
    src.nodes[0].extraction = new ZUK::ExtractionMap();
    src.nodes[0].extraction->object = extractor;
    src.nodes[0].extraction->esrOffsetInverse.SetRotation(CRotation(CVector3(1, 0, 0), -0.9));

    Target tgt({{-1, 0}});
    tgt.map.nodes[0].translationSource = 0;
    tgt.map.CopyPoseFromSrcModelMap(src, 0.0);
    const CRotation expected(Hamilton(other.GetRotation().GetQuaternion(),
                                      src.nodes[0].extraction->esrOffsetInverse.GetRotation().GetQuaternion()));
    EXPECT_TRUE(tgt.map.nodes[0].global.GetRotation().Equals(expected, 1e-12));
    ExpectNear(tgt.map.nodes[0].global.GetTranslation(), CVector3(4, 5, 6));
    src.structure = nullptr;
    delete structure;
}

}  // namespace

namespace {

TEST(PoseCopyRelationships, ALimbWhoseMiddleBonesWereNotTaggedKeepsOnlyItsTaggedBones) {
    // root (0) - R (1) - B (2, untagged) - M (3) - S (4): after pairing, bones[1] is M, the last
    // tagged one above the goal, and bones[2] is R.
    orvhost::NewScene();
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Rig", model);
    ORV::Null objects[5];
    const wchar_t* names[5] = {L"Root", L"R", L"B", L"M", L"S"};
    for (int i = 0; i < 5; ++i) {
        model.AddNull(names[i], objects[i]);
        objects[i].GetKinematics().GetGlobal().PutTransform(At(0, 10.0 - 2.0 * i, 0.1 * i));
    }
    MotionSource src({{-1, 0}, {0, 1}, {1, 0}, {2, 0}, {1, 2}}, {{At(0, 0, 0), At(0, 0, 0), At(0, 0, 0), At(0, 0, 0), At(0, 0, 0)}});
    Target tgt({{-1, 0}, {0, 1}, {1, 0}, {2, 0}, {1, 2}}, {{4, 3, 2, 1}});
    static_cast<ORV::Model&>(tgt.map) = model;
    for (int i : {0, 1, 3, 4}) tgt.map.nodes[i].object = objects[i];
    ZUK::GlueMap glue;
    glue.modelMap = &tgt.map;
    ASSERT_TRUE(tgt.map.BuildRelationshipsWithSrcModelMap(src.map, glue));
    const ORV::CLongArray& bones = tgt.structure->planes[0].bones;
    ASSERT_EQ(bones.GetCount(), 3);
    EXPECT_EQ(bones[0], 4);
    EXPECT_EQ(bones[1], 3);
    EXPECT_EQ(bones[2], 1);
    // The untagged node left the hierarchy: its child hangs from its parent now.
    EXPECT_EQ(tgt.structure->nodes[3].Parent, 1);
}

TEST(PoseCopyRelationships, StructuresOfAnotherTypeAreRefusedWithTheirMessage) {
    orvhost::ClearLog();
    MotionSource src({{-1, 0}}, {{At(0, 0, 0)}});
    src.structure->Type = L"quadruped";
    Target tgt({{-1, 0}});
    ZUK::GlueMap glue;
    glue.modelMap = &tgt.map;
    EXPECT_FALSE(tgt.map.BuildRelationshipsWithSrcModelMap(src.map, glue));
    EXPECT_EQ(orvhost::LogTexts(4),
              std::vector<std::wstring>{L"The normalized motion must have the same type as the model structure."});
}

TEST(PoseCopyRelationships, NodesPairByNameAndOverridesByTheSourceName) {
    orvhost::NewScene();
    ORV::Model model;
    ORV::Application().GetActiveSceneRoot().AddModel(ORV::CRefArray(), L"Rig", model);
    ORV::Null a, b;
    model.AddNull(L"A", a);
    model.AddNull(L"B", b);
    MotionSource src({{-1, 0}, {0, 0}}, {{At(0, 0, 0), At(0, 1, 0)}});
    src.structure->nodes[1].objIsValid = false;  // the saving rig lacked node 1
    Target tgt({{-1, 0}, {0, 0}});
    static_cast<ORV::Model&>(tgt.map) = model;
    tgt.map.nodes[0].object = a;
    tgt.map.nodes[1].object = b;
    tgt.map.nodes[1].overrideTag = L"N0";
    ZUK::GlueMap glue;
    glue.modelMap = &tgt.map;
    ASSERT_TRUE(tgt.map.BuildRelationshipsWithSrcModelMap(src.map, glue));
    EXPECT_EQ(tgt.map.nodes[0].translationSource, 0);
    EXPECT_EQ(tgt.map.nodes[1].translationSource, -1);
    EXPECT_EQ(tgt.map.nodes[1].rotationSource, 0);
}

}  // namespace
