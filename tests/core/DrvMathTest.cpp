// The plug-in's own value types: Hamilton products, the row-form matrix, Euler angles with the
// gimbal rule, orders, the shortest-arc rotation with its fall-back axes, the trace method and
// interpolation.
//
// Error budgets: 1e-12 for exact algebra on unit quaternions (a few roundings of values near
// 1); 1e-9 where a trigonometric function or a square root sits in between; 1e-8 where Euler
// angles wrapped by the full turn 6.28318531 (2.8e-9 short of 2 pi) rebuild a rotation.
#include <gtest/gtest.h>

#include <cmath>

#include "core/Drv.h"

using ZUK::DrvQuaternion;
using ZUK::DrvTransform;
using ZUK::DrvVector;

namespace {

constexpr double kPi = 3.14159265358979323846;

// Independent references, written out here rather than taken from the code under test.
struct Q {
    double x, y, z, w;
};

Q Hamilton(const Q& a, const Q& b) {
    return {a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
            a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

Q AxisAngle(double ax, double ay, double az, double angle) {
    const double s = std::sin(angle / 2.0);
    return {ax * s, ay * s, az * s, std::cos(angle / 2.0)};
}

Q Rx(double a) { return AxisAngle(1, 0, 0, a); }
Q Ry(double a) { return AxisAngle(0, 1, 0, a); }
Q Rz(double a) { return AxisAngle(0, 0, 1, a); }

// Column-convention rotation of v by unit q: q v q*.
DrvVector Rotate(const Q& q, const DrvVector& v) {
    const Q p{v.x, v.y, v.z, 0.0};
    const Q c{-q.x, -q.y, -q.z, q.w};
    const Q r = Hamilton(Hamilton(q, p), c);
    return DrvVector(r.x, r.y, r.z);
}

void ExpectQuat(const Q& expected, const DrvQuaternion& q, double tol) {
    EXPECT_NEAR(expected.x, q.x, tol);
    EXPECT_NEAR(expected.y, q.y, tol);
    EXPECT_NEAR(expected.z, q.z, tol);
    EXPECT_NEAR(expected.w, q.w, tol);
}

// Same rotation: q and -q are equal as rotations.
void ExpectSameRotation(const Q& expected, const DrvQuaternion& q, double tol) {
    const double d = expected.x * q.x + expected.y * q.y + expected.z * q.z + expected.w * q.w;
    const double s = d < 0 ? -1.0 : 1.0;
    ExpectQuat(Q{s * expected.x, s * expected.y, s * expected.z, s * expected.w}, q, tol);
}

void ExpectVec(const DrvVector& expected, const DrvVector& v, double tol) {
    EXPECT_NEAR(expected.x, v.x, tol);
    EXPECT_NEAR(expected.y, v.y, tol);
    EXPECT_NEAR(expected.z, v.z, tol);
}

DrvQuaternion D(const Q& q) { return DrvQuaternion(q.x, q.y, q.z, q.w); }

}  // namespace

// --- DrvVector ----------------------------------------------------------------------------------

TEST(DrvVector, UnitAxesConstants) {
    ExpectVec(DrvVector(1, 0, 0), ZUK::NORMALX, 0.0);
    ExpectVec(DrvVector(0, 1, 0), ZUK::NORMALY, 0.0);
    ExpectVec(DrvVector(0, 0, 1), ZUK::NORMALZ, 0.0);
}

TEST(DrvVector, ArithmeticWritesIntoTheCalledObjectEvenWhenAliased) {
    DrvVector a(1, 2, 3);
    const DrvVector b(4, -5, 6);
    a.Add(a, b);
    ExpectVec(DrvVector(5, -3, 9), a, 0.0);
    a.Subtract(a, b);
    ExpectVec(DrvVector(1, 2, 3), a, 0.0);
    a.Multiply(a, 2.0);
    ExpectVec(DrvVector(2, 4, 6), a, 0.0);
    a.Set(1, 2, 3);
    a.CrossProduct(a, b);  // (1,2,3) x (4,-5,6)
    ExpectVec(DrvVector(2 * 6 - 3 * -5, 3 * 4 - 1 * 6, 1 * -5 - 2 * 4), a, 0.0);
    EXPECT_DOUBLE_EQ(1 * 4 + 2 * -5 + 3 * 6, DrvVector(1, 2, 3).DotProduct(b));
    EXPECT_DOUBLE_EQ(std::sqrt(14.0), DrvVector(1, 2, 3).Magnitude());
}

TEST(DrvVector, NormalizeScalesToUnitLength) {
    DrvVector v(3, 0, 4);
    v.Normalize();
    ExpectVec(DrvVector(0.6, 0, 0.8), v, 1e-15);
}

TEST(DrvVector, NormalizeOfZeroIsNotFinite) {
    DrvVector v(0, 0, 0);
    v.Normalize();
    EXPECT_FALSE(std::isfinite(v.x));
}

TEST(DrvVector, MultiplyQuaternionRotatesLikeTheSandwichProduct) {
    const Q q = Hamilton(Rz(0.7), Hamilton(Ry(-1.1), Rx(2.3)));
    const DrvVector v(0.3, -2.0, 5.5);
    DrvVector r;
    r.MultiplyQuaternion(v, D(q));
    ExpectVec(Rotate(q, v), r, 1e-12);
    // In place.
    DrvVector w = v;
    w.MultiplyQuaternion(w, D(q));
    ExpectVec(r, w, 0.0);
}

TEST(DrvVector, MultiplyQuaternionMatchesTheRowMatrix) {
    // A row vector times the row-form matrix is the same rotation as the column form.
    const DrvQuaternion q = D(Hamilton(Rx(0.4), Ry(1.9)));
    _DrvMatrix m;
    DrvMatrix_FromQuaternion(m, q);
    const DrvVector v(1.5, 2.5, -0.5);
    const DrvVector row(v.x * m.m[0][0] + v.y * m.m[1][0] + v.z * m.m[2][0],
                        v.x * m.m[0][1] + v.y * m.m[1][1] + v.z * m.m[2][1],
                        v.x * m.m[0][2] + v.y * m.m[1][2] + v.z * m.m[2][2]);
    DrvVector r;
    r.MultiplyQuaternion(v, q);
    ExpectVec(row, r, 1e-12);
}

TEST(DrvVector, MultiplyTransformRotatesThenTranslates) {
    DrvTransform t;
    t.rotation = D(Rz(kPi / 2));
    t.translation.Set(10, 20, 30);
    DrvVector r;
    r.MultiplyTransform(DrvVector(1, 0, 0), t);
    ExpectVec(DrvVector(10, 21, 30), r, 1e-12);
}

TEST(DrvVector, GetAngleBetweenHostVectors) {
    using ORV::MATH::CVector3;
    EXPECT_NEAR(kPi / 2, DrvVector::GetAngle(CVector3(2, 0, 0), CVector3(0, 0, 3)), 1e-15);
    EXPECT_NEAR(kPi / 4, DrvVector::GetAngle(CVector3(1, 0, 0), CVector3(1, 1, 0)), 1e-15);
    EXPECT_EQ(0.0, DrvVector::GetAngle(CVector3(1, 2, 3), CVector3(2, 4, 6)));
    EXPECT_NEAR(kPi, DrvVector::GetAngle(CVector3(1, 2, 3), CVector3(-1, -2, -3)), 1e-7);
}

TEST(DrvVector, GetAngleIsZeroBelowTheSmallLength) {
    using ORV::MATH::CVector3;
    EXPECT_EQ(0.0, DrvVector::GetAngle(CVector3(9e-6, 0, 0), CVector3(0, 1, 0)));
    EXPECT_EQ(0.0, DrvVector::GetAngle(CVector3(0, 1, 0), CVector3(0, 0, 0)));
    EXPECT_NEAR(kPi / 2, DrvVector::GetAngle(CVector3(2e-5, 0, 0), CVector3(0, 1, 0)), 1e-12);
}

// --- _DrvMatrix ---------------------------------------------------------------------------------

TEST(DrvMatrix, FromQuaternionIsTheRowForm) {
    const Q n = Hamilton(Rz(0.3), Hamilton(Ry(0.2), Rx(-0.9)));
    const double x = n.x, y = n.y, z = n.z, w = n.w;
    _DrvMatrix m;
    DrvMatrix_FromQuaternion(m, D(n));
    EXPECT_NEAR(2 * (x * y + w * z), m.m[0][1], 1e-15);
    EXPECT_NEAR(2 * (x * y - w * z), m.m[1][0], 1e-15);
    EXPECT_NEAR(2 * (x * z - w * y), m.m[0][2], 1e-15);
    EXPECT_NEAR(2 * (x * z + w * y), m.m[2][0], 1e-15);
    EXPECT_NEAR(2 * (y * z + w * x), m.m[1][2], 1e-15);
    EXPECT_NEAR(2 * (y * z - w * x), m.m[2][1], 1e-15);
    EXPECT_NEAR(1 - 2 * (y * y + z * z), m.m[0][0], 1e-15);
    EXPECT_NEAR(1 - 2 * (x * x + z * z), m.m[1][1], 1e-15);
    EXPECT_NEAR(1 - 2 * (x * x + y * y), m.m[2][2], 1e-15);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(0.0, m.m[i][3]);
        EXPECT_EQ(0.0, m.m[3][i]);
    }
    EXPECT_EQ(1.0, m.m[3][3]);
}

TEST(DrvMatrix, FromQuaternionAgreesWithTheHostRotationMatrix) {
    const Q n = Hamilton(Rz(-2.1), Hamilton(Ry(0.6), Rx(1.2)));
    _DrvMatrix m;
    DrvMatrix_FromQuaternion(m, D(n));
    const ORV::MATH::CRotation r(ORV::MATH::CQuaternion(n.w, n.x, n.y, n.z));
    const ORV::MATH::CMatrix3 h = r.GetMatrix();
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_NEAR(h.Get(i, j), m.m[i][j], 1e-12) << i << "," << j;
}

// --- DrvQuaternion ------------------------------------------------------------------------------

TEST(DrvQuaternion, DefaultIsIdentity) { ExpectQuat(Q{0, 0, 0, 1}, DrvQuaternion(), 0.0); }

TEST(DrvQuaternion, MultiplyIsTheHamiltonProductAndAliasSafe) {
    const Q a = AxisAngle(0.6, 0.0, 0.8, 1.3);
    const Q b = AxisAngle(0.0, 1.0, 0.0, -0.4);
    DrvQuaternion q = D(a);
    q.Multiply(q, D(b));
    ExpectQuat(Hamilton(a, b), q, 1e-15);
    DrvQuaternion r = D(b);
    r.Multiply(D(a), r);
    ExpectQuat(Hamilton(a, b), r, 1e-15);
}

TEST(DrvQuaternion, SetEulerAnglesIsZTimesYTimesX) {
    DrvQuaternion q;
    q.SetEulerAngles(0.3, -1.2, 2.5);
    ExpectQuat(Hamilton(Rz(2.5), Hamilton(Ry(-1.2), Rx(0.3))), q, 1e-15);
}

TEST(DrvQuaternion, SetEulerAnglesMatchesTheHostXYZOrder) {
    DrvQuaternion q;
    q.SetEulerAngles(0.3, -1.2, 2.5);
    const ORV::MATH::CRotation r(0.3, -1.2, 2.5, ORV::MATH::ovXYZ);
    const ORV::MATH::CQuaternion h = r.GetQuaternion();
    ExpectSameRotation(Q{h.x, h.y, h.z, h.w}, q, 1e-12);
}

TEST(DrvQuaternion, GetEulerAnglesRebuildsTheRotationInZeroToTwoPi) {
    const double cases[][3] = {{0.3, 0.5, 0.7}, {-0.3, -0.5, -0.7}, {2.9, 1.2, -3.0}, {0.0, 0.0, 0.0}};
    for (const auto& c : cases) {
        DrvQuaternion q;
        q.SetEulerAngles(c[0], c[1], c[2]);
        DrvVector a;
        q.GetEulerAngles(a);
        for (double v : {a.x, a.y, a.z}) {
            EXPECT_GE(v, 0.0);
            EXPECT_LT(v, 6.28318531);
        }
        DrvQuaternion back;
        back.SetEulerAngles(a.x, a.y, a.z);
        ExpectSameRotation(Q{q.x, q.y, q.z, q.w}, back, 1e-8);
    }
}

TEST(DrvQuaternion, GetEulerAnglesAtPlus90AboutYGivesHalfPiAndNoZ) {
    DrvQuaternion q;
    q.SetEulerAngles(0.0, kPi / 2, 0.0);
    DrvVector a;
    q.GetEulerAngles(a);
    EXPECT_NEAR(kPi / 2, a.y, 1e-9);
    EXPECT_EQ(0.0, a.z);
    EXPECT_NEAR(0.0, std::fmod(a.x + 1e-9, 6.28318531), 1e-8);

    // With some X turn, all of it stays in x: atan2(m10, m11).
    q.SetEulerAngles(0.4, kPi / 2, 0.0);
    q.GetEulerAngles(a);
    _DrvMatrix m;
    DrvMatrix_FromQuaternion(m, q);
    EXPECT_EQ(0.0, a.z);
    EXPECT_NEAR(std::atan2(m.m[1][0], m.m[1][1]), a.x, 1e-12);
    EXPECT_NEAR(0.4, a.x, 1e-9);
}

TEST(DrvQuaternion, GetEulerAnglesAtMinus90AboutYNegatesTheXFormula) {
    DrvQuaternion q;
    q.SetEulerAngles(0.4, -kPi / 2, 0.0);
    DrvVector a;
    q.GetEulerAngles(a);
    _DrvMatrix m;
    DrvMatrix_FromQuaternion(m, q);
    EXPECT_NEAR(4.71238898, a.y, 1e-8);
    EXPECT_EQ(0.0, a.z);
    // x is the negated atan2(m10, m11); here that negation is what gives back +0.4.
    EXPECT_NEAR(-std::atan2(m.m[1][0], m.m[1][1]), a.x, 1e-12);
    EXPECT_NEAR(0.4, a.x, 1e-9);
}

TEST(DrvQuaternion, SetOrderMultipliesFirstTimesSecondTimesThird) {
    DrvQuaternion q;
    q.SetOrder("zyx", 0.3, 0.5, 0.7);
    ExpectQuat(Hamilton(Rz(0.7), Hamilton(Ry(0.5), Rx(0.3))), q, 1e-15);
    q.SetOrder("yxz", 0.3, 0.5, 0.7);
    ExpectQuat(Hamilton(Ry(0.5), Hamilton(Rx(0.3), Rz(0.7))), q, 1e-15);
    q.SetOrder("xyz", 0.3, 0.5, 0.7);
    ExpectQuat(Hamilton(Rx(0.3), Hamilton(Ry(0.5), Rz(0.7))), q, 1e-15);
}

TEST(DrvQuaternion, SetOrderWithUnknownLettersAppliesZThreeTimes) {
    DrvQuaternion qqq;
    qqq.SetOrder("qqq", 0.3, 0.5, 0.7);
    DrvQuaternion zzz;
    zzz.SetOrder("zzz", 0.3, 0.5, 0.7);
    ExpectQuat(Q{zzz.x, zzz.y, zzz.z, zzz.w}, qqq, 0.0);
    ExpectSameRotation(Rz(3 * 0.7), qqq, 1e-12);
}

TEST(DrvQuaternion, SetZXYIsOrderZxy) {
    DrvQuaternion q;
    q.SetZXY(0.3, 0.5, 0.7);
    ExpectQuat(Hamilton(Rz(0.7), Hamilton(Rx(0.3), Ry(0.5))), q, 1e-15);
}

TEST(DrvQuaternion, FromRotationDoesNotNormaliseTheAxis) {
    DrvQuaternion q;
    q.FromRotation(DrvVector(2, 0, 0), 1.0);
    ExpectQuat(Q{2 * std::sin(0.5), 0, 0, std::cos(0.5)}, q, 1e-15);
}

TEST(DrvQuaternion, FromTwoVectorsTurnsAOntoB) {
    const DrvVector a(1, 2, 0.5);
    const DrvVector b(-3, 0.2, 1);
    DrvQuaternion q;
    q.FromTwoVectors(a, b);
    DrvVector r;
    r.MultiplyQuaternion(a, q);
    DrvVector nb = b;
    nb.Multiply(nb, a.Magnitude() / b.Magnitude());
    ExpectVec(nb, r, 1e-12);
    EXPECT_NEAR(1.0, std::sqrt(q.x * q.x + q.y * q.y + q.z * q.z + q.w * q.w), 1e-12);
}

TEST(DrvQuaternion, FromTwoVectorsOfATinyVectorIsIdentity) {
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(9e-6, 0, 0), DrvVector(0, 1, 0));
    ExpectQuat(Q{0, 0, 0, 1}, q, 0.0);
    q.FromTwoVectors(DrvVector(0, 1, 0), DrvVector(0, 0, 0));
    ExpectQuat(Q{0, 0, 0, 1}, q, 0.0);
}

