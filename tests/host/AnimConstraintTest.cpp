// Position and orientation constraints, their handles and "GetConstrainedObjects".
#include <gtest/gtest.h>

#include <cmath>

#include "HostTesting.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

constexpr double kPi = 3.14159265358979323846;

class Cns : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        Model m;
        ASSERT_EQ(Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", m), CStatus::OK);
        rig = m;
        Null a, b, c;
        ASSERT_EQ(m.AddNull(L"Driver", a), CStatus::OK);
        ASSERT_EQ(m.AddNull(L"Parent", c), CStatus::OK);
        ASSERT_EQ(c.AddNull(L"Follower", b), CStatus::OK);
        driver = a;
        parent = c;
        follower = b;
        // The parent is turned and moved, so the follower's local pose differs from its global.
        CTransformation pt;
        pt.SetRotationFromXYZAnglesValues(0.3, -0.2, 0.9);
        pt.SetTranslationFromValues(1, 2, 3);
        ASSERT_EQ(parent.GetKinematics().GetGlobal().PutTransform(pt), CStatus::OK);
        // The driver moves along x and turns about z over ten frames.
        FCurve x, rz;
        ASSERT_EQ(driver.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(20, x), CStatus::OK);
        ASSERT_EQ(x.AddKey(CTime(0.0), CValue(-5.0), ovLinearInterpolation), CStatus::OK);
        ASSERT_EQ(x.AddKey(CTime(10.0), CValue(5.0), ovLinearInterpolation), CStatus::OK);
        ASSERT_EQ(driver.GetKinematics().GetLocal().GetParameter(L"rotz").AddFCurve(20, rz), CStatus::OK);
        ASSERT_EQ(rz.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
        ASSERT_EQ(rz.AddKey(CTime(10.0), CValue(90.0), ovLinearInterpolation), CStatus::OK);
        ASSERT_EQ(driver.GetKinematics().GetLocal().GetParameter(L"posy").PutValue(CValue(4.0)), CStatus::OK);
    }
    Constraint Add(X3DObject obj, const wchar_t* preset, X3DObject by) {
        Constraint c;
        EXPECT_EQ(obj.GetKinematics().AddConstraint(preset, by, c), CStatus::OK);
        return c;
    }
    Model rig;
    X3DObject driver, parent, follower;
};

}  // namespace

TEST_F(Cns, PositionConstraintFollowsTheConstrainingObject) {
    Add(follower, L"Position", driver);
    for (double t : {0.0, 2.5, 10.0}) {
        const CVector3 p = follower.GetKinematics().GetGlobal().GetTransform(t).GetTranslation();
        EXPECT_NEAR(p.x, -5.0 + t, 1e-9) << t;
        EXPECT_NEAR(p.y, 4.0, 1e-9) << t;
        EXPECT_NEAR(p.z, 0.0, 1e-9) << t;
    }
    // The orientation stays the follower's own: the parent's.
    const CRotation r = follower.GetKinematics().GetGlobal().GetTransform(5.0).GetRotation();
    EXPECT_TRUE(r.Equals(parent.GetKinematics().GetGlobal().GetTransform(5.0).GetRotation(), 1e-9));
}

TEST_F(Cns, OrientationConstraintFollowsTheConstrainingObject) {
    Add(follower, L"Orientation Cns", driver);
    const CVector3 before = follower.GetKinematics().GetGlobal().GetTransform(0.0).GetTranslation();
    for (double t : {0.0, 5.0, 10.0}) {
        const CTransformation g = follower.GetKinematics().GetGlobal().GetTransform(t);
        const CRotation expected(CVector3(0, 0, 1), t * 9.0 * kPi / 180.0);
        EXPECT_TRUE(g.GetRotation().Equals(expected, 1e-9)) << t;
        EXPECT_TRUE(g.GetTranslation().Equals(before, 1e-9)) << t;
    }
}

TEST_F(Cns, LocalPoseOfAConstrainedObjectIsRelativeToItsParent) {
    Add(follower, L"Position", driver);
    const CTransformation g = follower.GetKinematics().GetGlobal().GetTransform(3.0);
    const CTransformation l = follower.GetKinematics().GetLocal().GetTransform(3.0);
    const CTransformation pg = parent.GetKinematics().GetGlobal().GetTransform(3.0);
    CTransformation rebuilt;
    rebuilt.Mul(l, pg);
    EXPECT_TRUE(rebuilt.Equals(g, 1e-9));
    EXPECT_NEAR(static_cast<double>(follower.GetKinematics().GetGlobal().GetTransform(3.0).GetPosX()), -2.0,
                1e-9);
}

