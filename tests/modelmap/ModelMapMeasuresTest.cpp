// The measures of a model map on small rigs and hand-filled maps: bone and limb lengths, leg
// length and hip offset, plane normals, two-link signs, goal placement on chain effectors, the
// rotation offsets and their use on a pose, the chain roll, and the pose read from a rig.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "host/RigBuilders.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"
#include "modelmap/ModelMapTestSupport.h"
#include "support/BvhRigBuilder.h"

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
using ZUK::ModelMap;
using ZUK::ModelStructure;

namespace {

constexpr double kPi = 3.14159265358979323846;

CVector3 Pos(const ORV::X3DObject& o) {
    return o.GetKinematics().GetGlobal().GetTransform().GetTranslation();
}

CTransformation Global(const ORV::X3DObject& o) { return o.GetKinematics().GetGlobal().GetTransform(); }

void MoveTo(const ORV::X3DObject& o, const CVector3& p) {
    CTransformation t = Global(o);
    t.SetTranslation(p);
    o.GetKinematics().GetGlobal().PutTransform(t);
}

std::uint64_t Revision() { return orvhost::TheHost().scene->revision; }

// v rotated by `angle` about the unit `axis` (Rodrigues), computed here on its own.
CVector3 Turned(const CVector3& v, const CVector3& axis, double angle) {
    CVector3 cross;
    cross.Cross(axis, v);
    return v * std::cos(angle) + cross * std::sin(angle) + axis * (axis.Dot(v) * (1.0 - std::cos(angle)));
}

class Measures : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        root = ORV::Application().GetActiveSceneRoot();
        biped = modelmaptest::LoadStructure(L"biped");
        ASSERT_TRUE(biped);
    }

    int Node(const wchar_t* name) const { return biped->nodeIndex(name); }

    // A map of the biped filled by hand: no objects, the given global positions.
    void FillByHand(ModelMap& map) {
        map.structure = biped.get();
        map.nodes.resize(biped->numNodes);
        map.planes.resize(biped->numPlanes);
    }

    ORV::Model AddModel(const wchar_t* name) {
        ORV::Model m;
        root.AddModel(ORV::CRefArray(), name, m);
        return m;
    }

    modelmaptest::FactoryData data;
    ORV::Model root;
    std::unique_ptr<ModelStructure> biped;
};

// A biped left leg of nulls with a bent knee: cog (0,10,0), lthigh (1,9,0), lshin (1,5,1),
// lfoot (1,1,0), ltoe (1,0,2).
struct NullLeg {
    ORV::Model model;
    ORV::Null cog, thigh, shin, foot, toe;
};

NullLeg BuildNullLeg(ORV::Model root) {
    NullLeg r;
    root.AddModel(ORV::CRefArray(), L"Leg", r.model);
    r.cog = rigs::AddNullAt(r.model, L"cog", CVector3(0, 10, 0));
    r.thigh = rigs::AddNullAt(r.cog, L"thigh", CVector3(1, 9, 0));
    r.shin = rigs::AddNullAt(r.thigh, L"shin", CVector3(1, 5, 1));
    r.foot = rigs::AddNullAt(r.shin, L"foot", CVector3(1, 1, 0));
    r.toe = rigs::AddNullAt(r.foot, L"toe", CVector3(1, 0, 2));
    return r;
}

}  // namespace

// ---- Plane normals -----------------------------------------------------------------------------