TEST(DrvQuaternion, FromTwoVectorsOfNearlyParallelVectorsIsIdentity) {
    // Angle about 0.004 rad: cos above 0.99999.
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(1, 0, 0), DrvVector(1, 0.004, 0));
    ExpectQuat(Q{0, 0, 0, 1}, q, 0.0);
}

TEST(DrvQuaternion, FromTwoVectorsOfOppositeXTurnsAroundY) {
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(1, 0, 0), DrvVector(-1, 0, 0));
    ExpectQuat(Q{0, std::sin(3.1415927 / 2), 0, std::cos(3.1415927 / 2)}, q, 1e-15);
}

TEST(DrvQuaternion, FromTwoVectorsOfOppositeYTurnsAroundX) {
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(0, 1, 0), DrvVector(0, -1, 0));
    ExpectQuat(Q{std::sin(3.1415927 / 2), 0, 0, std::cos(3.1415927 / 2)}, q, 1e-15);
}

TEST(DrvQuaternion, FromTwoVectorsOfOppositeZTurnsAroundY) {
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(0, 0, 2), DrvVector(0, 0, -2));
    ExpectQuat(Q{0, std::sin(3.1415927 / 2), 0, std::cos(3.1415927 / 2)}, q, 1e-15);
}

TEST(DrvQuaternion, FromTwoVectorsOfOppositeDiagonalsGivesTheNearlyNullQuaternion) {
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(1, 1, 1), DrvVector(-1, -1, -1));
    ExpectQuat(Q{0, 0, 0, std::cos(3.1415927 / 2)}, q, 0.0);
    EXPECT_LT(std::fabs(q.w), 1e-7);
}

