// The cubic curve with its chord table, the points it lays along itself, and key fitting onto a
// host function curve. Expected values come from evaluations written here (de Casteljau, the
// polyline of the samples, a plain search over tangent lengths) or from hand reasoning on
// straight lines, never from the code under test.
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "core/BezierCurve.h"

using namespace ORV;
using namespace ORV::MATH;
using ZUK::BezierCurve;

namespace {

// --- Independent helpers ------------------------------------------------------------------------

// de Casteljau's construction: three rounds of linear blends, no Bernstein polynomials.
CVector3 DeCasteljau(const CVector3 (&p)[4], double u) {
    auto lerp = [u](const CVector3& a, const CVector3& b) {
        return CVector3(a.x + (b.x - a.x) * u, a.y + (b.y - a.y) * u, a.z + (b.z - a.z) * u);
    };
    const CVector3 a = lerp(p[0], p[1]), b = lerp(p[1], p[2]), c = lerp(p[2], p[3]);
    const CVector3 d = lerp(a, b), e = lerp(b, c);
    return lerp(d, e);
}

double Dist(const CVector3& a, const CVector3& b) {
    return std::sqrt((a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y) + (a.z - b.z) * (a.z - b.z));
}

// The polyline through values[i] at x = i, read at x (inside the array).
double Polyline(const std::vector<double>& v, double x) {
    const long i = std::min(static_cast<long>(std::floor(x)), static_cast<long>(v.size()) - 2);
    return v[i] + (v[i + 1] - v[i]) * (x - i);
}

// One channel of a BVH file's motion, found by counting the channels of the hierarchy.
std::vector<double> ReadBvhChannel(const std::string& path, const std::string& joint,
                                   const std::string& channel) {
    std::ifstream in(path);
    std::string token, current;
    long column = -1, total = 0;
    while (in >> token) {
        if (token == "ROOT" || token == "JOINT") {
            in >> current;
        } else if (token == "CHANNELS") {
            int n = 0;
            in >> n;
            for (int k = 0; k < n; ++k) {
                in >> token;
                if (current == joint && token == channel) column = total;
                ++total;
            }
        } else if (token == "MOTION") {
            break;
        }
    }
    long frames = 0;
    double frameTime = 0.0;
    in >> token >> frames >> token >> token >> frameTime;  // "Frames:" N "Frame" "Time:" t
    std::vector<double> out;
    if (column < 0) return out;
    double v = 0.0;
    for (long f = 0; f < frames; ++f)
        for (long c = 0; c < total; ++c) {
            if (!(in >> v)) return out;
            if (c == column) out.push_back(v);
        }
    return out;
}

// A function curve on a fresh null's posx.
class KeyFit : public ::testing::Test {
protected:
    void SetUp() override {
        orvhost::ResetScene();
        orvhost::ClearLog();
        Null n;
        ASSERT_EQ(Application().GetActiveSceneRoot().AddNull(L"Channel", n), CStatus::OK);
        Parameter posx = n.GetKinematics().GetLocal().GetParameter(L"posx");
        ASSERT_TRUE(posx.IsValid());
        ASSERT_EQ(posx.AddFCurve(ovStandardFCurve, curve), CStatus::OK);
    }

    std::vector<double> KeyTimes() const {
        std::vector<double> t;
        for (long i = 0; i < curve.GetNumKeys(); ++i)
            t.push_back(static_cast<double>(curve.GetKeyAtIndex(i).GetTime()));
        return t;
    }

    // Largest distance between the host's curve and the samples at every frame.
    double LargestError(const std::vector<double>& values, long startFrame) const {
        double worst = 0.0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double at = static_cast<double>(curve.Eval(CTime(static_cast<double>(startFrame + i))));
            worst = std::max(worst, std::fabs(at - values[i]));
        }
        return worst;
    }

    // Largest distance between the host's curve and the polyline of the samples at the points
    // where the fit measures a stretch: u = 0.2, 0.4, 0.6, 0.8 of every stretch of two frames
    // or more. Stretches under two frames are written unmeasured.
    double LargestCheckedError(const std::vector<double>& values, long startFrame) const {
        double worst = 0.0;
        for (long k = 0; k + 1 < curve.GetNumKeys(); ++k) {
            const FCurveKey a = curve.GetKeyAtIndex(k), b = curve.GetKeyAtIndex(k + 1);
            const double ta = a.GetTime(), tb = b.GetTime();
            if (tb - ta < 2.0) continue;
            const double va = a.GetValue(), vb = b.GetValue();
            const CVector3 c[4] = {
                CVector3(ta, va, 0), CVector3(ta + a.GetRightTanX(), va + a.GetRightTanY(), 0),
                CVector3(tb + b.GetLeftTanX(), vb + b.GetLeftTanY(), 0), CVector3(tb, vb, 0)};
            for (double u : {0.2, 0.4, 0.6, 0.8}) {
                const double x = DeCasteljau(c, u).x;
                const double host = static_cast<double>(curve.Eval(CTime(x)));
                worst = std::max(worst, std::fabs(host - Polyline(values, x - startFrame)));
            }
        }
        return worst;
    }

    // Features as plotting makes them: the flagged frames and both ends.
    static CDoubleArray Features(std::vector<double>& values, double tolerance) {
        std::vector<char> flags(values.size(), 0);
        BezierCurve::findKeyCurveFeatures(values.data(), reinterpret_cast<bool*>(flags.data()),
                                          static_cast<long>(values.size()), tolerance);
        flags.front() = 1;
        flags.back() = 1;
        CDoubleArray features;
        for (std::size_t i = 0; i < flags.size(); ++i)
            if (flags[i]) features.Add(static_cast<double>(i));
        return features;
    }

