// Function curves: keys, tangents, interpolation and evaluation, checked against an
// independent evaluation written here; and what a curve does to its parameter.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include "Commands.h"
#include "HostTesting.h"

using namespace ORV;
using namespace ORV::MATH;

namespace {

class Curve : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        Null n;
        ASSERT_EQ(Application().GetActiveSceneRoot().AddNull(L"Ball", n), CStatus::OK);
        ball = n;
        posx = ball.GetKinematics().GetLocal().GetParameter(L"posx");
        ASSERT_TRUE(posx.IsValid());
        ASSERT_EQ(posx.AddFCurve(ovStandardFCurve, curve), CStatus::OK);
        ASSERT_TRUE(curve.IsValid());
    }
    X3DObject ball;
    Parameter posx;
    FCurve curve;
};

// --- An independent evaluation of the same keys -------------------------------------------------

struct RefKey {
    double t, v;
    int interp;
    double lx, ly, rx, ry;
};

// The cubic Bezier segment with control points a, a + right(a), b + left(b), b, with its time
// solved by plain bisection (no Newton steps, no shared code with the host).
double RefCubic(const RefKey& a, const RefKey& b, double t) {
    const double x0 = a.t, x1 = a.t + a.rx, x2 = b.t + b.lx, x3 = b.t;
    const double y0 = a.v, y1 = a.v + a.ry, y2 = b.v + b.ly, y3 = b.v;
    auto bez = [](double p0, double p1, double p2, double p3, double s) {
        const double u = 1 - s;
        return p0 * u * u * u + 3 * p1 * u * u * s + 3 * p2 * u * s * s + p3 * s * s * s;
    };
    double lo = 0.0, hi = 1.0;
    for (int i = 0; i < 200; ++i) {
        const double mid = 0.5 * (lo + hi);
        if (bez(x0, x1, x2, x3, mid) < t)
            lo = mid;
        else
            hi = mid;
    }
    return bez(y0, y1, y2, y3, 0.5 * (lo + hi));
}

double RefEval(const std::vector<RefKey>& keys, double t) {
    if (t <= keys.front().t) return keys.front().v;
    if (t >= keys.back().t) return keys.back().v;
    for (std::size_t i = 0; i + 1 < keys.size(); ++i) {
        const RefKey& a = keys[i];
        const RefKey& b = keys[i + 1];
        if (t < a.t || t >= b.t) continue;
        if (a.interp == ovConstantInterpolation) return a.v;
        if (a.interp == ovLinearInterpolation) return a.v + (b.v - a.v) * (t - a.t) / (b.t - a.t);
        return RefCubic(a, b, t);
    }
    return keys.back().v;
}

// Integer and fractional times across and beyond the keys.
std::vector<double> SampleTimes() {
    std::vector<double> times;
    for (double t = -3.0; t <= 33.0; t += 0.25) times.push_back(t);
    times.push_back(7.123456789);
    times.push_back(19.999);
    times.push_back(20.0001);
    return times;
}

}  // namespace

// Budget: the host's Newton solve and the bisection above both reach the cubic's root to far
// below 1e-12 of a frame; 1e-9 leaves room for the Bezier's rounding.
TEST_F(Curve, LinearKeysMatchIndependentEvaluation) {
    std::vector<RefKey> keys = {{0, 1.5, 2, 0, 0, 0, 0},
                                {10, -4, 2, 0, 0, 0, 0},
                                {11.5, 7, 2, 0, 0, 0, 0},
                                {30, 7.25, 2, 0, 0, 0, 0}};
    for (const RefKey& k : keys)
        ASSERT_EQ(curve.AddKey(CTime(k.t), CValue(k.v), ovLinearInterpolation), CStatus::OK);
    for (double t : SampleTimes())
        EXPECT_NEAR(static_cast<double>(curve.Eval(CTime(t))), RefEval(keys, t), 1e-9) << t;
}