TEST(DrvQuaternion, FromThreeVectorsReadsTheRowsOfARotationMatrix) {
    const Q cases[] = {Hamilton(Rz(0.3), Hamilton(Ry(0.2), Rx(-0.9))),      Rx(kPi), Ry(kPi), Rz(kPi),
                       AxisAngle(std::sqrt(0.5), std::sqrt(0.5), 0.0, kPi), Rz(2.5)};
    for (const Q& n : cases) {
        _DrvMatrix m;
        DrvMatrix_FromQuaternion(m, D(n));
        // Scaled rows: copies are normalised first.
        DrvQuaternion q;
        q.FromThreeVectors(DrvVector(2 * m.m[0][0], 2 * m.m[0][1], 2 * m.m[0][2]),
                           DrvVector(m.m[1][0], m.m[1][1], m.m[1][2]),
                           DrvVector(3 * m.m[2][0], 3 * m.m[2][1], 3 * m.m[2][2]));
        ExpectSameRotation(n, q, 1e-9);
    }
}

TEST(DrvQuaternion, FromThreeVectorsOfAHalfTurnAboutZTakesTheLastBranch) {
    DrvQuaternion q;
    q.FromThreeVectors(DrvVector(-1, 0, 0), DrvVector(0, -1, 0), DrvVector(0, 0, 1));
    ExpectQuat(Q{0, 0, 1, 0}, q, 0.0);
}