    static CDoubleArray List(std::initializer_list<double> values) {
        CDoubleArray a;
        for (double v : values) a.Add(v);
        return a;
    }

    FCurve curve;
};

// The first tangent lengths (i, j in 3..29 of 30 steps) that give the smallest largest error at
// u = 0.2 .. 0.8, searched and measured here.
struct Lengths {
    CVector3 p1, p2;
    double error;
};
Lengths SearchLengths(const std::vector<double>& v, double start, double end, double slope1, double slope2,
                      long offset) {
    const CVector3 p0(start + offset, Polyline(v, start), 0.0);
    const CVector3 p3(end + offset, Polyline(v, end), 0.0);
    const double step = (end - start) / 30.0;
    Lengths best{p0, p3, DBL_MAX};
    for (int i = 3; i <= 29; ++i)
        for (int j = 3; j <= 29; ++j) {
            const CVector3 c[4] = {p0, CVector3(p0.x + i * step, p0.y + i * step * slope1, 0.0),
                                   CVector3(p3.x - j * step, p3.y - j * step * slope2, 0.0), p3};
            double err = 0.0;
            for (double u : {0.2, 0.4, 0.6, 0.8}) {
                const CVector3 q = DeCasteljau(c, u);
                err = std::max(err, std::fabs(q.y - Polyline(v, q.x - offset)));
            }
            if (err < best.error) best = Lengths{c[1], c[2], err};
        }
    return best;
}

// --- The curve ----------------------------------------------------------------------------------

TEST(BezierCurve, ConstructorsStartWithAnEmptyTable) {
    const CVector3 p[4] = {CVector3(1, 2, 3), CVector3(4, 5, 6), CVector3(7, 8, 9), CVector3(10, 11, 12)};
    const BezierCurve none;
    const BezierCurve fromArray(p);
    const BezierCurve fromPoints(p[0], p[1], p[2], p[3]);
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(none.points[k].x, 0.0);
        EXPECT_EQ(fromArray.points[k].y, p[k].y);
        EXPECT_EQ(fromPoints.points[k].z, p[k].z);
    }
    for (const BezierCurve* c : {&none, &fromArray, &fromPoints}) {
        EXPECT_EQ(c->length, 0.0);
        for (int i = 0; i < BezierCurve::SAMPLE_COUNT; ++i) {
            EXPECT_EQ(c->samples[i].GetLengthSquared(), 0.0);
            EXPECT_EQ(c->distances[i], 0.0);
        }
    }
}

// Budget 1e-9: both forms are exact algebra on coordinates below 100.
TEST(BezierCurve, EvaluateAgreesWithDeCasteljau) {
    unsigned seed = 12345u;
    auto next = [&seed]() {
        seed = seed * 1103515245u + 12345u;
        return static_cast<double>((seed >> 8) % 20001u) / 100.0 - 100.0;
    };
    for (int curveIndex = 0; curveIndex < 20; ++curveIndex) {
        CVector3 p[4];
        for (CVector3& q : p) q.Set(next(), next(), next());
        const BezierCurve c(p);
        for (int k = -10; k <= 110; ++k) {
            const double u = k / 100.0;
            const CVector3 a = c.evaluate(u), b = DeCasteljau(p, u);
            EXPECT_NEAR(a.x, b.x, 1e-9);
            EXPECT_NEAR(a.y, b.y, 1e-9);
            EXPECT_NEAR(a.z, b.z, 1e-9);
        }
    }
}

TEST(BezierCurve, IntegrateSamplesFiftiethsAndSumsTheChords) {
    const CVector3 p[4] = {CVector3(0, 0, 0), CVector3(1, 3, 0), CVector3(4, -1, 2), CVector3(5, 2, 1)};
    BezierCurve c(p);
    c.integrate();
    double sum = 0.0;
    for (int i = 0; i < 50; ++i) {
        const CVector3 expected = DeCasteljau(p, i / 50.0);
        EXPECT_NEAR(c.samples[i].x, expected.x, 1e-12);
        EXPECT_NEAR(c.samples[i].y, expected.y, 1e-12);
        EXPECT_NEAR(c.samples[i].z, expected.z, 1e-12);
        sum += Dist(DeCasteljau(p, i / 50.0), DeCasteljau(p, (i + 1) / 50.0));
        if (i >= 3) {
            EXPECT_NEAR(c.distances[i], sum, 1e-12) << i;
        }
    }
    EXPECT_NEAR(c.length, sum, 1e-12);
}

TEST(BezierCurve, IntegrateKeepsTheEndPointWhereTheFirstThreeDistancesStood) {
    BezierCurve c(CVector3(0, 0, 0), CVector3(1, 3, 0), CVector3(4, -1, 2), CVector3(5, 2, 1));
    c.integrate();
    EXPECT_EQ(c.distances[0], 5.0);
    EXPECT_EQ(c.distances[1], 2.0);
    EXPECT_EQ(c.distances[2], 1.0);
}

TEST(BezierCurve, EvaluateAtDistanceZeroGivesTheStartPoint) {
    BezierCurve c(CVector3(1, 2, 3), CVector3(2, 5, 3), CVector3(4, 5, 4), CVector3(6, 1, 2));
    c.integrate();
    const CVector3 p = c.evaluateAtDistance(0.0);
    EXPECT_NEAR(p.x, 1.0, 1e-12);
    EXPECT_NEAR(p.y, 2.0, 1e-12);
    EXPECT_NEAR(p.z, 3.0, 1e-12);
}

