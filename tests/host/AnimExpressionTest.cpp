// Expressions on parameters through "SetExpr" and "AddExpr": the language, following another
// parameter at every time, clearing, bad input, cycles.
#include <gtest/gtest.h>

#include <cmath>

#include "HostTesting.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

class Expr : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        Model m;
        ASSERT_EQ(Application().GetActiveSceneRoot().AddModel(CRefArray(), L"Rig", m), CStatus::OK);
        Null a, b;
        ASSERT_EQ(m.AddNull(L"A", a), CStatus::OK);
        ASSERT_EQ(m.AddNull(L"B", b), CStatus::OK);
        A = a;
        B = b;
        // A's posx runs linearly from 0 at frame 0 to 10 at frame 10.
        FCurve c;
        ASSERT_EQ(Local(A, L"posx").AddFCurve(ovStandardFCurve, c), CStatus::OK);
        ASSERT_EQ(c.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
        ASSERT_EQ(c.AddKey(CTime(10.0), CValue(10.0), ovLinearInterpolation), CStatus::OK);
    }
    static Parameter Local(X3DObject o, const wchar_t* name) {
        return o.GetKinematics().GetLocal().GetParameter(name);
    }
    static CStatus Run(const wchar_t* command, const CValueArray& args) {
        CValue result;
        return Application().ExecuteCommand(command, args, result);
    }
    static CValueArray Args(const CValue& a) {
        CValueArray v;
        v.Add(a);
        return v;
    }
    static CValueArray Args(const CValue& a, const CValue& b) {
        CValueArray v = Args(a);
        v.Add(b);
        return v;
    }
    X3DObject A, B;
};

}  // namespace

TEST_F(Expr, SetExprDrivesAParameterAtEveryTime) {
    ASSERT_EQ(
        Run(L"SetExpr", Args(CValue(L"Rig.B.kine.local.posy"), CValue(L"Rig.A.kine.local.posx * 2 + 1"))),
        CStatus::OK);
    Parameter posy = Local(B, L"posy");
    for (double t : {0.0, 2.5, 7.0, 10.5})
        EXPECT_NEAR(static_cast<double>(posy.GetValue(t)), std::min(t, 10.0) * 2 + 1, 1e-12) << t;
    EXPECT_NEAR(B.GetKinematics().GetGlobal().GetTransform(4.0).GetTranslation().y, 9.0, 1e-12);
    EXPECT_TRUE(posy.IsAnimated(ovAnySource));
    EXPECT_TRUE(posy.IsAnimated(ovExpressionSource));
    EXPECT_FALSE(posy.IsAnimated(ovFCurveSource));
}

TEST_F(Expr, AddExprWithAPathFollowsThatParameter) {
    CValueArray args = Args(CValue(L"Rig.B.kine.local.rotz"), CValue(L"Rig.A.kine.local.posx"));
    args.Add(CValue(true));
    ASSERT_EQ(Run(L"AddExpr", args), CStatus::OK);
    EXPECT_NEAR(static_cast<double>(Local(B, L"rotz").GetValue(3.25)), 3.25, 1e-12);
    EXPECT_NEAR(static_cast<double>(Local(B, L"rotz").GetValue(8.0)), 8.0, 1e-12);
}

TEST_F(Expr, OneArgumentSetExprClearsTheExpression) {
    ASSERT_EQ(Local(B, L"posz").PutValue(CValue(4.0)), CStatus::OK);
    ASSERT_EQ(Run(L"SetExpr", Args(CValue(L"Rig.B.kine.local.posz"), CValue(L"Rig.A.kine.local.posx"))),
              CStatus::OK);
    EXPECT_NEAR(static_cast<double>(Local(B, L"posz").GetValue(6.0)), 6.0, 1e-12);
    ASSERT_EQ(Run(L"SetExpr", Args(CValue(L"Rig.B.kine.local.posz"))), CStatus::OK);
    EXPECT_FALSE(Local(B, L"posz").IsAnimated(ovAnySource));
    EXPECT_EQ(static_cast<double>(Local(B, L"posz").GetValue(6.0)), 4.0);
}

TEST_F(Expr, ClearingAParameterWithoutExpressionChangesNothing) {
    ASSERT_EQ(Run(L"SetExpr", Args(CValue(L"Rig.A.kine.local.posx"))), CStatus::OK);
    EXPECT_TRUE(Local(A, L"posx").IsAnimated(ovFCurveSource));
}