TEST_F(Curve, ConstantKeysHoldTheirValueUntilTheNextKey) {
    std::vector<RefKey> keys = {{2, 3, 1, 0, 0, 0, 0}, {5, -1, 1, 0, 0, 0, 0}, {20, 9, 1, 0, 0, 0, 0}};
    for (const RefKey& k : keys)
        ASSERT_EQ(curve.AddKey(CTime(k.t), CValue(k.v), ovConstantInterpolation), CStatus::OK);
    for (double t : SampleTimes())
        EXPECT_NEAR(static_cast<double>(curve.Eval(CTime(t))), RefEval(keys, t), 1e-9) << t;
    EXPECT_EQ(static_cast<double>(curve.Eval(CTime(4.999))), 3.0);
    EXPECT_EQ(static_cast<double>(curve.Eval(CTime(5.0))), -1.0);
}

TEST_F(Curve, BezierKeysWithGivenTangentsMatchIndependentEvaluation) {
    std::vector<RefKey> keys = {{0, 0, 3, -1, 0, 3, 6},
                                {10, 5, 3, -2, -1, 4, 2.5},
                                {14, -3, 3, -1.5, 2, 1, -0.5},
                                {30, 2, 3, -5, 0, 5, 0}};
    for (const RefKey& k : keys)
        ASSERT_EQ(curve.AddKey(CTime(k.t), CValue(k.v), ovCubicInterpolation, k.lx, k.ly, k.rx, k.ry),
                  CStatus::OK);
    for (double t : SampleTimes())
        EXPECT_NEAR(static_cast<double>(curve.Eval(CTime(t))), RefEval(keys, t), 1e-9) << t;
}

TEST_F(Curve, MixedInterpolationsFollowTheKeyThatStartsEachSegment) {
    std::vector<RefKey> keys = {
        {0, 0, 1, -1, 0, 1, 0}, {4, 2, 3, -1, 0, 2, 4}, {9, 1, 2, -1, -1, 1, 1}, {12, 6, 3, -1, 0, 1, 0}};
    for (const RefKey& k : keys)
        ASSERT_EQ(curve.AddKey(CTime(k.t), CValue(k.v), k.interp, k.lx, k.ly, k.rx, k.ry), CStatus::OK);
    for (double t : SampleTimes())
        EXPECT_NEAR(static_cast<double>(curve.Eval(CTime(t))), RefEval(keys, t), 1e-9) << t;
}

TEST_F(Curve, TangentsAreOffsetsInFramesAndValue) {
    ASSERT_EQ(curve.AddKey(CTime(1.0), CValue(10.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(5.0), CValue(10.0)), CStatus::OK);
    FCurveKey key = curve.GetKey(CTime(5.0));
    ASSERT_TRUE(key.IsValid());
    // What the plotting code measures: a tangent put as -3 frames reads back as -3.
    ASSERT_EQ(key.PutLeftTanX(-3.0), CStatus::OK);
    EXPECT_EQ(key.GetLeftTanX(), -3.0);
    ASSERT_EQ(key.PutLeftTanY(1.5), CStatus::OK);
    EXPECT_EQ(key.GetLeftTanY(), 1.5);
}

TEST_F(Curve, AutomaticTangentsMakeTwoKeysAStraightLine) {
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(6.0), CValue(3.0)), CStatus::OK);
    for (double t = 0.0; t <= 6.0; t += 0.5)
        EXPECT_NEAR(static_cast<double>(curve.Eval(CTime(t))), t * 0.5, 1e-12);
    FCurveKey first = curve.GetKeyAtIndex(0);
    EXPECT_NEAR(first.GetRightTanX(), 2.0, 1e-12);
    EXPECT_NEAR(first.GetRightTanY(), 1.0, 1e-12);
}

TEST_F(Curve, AutomaticTangentsTakeTheSlopeThroughTheNeighbours) {
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(3.0), CValue(5.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(9.0), CValue(2.0)), CStatus::OK);
    FCurveKey mid = curve.GetKeyAtIndex(1);
    const double slope = (2.0 - 0.0) / 9.0;
    EXPECT_NEAR(mid.GetLeftTanX(), -1.0, 1e-12);
    EXPECT_NEAR(mid.GetLeftTanY(), -slope, 1e-12);
    EXPECT_NEAR(mid.GetRightTanX(), 2.0, 1e-12);
    EXPECT_NEAR(mid.GetRightTanY(), 2.0 * slope, 1e-12);
}