TEST_F(Measures, LimbBentLessThanATenthOfARadianHasAZeroNormal) {
    ModelMap map;
    FillByHand(map);
    const int plane = 0;
    const ModelStructure::Plane& p = biped->planes[plane];
    for (double bend : {0.099, 0.101, 0.5}) {
        map.nodes[p.AnchorIndex].global.SetTranslation(CVector3(0, 0, 0));
        map.nodes[p.Mid].global.SetTranslation(CVector3(5 * std::sin(bend), -5 * std::cos(bend), 0));
        map.nodes[p.Span].global.SetTranslation(CVector3(0, -10, 0));
        map.planes[plane].normal = CVector3(7, 7, 7);
        map.computePlaneNormals();
        if (bend < 0.1) {
            EXPECT_EQ(map.planes[plane].normal, CVector3(0, 0, 0)) << bend;
        } else {
            // (anchor to span) x (anchor to mid), normalised: +Z for a middle joint toward +X.
            EXPECT_TRUE(map.planes[plane].normal.Equals(CVector3(0, 0, 1), 1e-12)) << bend;
        }
    }
}

TEST_F(Measures, PlaneNormalIsTheUnitNormalOfAnchorSpanAndMid) {
    ModelMap map;
    FillByHand(map);
    const ModelStructure::Plane& p = biped->planes[2];
    const CVector3 a(1, 2, 3), m(2, 0, 5), s(4, 1, -1);
    map.nodes[p.AnchorIndex].global.SetTranslation(a);
    map.nodes[p.Mid].global.SetTranslation(m);
    map.nodes[p.Span].global.SetTranslation(s);
    map.computePlaneNormals();
    CVector3 want;
    want.Cross(s - a, m - a);
    want = want / want.GetLength();
    EXPECT_TRUE(map.planes[2].normal.Equals(want, 1e-12));
}

// ---- Leg length and hip offset ----------------------------------------------------------------

TEST_F(Measures, LegLengthIsTheLongestFrictionNode) {
    ModelMap map;
    FillByHand(map);
    map.legLength = 5.0;
    map.computeLegLength();
    EXPECT_EQ(map.legLength, 0.0);  // every length is still 0
    map.nodes[Node(L"lfoot")].length = 8.5;
    map.nodes[Node(L"rfoot")].length = 9.25;
    map.nodes[Node(L"lhand")].length = 20.0;  // a limb end, but no friction node
    map.nodes[Node(L"spine")].length = 30.0;
    map.computeLegLength();
    EXPECT_EQ(map.legLength, 9.25);
}

TEST_F(Measures, EarlierOfTwoEqualLegsSetsTheHipOffset) {
    ModelMap map;
    FillByHand(map);
    map.nodes[0].align = CVector3(0, 1, 0);
    map.nodes[0].global.SetTranslation(CVector3(0, 10, 0));
    map.nodes[Node(L"lthigh")].global.SetTranslation(CVector3(1, 8, 0));
    map.nodes[Node(L"rthigh")].global.SetTranslation(CVector3(-1, 7, 0));
    map.nodes[Node(L"lfoot")].length = 9.0;
    map.nodes[Node(L"rfoot")].length = 9.0;
    map.computeHipOffset();
    EXPECT_DOUBLE_EQ(map.hipOffset, 2.0);  // from the left anchor, 2 below the root
    map.nodes[Node(L"rfoot")].length = 9.0 + 1e-9;
    map.computeHipOffset();
    EXPECT_DOUBLE_EQ(map.hipOffset, 3.0);  // a strictly longer right leg decides
}

TEST_F(Measures, HipOffsetIsMeasuredAlongTheRootsBoneAxis) {
    ModelMap map;
    FillByHand(map);
    // The root's bone axis is its own Y, turned a quarter about Z: world -X.
    map.nodes[0].align = CVector3(0, 2, 0);
    map.nodes[0].global.SetRotation(CRotation(CVector3(0, 0, 1), kPi / 2));
    map.nodes[0].global.SetTranslation(CVector3(5, 5, 5));
    map.nodes[Node(L"lthigh")].global.SetTranslation(CVector3(3, 9, 1));
    map.nodes[Node(L"lfoot")].length = 4.0;
    map.computeHipOffset();
    // -((P - R) . a) with a = (-1, 0, 0): -((-2) * (-1)) = -2.
    EXPECT_NEAR(map.hipOffset, -2.0, 1e-12);
}