TEST_F(Expr, ExpressionHandleIsValidExactlyWhenAnExpressionDrives) {
    EXPECT_FALSE(Expression(Local(A, L"posx").GetSource()).IsValid());
    EXPECT_FALSE(Expression(Local(B, L"rotx").GetSource()).IsValid());
    ASSERT_EQ(Local(B, L"rotx").PutExpression(L"(1 + 2) * -3"), CStatus::OK);
    Expression e(Local(B, L"rotx").GetSource());
    ASSERT_TRUE(e.IsValid());
    EXPECT_EQ(e.GetDefinition(), CString(L"(1 + 2) * -3"));
    EXPECT_EQ(e.GetTarget(), Local(B, L"rotx"));
    EXPECT_NEAR(static_cast<double>(Local(B, L"rotx").GetValue(0.0)), -9.0, 1e-12);
}

TEST_F(Expr, LanguageHasPrecedenceParenthesesAndSigns) {
    const struct {
        const wchar_t* text;
        double value;
    } cases[] = {{L"1 + 2 * 3", 7.0},   {L"(1 + 2) * 3", 9.0}, {L"10 / 4 - 1", 1.5}, {L"-2 * -3", 6.0},
                 {L"2.5e1 + .5", 25.5}, {L"+4 - -4", 8.0},     {L"8 / 2 / 2", 2.0},  {L"1 - 2 - 3", -4.0},
                 {L"((((7))))", 7.0},   {L" 3 ", 3.0}};
    for (const auto& c : cases) {
        ASSERT_EQ(Local(B, L"posx").PutExpression(c.text), CStatus::OK) << c.text;
        EXPECT_NEAR(static_cast<double>(Local(B, L"posx").GetValue(0.0)), c.value, 1e-12) << c.text;
    }
}

TEST_F(Expr, MalformedExpressionIsRefusedAndChangesNothing) {
    ASSERT_EQ(Local(B, L"posy").PutExpression(L"5"), CStatus::OK);
    orvhost::ClearLog();
    CValue result;
    EXPECT_NE(Application().ExecuteCommand(
                  L"SetExpr", Args(CValue(L"Rig.B.kine.local.posy"), CValue(L"(Rig.A.kine.local.posx + 1")),
                  result),
              CStatus::OK);
    ASSERT_EQ(orvhost::LogTexts(ovError).size(), 1u);
    EXPECT_EQ(orvhost::LogTexts(ovError)[0],
              L"SetExpr: The expression \"(Rig.A.kine.local.posx + 1\" is not valid: a \")\" is missing.");
    EXPECT_EQ(Expression(Local(B, L"posy").GetSource()).GetDefinition(), CString(L"5"));
}

TEST_F(Expr, SetExprOnSomethingThatIsNotAParameterIsRefused) {
    orvhost::ClearLog();
    EXPECT_NE(Run(L"SetExpr", Args(CValue(L"Rig.Nothing.posx"), CValue(L"1"))), CStatus::OK);
    ASSERT_EQ(orvhost::LogTexts(ovError).size(), 1u);
    EXPECT_EQ(orvhost::LogTexts(ovError)[0], L"SetExpr: \"Rig.Nothing.posx\" is not a parameter.");
    EXPECT_NE(Run(L"AddExpr", Args(CValue(L"Rig.B.kine.local.posx"))), CStatus::OK);
    EXPECT_EQ(orvhost::LogTexts(ovError).back(), L"AddExpr: no expression was given.");
}

TEST_F(Expr, PathThatNamesNothingLeavesTheParameterValue) {
    ASSERT_EQ(Local(B, L"posx").PutValue(CValue(2.0)), CStatus::OK);
    ASSERT_EQ(Local(B, L"posx").PutExpression(L"Rig.Ghost.kine.local.posx + 1"), CStatus::OK);
    EXPECT_EQ(static_cast<double>(Local(B, L"posx").GetValue(3.0)), 2.0);
}