TEST(DrvQuaternion, InterpolateEndsAndMiddle) {
    const DrvQuaternion a = D(Rx(0.2));
    const DrvQuaternion b = D(Rx(1.6));
    DrvQuaternion q;
    q.Interpolate(a, b, 0.0, 0);
    ExpectQuat(Q{a.x, a.y, a.z, a.w}, q, 1e-15);
    q.Interpolate(a, b, 1.0, 0);
    ExpectQuat(Q{b.x, b.y, b.z, b.w}, q, 1e-12);
    q.Interpolate(a, b, 0.5, 0);
    ExpectQuat(Rx(0.9), q, 1e-12);
}

TEST(DrvQuaternion, InterpolateTakesTheShortArcByNegatingA) {
    const Q a = Rx(0.2);
    const DrvQuaternion na(-a.x, -a.y, -a.z, -a.w);
    DrvQuaternion q;
    q.Interpolate(na, D(Rx(1.6)), 0.5, 0);
    ExpectQuat(Rx(0.9), q, 1e-12);
}

TEST(DrvQuaternion, InterpolateOfCloseRotationsIsLinearAndNotNormalised) {
    // 1 - d below 0.05: plain weights 1 - t and t.
    const Q a = Rx(0.0);
    const Q b = Rx(0.5);
    DrvQuaternion q;
    q.Interpolate(D(a), D(b), 0.5, 0);
    ExpectQuat(Q{0.5 * a.x + 0.5 * b.x, 0.5 * a.y + 0.5 * b.y, 0.5 * a.z + 0.5 * b.z, 0.5 * a.w + 0.5 * b.w},
               q, 1e-15);
    EXPECT_LT(std::sqrt(q.x * q.x + q.w * q.w), 1.0 - 1e-3);
}

