// The scene-free math of ZUK::Util on host value types.
//
// Error budgets: 1e-12 for algebra on unit rotations; 1e-9 where angles come back through
// atan2 or acos; 1e-8 for Euler angles, whose wrap adds the full turn 6.28318531 and takes
// back 6.283185307179586 (2.8e-9 apart).
#include <gtest/gtest.h>

#include <cmath>

#include "core/Drv.h"
#include "core/UtilMath.h"

using ORV::MATH::CMatrix3;
using ORV::MATH::CQuaternion;
using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;
namespace Util = ZUK::Util;

namespace {

constexpr double kPi = 3.14159265358979323846;

// v as a row vector through the rotation's matrix.
CVector3 RowTimes(const CVector3& v, const CRotation& r) {
    const CMatrix3 m = r.GetMatrix();
    return CVector3(v.x * m.Get(0, 0) + v.y * m.Get(1, 0) + v.z * m.Get(2, 0),
                    v.x * m.Get(0, 1) + v.y * m.Get(1, 1) + v.z * m.Get(2, 1),
                    v.x * m.Get(0, 2) + v.y * m.Get(1, 2) + v.z * m.Get(2, 2));
}

// Unit quaternion about a unit axis, as the host stores it (W, X, Y, Z).
CQuaternion AxisAngle(const CVector3& axis, double angle) {
    const double s = std::sin(angle / 2.0);
    return CQuaternion(std::cos(angle / 2.0), axis.x * s, axis.y * s, axis.z * s);
}

// Hamilton product a * b on host quaternions (b applied first).
CQuaternion Hamilton(const CQuaternion& a, const CQuaternion& b) {
    return CQuaternion(
        a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z, a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y,
        a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x, a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w);
}

void ExpectVec(const CVector3& expected, const CVector3& v, double tol) {
    EXPECT_NEAR(expected.x, v.x, tol);
    EXPECT_NEAR(expected.y, v.y, tol);
    EXPECT_NEAR(expected.z, v.z, tol);
}

}  // namespace

// --- enforceContinuity ---------------------------------------------------------------------------

TEST(EnforceContinuity, SevenRadiansComesBackByOneTurn) {
    EXPECT_NEAR(7.0 - 6.2831853071796, Util::enforceContinuity(7.0, 0.0), 1e-12);
    EXPECT_NEAR(0.7168, Util::enforceContinuity(7.0, 0.0), 1e-4);
    EXPECT_NEAR(-7.0 + 6.2831853071796, Util::enforceContinuity(-7.0, 0.0), 1e-12);
}

TEST(EnforceContinuity, ThreeRadiansStays) { EXPECT_EQ(3.0, Util::enforceContinuity(3.0, 0.0)); }

TEST(EnforceContinuity, ExactlyHalfATurnStays) {
    EXPECT_EQ(3.14159265359, Util::enforceContinuity(3.14159265359, 0.0));
    EXPECT_EQ(-3.14159265359, Util::enforceContinuity(-3.14159265359, 0.0));
}

TEST(EnforceContinuity, MovesByManyTurnsTowardsTheReference) {
    const double r = Util::enforceContinuity(0.5 + 5 * 6.2831853071796, 10.0);
    EXPECT_LE(std::fabs(r - 10.0), 3.14159265359);
    EXPECT_NEAR(0.5 + 2 * 6.2831853071796, r, 1e-9);
}

TEST(EnforceContinuity, CorruptInputDoesNotHang) {
    EXPECT_TRUE(std::isnan(Util::enforceContinuity(NAN, 0.0)));
    EXPECT_TRUE(std::isinf(Util::enforceContinuity(INFINITY, 0.0)));
    const double r = Util::enforceContinuity(1e300, 0.0);
    EXPECT_LE(std::fabs(r), 3.14159265359);
}

// --- getEulerAngles -------------------------------------------------------------------------------

TEST(GetEulerAngles, IdentityGivesZeros) {
    CTransformation t;
    CVector3 a(9, 9, 9);
    Util::getEulerAngles(t, a);
    EXPECT_EQ(0.0, a.x);
    EXPECT_EQ(0.0, a.y);
    EXPECT_EQ(0.0, a.z);
}