TEST_F(Measures, HipOffsetLeavesAMotionMapAlone) {
    ModelMap map;
    FillByHand(map);
    ORV::MATH::CTransformation frames[1];
    map.motion = frames;
    map.hipOffset = 42.0;
    map.nodes[0].align = CVector3(0, 1, 0);
    map.nodes[Node(L"lfoot")].length = 9.0;
    map.computeHipOffset();
    map.motion = nullptr;
    EXPECT_EQ(map.hipOffset, 42.0);
}

// ---- Lengths on a rig --------------------------------------------------------------------------

TEST_F(Measures, RigLengthsFollowTheNodeKinds) {
    NullLeg leg = BuildNullLeg(root);
    ASSERT_TRUE(bvhrig::TagRigByProperties(leg.model, *biped,
                                           {{L"cog", L"cog"},
                                            {L"lthigh", L"thigh"},
                                            {L"lshin", L"shin"},
                                            {L"lfoot", L"foot"},
                                            {L"ltoe", L"toe"}}));
    ModelMap map(leg.model, biped.get());
    map.createMap();
    // The root: its own distance from the origin; plain nodes: the distance to the parent; the
    // limb end: the path back through the knee to the anchor.
    EXPECT_NEAR(map.nodes[0].length, 10.0, 1e-12);
    EXPECT_NEAR(map.nodes[Node(L"lthigh")].length, std::sqrt(2.0), 1e-12);
    EXPECT_NEAR(map.nodes[Node(L"lshin")].length, std::sqrt(17.0), 1e-12);
    EXPECT_NEAR(map.nodes[Node(L"lfoot")].length, 2.0 * std::sqrt(17.0), 1e-12);
    EXPECT_NEAR(map.nodes[Node(L"ltoe")].length, std::sqrt(5.0), 1e-12);
    // The right leg is not on this rig: its limb end measures nothing.
    EXPECT_EQ(map.nodes[Node(L"rfoot")].length, 0.0);
    EXPECT_NEAR(map.legLength, 2.0 * std::sqrt(17.0), 1e-12);
    EXPECT_NEAR(map.hipOffset, 1.0, 1e-12);
}

TEST_F(Measures, UntaggedMiddleNodeIsMeasuredThroughTheTaggedNodes) {
    NullLeg leg = BuildNullLeg(root);
    ASSERT_TRUE(bvhrig::TagRigByProperties(leg.model, *biped,
                                           {{L"cog", L"cog"}, {L"lthigh", L"thigh"}, {L"lfoot", L"foot"}}));
    ModelMap map(leg.model, biped.get());
    map.createMap();
    // Without the knee, the path runs straight from the foot to the anchor.
    EXPECT_NEAR(map.nodes[Node(L"lfoot")].length, 8.0, 1e-12);
}

TEST_F(Measures, LimbEndIsMeasuredFromTheSceneOtherNodesFromTheHeldPose) {
    NullLeg leg = BuildNullLeg(root);
    ASSERT_TRUE(bvhrig::TagRigByProperties(
        leg.model, *biped,
        {{L"cog", L"cog"}, {L"lthigh", L"thigh"}, {L"lshin", L"shin"}, {L"lfoot", L"foot"}}));
    ModelMap map(leg.model, biped.get());
    map.createMap();
    // The knee moves in the scene: synchronising measures the limb end again from the scene,
    // and the knee itself from the pose the map already holds.
    // (The foot hangs under the knee and moves with it, to (1, 1, 3).)
    MoveTo(leg.shin, CVector3(1, 5, 4));
    map.synchronizeLengths();
    EXPECT_NEAR(map.nodes[Node(L"lshin")].length, std::sqrt(17.0), 1e-12);
    const double path = std::sqrt(17.0) + std::sqrt(32.0);
    EXPECT_NEAR(map.nodes[Node(L"lfoot")].length, path, 1e-12);
    EXPECT_NEAR(map.legLength, path, 1e-12);
}