TEST(BezierCurve, EvaluateAtDistanceOutsideTheCurveGivesItsEnds) {
    BezierCurve c(CVector3(1, 2, 3), CVector3(2, 5, 3), CVector3(4, 5, 4), CVector3(6, 1, 2));
    c.integrate();
    EXPECT_EQ(c.evaluateAtDistance(-0.5).y, 2.0);
    EXPECT_EQ(c.evaluateAtDistance(c.length).y, 1.0);
    EXPECT_EQ(c.evaluateAtDistance(c.length + 3.0).x, 6.0);
    BezierCurve notIntegrated(CVector3(1, 2, 3), CVector3(2, 5, 3), CVector3(4, 5, 4), CVector3(6, 1, 2));
    EXPECT_EQ(notIntegrated.evaluateAtDistance(0.0).x, 6.0);
}

// A straight line along -X in steps of 0.2 per sample: the end point's coordinates (-10, 0, 0)
// stand in the first three distances, so the search starts at index 3 for small d, and finds
// the true place further on.
TEST(BezierCurve, EvaluateAtDistanceReadsTheTableAsItIsStored) {
    BezierCurve back(CVector3(0, 0, 0), CVector3(-10.0 / 3, 0, 0), CVector3(-20.0 / 3, 0, 0),
                     CVector3(-10, 0, 0));
    back.integrate();
    EXPECT_NEAR(back.evaluateAtDistance(5.1).x, -5.1, 1e-9);
    // Index 3: t = (0.1 - 0) / (0.8 - 0), between samples 3 (-0.6) and 4 (-0.8).
    EXPECT_NEAR(back.evaluateAtDistance(0.1).x, -0.625, 1e-9);
    // Along +X the first distance slot holds 10: d = 5 blends samples 0 and 1 by 5 / 10.
    BezierCurve forth(CVector3(0, 0, 0), CVector3(10.0 / 3, 0, 0), CVector3(20.0 / 3, 0, 0),
                      CVector3(10, 0, 0));
    forth.integrate();
    EXPECT_NEAR(forth.evaluateAtDistance(5.0).x, 0.1, 1e-9);
}

// A line along +X with samples 0.2 apart. Each point is put between the first sample beyond
// the distance and the one before it, at t = |before - p| / |after - p|.
TEST(BezierCurve, FindIntersectionStepsFromPointToPoint) {
    BezierCurve c(CVector3(0, 0, 0), CVector3(10.0 / 3, 0, 0), CVector3(20.0 / 3, 0, 0), CVector3(10, 0, 0));
    c.integrate();
    CDoubleArray lengths;
    lengths.Add(1.1);
    lengths.Add(1.1);
    lengths.Add(0.1);
    CVector3Array out;
    c.findIntersection(lengths, out);
    ASSERT_EQ(out.GetCount(), 3);
    // From 0: first sample beyond 1.1 is 1.2, before it 1.0; t = 1.0 / 1.2.
    const double p1 = 1.0 + 0.2 * (1.0 / 1.2);
    EXPECT_NEAR(out[0].x, p1, 1e-9);
    // From p1: first beyond p1 + 1.1 is 2.4, before it 2.2.
    const double t2 = (2.2 - p1) / (2.4 - p1);
    const double p2 = 2.2 + 0.2 * t2;
    EXPECT_NEAR(out[1].x, p2, 1e-9);
    // From p2 (about 2.368) the search starts at sample 12 (2.4), nearer than 0.1: the first
    // beyond is 2.6, and the point falls between 2.4 and 2.6, ahead of p2 by more than 0.1.
    ASSERT_LT(2.4 - p2, 0.1);
    const double t3 = (2.4 - p2) / (2.6 - p2);
    EXPECT_NEAR(out[2].x, 2.4 + 0.2 * t3, 1e-9);
    for (long k = 0; k < out.GetCount(); ++k) {
        EXPECT_EQ(out[k].y, 0.0);
        EXPECT_EQ(out[k].z, 0.0);
    }
}

// Lengths beyond what is left of the curve are passed over; once all are tried, the first
// missing point aims at the curve's end, the later ones follow its end tangent.
TEST(BezierCurve, FindIntersectionGoesOnStraightWhereTheCurveRunsOut) {
    // Bends up: the end tangent p3 - p2 is +Y, while the end lies up and right of the walk.
    const CVector3 p[4] = {CVector3(0, 0, 0), CVector3(3, 0, 0), CVector3(4, 1, 0), CVector3(4, 4, 0)};
    BezierCurve c(p);
    c.integrate();
    CDoubleArray lengths;
    lengths.Add(1.5);
    lengths.Add(50.0);  // passed over
    lengths.Add(2.0);
    lengths.Add(3.0);
    CVector3Array out;
    out.Add(CVector3(-7, -7, -7));  // what is there stays
    c.findIntersection(lengths, out);
    ASSERT_EQ(out.GetCount(), 5);
    EXPECT_EQ(out[0].x, -7.0);

    // The walk, done here on the samples of de Casteljau's curve.
    std::vector<CVector3> s;
    for (int i = 0; i < 50; ++i) s.push_back(DeCasteljau(p, i / 50.0));
    auto walk = [&s](CVector3& from, int& start, double r) {
        for (int i = start; i < 50; ++i)
            if (Dist(s[i], from) > r) {
                const double t = Dist(s[i - 1], from) / Dist(s[i], from);
                from = CVector3(s[i - 1].x + (s[i].x - s[i - 1].x) * t,
                                s[i - 1].y + (s[i].y - s[i - 1].y) * t, 0);
                start = i;
                return true;
            }
        return false;
    };
    CVector3 q = p[0];
    int start = 1;
    ASSERT_TRUE(walk(q, start, 1.5));
    const CVector3 first = q;
    ASSERT_FALSE(walk(q, start, 50.0));
    ASSERT_TRUE(walk(q, start, 2.0));
    const CVector3 second = q;
    ASSERT_FALSE(walk(q, start, 3.0));
    EXPECT_NEAR(out[1].x, first.x, 1e-9);
    EXPECT_NEAR(out[1].y, first.y, 1e-9);
    EXPECT_NEAR(out[2].x, second.x, 1e-9);
    EXPECT_NEAR(out[2].y, second.y, 1e-9);
    // Two found: the third point goes the third length (2.0) toward the end point.
    const double toEnd = Dist(p[3], second);
    const CVector3 third(second.x + (p[3].x - second.x) / toEnd * 2.0,
                         second.y + (p[3].y - second.y) / toEnd * 2.0, 0.0);
    EXPECT_NEAR(out[3].x, third.x, 1e-9);
    EXPECT_NEAR(out[3].y, third.y, 1e-9);
    // The fourth follows the end tangent (+Y) by the fourth length.
    EXPECT_NEAR(out[4].x, third.x, 1e-9);
    EXPECT_NEAR(out[4].y, third.y + 3.0, 1e-9);
}