TEST(DrvQuaternion, InterpolateWithSpinAddsHalfTurns) {
    const DrvQuaternion a = D(Rx(0.0));
    const DrvQuaternion b = D(Rx(1.0));
    // o = 0.5 (half of the 1 radian turn); p = (o + 3.1415927) * t.
    const double o = 0.5;
    const double p = (o + 3.1415927) * 0.5;
    DrvQuaternion q;
    q.Interpolate(a, b, 0.5, 1);
    const double wa = std::sin(o - p) / std::sin(o);
    const double wb = std::sin(p) / std::sin(o);
    ExpectQuat(Q{wa * a.x + wb * b.x, 0, 0, wa * a.w + wb * b.w}, q, 1e-12);
}

// --- DrvTransform -------------------------------------------------------------------------------

TEST(DrvTransform, DefaultAndSetIdentity) {
    DrvTransform t;
    ExpectVec(DrvVector(0, 0, 0), t.translation, 0.0);
    ExpectQuat(Q{0, 0, 0, 1}, t.rotation, 0.0);
    t.translation.Set(1, 2, 3);
    t.rotation = D(Rx(1.0));
    t.SetIdentity();
    ExpectVec(DrvVector(0, 0, 0), t.translation, 0.0);
    ExpectQuat(Q{0, 0, 0, 1}, t.rotation, 0.0);
}