TEST_F(Curve, AddKeyWithinToleranceReplacesTheKey) {
    ASSERT_EQ(curve.AddKey(CTime(5.0), CValue(1.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(5.004), CValue(2.0), ovCubicInterpolation, DBL_MAX, DBL_MAX, DBL_MAX,
                           DBL_MAX, true, 0.01),
              CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 1);
    EXPECT_EQ(static_cast<double>(curve.GetKeyAtIndex(0).GetValue()), 2.0);
    // Outside the tolerance a new key comes.
    ASSERT_EQ(curve.AddKey(CTime(5.02), CValue(3.0), ovCubicInterpolation, DBL_MAX, DBL_MAX, DBL_MAX, DBL_MAX,
                           true, 0.01),
              CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 2);
}

TEST_F(Curve, GetKeyFindsTheNearestKeyWithinTolerance) {
    ASSERT_EQ(curve.AddKey(CTime(2.0), CValue(1.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(3.0), CValue(2.0)), CStatus::OK);
    EXPECT_EQ(static_cast<double>(curve.GetKey(CTime(2.8), 0.5).GetValue()), 2.0);
    EXPECT_FALSE(curve.GetKey(CTime(2.5), 0.1).IsValid());
    EXPECT_TRUE(curve.KeyExists(CTime(2.05), 0.1));
    EXPECT_FALSE(curve.KeyExists(CTime(2.5), 0.1));
    EXPECT_EQ(curve.GetKeyIndex(CTime(3.0), 0.0), 1);
}

TEST_F(Curve, GetKeyAmongManyKeysFindsTheNearestAndTheFirstOfTwoEqualOnes) {
    for (int t = 0; t < 100; ++t) ASSERT_EQ(curve.AddKey(CTime(t), CValue(t * 10.0)), CStatus::OK);
    EXPECT_EQ(curve.GetKeyIndex(CTime(37.3), 0.5), 37);
    EXPECT_EQ(curve.GetKeyIndex(CTime(37.7), 0.5), 38);
    // Half way between two keys both are in reach: the earlier one answers.
    EXPECT_EQ(curve.GetKeyIndex(CTime(37.5), 0.5), 37);
    // A key exactly at the tolerance is in reach, on either side.
    EXPECT_EQ(curve.GetKeyIndex(CTime(99.25), 0.25), 99);
    EXPECT_EQ(curve.GetKeyIndex(CTime(-0.25), 0.25), 0);
    EXPECT_FALSE(curve.KeyExists(CTime(99.6), 0.5));
    EXPECT_FALSE(curve.KeyExists(CTime(-0.6), 0.5));
    EXPECT_FALSE(curve.KeyExists(CTime(50.2), 0.1));
}

TEST_F(Curve, AutomaticTangentsOfKeysAddedOneByOneInAnyOrderAreThoseOfTheWholeCurve) {
    // Keys added out of order, one replaced: every automatic tangent must be what the rule
    // gives on the finished curve, worked out here from the keys alone.
    const double times[] = {8, 0, 4, 12, 2, 10, 6};
    for (double t : times) ASSERT_EQ(curve.AddKey(CTime(t), CValue(std::sin(t))), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(4.0), CValue(3.0)), CStatus::OK);
    // Reading a tangent in between must not leave a stale one behind for later keys.
    EXPECT_NEAR(curve.GetKeyAtIndex(0).GetRightTanX(), 2.0 / 3.0, 1e-12);
    ASSERT_EQ(curve.AddKey(CTime(5.0), CValue(-1.0)), CStatus::OK);
    // Inside an edit bracket the keys wait for its end: one late key, then one early key that
    // moves the later ones up.
    ASSERT_EQ(curve.BeginEdit(), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(11.0), CValue(2.5)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(1.0), CValue(0.5)), CStatus::OK);
    ASSERT_EQ(curve.EndEdit(), CStatus::OK);
    const long n = curve.GetNumKeys();
    ASSERT_EQ(n, 10);
    std::vector<double> t(n), v(n);
    for (long i = 0; i < n; ++i) {
        t[i] = curve.GetKeyAtIndex(i).GetTime();
        v[i] = curve.GetKeyAtIndex(i).GetValue();
    }
    for (long i = 0; i < n; ++i) {
        const double slope = i == 0       ? (v[1] - v[0]) / (t[1] - t[0])
                             : i == n - 1 ? (v[i] - v[i - 1]) / (t[i] - t[i - 1])
                                          : (v[i + 1] - v[i - 1]) / (t[i + 1] - t[i - 1]);
        const double before = (i > 0 ? t[i] - t[i - 1] : t[i + 1] - t[i]) / 3.0;
        const double after = (i + 1 < n ? t[i + 1] - t[i] : t[i] - t[i - 1]) / 3.0;
        FCurveKey k = curve.GetKeyAtIndex(i);
        EXPECT_NEAR(k.GetLeftTanX(), -before, 1e-12) << i;
        EXPECT_NEAR(k.GetLeftTanY(), -slope * before, 1e-12) << i;
        EXPECT_NEAR(k.GetRightTanX(), after, 1e-12) << i;
        EXPECT_NEAR(k.GetRightTanY(), slope * after, 1e-12) << i;
    }
}

