// IK chains: structure and handles, the two-bone solver against the geometry of the goal and
// the up-vector, roll, longer chains, FK chains, and the IK biped of the rig builders.
#include <gtest/gtest.h>

#include <cmath>

#include "HostTesting.h"
#include "host/RigBuilders.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

constexpr double kPi = 3.14159265358979323846;

class Chain : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        root = Application().GetActiveSceneRoot();
    }
    static CVector3 Pos(X3DObject o, double t = 0.0) {
        return o.GetKinematics().GetGlobal().GetTransform(t).GetTranslation();
    }
    static CVector3 End(ChainBone b, double t = 0.0) {
        CVector3 e;
        e.MulByTransformation(CVector3(b.GetLength(), 0, 0), b.GetKinematics().GetGlobal().GetTransform(t));
        return e;
    }
    static CVector3 Unit(const CVector3& v) { return v / v.GetLength(); }
    static CVector3 Across(const CVector3& v, const CVector3& axis) {
        const CVector3 a = Unit(axis);
        return v - a * v.Dot(a);
    }
    // A two-bone chain from (0,0,0) through (3,0,-1) to (6,0,0) in the XZ plane, an effector goal
    // null, and an up-vector null.
    void MakeArm() {
        ASSERT_EQ(root.Add2DChain(CVector3(0, 0, 0), CVector3(3, 0, -1), CVector3(0, 1, 0), L"Arm", chain),
                  CStatus::OK);
        ASSERT_EQ(chain.AddBone(CVector3(6, 0, 0), L"Fore", fore), CStatus::OK);
        upper = ChainBone(chain.GetBones()[0]);
        goal = rigs::AddNullAt(root, L"Goal", CVector3(6, 0, 0));
        up = rigs::AddNullAt(root, L"Up", CVector3(3, 5, 0));
        Constraint c;
        ASSERT_EQ(chain.GetEffector().GetKinematics().AddConstraint(L"Position", goal, c), CStatus::OK);
        ASSERT_EQ(upper.GetJoint().PutUpVectorReference(up), CStatus::OK);
    }
    void MoveTo(X3DObject o, const CVector3& p) {
        CTransformation t = o.GetKinematics().GetGlobal().GetTransform();
        t.SetTranslation(p);
        ASSERT_EQ(o.GetKinematics().GetGlobal().PutTransform(t), CStatus::OK);
    }
    Model root;
    ChainRoot chain;
    ChainBone upper, fore;
    Null goal, up;
};

}  // namespace

TEST_F(Chain, ElementsAreChainElementsWithJointsAndEffector) {
    MakeArm();
    EXPECT_TRUE(chain.IsA(77));
    EXPECT_TRUE(upper.IsA(77));
    EXPECT_TRUE(fore.IsA(77));
    EXPECT_TRUE(chain.GetEffector().IsA(77));
    EXPECT_FALSE(goal.IsA(77));
    EXPECT_EQ(upper.GetIndex(), 0);
    EXPECT_EQ(fore.GetIndex(), 1);
    EXPECT_EQ(ChainElement(fore).GetEffector(), chain.GetEffector());
    EXPECT_EQ(ChainElement(fore).GetRoot(), chain);
    EXPECT_EQ(upper.GetName(), CString(L"ArmBone"));
    EXPECT_EQ(chain.GetEffector().GetName(), CString(L"ArmEff"));
    EXPECT_NEAR(upper.GetLength(), std::sqrt(10.0), 1e-12);
    EXPECT_EQ(upper.GetJoint().GetUpVectorReference(), up);
    EXPECT_FALSE(fore.GetJoint().GetUpVectorReference().IsValid());
    // "roll" and "chntype" sit under "joint".
    Parameter roll(CRef::FromPath(L"ArmBone.joint.roll"));
    ASSERT_TRUE(roll.IsValid());
    EXPECT_EQ(static_cast<double>(roll.GetValue()), 0.0);
    EXPECT_TRUE(Parameter(CRef::FromPath(L"Fore.joint.chntype")).IsValid());
    EXPECT_EQ(static_cast<int>(upper.GetJoint().GetParameterValue(L"chntype")), 1);
}