TEST_F(Measures, LimbEndWhoseParentIsNotBeforeItMeasuresZero) {
    ModelMap map;
    FillByHand(map);
    const int foot = Node(L"lfoot");
    biped->nodes[foot].Parent = foot;
    map.nodes[foot].length = 3.0;
    map.CalculateESRNodeLengths();
    EXPECT_EQ(map.nodes[foot].length, 0.0);
    biped->nodes[foot].Parent = -1;
    map.nodes[foot].length = 3.0;
    map.CalculateESRNodeLengths();
    EXPECT_EQ(map.nodes[foot].length, 0.0);
}

// ---- Goals on chain effectors ------------------------------------------------------------------

TEST_F(Measures, GoalsStayPutWhenTheMidJointIsNoChainBone) {
    NullLeg leg = BuildNullLeg(root);
    ASSERT_TRUE(bvhrig::TagRigByProperties(
        leg.model, *biped,
        {{L"cog", L"cog"}, {L"lthigh", L"thigh"}, {L"lshin", L"shin"}, {L"lfoot", L"foot"}}));
    ModelMap map(leg.model, biped.get());
    const CTransformation before = Global(leg.foot);
    const std::uint64_t revision = Revision();
    map.CalulateSpanToEndEffectorOffset();
    EXPECT_EQ(Revision(), revision);
    EXPECT_TRUE(Global(leg.foot).Equals(before, 0.0));
}

TEST_F(Measures, SpanObjectOffTheEffectorIsMovedOntoIt) {
    rigs::IKBiped b = rigs::BuildIKBiped(root);
    // The left foot is played by a control null away from the chain's effector; the right one
    // by the goal that holds its effector.
    ORV::Null control = rigs::AddNullAt(b.model, L"LeftFootControl", CVector3(3, 0, 2));
    ASSERT_TRUE(bvhrig::TagRigByProperties(b.model, *biped,
                                           {{L"cog", L"Hips"},
                                            {L"lthigh", L"LeftLegBone"},
                                            {L"lshin", L"LeftLegLower"},
                                            {L"lfoot", L"LeftFootControl"},
                                            {L"rthigh", L"RightLegBone"},
                                            {L"rshin", L"RightLegLower"},
                                            {L"rfoot", L"RightLegGoal"}}));
    const CVector3 effector = Pos(b.leftLeg.effector);
    const CVector3 rightGoal = Pos(b.rightLeg.goal);
    const CRotation turn = Global(control).GetRotation();
    ModelMap map(b.model, biped.get());
    map.CalulateSpanToEndEffectorOffset();
    EXPECT_TRUE(Pos(control).Equals(effector, 1e-12));
    EXPECT_TRUE(Global(control).GetRotation().Equals(turn, 1e-12));
    EXPECT_TRUE(Pos(b.leftLeg.effector).Equals(effector, 1e-12));
    EXPECT_TRUE(Pos(b.rightLeg.goal).Equals(rightGoal, 1e-12));
}

TEST_F(Measures, CreateMapReadsThePoseAfterTheGoalsHaveMoved) {
    rigs::IKBiped b = rigs::BuildIKBiped(root);
    ORV::Null control = rigs::AddNullAt(b.model, L"LeftFootControl", CVector3(3, 0, 2));
    ASSERT_TRUE(bvhrig::TagRigByProperties(b.model, *biped,
                                           {{L"cog", L"Hips"},
                                            {L"lthigh", L"LeftLegBone"},
                                            {L"lshin", L"LeftLegLower"},
                                            {L"lfoot", L"LeftFootControl"}}));
    ModelMap map(b.model, biped.get());
    const CVector3 effector = Pos(b.leftLeg.effector);
    map.createMap();
    // The pose held and the limb measured are those with the control on the effector.
    EXPECT_TRUE(map.nodes[Node(L"lfoot")].global.GetTranslation().Equals(effector, 1e-12));
    EXPECT_NEAR(map.nodes[Node(L"lfoot")].length,
                (effector - b.leftLeg.mid).GetLength() + (b.leftLeg.mid - b.leftLeg.start).GetLength(), 1e-9);
    // Synchronising puts a control that has wandered off back on the effector.
    MoveTo(control, CVector3(-4, 2, 2));
    map.synchronizeLengths();
    EXPECT_TRUE(Pos(control).Equals(effector, 1e-12));
}