// --- Array helpers ------------------------------------------------------------------------------

TEST(BezierKeyFit, SampleArrayInterpolatesInsideAndExtendsTheLastStep) {
    double v[5] = {0.0, 2.0, 3.0, 7.0, 8.0};
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(v, 5, 0.0), 0.0);
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(v, 5, 1.25), 2.25);
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(v, 5, 2.5), 5.0);
    // From count-2 on, the step that ends at the truncated position goes on.
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(v, 5, 3.0), 7.0);
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(v, 5, 3.5), 9.0);  // 7 + (7 - 3) * 0.5
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(v, 5, 4.0), 8.0);
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(v, 5, 4.5), 8.5);
    // Two values: position 0 uses the one step forward.
    double two[2] = {1.0, 4.0};
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(two, 2, 0.5), 2.5);
    EXPECT_DOUBLE_EQ(ZUK::sampleArray(two, 2, 1.5), 5.5);
}

TEST(BezierKeyFit, SlopeChangesTellsAStraightStretchFromABentOne) {
    double line[5] = {1.0, 2.0, 3.0, 4.0, 5.0};
    EXPECT_FALSE(ZUK::slopechanges(line, 0, 4, 0.01));
    double bent[5] = {1.0, 2.0, 3.0, 3.5, 4.0};  // average 0.75: steps differ by 0.25
    EXPECT_TRUE(ZUK::slopechanges(bent, 0, 4, 0.2));
    EXPECT_FALSE(ZUK::slopechanges(bent, 0, 4, 0.25));  // strictly above
    EXPECT_FALSE(ZUK::slopechanges(bent, 2, 4, 0.01));
}

TEST(BezierKeyFit, DifferenceIsTheVerticalDistanceToThePolyline) {
    double v[4] = {0.0, 4.0, 2.0, 2.0};
    CVector3 p(10.0 + 1.5, 5.0, 0.0);  // offset 10: x = 1.5, polyline 3
    EXPECT_DOUBLE_EQ(ZUK::difference(p, v, 0, 3, 10), 2.0);
    CVector3 q(10.25, 0.0, 0.0);  // polyline 1
    EXPECT_DOUBLE_EQ(ZUK::difference(q, v, 0, 3, 10), 1.0);
    CVector3 onKey(12.0, 2.5, 0.0);  // x = 2: the segment from 2 to 3
    EXPECT_DOUBLE_EQ(ZUK::difference(onKey, v, 0, 3, 10), 0.5);
    CVector3 past(13.0, 9.0, 0.0);  // no sample above x within to
    EXPECT_EQ(ZUK::difference(past, v, 0, 3, 10), 0.0);
    CVector3 beforeFrom(10.5, 9.0, 0.0);  // from 1: the first sample counted is 2
    EXPECT_DOUBLE_EQ(ZUK::difference(beforeFrom, v, 1, 3, 10), std::fabs(9.0 - (2.0 + 2.0 * 1.5)));
}

TEST(BezierKeyFit, FindBestFitStopsAtTheFirstLengthsWithinTolerance) {
    std::vector<double> v(21);
    for (int i = 0; i <= 20; ++i) v[i] = std::sin(i * 0.15) * 10.0;
    const double slope1 = std::cos(0.0) * 1.5, slope2 = std::cos(3.0) * 1.5;
    CVector3 p[4] = {CVector3(100, v[0], 0), CVector3(101, v[0] + slope1, 0),
                     CVector3(119, v[20] - slope2, 0), CVector3(120, v[20], 0)};
    const Lengths best = SearchLengths(v, 0.0, 20.0, slope1, slope2, 100);
    // A tolerance just above the best error found stops there or at an earlier pair within it.
    CVector3 q[4] = {p[0], p[1], p[2], p[3]};
    EXPECT_TRUE(ZUK::findBestFit(q, 0.0, 20.0, v.data(), best.error * 1.5, 100));
    // Not within tolerance at all: false, and the points hold the best pair.
    EXPECT_FALSE(ZUK::findBestFit(p, 0.0, 20.0, v.data(), best.error * 0.5, 100));
    EXPECT_NEAR(p[1].x, best.p1.x, 1e-9);
    EXPECT_NEAR(p[1].y, best.p1.y, 1e-9);
    EXPECT_NEAR(p[2].x, best.p2.x, 1e-9);
    EXPECT_NEAR(p[2].y, best.p2.y, 1e-9);
    // The pair it stopped at is within the tolerance by the measure written here.
    const CVector3 c[4] = {q[0], q[1], q[2], q[3]};
    double err = 0.0;
    for (double u : {0.2, 0.4, 0.6, 0.8}) {
        const CVector3 r = DeCasteljau(c, u);
        err = std::max(err, std::fabs(r.y - Polyline(v, r.x - 100)));
    }
    EXPECT_LT(err, best.error * 1.5);
}