TEST_F(Chain, TwoBoneChainReachesAReachableGoalExactly) {
    MakeArm();
    for (const CVector3& g :
         {CVector3(4, 1, 1), CVector3(0.5, -2, 3), CVector3(-3, 0.5, -2), CVector3(2, 2, 0)}) {
        MoveTo(goal, g);
        EXPECT_TRUE(End(fore).Equals(g, 1e-12)) << g.x << " " << g.y << " " << g.z;
        EXPECT_TRUE(Pos(fore).Equals(End(upper), 1e-12));
        EXPECT_TRUE(Pos(upper).Equals(CVector3(0, 0, 0), 1e-12));
        EXPECT_NEAR((End(upper) - Pos(upper)).GetLength(), std::sqrt(10.0), 1e-12);
    }
}

TEST_F(Chain, ElbowPointsTowardTheUpVector) {
    MakeArm();
    for (const CVector3& u : {CVector3(3, 5, 0), CVector3(3, 0, 5), CVector3(1, -4, -4)}) {
        MoveTo(up, u);
        MoveTo(goal, CVector3(5, 0, 1));
        const CVector3 axis = Pos(goal) - Pos(upper);
        const CVector3 elbow = Unit(Across(Pos(fore) - Pos(upper), axis));
        const CVector3 want = Unit(Across(u - Pos(upper), axis));
        EXPECT_NEAR(elbow.Dot(want), 1.0, 1e-12);
    }
}

TEST_F(Chain, BonesPointAlongThemselvesWithTheBendNormalAsZ) {
    MakeArm();
    MoveTo(goal, CVector3(4, 2, 1));
    const CTransformation g = upper.GetKinematics().GetGlobal().GetTransform();
    const CMatrix3 m = g.GetRotationMatrix3();
    EXPECT_NEAR(m.GetRow(0).Dot(Unit(Pos(fore) - Pos(upper))), 1.0, 1e-12);
    CVector3 n;
    n.Cross(Pos(goal) - Pos(upper), Pos(fore) - Pos(upper));
    EXPECT_NEAR(std::fabs(m.GetRow(2).Dot(Unit(n))), 1.0, 1e-12);
    // The local pose of the lower bone rebuilds its global one under the upper bone.
    CTransformation rebuilt;
    rebuilt.Mul(fore.GetKinematics().GetLocal().GetTransform(), g);
    EXPECT_TRUE(rebuilt.Equals(fore.GetKinematics().GetGlobal().GetTransform(), 1e-9));
}

TEST_F(Chain, UnreachableGoalLeavesTheChainStraightTowardIt) {
    MakeArm();
    const CVector3 g(20, 10, -5);
    MoveTo(goal, g);
    const double total = 2 * std::sqrt(10.0);
    const CVector3 dir = Unit(g);
    EXPECT_TRUE(Pos(fore).Equals(dir * std::sqrt(10.0), 1e-12));
    EXPECT_TRUE(End(fore).Equals(dir * total, 1e-12));
    // The effector stays on its goal.
    EXPECT_TRUE(Pos(chain.GetEffector()).Equals(g, 1e-12));
}

TEST_F(Chain, JointRollTurnsTheBendAboutTheRootToGoalAxis) {
    MakeArm();
    MoveTo(goal, CVector3(5, 0, 0));
    ASSERT_EQ(upper.GetJoint().PutParameterValue(L"roll", CValue(90.0)), CStatus::OK);
    // Up is +Y; turned right-handed by 90 degrees about +X the bend points to +Z.
    const CVector3 elbow = Unit(Across(Pos(fore), CVector3(1, 0, 0)));
    EXPECT_TRUE(elbow.Equals(CVector3(0, 0, 1), 1e-12));
    ASSERT_EQ(upper.GetJoint().PutParameterValue(L"roll", CValue(-30.0)), CStatus::OK);
    const CVector3 turned = Unit(Across(Pos(fore), CVector3(1, 0, 0)));
    EXPECT_TRUE(turned.Equals(CVector3(0, std::cos(kPi / 6), -std::sin(kPi / 6)), 1e-12));
}

TEST_F(Chain, MirroredChainRollsTheOtherWay) {
    MakeArm();
    CTransformation mirror;
    mirror.SetScalingFromValues(-1, 1, 1);
    ASSERT_EQ(chain.GetKinematics().GetGlobal().PutTransform(mirror), CStatus::OK);
    MoveTo(goal, CVector3(5, 0, 0));
    ASSERT_EQ(upper.GetJoint().PutParameterValue(L"roll", CValue(90.0)), CStatus::OK);
    const CVector3 elbow = Unit(Across(Pos(fore), CVector3(1, 0, 0)));
    EXPECT_TRUE(elbow.Equals(CVector3(0, 0, -1), 1e-12));
    EXPECT_TRUE(End(fore).Equals(CVector3(5, 0, 0), 1e-12));
}