TEST_F(Curve, AnExplicitTangentLeavesTheNeighboursAutomaticTangentsAsTheyWere) {
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(3.0), CValue(5.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(9.0), CValue(2.0)), CStatus::OK);
    FCurveKey mid = curve.GetKeyAtIndex(1);
    ASSERT_EQ(mid.PutRightTanY(7.0), CStatus::OK);
    ASSERT_EQ(mid.PutConstraint(ovTangentContinuityConstraint, true), CStatus::OK);
    // The neighbours' slopes run through their own neighbours: 5/3 at the first key, 1/2 back
    // at the last.
    EXPECT_NEAR(curve.GetKeyAtIndex(0).GetRightTanY(), 5.0 / 3.0 * 1.0, 1e-12);
    EXPECT_NEAR(curve.GetKeyAtIndex(2).GetLeftTanY(), 0.5 * 2.0, 1e-12);
    EXPECT_NEAR(mid.GetRightTanY(), 7.0, 1e-12);
    // A horizontal constraint flattens an automatic key.
    FCurveKey last = curve.GetKeyAtIndex(2);
    ASSERT_EQ(last.PutConstraint(ovHorizontalTangentConstraint, true), CStatus::OK);
    EXPECT_EQ(last.GetLeftTanY(), 0.0);
    ASSERT_EQ(curve.AddKey(CTime(12.0), CValue(4.0)), CStatus::OK);
    EXPECT_EQ(curve.GetKeyAtIndex(2).GetLeftTanY(), 0.0);
    EXPECT_NEAR(curve.GetKeyAtIndex(3).GetLeftTanY(), -(4.0 - 2.0) / 3.0 * 1.0, 1e-12);
}

TEST_F(Curve, LargestDoubleAsBothBoundsCountsTheWholeCurve) {
    for (int i = 0; i < 5; ++i) ASSERT_EQ(curve.AddKey(CTime(i * 10.0), CValue(double(i))), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(CTime(DBL_MAX), CTime(DBL_MAX)), 5);
    EXPECT_EQ(curve.GetNumKeys(CTime(10.0), CTime(30.0)), 3);
    EXPECT_EQ(curve.GetNumKeys(CTime(15.0), CTime(16.0)), 0);
}