TEST(DrvTransform, MultiplyAppliesBFirst) {
    DrvTransform a;
    a.rotation = D(Rz(kPi / 2));
    a.translation.Set(0, 0, 5);
    DrvTransform b;
    b.rotation = D(Ry(0.7));
    b.translation.Set(1, 0, 0);
    DrvTransform ab;
    ab.Multiply(a, b);
    const DrvVector p(0.5, -1.5, 2.0);
    DrvVector viaB;
    viaB.MultiplyTransform(p, b);
    DrvVector expected;
    expected.MultiplyTransform(viaB, a);
    DrvVector actual;
    actual.MultiplyTransform(p, ab);
    ExpectVec(expected, actual, 1e-12);
    // Aliased on either side.
    DrvTransform c = b;
    c.Multiply(a, c);
    ExpectVec(ab.translation, c.translation, 0.0);
    ExpectQuat(Q{ab.rotation.x, ab.rotation.y, ab.rotation.z, ab.rotation.w}, c.rotation, 0.0);
    DrvTransform d = a;
    d.Multiply(d, b);
    ExpectVec(ab.translation, d.translation, 0.0);
}

TEST(DrvTransform, InvertUndoesTheTransform) {
    DrvTransform t;
    t.rotation = D(Hamilton(Rz(0.4), Rx(-1.3)));
    t.translation.Set(3, -2, 7);
    DrvTransform inv = t;
    inv.Invert();
    ExpectQuat(Q{-t.rotation.x, -t.rotation.y, -t.rotation.z, t.rotation.w}, inv.rotation, 0.0);
    DrvTransform id;
    id.Multiply(inv, t);
    ExpectVec(DrvVector(0, 0, 0), id.translation, 1e-12);
    ExpectSameRotation(Q{0, 0, 0, 1}, id.rotation, 1e-12);
}

TEST(DrvTransform, ConvertsFromAndToTheHostTransformDroppingScaling) {
    ORV::MATH::CTransformation h;
    h.SetScalingFromValues(2, 3, 4);
    h.SetRotationFromXYZAnglesValues(0.1, 0.2, 0.3);
    h.SetTranslationFromValues(5, 6, 7);
    const DrvTransform t(h);
    const ORV::MATH::CQuaternion hq = h.GetRotationQuaternion();
    ExpectQuat(Q{hq.x, hq.y, hq.z, hq.w}, t.rotation, 0.0);
    ExpectVec(DrvVector(5, 6, 7), t.translation, 0.0);

    const ORV::MATH::CTransformation back = t.GetCTransformation();
    EXPECT_TRUE(back.GetScaling().Equals(ORV::MATH::CVector3(1, 1, 1), 0.0));
    EXPECT_TRUE(back.GetTranslation().Equals(ORV::MATH::CVector3(5, 6, 7), 0.0));
    EXPECT_TRUE(back.GetRotation().Equals(h.GetRotation(), 1e-12));

    DrvTransform s;
    s.Set(h);
    ExpectVec(t.translation, s.translation, 0.0);
}