TEST_F(Expr, ExpressionOnADeletedObjectFallsBackToTheValue) {
    ASSERT_EQ(Local(B, L"posx").PutValue(CValue(2.0)), CStatus::OK);
    ASSERT_EQ(Local(B, L"posx").PutExpression(L"Rig.A.kine.local.posx"), CStatus::OK);
    EXPECT_NEAR(static_cast<double>(Local(B, L"posx").GetValue(5.0)), 5.0, 1e-12);
    orvhost::DeleteItem(orvhost::TheStore().Resolve(A.GetRef()));
    EXPECT_EQ(static_cast<double>(Local(B, L"posx").GetValue(5.0)), 2.0);
}

TEST_F(Expr, DivisionByZeroLeavesTheParameterValue) {
    ASSERT_EQ(Local(B, L"posx").PutValue(CValue(1.5)), CStatus::OK);
    ASSERT_EQ(Local(B, L"posx").PutExpression(L"1 / (Rig.A.kine.local.posx - 2)"), CStatus::OK);
    EXPECT_NEAR(static_cast<double>(Local(B, L"posx").GetValue(4.0)), 0.5, 1e-12);
    EXPECT_EQ(static_cast<double>(Local(B, L"posx").GetValue(2.0)), 1.5);
}

TEST_F(Expr, CycleOfExpressionsReadsTheOwnValue) {
    ASSERT_EQ(Local(A, L"posy").PutValue(CValue(1.0)), CStatus::OK);
    ASSERT_EQ(Local(B, L"posy").PutValue(CValue(2.0)), CStatus::OK);
    ASSERT_EQ(Local(A, L"posy").PutExpression(L"Rig.B.kine.local.posy + 10"), CStatus::OK);
    ASSERT_EQ(Local(B, L"posy").PutExpression(L"Rig.A.kine.local.posy + 100"), CStatus::OK);
    // A reads B, whose expression reads A again: that read gets A's own value, 1.
    EXPECT_EQ(static_cast<double>(Local(A, L"posy").GetValue(0.0)), 111.0);
    EXPECT_EQ(static_cast<double>(Local(B, L"posy").GetValue(0.0)), 112.0);
}

TEST_F(Expr, ExpressionFollowsAnEditOfWhatItReads) {
    ASSERT_EQ(Local(B, L"posx").PutExpression(L"Rig.A.kine.local.posy * 3"), CStatus::OK);
    EXPECT_EQ(static_cast<double>(Local(B, L"posx").GetValue(1.0)), 0.0);
    ASSERT_EQ(Local(A, L"posy").PutValue(CValue(2.0)), CStatus::OK);
    EXPECT_EQ(static_cast<double>(Local(B, L"posx").GetValue(1.0)), 6.0);
}

TEST_F(Expr, IntegerParameterTakesTheRoundedValue) {
    ASSERT_EQ(Local(B, L"rotorder").PutExpression(L"1.6 + 1"), CStatus::OK);
    EXPECT_EQ(Local(B, L"rotorder").GetValue(0.0).GetType(), ovInt4);
    EXPECT_EQ(static_cast<int>(Local(B, L"rotorder").GetValue(0.0)), 3);
}

TEST_F(Expr, GlobalRotationFollowsAnotherObjectsGlobalRotation) {
    Parameter target = B.GetKinematics().GetGlobal().GetParameter(L"rotx");
    if (!target.IsValid()) GTEST_SKIP() << "this scene has no parameters on global kinematic states";
    FCurve c;
    ASSERT_EQ(Local(A, L"rotx").AddFCurve(ovStandardFCurve, c), CStatus::OK);
    ASSERT_EQ(c.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
    ASSERT_EQ(c.AddKey(CTime(10.0), CValue(90.0), ovLinearInterpolation), CStatus::OK);
    ASSERT_EQ(Local(B, L"roty").PutValue(CValue(30.0)), CStatus::OK);
    for (const wchar_t* axis : {L"rotx", L"roty", L"rotz"}) {
        CValueArray args = Args(CValue(std::wstring(L"Rig.B.kine.global.") + axis),
                                CValue(std::wstring(L"Rig.A.kine.global.") + axis));
        args.Add(CValue(true));
        ASSERT_EQ(Run(L"AddExpr", args), CStatus::OK);
    }
    for (double t : {0.0, 3.5, 10.0}) {
        const CRotation ra = A.GetKinematics().GetGlobal().GetTransform(t).GetRotation();
        const CRotation rb = B.GetKinematics().GetGlobal().GetTransform(t).GetRotation();
        EXPECT_TRUE(ra.Equals(rb, 1e-9)) << t;
    }
}