TEST_F(Curve, SetKeysReplacesAllKeysWithTheCurveInterpolation) {
    ASSERT_EQ(curve.AddKey(CTime(100.0), CValue(1.0)), CStatus::OK);
    ASSERT_EQ(curve.PutInterpolation(ovLinearInterpolation), CStatus::OK);
    CTimeArray times;
    CValueArray values;
    for (int i = 0; i < 4; ++i) {
        times.Add(CTime(double(i)));
        values.Add(CValue(i * i * 1.0));
    }
    ASSERT_EQ(curve.SetKeys(times, values), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 4);
    EXPECT_EQ(curve.GetInterpolation(), ovLinearInterpolation);
    EXPECT_EQ(curve.GetKeyAtIndex(2).GetInterpolation(), ovLinearInterpolation);
    EXPECT_NEAR(static_cast<double>(curve.Eval(CTime(2.5))), 6.5, 1e-12);
}

TEST_F(Curve, SetKeysWithDifferentCountsIsRefused) {
    CTimeArray times;
    times.Add(CTime(1.0));
    CValueArray values;
    EXPECT_NE(curve.SetKeys(times, values), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 0);
}

TEST_F(Curve, RemoveKeysInARangeOrAll) {
    for (int i = 0; i < 6; ++i) ASSERT_EQ(curve.AddKey(CTime(double(i)), CValue(double(i))), CStatus::OK);
    ASSERT_EQ(curve.RemoveKeys(CTime(1.0), CTime(2.0)), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 4);
    EXPECT_FALSE(curve.KeyExists(CTime(1.0), 0.0));
    ASSERT_EQ(curve.RemoveKeys(), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 0);
}

TEST_F(Curve, HandleOfARemovedKeyIsInvalid) {
    ASSERT_EQ(curve.AddKey(CTime(1.0), CValue(1.0)), CStatus::OK);
    FCurveKey k = curve.GetKeyAtIndex(0);
    ASSERT_TRUE(k.IsValid());
    ASSERT_EQ(curve.RemoveKeys(), CStatus::OK);
    EXPECT_FALSE(k.IsValid());
    EXPECT_NE(k.PutRightTanX(1.0), CStatus::OK);
}

TEST_F(Curve, HandlesOfKeysReplacedBySetKeysAreInvalid) {
    ASSERT_EQ(curve.AddKey(CTime(1.0), CValue(1.0)), CStatus::OK);
    FCurveKey k = curve.GetKeyAtIndex(0);
    CTimeArray times;
    CValueArray values;
    times.Add(CTime(1.0));
    values.Add(CValue(5.0));
    ASSERT_EQ(curve.SetKeys(times, values), CStatus::OK);
    EXPECT_FALSE(k.IsValid());
    EXPECT_TRUE(curve.GetKeyAtIndex(0).IsValid());
}

