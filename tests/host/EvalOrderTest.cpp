// The order in which a read evaluates what drives a value: the parameters' own values or their
// sources (curves, expressions), then constraints, then IK chains, then the custom operators
// that write the object; the time "now"; what an always-evaluating operator does to those that
// depend on it. Expected values are worked out by hand in each test.
#include <gtest/gtest.h>

#include <cfloat>

#include "HostTesting.h"
#include "host/RigBuilders.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

// The host's marker for the current frame, written as the number it is.
constexpr double kNow = 1.7976931348623157e308;
static_assert(kNow == DBL_MAX && kNow == ovNow, "the time of now is the largest double");

class EvalOrder : public ::testing::Test {
protected:
    void SetUp() override {
        std::wstring error;
        ASSERT_TRUE(orvhost::LoadPlugin(ORV_OPPLUGIN_PATH, error)) << CString(error).GetAsciiString();
        orvhost::ResetScene();
        orvhost::ClearLog();
        ASSERT_EQ(app.GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", rig), CStatus::OK);
        driver = rigs::AddNullAt(rig, L"Driver", CVector3(5, 6, 7));
        follower = rigs::AddNullAt(rig, L"Follower", CVector3(0, 0, 0));
        // The follower's own parameters move it along X: x = t over ten frames.
        FCurve c;
        ASSERT_EQ(follower.GetKinematics().GetLocal().GetParameter(L"posx").AddFCurve(ovStandardFCurve, c),
                  CStatus::OK);
        ASSERT_EQ(c.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
        ASSERT_EQ(c.AddKey(CTime(10.0), CValue(10.0), ovLinearInterpolation), CStatus::OK);
        orvhost::ClearLog();
    }
    // The operators of a test end with it (their _Term frees what their _Init made).
    void TearDown() override { orvhost::ResetScene(); }
    CustomOperator Make(const wchar_t* type, const CRef& out, std::initializer_list<CRef> inputs) {
        CustomOperator op(app.GetFactory().CreateObject(type));
        EXPECT_TRUE(op.IsValid());
        op.AddOutputPort(out);
        for (const CRef& in : inputs) op.AddInputPort(in);
        EXPECT_EQ(op.Connect(), CStatus::OK);
        return op;
    }
    static KinematicState Global(X3DObject o) { return o.GetKinematics().GetGlobal(); }
    static CVector3 Pos(X3DObject o, double t) { return Global(o).GetTransform(t).GetTranslation(); }
    static std::size_t CountOf(const std::wstring& prefix) {
        std::size_t n = 0;
        for (const std::wstring& s : orvhost::LogTexts(0))
            if (s.rfind(prefix, 0) == 0) ++n;
        return n;
    }
    Property PlayControl() {
        return Property(app.GetActiveProject().GetProperties().GetItem(L"Play Control"));
    }

    Application app;
    Model rig;
    Null driver, follower;
};

}  // namespace

TEST_F(EvalOrder, ConstraintComesAfterTheCurve) {
    EXPECT_TRUE(Pos(follower, 4.0).Equals(CVector3(4, 0, 0), 1e-12));
    Constraint c;
    ASSERT_EQ(follower.GetKinematics().AddConstraint(L"Position", driver, c), CStatus::OK);
    // The constraint has the last word on the position; the curve still runs underneath.
    EXPECT_TRUE(Pos(follower, 4.0).Equals(CVector3(5, 6, 7), 1e-12));
    EXPECT_TRUE(follower.GetKinematics().GetLocal().GetParameter(L"posx").IsAnimated(ovFCurveSource));
}

TEST_F(EvalOrder, OrientationConstraintLeavesThePositionOfTheCurve) {
    CTransformation turned;
    turned.SetRotationFromXYZAnglesValues(0.0, 0.0, PI / 2);
    turned.SetTranslationFromValues(5, 6, 7);
    ASSERT_EQ(Global(driver).PutTransform(turned), CStatus::OK);
    Constraint c;
    ASSERT_EQ(follower.GetKinematics().AddConstraint(L"Orientation", driver, c), CStatus::OK);
    const CTransformation g = Global(follower).GetTransform(2.5);
    EXPECT_TRUE(g.GetTranslation().Equals(CVector3(2.5, 0, 0), 1e-12));
    // X turns onto Y under a quarter turn about Z.
    CVector3 x;
    x.MulByRotation(CVector3(1, 0, 0), g.GetRotation());
    EXPECT_TRUE(x.Equals(CVector3(0, 1, 0), 1e-12));
}

TEST_F(EvalOrder, OperatorComesAfterTheConstraint) {
    Constraint c;
    ASSERT_EQ(follower.GetKinematics().AddConstraint(L"Position", driver, c), CStatus::OK);
    // SelfOp reads its own output (the value before it: the constrained one) and adds 1 to Z.
    Make(L"SelfOp", Global(follower), {});
    EXPECT_TRUE(Pos(follower, 3.0).Equals(CVector3(5, 6, 8), 1e-12));
}

TEST_F(EvalOrder, OperatorThatDoesNotWriteLeavesTheConstrainedValue) {
    Constraint c;
    ASSERT_EQ(follower.GetKinematics().AddConstraint(L"Position", driver, c), CStatus::OK);
    Make(L"IdleOp", Global(follower), {Global(driver)});
    EXPECT_TRUE(Pos(follower, 3.0).Equals(CVector3(5, 6, 7), 1e-12));
    EXPECT_EQ(CountOf(L"IdleOp_Update"), 1u);
}

TEST_F(EvalOrder, OperatorThatDoesNotWriteLeavesTheCurveValue) {
    Make(L"IdleOp", follower.GetKinematics().GetLocal(), {});
    EXPECT_TRUE(Pos(follower, 6.5).Equals(CVector3(6.5, 0, 0), 1e-12));
    EXPECT_NEAR(static_cast<double>(follower.GetKinematics().GetLocal().GetParameterValue(L"posx", 6.5)), 6.5,
                1e-12);
}

TEST_F(EvalOrder, OperatorComesAfterTheChain) {
    rigs::IKBiped b = rigs::BuildIKBiped(rig, L"Hero");
    // The left leg's lower bone as the chain solves it, then with SelfOp on it.
    const CTransformation solved = Global(b.leftLeg.lower).GetTransform(0.0);
    Make(L"SelfOp", Global(b.leftLeg.lower), {});
    const CTransformation after = Global(b.leftLeg.lower).GetTransform(0.0);
    EXPECT_TRUE(after.GetTranslation().Equals(solved.GetTranslation() + CVector3(0, 0, 1), 1e-12));
    EXPECT_TRUE(after.GetRotation().Equals(solved.GetRotation(), 1e-12));
    // The solved end of the bone reaches the goal: the chain ran before the operator.
    CVector3 end;
    end.MulByTransformation(CVector3(b.leftLeg.lower.GetLength(), 0, 0), solved);
    EXPECT_TRUE(end.Equals(b.leftLeg.end, 1e-9));
}

TEST_F(EvalOrder, ExpressionFollowsAConstrainedObjectsGlobalPose) {
    // An expression reads a global parameter, which is the pose after the constraint.
    Constraint c;
    ASSERT_EQ(follower.GetKinematics().AddConstraint(L"Position", driver, c), CStatus::OK);
    Null reader = rigs::AddNullAt(rig, L"Reader", CVector3());
    ASSERT_EQ(reader.GetKinematics().GetLocal().GetParameter(L"posy").PutExpression(
                  L"Rig.Follower.kine.global.posz * 2"),
              CStatus::OK);
    EXPECT_NEAR(Pos(reader, 1.0).y, 14.0, 1e-12);
}

TEST_F(EvalOrder, LargestDoubleMeansTheCurrentFrame) {
    Parameter posx = follower.GetKinematics().GetLocal().GetParameter(L"posx");
    ASSERT_EQ(PlayControl().PutParameterValue(L"Current", CValue(3.25)), CStatus::OK);
    EXPECT_NEAR(static_cast<double>(posx.GetValue(kNow)), 3.25, 1e-12);
    EXPECT_NEAR(static_cast<double>(posx.GetValue()), 3.25, 1e-12);
    EXPECT_NEAR(Global(follower).GetTransform(kNow).GetPosX(), 3.25, 1e-12);
    EXPECT_NEAR(static_cast<double>(FCurve(posx.GetSource()).Eval(CTime(kNow))), 3.25, 1e-12);
    // Moving the current frame moves what "now" reads, cached or not.
    ASSERT_EQ(PlayControl().PutParameterValue(L"Current", CValue(8.0)), CStatus::OK);
    EXPECT_NEAR(Global(follower).GetTransform(kNow).GetPosX(), 8.0, 1e-12);
    // A write at "now" keys the current frame.
    ASSERT_EQ(posx.PutValue(CValue(-1.0), kNow), CStatus::OK);
    FCurve curve(posx.GetSource());
    ASSERT_TRUE(curve.KeyExists(CTime(8.0), 0.0));
    EXPECT_EQ(static_cast<double>(curve.GetKey(CTime(8.0), 0.0).GetValue()), -1.0);
    // The host command reads "now" the same way.
    CValueArray args;
    args.Add(CValue(L"PlayControl.Current"));
    CValue result;
    ASSERT_EQ(app.ExecuteCommand(L"GetValue", args, result), CStatus::OK);
    EXPECT_EQ(static_cast<double>(result), 8.0);
}

TEST_F(EvalOrder, OperatorsDependingOnAnAlwaysEvaluatingOneRunAgainToo) {
    Null other = rigs::AddNullAt(rig, L"Other", CVector3());
    CustomOperator follow = Make(L"FollowOp", Global(follower), {Global(driver)});
    Make(L"ShiftOp", Global(other), {Global(follower)});
    Pos(other, 2.0);
    Pos(other, 2.0);
    // Cached: each ran once.
    EXPECT_EQ(CountOf(L"FollowOp_Update"), 1u);
    EXPECT_EQ(CountOf(L"ShiftOp_Update"), 1u);
    ASSERT_EQ(follow.PutAlwaysEvaluate(true), CStatus::OK);
    orvhost::ClearLog();
    Pos(other, 2.0);
    Pos(other, 2.0);
    // The first operator runs at every read, and what reads its result runs again with it.
    EXPECT_EQ(CountOf(L"FollowOp_Update"), 2u);
    EXPECT_EQ(CountOf(L"ShiftOp_Update"), 2u);
    EXPECT_TRUE(Pos(other, 2.0).Equals(CVector3(5, 7, 7), 1e-12));
}