TEST_F(Chain, WithoutUpVectorTheChainBendsInItsRestPlane) {
    MakeArm();
    ASSERT_EQ(upper.GetJoint().PutUpVectorReference(CRef()), CStatus::OK);
    EXPECT_FALSE(upper.GetJoint().GetUpVectorReference().IsValid());
    // At rest the elbow sits at -Z; pulling the goal in keeps it on that side.
    MoveTo(goal, CVector3(4, 0, 0));
    EXPECT_TRUE(End(fore).Equals(CVector3(4, 0, 0), 1e-12));
    EXPECT_NEAR(Pos(fore).y, 0.0, 1e-12);
    EXPECT_LT(Pos(fore).z, -1.0);
}

TEST_F(Chain, ReadAtAFractionalTimeFollowsAnAnimatedGoal) {
    MakeArm();
    FCurve c;
    ASSERT_EQ(goal.GetKinematics().GetLocal().GetParameter(L"posy").AddFCurve(20, c), CStatus::OK);
    ASSERT_EQ(c.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
    ASSERT_EQ(c.AddKey(CTime(10.0), CValue(2.0), ovLinearInterpolation), CStatus::OK);
    for (double t : {0.0, 2.5, 7.75}) EXPECT_TRUE(End(fore, t).Equals(CVector3(6, 0.2 * t, 0), 1e-12)) << t;
}

TEST_F(Chain, FKChainTakesItsOwnParameters) {
    MakeArm();
    ASSERT_EQ(upper.GetJoint().PutParameterValue(L"chntype", CValue(2)), CStatus::OK);
    MoveTo(goal, CVector3(2, 3, 0));
    // The bones stay where they were made, whatever the goal and the up-vector say.
    EXPECT_TRUE(Pos(fore).Equals(CVector3(3, 0, -1), 1e-9));
    EXPECT_TRUE(End(fore).Equals(CVector3(6, 0, 0), 1e-9));
    ASSERT_EQ(upper.GetKinematics().GetLocal().GetParameter(L"rotz").PutValue(CValue(90.0)), CStatus::OK);
    EXPECT_TRUE(Pos(fore).Equals(CVector3(0, 3, -1), 1e-9));
}

TEST_F(Chain, LongChainReachesAReachableGoalWithinItsTolerance) {
    ChainRoot spine;
    ASSERT_EQ(root.Add2DChain(CVector3(0, 0, 0), CVector3(0, 2, 0), CVector3(0, 0, 1), L"Tail", spine),
              CStatus::OK);
    ChainBone b;
    ASSERT_EQ(spine.AddBone(CVector3(0, 3.5, 0), L"T2", b), CStatus::OK);
    ASSERT_EQ(spine.AddBone(CVector3(0, 6, 0), L"T3", b), CStatus::OK);
    ASSERT_EQ(spine.AddBone(CVector3(0, 7, 0), L"T4", b), CStatus::OK);
    CRefArray bones = spine.GetBones();
    ASSERT_EQ(bones.GetCount(), 4);
    const double lengths[4] = {2.0, 1.5, 2.5, 1.0};
    const double total = 7.0;
    Null g = rigs::AddNullAt(root, L"TailGoal", CVector3(3, 4, 0));
    Null u = rigs::AddNullAt(root, L"TailUp", CVector3(3, 4, 3));
    Constraint c;
    ASSERT_EQ(spine.GetEffector().GetKinematics().AddConstraint(L"Position", g, c), CStatus::OK);
    ASSERT_EQ(ChainBone(bones[0]).GetJoint().PutUpVectorReference(u), CStatus::OK);
    for (const CVector3& target :
         {CVector3(3, 4, 0), CVector3(-2, 1, 2), CVector3(0, 6.9, 0), CVector3(1, 1, 1)}) {
        MoveTo(g, target);
        EXPECT_LE((End(ChainBone(bones[3])) - target).GetLength(), 1e-4 * total);
        // Joints stay linked, bones keep their lengths, and all lie in the plane through the
        // root, the goal and the up-vector.
        CVector3 normal;
        normal.Cross(target, CVector3(3, 4, 3));
        normal = Unit(normal);
        for (long i = 0; i < 4; ++i) {
            ChainBone bone(bones[i]);
            EXPECT_NEAR((End(bone) - Pos(bone)).GetLength(), lengths[i], 1e-9);
            if (i > 0) {
                EXPECT_TRUE(Pos(bone).Equals(End(ChainBone(bones[i - 1])), 1e-9));
            }
            EXPECT_NEAR(Pos(bone).Dot(normal), 0.0, 1e-9);
        }
    }
    // Out of reach: straight.
    MoveTo(g, CVector3(0, 0, 20));
    EXPECT_TRUE(End(ChainBone(bones[3])).Equals(CVector3(0, 0, total), 1e-9));
}

TEST_F(Chain, GetSkeletonGivesTheBonesAndTheRoot) {
    MakeArm();
    CValueArray args;
    args.Add(CValue(fore.GetRef()));
    args.Add(CValue());
    CValue result;
    ASSERT_EQ(Application().ExecuteCommand(L"GetSkeleton", args, result), CStatus::OK);
    const CValueArray& bones = result;
    ASSERT_EQ(bones.GetCount(), 2);
    EXPECT_EQ(static_cast<CRef>(bones[0]), upper.GetRef());
    EXPECT_EQ(static_cast<CRef>(bones[1]), fore.GetRef());
    EXPECT_EQ(static_cast<CRef>(args[1]), chain.GetRef());
}

TEST_F(Chain, GetSkeletonOfAnObjectOutsideAChainIsRefused) {
    MakeArm();
    CValueArray args;
    args.Add(CValue(goal.GetRef()));
    args.Add(CValue());
    CValue result;
    EXPECT_NE(Application().ExecuteCommand(L"GetSkeleton", args, result), CStatus::OK);
    EXPECT_EQ(orvhost::LogTexts(ovError).back(), L"GetSkeleton: \"Goal\" is not part of a chain.");
}

TEST_F(Chain, DegenerateChainIsRefused) {
    ChainRoot r;
    EXPECT_NE(root.Add2DChain(CVector3(1, 1, 1), CVector3(1, 1, 1), CVector3(0, 1, 0), L"Bad", r),
              CStatus::OK);
    EXPECT_FALSE(r.IsValid());
}

TEST_F(Chain, BipedStandsOnItsRestPose) {
    rigs::IKBiped b = rigs::BuildIKBiped(root);
    for (const rigs::Limb* limb : {&b.leftLeg, &b.rightLeg, &b.leftArm, &b.rightArm}) {
        EXPECT_TRUE(Pos(limb->upper).Equals(limb->start, 1e-9));
        EXPECT_TRUE(Pos(limb->lower).Equals(limb->mid, 1e-9));
        EXPECT_TRUE(End(limb->lower).Equals(limb->end, 1e-9));
    }
    EXPECT_EQ(b.hips.GetFullName(), CString(L"Biped.Hips"));
    EXPECT_TRUE(Pos(b.head).Equals(CVector3(0, 16.5, 0), 1e-12));
}

TEST_F(Chain, BipedFollowsItsGoals) {
    rigs::IKBiped b = rigs::BuildIKBiped(root);
    // A hand reaches in front of the chest; the elbow stays behind, toward its up-vector.
    MoveTo(b.leftArm.goal, CVector3(4, 15, 1));
    EXPECT_TRUE(End(b.leftArm.lower).Equals(CVector3(4, 15, 1), 1e-9));
    EXPECT_LT(Pos(b.leftArm.lower).z, 0.0);
    // The other hand did not move.
    EXPECT_TRUE(End(b.rightArm.lower).Equals(b.rightArm.end, 1e-9));
    // Crouch: the hips go down, the feet stay, the knees bend forward toward their up-vectors.
    MoveTo(b.hips, CVector3(0, 8, 0));
    for (const rigs::Limb* leg : {&b.leftLeg, &b.rightLeg}) {
        EXPECT_TRUE(End(leg->lower).Equals(leg->end, 1e-9));
        EXPECT_NEAR(Pos(leg->upper).y, 8.0, 1e-12);
        EXPECT_GT(Pos(leg->lower).z, 1.0);
    }
    // The chest came down with the hips, and the left hand still holds its goal.
    EXPECT_NEAR(Pos(b.chest).y, 12.0, 1e-12);
    EXPECT_TRUE(End(b.leftArm.lower).Equals(CVector3(4, 15, 1), 1e-9));
}