// A handle follows its key when keys are added before it, removed before it, or the key
// itself is edited many times.
TEST_F(Curve, HandleFollowsItsKeyWhenOtherKeysComeAndGo) {
    ASSERT_EQ(curve.AddKey(CTime(10.0), CValue(1.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(20.0), CValue(2.0)), CStatus::OK);
    FCurveKey k = curve.GetKey(CTime(20.0));
    EXPECT_EQ(k.GetIndex(), 1);
    for (int i = 0; i < 5; ++i) ASSERT_EQ(curve.AddKey(CTime(i * 1.0), CValue(0.0)), CStatus::OK);
    EXPECT_EQ(k.GetIndex(), 6);
    EXPECT_EQ(k.PutRightTanY(3.0), CStatus::OK);
    EXPECT_EQ(curve.GetKeyAtIndex(6).GetRightTanY(), 3.0);
    ASSERT_EQ(curve.RemoveKeys(CTime(0.0), CTime(10.0)), CStatus::OK);
    EXPECT_TRUE(k.IsValid());
    EXPECT_EQ(k.GetIndex(), 0);
    EXPECT_EQ(static_cast<double>(k.GetValue()), 2.0);
    EXPECT_EQ(k.GetRightTanY(), 3.0);
}

TEST_F(Curve, KeyTimesKeepTheirOrder) {
    for (int i = 0; i < 3; ++i) ASSERT_EQ(curve.AddKey(CTime(i * 10.0), CValue(double(i))), CStatus::OK);
    FCurveKey mid = curve.GetKeyAtIndex(1);
    EXPECT_NE(mid.PutTime(CTime(25.0)), CStatus::OK);
    EXPECT_EQ(static_cast<double>(mid.GetTime()), 10.0);
    EXPECT_EQ(mid.PutTime(CTime(15.0)), CStatus::OK);
    EXPECT_EQ(static_cast<double>(curve.GetKeyAtIndex(1).GetTime()), 15.0);
    EXPECT_EQ(mid.GetIndex(), 1);
}

TEST_F(Curve, ContinuityConstraintKeepsTheOtherTangentAligned) {
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(10.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(20.0), CValue(0.0)), CStatus::OK);
    FCurveKey k = curve.GetKeyAtIndex(1);
    ASSERT_EQ(k.PutConstraint(ovAllKeyConstraints, false), CStatus::OK);
    ASSERT_EQ(k.PutLeftTanX(-4.0), CStatus::OK);
    ASSERT_EQ(k.PutLeftTanY(1.0), CStatus::OK);
    ASSERT_EQ(k.PutConstraint(ovTangentContinuityConstraint, true), CStatus::OK);
    EXPECT_TRUE(k.GetConstraint(ovTangentContinuityConstraint));
    ASSERT_EQ(k.PutRightTanX(2.0), CStatus::OK);
    ASSERT_EQ(k.PutRightTanY(3.0), CStatus::OK);
    // The left tangent keeps its 4 frames and takes the right one's slope of 1.5.
    EXPECT_NEAR(k.GetLeftTanX(), -4.0, 1e-12);
    EXPECT_NEAR(k.GetLeftTanY(), -6.0, 1e-12);
    // Without the constraint the tangents are independent (a corner).
    ASSERT_EQ(k.PutConstraint(ovAllKeyConstraints, false), CStatus::OK);
    EXPECT_FALSE(k.GetConstraint(ovTangentContinuityConstraint));
    ASSERT_EQ(k.PutRightTanY(-1.0), CStatus::OK);
    EXPECT_NEAR(k.GetLeftTanY(), -6.0, 1e-12);
}

TEST_F(Curve, EditBracketsDeferTangentsUntilTheEnd) {
    ASSERT_EQ(curve.BeginEdit(), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(4.0), CValue(4.0)), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(8.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(curve.EndEdit(), CStatus::OK);
    EXPECT_NE(curve.EndEdit(), CStatus::OK);
    EXPECT_NEAR(curve.GetKeyAtIndex(1).GetRightTanY(), 0.0, 1e-12);
    EXPECT_NEAR(
        static_cast<double>(curve.Eval(CTime(2.0))),
        RefCubic({0, 0, 3, -4.0 / 3, -4.0 / 3, 4.0 / 3, 4.0 / 3}, {4, 4, 3, -4.0 / 3, 0, 4.0 / 3, 0}, 2.0),
        1e-9);
}

TEST_F(Curve, CurveDrivesItsParameterAtEveryTime) {
    ASSERT_EQ(curve.PutInterpolation(ovLinearInterpolation), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(10.0), CValue(20.0), ovLinearInterpolation), CStatus::OK);
    EXPECT_NEAR(static_cast<double>(posx.GetValue(2.5)), 5.0, 1e-12);
    EXPECT_NEAR(ball.GetKinematics().GetGlobal().GetTransform(7.25).GetTranslation().x, 14.5, 1e-12);
    // "now" follows Play Control's "Current".
    ASSERT_EQ(Application().GetActiveProject().GetProperties().GetItem(L"Play Control").IsValid(), true);
    Property pc(Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    ASSERT_EQ(pc.PutParameterValue(L"Current", CValue(4.0)), CStatus::OK);
    EXPECT_NEAR(static_cast<double>(posx.GetValue()), 8.0, 1e-12);
}

TEST_F(Curve, WritingAnAnimatedParameterKeysItAtThatTime) {
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0)), CStatus::OK);
    ASSERT_EQ(posx.PutValue(CValue(3.0), 12.0), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 2);
    EXPECT_NEAR(static_cast<double>(posx.GetValue(12.0)), 3.0, 1e-12);
}