TEST_F(Measures, CaptureMapLeavesTheSceneAlone) {
    rigs::IKBiped b = rigs::BuildIKBiped(root);
    ORV::Null control = rigs::AddNullAt(b.model, L"LeftFootControl", CVector3(3, 0, 2));
    ModelMap map;
    FillByHand(map);
    map.nodes[Node(L"lshin")].object = b.leftLeg.lower;
    map.nodes[Node(L"lfoot")].object = control;
    ZUK::MocapData capture;
    map.mocap = &capture;
    const std::uint64_t revision = Revision();
    map.CalulateSpanToEndEffectorOffset();
    map.mocap = nullptr;
    EXPECT_EQ(Revision(), revision);
    EXPECT_TRUE(Pos(control).Equals(CVector3(3, 0, 2), 0.0));
}

// ---- Two-link signs ----------------------------------------------------------------------------

TEST_F(Measures, TwoLinkSignOnTwoBoneLimbsNeverTouchesTheScene) {
    rigs::IKBiped b = rigs::BuildIKBiped(root);
    ASSERT_TRUE(bvhrig::TagRigByProperties(b.model, *biped,
                                           {{L"cog", L"Hips"},
                                            {L"lthigh", L"LeftLegBone"},
                                            {L"lshin", L"LeftLegLower"},
                                            {L"lfoot", L"LeftLegGoal"}}));
    ModelMap map(b.model, biped.get());
    for (ZUK::PlaneMap& p : map.planes) p.sign = -1;
    const std::uint64_t revision = Revision();
    map.computeTwoLinkSign();
    EXPECT_EQ(Revision(), revision);
    for (const ZUK::PlaneMap& p : map.planes) EXPECT_EQ(p.sign, 1);
}

namespace {

// A quadruped's left hind leg of nulls: thigh, shin, hock and foot in the YZ plane at x = 2,
// the shin and hock placed by the caller.
struct HindLeg {
    ORV::Model model;
    ORV::Null cog, thigh, shin, hock, foot;
};

HindLeg BuildHindLeg(ORV::Model root, const CVector3& shin, const CVector3& hock) {
    HindLeg r;
    root.AddModel(ORV::CRefArray(), L"Dog", r.model);
    r.cog = rigs::AddNullAt(r.model, L"cog", CVector3(0, 10, 0));
    r.thigh = rigs::AddNullAt(r.cog, L"thigh", CVector3(2, 10, 0));
    r.shin = rigs::AddNullAt(r.thigh, L"shin", shin);
    r.hock = rigs::AddNullAt(r.shin, L"hock", hock);
    r.foot = rigs::AddNullAt(r.model, L"foot", CVector3(2, 0, 0));
    return r;
}

const bvhrig::Tagging kHindLegTags = {{L"cog", L"cog"},
                                      {L"lthigh", L"thigh"},
                                      {L"lshin", L"shin"},
                                      {L"lhock", L"hock"},
                                      {L"lhindfoot", L"foot"}};

// The bend of (base, joint) with the goal taken 1% towards base, computed here on its own.
CVector3 Bend(const CVector3& base, const CVector3& joint, const CVector3& goal) {
    const CVector3 g = base + (goal - base) * 0.99;
    CVector3 n;
    n.Cross(g - base, joint - base);
    return n;
}

}  // namespace