TEST(GetEulerAngles, HundredNinetyDegreesAboutXGivesMinusHundredSeventy) {
    CTransformation t;
    t.SetRotationFromQuaternion(AxisAngle(CVector3(1, 0, 0), 190.0 * kPi / 180.0));
    CVector3 a;
    Util::getEulerAngles(t, a);
    EXPECT_NEAR(-170.0 * kPi / 180.0, a.x, 1e-8);
    EXPECT_NEAR(0.0, a.y, 1e-8);
    EXPECT_NEAR(0.0, a.z, 1e-8);
}

TEST(GetEulerAngles, AnglesLieInMinusPiToPiAndRebuildTheRotation) {
    const double cases[][3] = {{0.3, 0.5, 0.7}, {-2.9, 1.2, 3.0}, {3.0, -1.4, -3.1}};
    for (const auto& c : cases) {
        CTransformation t;
        t.SetRotationFromXYZAnglesValues(c[0], c[1], c[2]);
        CVector3 a;
        Util::getEulerAngles(t, a);
        for (double v : {a.x, a.y, a.z}) {
            EXPECT_GT(v, -kPi);
            EXPECT_LE(v, kPi);
        }
        CRotation back(a.x, a.y, a.z, ORV::MATH::ovXYZ);
        EXPECT_TRUE(back.Equals(t.GetRotation(), 1e-8));
    }
}

// --- invertTransform ------------------------------------------------------------------------------

TEST(InvertTransform, ProductWithTheInverseIsIdentity) {
    CTransformation t;
    t.SetRotationFromXYZAnglesValues(0.4, -0.8, 2.0);
    t.SetTranslationFromValues(3, -1, 8);
    const CTransformation inv = Util::invertTransform(t);
    CTransformation id;
    id.Mul(t, inv);
    EXPECT_TRUE(id.Equals(CTransformation(), 1e-12));
}

TEST(InvertTransform, DropsScaling) {
    CTransformation t;
    t.SetScalingFromValues(2, 2, 2);
    t.SetRotationFromXYZAnglesValues(0.4, -0.8, 2.0);
    t.SetTranslationFromValues(3, -1, 8);
    CTransformation unscaled = t;
    unscaled.SetScalingFromValues(1, 1, 1);
    const CTransformation inv = Util::invertTransform(t);
    EXPECT_TRUE(inv.GetScaling().Equals(CVector3(1, 1, 1), 0.0));
    CTransformation expected = unscaled;
    expected.InvertInPlace();
    EXPECT_TRUE(inv.Equals(expected, 1e-12));
}

// --- projectOntoPlane -----------------------------------------------------------------------------

TEST(ProjectOntoPlane, RemovesTheComponentAlongTheNormalisedNormal) {
    ExpectVec(CVector3(1, 0, 3), Util::projectOntoPlane(CVector3(1, 2, 3), CVector3(0, 5, 0)), 1e-15);
    const CVector3 p = Util::projectOntoPlane(CVector3(1, 2, 3), CVector3(1, 1, 0));
    ExpectVec(CVector3(-0.5, 0.5, 3), p, 1e-15);
}

// --- BuildRotationBetweenTwoAxisPairs -------------------------------------------------------------

TEST(BuildRotationBetweenTwoAxisPairs, TakesTheFirstAxisOntoItsPairAndTheSecondIntoItsPlane) {
    const CVector3 a1(1, 0, 0), a2(0, 1, 0);
    const CVector3 b1(0, 0, 1), b2(1, 1, 0);
    const CRotation r = Util::BuildRotationBetweenTwoAxisPairs(a1, a2, b1, b2);
    ExpectVec(b1, RowTimes(a1, r), 1e-12);
    // a2 turns onto the direction of b2 projected on the plane normal to b1.
    const CVector3 ra2 = RowTimes(a2, r);
    ExpectVec(CVector3(std::sqrt(0.5), std::sqrt(0.5), 0), ra2, 1e-12);
}

TEST(BuildRotationBetweenTwoAxisPairs, SecondAngleBelowThreeKeepsTheCrossProductAxis) {
    // First turn: X onto Y, a quarter turn about Z. The turned a2 lies 2.9 rad from p = X,
    // out of the plane normal to Y, so only the cross product axis lands it on p.
    const double angle = 2.9;
    const CVector3 a1(1, 0, 0), b1(0, 1, 0), b2(1, 0.5, 0);
    const CVector3 a2(std::sin(angle), -std::cos(angle), 0);  // turns into (cos, sin, 0)
    const CRotation r = Util::BuildRotationBetweenTwoAxisPairs(a1, a2, b1, b2);
    ExpectVec(CVector3(1, 0, 0), RowTimes(a2, r), 1e-9);
}