TEST_F(Curve, CurveWithoutKeysLeavesTheParameterValue) {
    Parameter posy = ball.GetKinematics().GetLocal().GetParameter(L"posy");
    ASSERT_EQ(posy.PutValue(CValue(2.0)), CStatus::OK);
    FCurve c;
    ASSERT_EQ(posy.AddFCurve(ovStandardFCurve, c), CStatus::OK);
    EXPECT_EQ(static_cast<double>(posy.GetValue(5.0)), 2.0);
}

TEST_F(Curve, OnlyTheStandardCurveTypeIsMade) {
    FCurve c;
    Parameter posz = ball.GetKinematics().GetLocal().GetParameter(L"posz");
    EXPECT_NE(posz.AddFCurve(19, c), CStatus::OK);
    EXPECT_FALSE(c.IsValid());
    EXPECT_FALSE(posz.IsAnimated(ovAnySource));
}

TEST_F(Curve, SourceAndAnimationStateOfAParameter) {
    EXPECT_TRUE(posx.IsAnimated(ovFCurveSource));
    EXPECT_TRUE(posx.IsAnimated(ovAnySource));
    FCurve src(posx.GetSource());
    EXPECT_TRUE(src.IsValid());
    EXPECT_TRUE(posx.GetSource().IsA(31));
    EXPECT_EQ(src, curve);
    EXPECT_EQ(curve.GetParent3DParameter(), posx);
    Parameter posy = ball.GetKinematics().GetLocal().GetParameter(L"posy");
    EXPECT_FALSE(posy.IsAnimated(ovAnySource));
    EXPECT_FALSE(posy.GetSource().IsValid());
}

TEST_F(Curve, AnimatedParametersOfAnObjectAndItsChildren) {
    Null child;
    ASSERT_EQ(ball.AddNull(L"Child", child), CStatus::OK);
    FCurve c;
    ASSERT_EQ(child.GetKinematics().GetLocal().GetParameter(L"rotz").AddFCurve(20, c), CStatus::OK);
    CRefArray own = ball.GetAnimatedParameters(ovFCurveSource, false);
    EXPECT_EQ(own.GetCount(), 0);
    CRefArray all = ball.GetAnimatedParameters(ovFCurveSource, true);
    ASSERT_EQ(all.GetCount(), 2);
    EXPECT_EQ(all[0], posx.GetRef());
    EXPECT_EQ(Parameter(all[1]).GetScriptName(), CString(L"rotz"));
}

TEST_F(Curve, RemoveAllAnimationDropsCurvesAndKeepsTheCurrentValue) {
    ASSERT_EQ(curve.AddKey(CTime(0.0), CValue(0.0), ovLinearInterpolation), CStatus::OK);
    ASSERT_EQ(curve.AddKey(CTime(10.0), CValue(10.0), ovLinearInterpolation), CStatus::OK);
    Property pc(Application().GetActiveProject().GetProperties().GetItem(L"Play Control"));
    ASSERT_EQ(pc.PutParameterValue(L"Current", CValue(3.0)), CStatus::OK);
    CValueArray args;
    args.Add(ball.GetFullName());
    args.Add(CValue(0));
    args.Add(CValue(3));
    args.Add(CValue(1));
    args.Add(CValue(128));
    CValue result;
    ASSERT_EQ(Application().ExecuteCommand(L"RemoveAllAnimation", args, result), CStatus::OK);
    EXPECT_FALSE(posx.IsAnimated(ovAnySource));
    EXPECT_FALSE(curve.IsValid());
    EXPECT_NEAR(static_cast<double>(posx.GetValue(50.0)), 3.0, 1e-12);
}