// --- Features -----------------------------------------------------------------------------------

std::vector<long> Flagged(std::vector<double> v, double tolerance) {
    std::vector<char> flags(v.size(), 0);
    EXPECT_TRUE(BezierCurve::findKeyCurveFeatures(v.data(), reinterpret_cast<bool*>(flags.data()),
                                                  static_cast<long>(v.size()), tolerance));
    std::vector<long> out;
    for (std::size_t i = 0; i < flags.size(); ++i)
        if (flags[i]) out.push_back(static_cast<long>(i));
    return out;
}

TEST(BezierKeyFit, ConstantArrayHasNoFeatures) {
    EXPECT_TRUE(Flagged(std::vector<double>(40, 3.5), 0.1).empty());
    EXPECT_TRUE(Flagged(std::vector<double>(40, 3.5), 0.0).empty());
}

TEST(BezierKeyFit, FewerThanThreeValuesFlagNothing) { EXPECT_TRUE(Flagged({0.0, 100.0}, 0.0).empty()); }

TEST(BezierKeyFit, ExtremesAreFeaturesAndTheEndsAreNot) {
    // Peaks of a sine of period 40 at 10, 50, troughs at 30, 70; smooth, so no sudden changes
    // except where a step is near zero (around the extremes themselves).
    std::vector<double> v(81);
    for (int i = 0; i <= 80; ++i) v[i] = std::sin(2.0 * M_PI * (i + 0.5) / 40.0);
    const std::vector<long> f = Flagged(v, 0.5);
    for (long extreme : {10L, 29L, 49L, 69L}) {
        // The sampled extreme: d1 and d2 change sign at the frame nearest the true one.
        const bool found = std::find(f.begin(), f.end(), extreme) != f.end() ||
                           std::find(f.begin(), f.end(), extreme - 1) != f.end() ||
                           std::find(f.begin(), f.end(), extreme + 1) != f.end();
        EXPECT_TRUE(found) << extreme;
    }
    EXPECT_EQ(std::count(f.begin(), f.end(), 0L), 0);
    EXPECT_EQ(std::count(f.begin(), f.end(), 80L), 0);
    // Every flag is an extreme by the sign of the steps, or a step next to the nearly flat step
    // at an extreme (five times smaller); no inflection passes half the amplitude.
    for (long i : f) {
        const double d1 = v[i] - v[i - 1], d2 = v[i + 1] - v[i];
        const bool sudden = std::fabs(d2) > 5 * std::fabs(d1) || std::fabs(d1) > 5 * std::fabs(d2);
        EXPECT_TRUE(d1 * d2 <= 0.0 || sudden) << i;
    }
}

TEST(BezierKeyFit, SuddenSlopeChangeIsAFeatureEvenBelowTolerance) {
    // A tiny kink: the step grows from 0.001 to 0.01 at frame 3.
    const std::vector<long> f = Flagged({0.0, 0.001, 0.002, 0.003, 0.013, 0.023, 0.033}, 1.0);
    EXPECT_EQ(f, std::vector<long>({3}));
    // Exactly five times is not sudden; flat steps neither.
    EXPECT_TRUE(Flagged({0.0, 1.0, 2.0, 7.0, 12.0}, 100.0).empty());
    EXPECT_TRUE(Flagged({2.0, 2.0, 2.0, 2.0}, 0.0).empty());
}

TEST(BezierKeyFit, SmallChangeSinceTheLastFeatureHidesAnExtreme) {
    // A bump of 0.05 in a flat line: its maximum counts only with a tolerance below it.
    const std::vector<double> v = {0.0, 0.0, 0.02, 0.05, 0.03, 0.02, 0.02, 0.02};
    const std::vector<long> loose = Flagged(v, 0.1);
    const std::vector<long> tight = Flagged(v, 0.01);
    EXPECT_EQ(std::count(loose.begin(), loose.end(), 3L), 0);
    EXPECT_EQ(std::count(tight.begin(), tight.end(), 3L), 1);
}

TEST(BezierKeyFit, ChangeIsMeasuredFromTheLastFeature) {
    // A rise to a peak at frame 5, then a wiggle of a few hundredths: far from frame 0, but too
    // close to the peak for its small extremes to count.
    const std::vector<long> f = Flagged({0, 2, 4, 6, 8, 10, 9.98, 9.99, 9.97, 9.99, 9.98}, 0.5);
    EXPECT_EQ(f, std::vector<long>({5}));
}

TEST(BezierKeyFit, SuddenChangeAloneAlsoBecomesTheLastFeature) {
    // The step jumps from 1 to 10 at frame 4 (a sudden change, and the stretch before it is
    // straight). Measured from frame 4, the bend at frame 5 is a straight step; measured from
    // frame 0 it would be an inflection.
    const std::vector<long> f = Flagged({0, 1, 2, 3, 4, 14, 24, 34, 44}, 1.0);
    EXPECT_EQ(f, std::vector<long>({4}));
}

TEST(BezierKeyFit, InflectionCountsOnlyWhereTheStretchIsNotStraight) {
    // Curvature changes sign at frame 5 (cubic through 5). Steps: ... the stretch from 0 bends.
    std::vector<double> v(11);
    for (int i = 0; i <= 10; ++i) v[i] = std::pow(i - 5.0, 3) / 10.0 + 2.0 * i;
    // Rising all the way: no extreme. The inflection sits where the step stops shrinking.
    const std::vector<long> f = Flagged(v, 0.1);
    ASSERT_FALSE(f.empty());
    for (long i : f) {
        const double c1 = (v[i] - v[i - 1]) - (v[i - 1] - v[i - 2]);
        const double c2 = (v[i + 1] - v[i]) - (v[i] - v[i - 1]);
        EXPECT_TRUE((c1 <= 0 && c2 > 0) || (c1 > 0 && c2 <= 0)) << i;
    }
    // A tolerance larger than any departure of a step from the average: straight enough, none.
    EXPECT_TRUE(Flagged(v, 5.0).empty());
}