TEST_F(Cns, ConstraintHandlesTellKindAndObjects) {
    Constraint pos = Add(follower, L"Position", driver);
    Constraint ori = Add(follower, L"Orientation", parent);
    CRefArray all = follower.GetKinematics().GetConstraints();
    ASSERT_EQ(all.GetCount(), 2);
    EXPECT_EQ(Constraint(all[0]).GetName(), CString(L"Position Cns"));
    EXPECT_EQ(Constraint(all[1]).GetName(), CString(L"Orientation Cns"));
    ASSERT_EQ(pos.GetConstraining().GetCount(), 1);
    EXPECT_EQ(pos.GetConstraining()[0], driver.GetRef());
    EXPECT_EQ(ori.GetConstraining()[0], parent.GetRef());
    EXPECT_EQ(pos.GetConstrained(), follower);
    EXPECT_TRUE(follower.GetKinematics().GetLocal().GetParameter(L"posx").IsAnimated(ovConstraintSource));
    EXPECT_TRUE(follower.GetKinematics().GetLocal().GetParameter(L"rotx").IsAnimated(ovConstraintSource));
    EXPECT_FALSE(follower.GetKinematics().GetLocal().GetParameter(L"sclx").IsAnimated(ovConstraintSource));
}

TEST_F(Cns, UnknownPresetIsRefused) {
    Constraint c;
    EXPECT_NE(follower.GetKinematics().AddConstraint(L"Scaling", driver, c), CStatus::OK);
    EXPECT_FALSE(c.IsValid());
    EXPECT_EQ(follower.GetKinematics().GetConstraints().GetCount(), 0);
    ASSERT_EQ(orvhost::LogTexts(ovWarning).size(), 1u);
    EXPECT_EQ(orvhost::LogTexts(ovWarning)[0], L"Unknown constraint preset \"Scaling\".");
}

TEST_F(Cns, ObjectCannotConstrainItself) {
    Constraint c;
    EXPECT_NE(follower.GetKinematics().AddConstraint(L"Position", follower, c), CStatus::OK);
    EXPECT_EQ(follower.GetKinematics().GetConstraints().GetCount(), 0);
}

TEST_F(Cns, DeletedConstrainingObjectLeavesTheOwnPose) {
    Add(follower, L"Position", driver);
    ASSERT_EQ(follower.GetKinematics().GetLocal().GetParameter(L"posz").PutValue(CValue(1.0)), CStatus::OK);
    orvhost::DeleteItem(orvhost::TheStore().Resolve(driver.GetRef()));
    CTransformation own;
    own.SetTranslationFromValues(0, 0, 1);
    CTransformation expected;
    expected.Mul(own, parent.GetKinematics().GetGlobal().GetTransform(2.0));
    EXPECT_TRUE(follower.GetKinematics().GetGlobal().GetTransform(2.0).Equals(expected, 1e-9));
}

TEST_F(Cns, CachedPoseChangesAfterAnEditOfTheConstrainingObject) {
    Add(follower, L"Position", driver);
    EXPECT_NEAR(follower.GetKinematics().GetGlobal().GetTransform(1.0).GetPosY(), 4.0, 1e-9);
    ASSERT_EQ(driver.GetKinematics().GetLocal().GetParameter(L"posy").PutValue(CValue(-7.0)), CStatus::OK);
    EXPECT_NEAR(follower.GetKinematics().GetGlobal().GetTransform(1.0).GetPosY(), -7.0, 1e-9);
}

TEST_F(Cns, ConstraintCycleDoesNotLoop) {
    Add(follower, L"Position", driver);
    Add(driver, L"Position", follower);
    const CVector3 p = follower.GetKinematics().GetGlobal().GetTransform(0.0).GetTranslation();
    EXPECT_TRUE(std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z));
}

TEST_F(Cns, GetConstrainedObjectsListsWhatAnObjectDrives) {
    Null other;
    ASSERT_EQ(rig.AddNull(L"Other", other), CStatus::OK);
    Constraint c1 = Add(follower, L"Position", driver);
    Add(other, L"Orientation", driver);
    CValueArray args;
    args.Add(CValue(driver.GetRef()));
    args.Add(CValue(c1.GetRef()));
    CValue result;
    ASSERT_EQ(Application().ExecuteCommand(L"GetConstrainedObjects", args, result), CStatus::OK);
    const CValueArray& one = result;
    ASSERT_EQ(one.GetCount(), 1);
    EXPECT_EQ(static_cast<CRef>(one[0]), follower.GetRef());

    args[1] = CValue();
    ASSERT_EQ(Application().ExecuteCommand(L"GetConstrainedObjects", args, result), CStatus::OK);
    EXPECT_EQ(static_cast<const CValueArray&>(result).GetCount(), 2);

    args[1] = CValue(L"Orientation");
    ASSERT_EQ(Application().ExecuteCommand(L"GetConstrainedObjects", args, result), CStatus::OK);
    const CValueArray& ori = result;
    ASSERT_EQ(ori.GetCount(), 1);
    EXPECT_EQ(static_cast<CRef>(ori[0]), other.GetRef());
}