TEST(BuildRotationBetweenTwoAxisPairs, SecondAngleOfThreePointZeroFiveTurnsAboutB1) {
    // As above with 3.05 rad: the cross product (along Z) is well defined, yet the truncating
    // test replaces it by b1.
    const double angle = 3.05;
    const CVector3 a1(1, 0, 0), b1(0, 1, 0), b2(1, 0.5, 0);
    const CVector3 a2(std::sin(angle), -std::cos(angle), 0);
    const CRotation r = Util::BuildRotationBetweenTwoAxisPairs(a1, a2, b1, b2);

    // Expected: the quarter turn about Z first, then 3.05 about b1.
    const CQuaternion first = AxisAngle(CVector3(0, 0, 1), kPi / 2);
    const CQuaternion second = AxisAngle(b1, angle);
    const CRotation expected(Hamilton(second, first));
    EXPECT_TRUE(r.Equals(expected, 1e-9));

    // And not what the cross product axis gives.
    const CRotation viaCross(Hamilton(AxisAngle(CVector3(0, 0, -1), angle), first));
    EXPECT_FALSE(r.Equals(viaCross, 1e-3));
}

// --- The constants as written -------------------------------------------------------------------

TEST(EnforceContinuity, SubtractsTheTurnAsWritten) {
    // 6.2831853071796 is 1.4e-14 above 2 pi: the result is that subtraction to the last bit.
    EXPECT_EQ(7.0 - 6.2831853071796, Util::enforceContinuity(7.0, 0.0));
    EXPECT_EQ(-7.0 + 6.2831853071796, Util::enforceContinuity(-7.0, 0.0));
    // Just above the half turn 3.14159265359 it moves.
    EXPECT_EQ(3.1415926536 - 6.2831853071796, Util::enforceContinuity(3.1415926536, 0.0));
}

TEST(GetEulerAngles, NegativeAnglesCarryTheDifferenceOfTheTwoFullTurns) {
    // Wrapped up by 6.28318531 and back by 6.283185307179586: 2.8e-9 too large.
    CTransformation t;
    t.SetRotationFromXYZAnglesValues(-0.3, -0.2, -0.5);
    CVector3 a;
    Util::getEulerAngles(t, a);
    const double drift = 6.28318531 - 6.283185307179586;
    EXPECT_NEAR(-0.3 + drift, a.x, 1e-13);
    EXPECT_NEAR(-0.2 + drift, a.y, 1e-13);
    EXPECT_NEAR(-0.5 + drift, a.z, 1e-13);
    // Positive angles are not touched.
    t.SetRotationFromXYZAnglesValues(0.3, 0.2, 0.5);
    Util::getEulerAngles(t, a);
    EXPECT_NEAR(0.3, a.x, 1e-13);
    EXPECT_NEAR(0.2, a.y, 1e-13);
    EXPECT_NEAR(0.5, a.z, 1e-13);
}

namespace {

// The rotation of the two tests above for a second angle `angle`, and whether it turned a2
// about b1 (true) or about the cross product (false).
bool SecondTurnIsAboutB1(double angle) {
    const CVector3 a1(1, 0, 0), b1(0, 1, 0), b2(1, 0.5, 0);
    const CVector3 a2(std::sin(angle), -std::cos(angle), 0);
    const CRotation r = Util::BuildRotationBetweenTwoAxisPairs(a1, a2, b1, b2);
    const CQuaternion first = AxisAngle(CVector3(0, 0, 1), kPi / 2);
    const CRotation aboutB1(Hamilton(AxisAngle(b1, angle), first));
    const CRotation aboutCross(Hamilton(AxisAngle(CVector3(0, 0, -1), angle), first));
    const bool b1Match = r.Equals(aboutB1, 1e-9);
    const bool crossMatch = r.Equals(aboutCross, 1e-9);
    EXPECT_NE(b1Match, crossMatch) << angle;
    return b1Match;
}

}  // namespace

TEST(BuildRotationBetweenTwoAxisPairs, EverySecondAngleFromThreeRadiansUpTakesB1) {
    for (double angle : {3.001, 3.05, 3.1, 3.14}) EXPECT_TRUE(SecondTurnIsAboutB1(angle)) << angle;
    for (double angle : {1.0, 2.5, 2.99}) EXPECT_FALSE(SecondTurnIsAboutB1(angle)) << angle;
}