// --- Key fitting on a host curve ----------------------------------------------------------------

TEST_F(KeyFit, SingleSampleGivesOneKeyAtTheStartFrame) {
    double v[1] = {4.25};
    CDoubleArray features = List({0.0});
    EXPECT_TRUE(BezierCurve::curveKeyFit(v, 1, 12, features, curve, 0.1));
    ASSERT_EQ(curve.GetNumKeys(), 1);
    EXPECT_EQ(static_cast<double>(curve.GetKeyAtIndex(0).GetTime()), 12.0);
    EXPECT_EQ(static_cast<double>(curve.GetKeyAtIndex(0).GetValue()), 4.25);
}

TEST_F(KeyFit, ConstantArrayGivesOneSegmentWithFlatTangents) {
    std::vector<double> v(30, -2.5);
    CDoubleArray features = Features(v, 0.1);
    ASSERT_EQ(features.GetCount(), 2);
    EXPECT_TRUE(BezierCurve::curveKeyFit(v.data(), 30, 5, features, curve, 0.1));
    EXPECT_EQ(KeyTimes(), std::vector<double>({5.0, 34.0}));
    for (long k = 0; k < 2; ++k) {
        const FCurveKey key = curve.GetKeyAtIndex(k);
        EXPECT_EQ(static_cast<double>(key.GetValue()), -2.5);
        EXPECT_EQ(key.GetLeftTanY(), 0.0);
        EXPECT_EQ(key.GetRightTanY(), 0.0);
        EXPECT_TRUE(key.GetConstraint(ovTangentContinuityConstraint));
    }
    // The first pair of lengths (3 steps of 29/30) is already exact.
    EXPECT_NEAR(curve.GetKeyAtIndex(0).GetRightTanX(), 3.0 * 29.0 / 30.0, 1e-12);
    EXPECT_NEAR(curve.GetKeyAtIndex(1).GetLeftTanX(), -3.0 * 29.0 / 30.0, 1e-12);
    EXPECT_LT(LargestError(v, 5), 1e-12);

    // Without a tolerance to stop at, every pair of lengths is exact and none is better than the
    // first: 3 steps again.
    EXPECT_TRUE(BezierCurve::curveKeyFit(v.data(), 30, 5, features, curve, -1.0));
    EXPECT_EQ(KeyTimes(), std::vector<double>({5.0, 34.0}));
    EXPECT_NEAR(curve.GetKeyAtIndex(0).GetRightTanX(), 3.0 * 29.0 / 30.0, 1e-12);
    EXPECT_NEAR(curve.GetKeyAtIndex(1).GetLeftTanX(), -3.0 * 29.0 / 30.0, 1e-12);
}

TEST_F(KeyFit, SegmentUnderTwoFramesKeepsItsFirstGuessWhateverTheError) {
    // Wild values: no cubic over 0..1.5 comes near them, yet there is no split.
    std::vector<double> v = {0.0, 50.0, -50.0, 50.0, 0.0, 0.0};
    CDoubleArray features = List({0.0, 1.5});
    BezierCurve::curveKeyFit(v.data(), 6, 0, features, curve, 0.001);
    EXPECT_EQ(KeyTimes(), std::vector<double>({0.0, 1.5}));
    const FCurveKey first = curve.GetKeyAtIndex(0), second = curve.GetKeyAtIndex(1);
    EXPECT_EQ(static_cast<double>(second.GetValue()), 0.0);  // 50 + (-100) * 0.5
    // Start at the array's start: slope of its first step, 0.333 of the span long.
    EXPECT_NEAR(first.GetRightTanX(), 0.333 * 1.5, 1e-12);
    EXPECT_NEAR(first.GetRightTanY(), 0.333 * 1.5 * 50.0, 1e-9);
    // At 1.5 the array reads 0, at 0.5 it reads 25 and at 2.5 it reads 0: steps of -25 and 0
    // turn by more than 0.7 radians, a corner, so the incoming step (-25) gives the left tangent.
    EXPECT_NEAR(second.GetLeftTanX(), -0.333 * 1.5, 1e-12);
    EXPECT_NEAR(second.GetLeftTanY(), -0.333 * 1.5 * -25.0, 1e-9);
    EXPECT_FALSE(second.GetConstraint(ovTangentContinuityConstraint));
}