TEST_F(Curve, RemoveAllAnimationWithoutObjectWorksOnTheSelection) {
    Null other;
    ASSERT_EQ(Application().GetActiveSceneRoot().AddNull(L"Other", other), CStatus::OK);
    FCurve c;
    ASSERT_EQ(other.GetKinematics().GetLocal().GetParameter(L"posy").AddFCurve(20, c), CStatus::OK);
    ASSERT_EQ(Application().GetSelection().Add(other), CStatus::OK);
    CValueArray args;
    args.Add(CValue());
    args.Add(CValue());
    args.Add(CValue(3));
    args.Add(CValue(3));
    args.Add(CValue(128));
    CValue result;
    ASSERT_EQ(Application().ExecuteCommand(L"RemoveAllAnimation", args, result), CStatus::OK);
    EXPECT_FALSE(c.IsValid());
    EXPECT_TRUE(posx.IsAnimated(ovFCurveSource));
}

TEST_F(Curve, BadKeysAreRefusedAndChangeNothing) {
    ASSERT_EQ(curve.AddKey(CTime(1.0), CValue(1.0)), CStatus::OK);
    EXPECT_NE(curve.AddKey(CTime(std::nan("")), CValue(2.0)), CStatus::OK);
    EXPECT_NE(curve.AddKey(CTime(2.0), CValue(2.0), 7), CStatus::OK);
    EXPECT_NE(curve.PutInterpolation(0), CStatus::OK);
    CTimeArray times;
    times.Add(CTime(HUGE_VAL));
    CValueArray values;
    values.Add(CValue(1.0));
    EXPECT_NE(curve.SetKeys(times, values), CStatus::OK);
    EXPECT_NE(curve.GetKeyAtIndex(0).PutLeftTanX(std::nan("")), CStatus::OK);
    EXPECT_NE(curve.GetKeyAtIndex(0).PutConstraint(0, true), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 1);
    EXPECT_EQ(static_cast<double>(curve.Eval(CTime(5.0))), 1.0);
    EXPECT_FALSE(curve.GetKeyAtIndex(1).IsValid());
    EXPECT_FALSE(curve.GetKeyAtIndex(-1).IsValid());
}

TEST_F(Curve, HandlesOfADeletedCurveFailCleanly) {
    ASSERT_EQ(curve.AddKey(CTime(1.0), CValue(1.0)), CStatus::OK);
    FCurveKey key = curve.GetKeyAtIndex(0);
    orvhost::DeleteItem(orvhost::TheStore().Resolve(ball.GetRef()));
    EXPECT_FALSE(curve.IsValid());
    EXPECT_FALSE(key.IsValid());
    EXPECT_NE(curve.AddKey(CTime(2.0), CValue(2.0)), CStatus::OK);
    EXPECT_EQ(curve.GetNumKeys(), 0);
    EXPECT_EQ(key.GetLeftTanX(), 0.0);
    EXPECT_FALSE(posx.IsAnimated(ovAnySource));
}

TEST_F(Curve, BooleanParameterFollowsItsCurve) {
    CustomProperty cp;
    ASSERT_EQ(ball.AddCustomProperty(L"Feet", false, cp), CStatus::OK);
    Parameter clamp;
    ASSERT_EQ(cp.AddParameter(L"Clamp", ovBool, ovAnimatable, L"", L"", CValue(false), clamp), CStatus::OK);
    FCurve c;
    ASSERT_EQ(clamp.AddFCurve(ovStandardFCurve, c), CStatus::OK);
    ASSERT_EQ(c.AddKey(CTime(0.0), CValue(true), ovConstantInterpolation), CStatus::OK);
    ASSERT_EQ(c.AddKey(CTime(10.0), CValue(false), ovConstantInterpolation), CStatus::OK);
    EXPECT_EQ(clamp.GetValue(5.0).GetType(), ovBool);
    EXPECT_TRUE(static_cast<bool>(clamp.GetValue(5.0)));
    EXPECT_FALSE(static_cast<bool>(clamp.GetValue(10.0)));
    EXPECT_EQ(static_cast<double>(c.GetKeyAtIndex(0).GetValue()), 1.0);
}