TEST_F(Measures, TwoLinkSignIsNegativeWhenTheUpperLinksBendOppositeWays) {
    std::unique_ptr<ModelStructure> dog = modelmaptest::LoadStructure(L"quadruped");
    ASSERT_TRUE(dog);
    const int plane = 2;  // lshin: thigh, shin, hock, hind foot
    ASSERT_EQ(dog->planes[plane].bones.GetCount(), 4);
    // Knee forward, hock backward: a dog's hind leg.
    const CVector3 shin(2, 6, 1), hock(2, 3, -1);
    HindLeg leg = BuildHindLeg(root, shin, hock);
    ASSERT_TRUE(bvhrig::TagRigByProperties(leg.model, *dog, kHindLegTags));
    ModelMap map(leg.model, dog.get());
    const CVector3 thigh(2, 10, 0), foot(2, 0, 0);
    ASSERT_LT(Bend(thigh, shin, foot).Dot(Bend(shin, hock, foot)), 0.0);
    const CTransformation before = Global(leg.foot);
    map.computeTwoLinkSign();
    EXPECT_EQ(map.planes[plane].sign, -1);
    EXPECT_TRUE(Global(leg.foot).Equals(before, 1e-12));
}

TEST_F(Measures, TwoLinkSignStaysWhenTheUpperLinksBendAlike) {
    std::unique_ptr<ModelStructure> dog = modelmaptest::LoadStructure(L"quadruped");
    ASSERT_TRUE(dog);
    const int plane = 2;
    const CVector3 shin(2, 6, 1), hock(2, 3, 1.5);
    HindLeg leg = BuildHindLeg(root, shin, hock);
    ASSERT_TRUE(bvhrig::TagRigByProperties(leg.model, *dog, kHindLegTags));
    ModelMap map(leg.model, dog.get());
    ASSERT_GT(Bend(CVector3(2, 10, 0), shin, CVector3(2, 0, 0)).Dot(Bend(shin, hock, CVector3(2, 0, 0))),
              0.0);
    map.planes[plane].sign = -1;  // a sign that the probe does not confirm is kept as it was
    map.computeTwoLinkSign();
    EXPECT_EQ(map.planes[plane].sign, -1);
    map.planes[plane].sign = 1;
    map.computeTwoLinkSign();
    EXPECT_EQ(map.planes[plane].sign, 1);
}

TEST_F(Measures, TwoLinkSignProbeOnAChainPutsEveryObjectBack) {
    std::unique_ptr<ModelStructure> dog = modelmaptest::LoadStructure(L"quadruped");
    ASSERT_TRUE(dog);
    // The hind leg as a two-bone chain from the hip to the hock, whose effector plays the hock
    // and whose goal plays the foot: probing the goal makes the host solve the chain.
    ORV::Model model = AddModel(L"Dog");
    ORV::Null cog = rigs::AddNullAt(model, L"cog", CVector3(0, 10, 0));
    rigs::Limb limb = rigs::AddTwoBoneLimb(cog, model, L"Hind", CVector3(2, 10, 0), CVector3(2, 6, 1),
                                           CVector3(2, 2, 0), CVector3(1, 0, 0), CVector3(2, 6, 5));
    ASSERT_TRUE(bvhrig::TagRigByProperties(model, *dog,
                                           {{L"cog", L"cog"},
                                            {L"lthigh", L"HindBone"},
                                            {L"lshin", L"HindLower"},
                                            {L"lhock", L"HindEff"},
                                            {L"lhindfoot", L"HindGoal"}}));
    ASSERT_TRUE(limb.goal.IsValid());
    ModelMap map(model, dog.get());
    ORV::CRefArray all = model.FindChildren(L"", L"", ORV::CStringArray(), true);
    std::vector<CTransformation> before;
    for (long i = 0; i < all.GetCount(); ++i) before.push_back(Global(ORV::X3DObject(all[i])));
    const std::uint64_t revision = Revision();
    map.computeTwoLinkSign();
    EXPECT_NE(Revision(), revision);  // the probe did move the goal
    for (long i = 0; i < all.GetCount(); ++i)
        EXPECT_TRUE(Global(ORV::X3DObject(all[i])).Equals(before[i], 1e-9))
            << modelmaptest::Narrow(ORV::X3DObject(all[i]).GetName());
}