TEST_F(KeyFit, ZeroToleranceFitsEachStretchOnceWithTheBestLengths) {
    std::vector<double> v(41);
    for (int i = 0; i <= 40; ++i) v[i] = 20.0 * std::sin(i * 0.11) + 0.02 * i * i;
    CDoubleArray features = List({0.0, 17.0, 40.0});
    BezierCurve::curveKeyFit(v.data(), 41, 0, features, curve, 0.0);
    // No halving: a key on each feature and nowhere else.
    EXPECT_EQ(KeyTimes(), std::vector<double>({0.0, 17.0, 40.0}));

    // Slopes at 0 and 40 from the end steps; at 17 the mean of the two steps (smooth there).
    const double s17 = ((v[17] - v[16]) + (v[18] - v[17])) * 0.5;
    const Lengths a = SearchLengths(v, 0.0, 17.0, v[1] - v[0], s17, 0);
    const Lengths b = SearchLengths(v, 17.0, 40.0, s17, v[40] - v[39], 0);
    const FCurveKey k0 = curve.GetKeyAtIndex(0), k1 = curve.GetKeyAtIndex(1), k2 = curve.GetKeyAtIndex(2);
    EXPECT_NEAR(k0.GetRightTanX(), a.p1.x - 0.0, 1e-9);
    EXPECT_NEAR(k0.GetRightTanY(), a.p1.y - v[0], 1e-9);
    EXPECT_NEAR(k1.GetRightTanX(), b.p1.x - 17.0, 1e-9);
    EXPECT_NEAR(k1.GetRightTanY(), b.p1.y - v[17], 1e-9);
    EXPECT_NEAR(k2.GetLeftTanX(), b.p2.x - 40.0, 1e-9);
    EXPECT_NEAR(k2.GetLeftTanY(), b.p2.y - v[40], 1e-9);
    // The shared smooth key: its left tangent has the slope of the first stretch's search, and
    // the length that stretch gave it.
    EXPECT_NEAR(k1.GetLeftTanX(), a.p2.x - 17.0, 1e-9);
    EXPECT_NEAR(k1.GetLeftTanY(), a.p2.y - v[17], 1e-9);
}

TEST_F(KeyFit, NegativeToleranceAlsoKeysOnlyTheFeatures) {
    std::vector<double> v(61);
    for (int i = 0; i <= 60; ++i) v[i] = 30.0 * std::sin(i * 0.2);
    CDoubleArray features = List({0.0, 30.0, 60.0});
    BezierCurve::curveKeyFit(v.data(), 61, 100, features, curve, -1.0);
    EXPECT_EQ(KeyTimes(), std::vector<double>({100.0, 130.0, 160.0}));
}

TEST_F(KeyFit, CornerKeyKeepsSeparateTangentsAndSmoothKeysHaveContinuity) {
    // A roof: up by 2 per frame to frame 10, then down by 1 per frame.
    std::vector<double> v(21);
    for (int i = 0; i <= 20; ++i) v[i] = i <= 10 ? 2.0 * i : 20.0 - (i - 10);
    CDoubleArray features = List({0.0, 10.0, 20.0});
    BezierCurve::curveKeyFit(v.data(), 21, 0, features, curve, 0.01);
    EXPECT_EQ(KeyTimes(), std::vector<double>({0.0, 10.0, 20.0}));
    const FCurveKey corner = curve.GetKey(CTime(10.0));
    EXPECT_FALSE(corner.GetConstraint(ovTangentContinuityConstraint));
    EXPECT_NEAR(corner.GetLeftTanY() / corner.GetLeftTanX(), 2.0, 1e-12);
    EXPECT_NEAR(corner.GetRightTanY() / corner.GetRightTanX(), -1.0, 1e-12);
    EXPECT_TRUE(curve.GetKey(CTime(0.0)).GetConstraint(ovTangentContinuityConstraint));
    EXPECT_TRUE(curve.GetKey(CTime(20.0)).GetConstraint(ovTangentContinuityConstraint));
    // Straight pieces between the keys: exact.
    EXPECT_LT(LargestError(v, 0), 1e-9);
}

TEST_F(KeyFit, AdjacentSegmentsShareAKeyAndTheLaterKeepsTheEarlierLeftTangent) {
    // A spike at frame 1: both stretches are under two frames, so the tangents are the first
    // guesses, 0.333 frames long along the steps beside the corner.
    std::vector<double> v = {0.0, 1.0, 0.0, 0.0, 0.0};
    CDoubleArray features = List({0.0, 1.0, 2.0});
    BezierCurve::curveKeyFit(v.data(), 5, 0, features, curve, 0.5);
    EXPECT_EQ(KeyTimes(), std::vector<double>({0.0, 1.0, 2.0}));
    const FCurveKey shared = curve.GetKey(CTime(1.0));
    EXPECT_NEAR(shared.GetLeftTanX(), -0.333, 1e-12);
    EXPECT_NEAR(shared.GetLeftTanY(), -0.333, 1e-12);  // written by the first stretch: slope +1
    EXPECT_NEAR(shared.GetRightTanX(), 0.333, 1e-12);
    EXPECT_NEAR(shared.GetRightTanY(), -0.333, 1e-12);  // the second stretch: slope -1
    EXPECT_FALSE(shared.GetConstraint(ovTangentContinuityConstraint));
}

TEST_F(KeyFit, ToleranceHalvesAStretchUntilOneCubicFits) {
    std::vector<double> v(65);
    for (int i = 0; i <= 64; ++i) v[i] = 10.0 * std::sin(i * 0.3);
    CDoubleArray features = List({0.0, 64.0});
    BezierCurve::curveKeyFit(v.data(), 65, 0, features, curve, 0.05);
    const std::vector<double> times = KeyTimes();
    ASSERT_GT(times.size(), 2u);
    // Every key lies on a halving of 0..64, so on a multiple of 64 / 2^k with k up to 5 (spans
    // of 2 frames are the last that split).
    for (double t : times) EXPECT_EQ(std::fmod(t, 1.0), 0.0) << t;
    EXPECT_LE(LargestCheckedError(v, 0), 0.05 + 1e-9);
    EXPECT_LT(LargestError(v, 0), 0.05 * 3);
}

TEST_F(KeyFit, FeaturePastTheEndStopsTheFit) {
    std::vector<double> v(10);
    for (int i = 0; i < 10; ++i) v[i] = i * 0.5;
    CDoubleArray features = List({0.0, 5.0, 9.5, 9.0});
    BezierCurve::curveKeyFit(v.data(), 10, 0, features, curve, 0.1);
    EXPECT_EQ(KeyTimes(), std::vector<double>({0.0, 5.0}));
}