TEST(DrvTransform, MultiplyIsTheHostMulWithTheOperandsSwapped) {
    // Column a after b equals the host's Mul(b, a): b applied first.
    ORV::MATH::CTransformation ha;
    ha.SetRotationFromXYZAnglesValues(0.3, -0.2, 1.1);
    ha.SetTranslationFromValues(1, 2, 3);
    ORV::MATH::CTransformation hb;
    hb.SetRotationFromXYZAnglesValues(-1.0, 0.5, 0.25);
    hb.SetTranslationFromValues(-4, 0.5, 2);
    DrvTransform ab;
    ab.Multiply(DrvTransform(ha), DrvTransform(hb));
    ORV::MATH::CTransformation hba;
    hba.Mul(hb, ha);
    EXPECT_TRUE(ab.GetCTransformation().Equals(hba, 1e-12));
}

// --- The constants as the math has always held them --------------------------------------------
//
// 0.00001 and 0.99999 are single-precision values held as doubles (9.999999747378752e-06 and
// 0.9999899864196777). Each test below puts a value between the single and the double reading,
// so it fails if the constant is written to full precision.

TEST(DrvQuaternion, FromTwoVectorsSmallLengthIsTheSinglePrecisionConstant) {
    // 9.9999999e-6 is above 9.999999747e-6 and below 1e-5: long enough to count.
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(9.9999999e-6, 0, 0), DrvVector(0, 1, 0));
    ExpectQuat(Rz(kPi / 2), q, 1e-12);
    // Just below the constant it is too short.
    q.FromTwoVectors(DrvVector(9.9999997e-6, 0, 0), DrvVector(0, 1, 0));
    ExpectQuat(Q{0, 0, 0, 1}, q, 0.0);
}

TEST(DrvQuaternion, FromTwoVectorsParallelLimitIsTheSinglePrecisionConstant) {
    // A dot product of 0.999989993 lies between 0.99998998642 and 0.99999: identity.
    const double above = 0.999989993;
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(1, 0, 0), DrvVector(above, std::sqrt(1 - above * above), 0));
    ExpectQuat(Q{0, 0, 0, 1}, q, 0.0);
    // 0.99998998 lies below it: the shortest turn about the cross product (Z).
    const double below = 0.99998998;
    q.FromTwoVectors(DrvVector(1, 0, 0), DrvVector(below, std::sqrt(1 - below * below), 0));
    ExpectQuat(Rz(std::acos(below)), q, 1e-9);
}

TEST(DrvQuaternion, FromTwoVectorsOppositeLimitIsTheSinglePrecisionConstant) {
    // A dot product of -0.999989993 counts as opposite: the half turn 3.1415927 about Y.
    const double beyond = -0.999989993;
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(1, 0, 0), DrvVector(beyond, std::sqrt(1 - beyond * beyond), 0));
    ExpectQuat(Q{0, std::sin(3.1415927 / 2), 0, std::cos(3.1415927 / 2)}, q, 1e-15);
    // -0.99998998 does not: the cross product axis (Z) and acos of the dot product.
    const double within = -0.99998998;
    q.FromTwoVectors(DrvVector(1, 0, 0), DrvVector(within, std::sqrt(1 - within * within), 0));
    ExpectQuat(Rz(std::acos(within)), q, 1e-9);
}

TEST(DrvQuaternion, FromTwoVectorsZeroComponentsUseTheSinglePrecisionConstant) {
    // Components of 9.9999999e-6 are not zero: no fall-back axis, the nearly null quaternion.
    const DrvVector a(1, 9.9999999e-6, 9.9999999e-6);
    DrvQuaternion q;
    q.FromTwoVectors(a, DrvVector(-a.x, -a.y, -a.z));
    ExpectQuat(Q{0, 0, 0, std::cos(3.1415927 / 2)}, q, 0.0);
    // Components of 9.99e-6 are zero: a lies along X and turns about Y.
    const DrvVector b(1, 9.99e-6, 9.99e-6);
    q.FromTwoVectors(b, DrvVector(-b.x, -b.y, -b.z));
    ExpectQuat(Q{0, std::sin(3.1415927 / 2), 0, std::cos(3.1415927 / 2)}, q, 1e-15);
}