// ---- Rotation offsets --------------------------------------------------------------------------

TEST_F(Measures, RotationOffsetCarriesAlignOntoZAndRollOntoY) {
    ModelMap map;
    FillByHand(map);
    map.nodes[3].align = CVector3(1, 0, 0);
    map.nodes[3].roll = CVector3(0, 0, -1);
    map.nodes[4].align = CVector3(0.48, -0.6, 0.64);
    map.nodes[4].roll = CVector3(0.8, 0.0, -0.6);
    ZUK::ExtractionMap* extraction = new ZUK::ExtractionMap;
    extraction->align = CVector3(0, -1, 0);
    extraction->roll = CVector3(1, 0, 0);
    map.nodes[4].extraction = extraction;
    map.CalculateESRNodeRotationsFromAlignAndRoll();
    for (int i : {3, 4}) {
        const ZUK::NodeMap& n = map.nodes[i];
        CVector3 a, r;
        a.MulByRotation(n.align, n.esrOffset.GetRotation());
        r.MulByRotation(n.roll, n.esrOffset.GetRotation());
        EXPECT_TRUE((a / a.GetLength()).Equals(CVector3(0, 0, 1), 1e-12)) << i;
        // roll lands in the plane of Z and Y, on the side of +Y
        EXPECT_NEAR(r.x, 0.0, 1e-12) << i;
        EXPECT_GT(r.y, 0.0) << i;
        CTransformation both;
        both.Mul(n.esrOffset, n.esrOffsetInverse);
        EXPECT_TRUE(both.Equals(CTransformation(), 1e-12)) << i;
        EXPECT_EQ(n.esrOffset.GetTranslation(), CVector3(0, 0, 0));
    }
    // The extraction's own directions give its inverse offset.
    CVector3 z;
    z.MulByRotation(CVector3(0, 0, 1), extraction->esrOffsetInverse.GetRotation());
    EXPECT_TRUE(z.Equals(CVector3(0, -1, 0), 1e-12));
}

TEST_F(Measures, NormalisedRotationTurnsZOntoTheBoneDirection) {
    ModelMap map;
    FillByHand(map);
    // A bone that runs along its object's X, its twist along the object's Z.
    ZUK::NodeMap& n = map.nodes[6];
    n.align = CVector3(1, 0, 0);
    n.roll = CVector3(0, 0, 1);
    map.CalculateESRNodeRotationsFromAlignAndRoll();
    const CRotation pose(0.4, -1.1, 2.3);
    n.global.SetRotation(pose);
    n.global.SetTranslation(CVector3(1, 2, 3));
    map.addRotationOffsets(false);
    CVector3 z, bone, y, twist;
    z.MulByRotation(CVector3(0, 0, 1), n.global.GetRotation());
    bone.MulByRotation(CVector3(1, 0, 0), pose);
    y.MulByRotation(CVector3(0, 1, 0), n.global.GetRotation());
    twist.MulByRotation(CVector3(0, 0, 1), pose);
    EXPECT_TRUE(z.Equals(bone, 1e-12));
    EXPECT_TRUE(y.Equals(twist, 1e-12));
    EXPECT_EQ(n.global.GetTranslation(), CVector3(1, 2, 3));
    // The counter offsets bring the rig's own rotation back.
    map.addCounterRotationOffsets();
    EXPECT_TRUE(n.global.GetRotation().Equals(pose, 1e-12));
}