TEST_F(KeyFit, OneFeatureLeavesNoKeysAndTheOldKeysAreGone) {
    curve.AddKey(CTime(3.0), CValue(7.0));
    curve.AddKey(CTime(8.0), CValue(1.0));
    std::vector<double> v(10, 1.0);
    CDoubleArray features = List({0.0});
    EXPECT_TRUE(BezierCurve::curveKeyFit(v.data(), 10, 0, features, curve, 0.1));
    EXPECT_EQ(curve.GetNumKeys(), 0);
}

TEST_F(KeyFit, FeaturesThatGoNowhereFitNothingAndDoNotCrash) {
    std::vector<double> v(10, 1.0);
    CDoubleArray empty;
    EXPECT_TRUE(BezierCurve::curveKeyFit(v.data(), 10, 0, empty, curve, 0.1));
    EXPECT_EQ(curve.GetNumKeys(), 0);
    CDoubleArray backwards = List({-40.0, -3.0, 6.0, 6.0, 2.0, 9.0});
    EXPECT_TRUE(BezierCurve::curveKeyFit(v.data(), 10, 0, backwards, curve, 0.1));
    EXPECT_EQ(KeyTimes(), std::vector<double>({2.0, 9.0}));
    EXPECT_TRUE(BezierCurve::curveKeyFit(nullptr, 10, 0, backwards, curve, 0.1));
    EXPECT_EQ(curve.GetNumKeys(), 2);
}

// The host draws each segment as the Bezier curve of its keys and tangents: BezierCurve of the
// same four points gives the same values.
TEST_F(KeyFit, HostCurveBetweenKeysIsTheCubicOfTheFit) {
    std::vector<double> v(50);
    for (int i = 0; i < 50; ++i) v[i] = 5.0 * std::cos(i * 0.17) + (i > 25 ? 0.4 * (i - 25) : 0.0);
    CDoubleArray features = Features(v, 0.2);
    BezierCurve::curveKeyFit(v.data(), 50, 10, features, curve, 0.02);
    ASSERT_GE(curve.GetNumKeys(), 3);
    for (long k = 0; k + 1 < curve.GetNumKeys(); ++k) {
        const FCurveKey a = curve.GetKeyAtIndex(k), b = curve.GetKeyAtIndex(k + 1);
        const double ta = a.GetTime(), tb = b.GetTime();
        const double va = a.GetValue(), vb = b.GetValue();
        const BezierCurve c(CVector3(ta, va, 0), CVector3(ta + a.GetRightTanX(), va + a.GetRightTanY(), 0),
                            CVector3(tb + b.GetLeftTanX(), vb + b.GetLeftTanY(), 0), CVector3(tb, vb, 0));
        for (double u = 0.05; u < 1.0; u += 0.1) {
            const CVector3 q = c.evaluate(u);
            EXPECT_NEAR(static_cast<double>(curve.Eval(CTime(q.x))), q.y, 1e-9) << k << " " << u;
        }
    }
}

// --- Real data ----------------------------------------------------------------------------------

// 300 frames of a walking knee (LeftLeg X rotation, degrees) keyed at its features with a
// tolerance of a quarter of a degree. The fit measures each stretch at four places only, so the
// tolerance holds there exactly; between them a cubic may stray further (about twice the
// tolerance here, at frames the measure does not see).
TEST_F(KeyFit, WalkingKneeStaysWithinToleranceWhereTheFitMeasures) {
    const std::vector<double> all =
        ReadBvhChannel(std::string(TROVO_TEST_DATA) + "/bvh/cmu_mb2010/07_05.bvh", "LeftLeg", "Xrotation");
    ASSERT_EQ(all.size(), 518u);
    std::vector<double> v(all.begin() + 100, all.begin() + 400);
    const double range = *std::max_element(v.begin(), v.end()) - *std::min_element(v.begin(), v.end());
    ASSERT_GT(range, 20.0);  // a knee that bends
    const double tolerance = 0.25;
    CDoubleArray features = Features(v, tolerance);
    BezierCurve::curveKeyFit(v.data(), 300, 100, features, curve, tolerance);
    EXPECT_LE(LargestCheckedError(v, 100), tolerance + 1e-9);
    EXPECT_LE(LargestError(v, 100), 3.0 * tolerance);
    // Far fewer keys than frames.
    EXPECT_LT(curve.GetNumKeys(), 150);
    EXPECT_GE(curve.GetNumKeys(), features.GetCount());
}

// Steps, ramps and plateaus with sharp corners, and a smooth bump between them.
TEST_F(KeyFit, SignalWithCornersStaysWithinToleranceAtEveryFrame) {
    std::vector<double> v(200);
    for (int i = 0; i < 200; ++i) {
        const double saw = static_cast<double>(i % 50) * 0.8;                // ramps that drop back
        const double flat = i >= 120 && i < 150 ? 15.0 : 0.0;                // a plateau
        const double bump = 6.0 * std::exp(-std::pow((i - 90) / 8.0, 2.0));  // a smooth hill
        v[i] = saw + flat + bump;
    }
    const double tolerance = 0.1;
    CDoubleArray features = Features(v, tolerance);
    BezierCurve::curveKeyFit(v.data(), 200, 0, features, curve, tolerance);
    EXPECT_LE(LargestCheckedError(v, 0), tolerance + 1e-9);
    EXPECT_LE(LargestError(v, 0), tolerance);
    // The drops are keyed on both sides.
    for (double t : {49.0, 50.0, 99.0, 100.0, 119.0, 120.0, 149.0, 150.0})
        EXPECT_TRUE(curve.KeyExists(CTime(t), 0.001)) << t;
}

}  // namespace