TEST(DrvQuaternion, FromTwoVectorsOfOppositeVectorsWithOneZeroComponentGivesTheNearlyNullQuaternion) {
    DrvQuaternion q;
    q.FromTwoVectors(DrvVector(1, 1, 0), DrvVector(-1, -1, 0));
    ExpectQuat(Q{0, 0, 0, std::cos(3.1415927 / 2)}, q, 0.0);
    q.FromTwoVectors(DrvVector(0, 2, 3), DrvVector(0, -2, -3));
    ExpectQuat(Q{0, 0, 0, std::cos(3.1415927 / 2)}, q, 0.0);
}

TEST(DrvVector, GetAngleBelowMinusOneGivesThePiConstant) {
    using ORV::MATH::CVector3;
    // Opposite vectors whose cosine rounds below -1 in this computation; searched for here so
    // that the test does not hang on one machine's rounding.
    bool found = false;
    for (int i = 1; i < 60 && !found; ++i) {
        const CVector3 a(0.1, 0.07 * i, 0.3);
        const double m = std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z);
        const double c = -(a.x * a.x + a.y * a.y + a.z * a.z) / (m * m);
        if (c >= -1.0) continue;
        found = true;
        EXPECT_EQ(3.14159265358979, DrvVector::GetAngle(a, CVector3(-a.x, -a.y, -a.z)));
    }
    EXPECT_TRUE(found);
}

TEST(DrvQuaternion, GetEulerAnglesWrapsByTheFullTurnAsWritten) {
    // Negative angles take 6.28318531, 2.8e-9 more than 2 pi.
    DrvQuaternion q;
    q.SetEulerAngles(-0.3, -0.2, -0.5);
    DrvVector a;
    q.GetEulerAngles(a);
    EXPECT_NEAR(-0.3 + 6.28318531, a.x, 1e-13);
    EXPECT_NEAR(-0.2 + 6.28318531, a.y, 1e-13);
    EXPECT_NEAR(-0.5 + 6.28318531, a.z, 1e-13);
}

TEST(DrvQuaternion, GetEulerAnglesGimbalRuleStartsBelowACosineOfAThousandth) {
    DrvQuaternion q;
    DrvVector a;
    // cos y = 0.0012: the ordinary formulas, z survives.
    q.SetEulerAngles(0.4, std::acos(0.0012), 0.3);
    q.GetEulerAngles(a);
    EXPECT_NEAR(0.3, a.z, 1e-9);
    EXPECT_NEAR(0.4, a.x, 1e-9);
    // cos y = 0.0008: gimbal lock, z is 0 and x is atan2(m10, m11).
    q.SetEulerAngles(0.4, std::acos(0.0008), 0.3);
    q.GetEulerAngles(a);
    _DrvMatrix m;
    DrvMatrix_FromQuaternion(m, q);
    EXPECT_EQ(0.0, a.z);
    EXPECT_NEAR(std::atan2(m.m[1][0], m.m[1][1]), a.x, 1e-12);
}

TEST(DrvQuaternion, InterpolateBlendsLinearlyOnlyBelowAFiveHundredthOfDistance) {
    // a = identity, b = a turn about X with 1 - d of 0.048, then of 0.052.
    const Q a = Rx(0.0);
    DrvQuaternion q;
    const Q near = Rx(2 * std::acos(1 - 0.048));
    q.Interpolate(D(a), D(near), 0.5, 0);
    ExpectQuat(Q{0.5 * near.x, 0, 0, 0.5 * a.w + 0.5 * near.w}, q, 1e-15);
    EXPECT_LT(std::sqrt(q.x * q.x + q.w * q.w), 0.99);

    const double angle = 2 * std::acos(1 - 0.052);
    q.Interpolate(D(a), D(Rx(angle)), 0.5, 0);
    ExpectQuat(Rx(angle / 2), q, 1e-12);
}

TEST(DrvQuaternion, SetOrderOfAShortStringTakesZForTheMissingLetters) {
    DrvQuaternion q;
    q.SetOrder("x", 0.3, 0.5, 0.7);
    ExpectQuat(Hamilton(Rx(0.3), Hamilton(Rz(0.7), Rz(0.7))), q, 1e-15);
}