TEST_F(Measures, RotationOffsetsUseTheExtractionOnlyWhenAsked) {
    ModelMap map;
    FillByHand(map);
    ZUK::NodeMap& n = map.nodes[2];
    n.align = CVector3(0, 1, 0);
    n.roll = CVector3(0, 0, 1);
    n.extraction = new ZUK::ExtractionMap;
    n.extraction->align = CVector3(1, 0, 0);
    n.extraction->roll = CVector3(0, 1, 0);
    map.CalculateESRNodeRotationsFromAlignAndRoll();
    const CRotation pose(0.2, 0.3, -0.7);
    for (bool useExtraction : {false, true}) {
        n.global.SetRotation(pose);
        map.addRotationOffsets(useExtraction);
        CVector3 z, bone;
        z.MulByRotation(CVector3(0, 0, 1), n.global.GetRotation());
        bone.MulByRotation(useExtraction ? CVector3(1, 0, 0) : CVector3(0, 1, 0), pose);
        EXPECT_TRUE(z.Equals(bone, 1e-12)) << useExtraction;
    }
}

TEST_F(Measures, CounterOffsetsReachNodesWithoutObjectOrSource) {
    ModelMap map;
    FillByHand(map);
    for (ZUK::NodeMap& n : map.nodes) n.esrOffset.SetRotation(CRotation(CVector3(0, 1, 0), 0.5));
    map.addCounterRotationOffsets();
    for (const ZUK::NodeMap& n : map.nodes)
        EXPECT_TRUE(n.global.GetRotation().Equals(CRotation(CVector3(0, 1, 0), 0.5), 1e-12));
}

// ---- Chain roll --------------------------------------------------------------------------------

TEST_F(Measures, RollTurnsTheMiddleJointAboutTheLimbsAxis) {
    ModelMap map;
    FillByHand(map);
    const int plane = 2;
    const ModelStructure::Plane& p = biped->planes[plane];
    const CVector3 a(1, 2, 3), m(4, 3, 2), s(7, 2, 4);
    map.nodes[p.AnchorIndex].global.SetTranslation(a);
    map.nodes[p.AnchorIndex].global.SetRotation(CRotation(0.1, 0.2, 0.3));
    map.nodes[p.Mid].global.SetTranslation(m);
    map.nodes[p.Mid].global.SetRotation(CRotation(-0.4, 0.5, 0.1));
    map.nodes[p.Span].global.SetTranslation(s);
    const CTransformation spanBefore = map.nodes[p.Span].global;
    map.planes[plane].roll = 30.0;
    map.rollKinematicChain(plane);
    const CVector3 axis = (s - a) / (s - a).GetLength();
    const double angle = 30.0 * kPi / 180.0;
    EXPECT_TRUE(map.nodes[p.Mid].global.GetTranslation().Equals(a + Turned(m - a, axis, angle), 1e-12));
    EXPECT_EQ(map.nodes[p.AnchorIndex].global.GetTranslation(), a);
    // The anchor's axes turn about the limb's axis as well.
    CVector3 x;
    x.MulByRotation(CVector3(1, 0, 0), map.nodes[p.AnchorIndex].global.GetRotation());
    CVector3 x0;
    x0.MulByRotation(CVector3(1, 0, 0), CRotation(0.1, 0.2, 0.3));
    EXPECT_TRUE(x.Equals(Turned(x0, axis, angle), 1e-12));
    // The middle joint keeps its pose relative to the anchor.
    CVector3 mx, mx0;
    mx.MulByRotation(CVector3(1, 0, 0), map.nodes[p.Mid].global.GetRotation());
    mx0.MulByRotation(CVector3(1, 0, 0), CRotation(-0.4, 0.5, 0.1));
    EXPECT_TRUE(mx.Equals(Turned(mx0, axis, angle), 1e-12));
    EXPECT_TRUE(map.nodes[p.Span].global.Equals(spanBefore, 0.0));
}

// ---- Debugging rig -----------------------------------------------------------------------------

TEST_F(Measures, CreateEsrSaysItIsNotBuiltYet) {
    ModelMap map;
    FillByHand(map);
    map.createESR();
    EXPECT_EQ(orvhost::LogTexts(4), std::vector<std::wstring>{L"createESR is not built yet"});
}
