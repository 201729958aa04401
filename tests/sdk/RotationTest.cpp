// ORV::MATH::CQuaternion and CRotation: rotation orders against hand-built products of
// elementary matrices, Euler decomposition, axis-angle, composition order and slerp.
//
// Error budget: 1e-12 for exact algebra (a handful of trigonometric evaluations and products,
// each good to a few 1e-16). Angles read back near gimbal lock are compared through the
// rotation they rebuild, not one by one, because there the angles are not unique.
#include <gtest/gtest.h>
#include <orv/Math.h>

#include <cmath>
#include <random>

using namespace ORV::MATH;
using ORV::CStatus;

namespace {

constexpr double kExact = 1e-12;

struct M3 {
    double m[3][3];
};

// Elementary rotations in the row convention (v' = v * M), written out by hand.
M3 Rx(double a) {
    const double c = std::cos(a), s = std::sin(a);
    return {{{1, 0, 0}, {0, c, s}, {0, -s, c}}};
}
M3 Ry(double a) {
    const double c = std::cos(a), s = std::sin(a);
    return {{{c, 0, -s}, {0, 1, 0}, {s, 0, c}}};
}
M3 Rz(double a) {
    const double c = std::cos(a), s = std::sin(a);
    return {{{c, s, 0}, {-s, c, 0}, {0, 0, 1}}};
}
M3 Mul(const M3& a, const M3& b) {
    M3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
    return r;
}
// The product for an order: the first letter is applied first.
M3 ByOrder(double x, double y, double z, RotationOrder order) {
    switch (order) {
        case ovXYZ:
            return Mul(Mul(Rx(x), Ry(y)), Rz(z));
        case ovXZY:
            return Mul(Mul(Rx(x), Rz(z)), Ry(y));
        case ovYXZ:
            return Mul(Mul(Ry(y), Rx(x)), Rz(z));
        case ovYZX:
            return Mul(Mul(Ry(y), Rz(z)), Rx(x));
        case ovZXY:
            return Mul(Mul(Rz(z), Rx(x)), Ry(y));
        case ovZYX:
            return Mul(Mul(Rz(z), Ry(y)), Rx(x));
    }
    return M3{};
}

void ExpectMatrix(const CMatrix3& got, const M3& want, double eps = kExact) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) EXPECT_NEAR(got(i, j), want.m[i][j], eps) << "element " << i << "," << j;
}

void ExpectVector(const CVector3& v, double x, double y, double z, double eps = kExact) {
    EXPECT_NEAR(v.x, x, eps);
    EXPECT_NEAR(v.y, y, eps);
    EXPECT_NEAR(v.z, z, eps);
}

const RotationOrder kOrders[6] = {ovXYZ, ovXZY, ovYXZ, ovYZX, ovZXY, ovZYX};

// The middle axis of an order (0 X, 1 Y, 2 Z): gimbal lock is at +-pi/2 about it.
int MiddleAxis(RotationOrder o) {
    static const int middle[6] = {1, 2, 0, 2, 0, 1};
    return middle[o];
}
int LastAxis(RotationOrder o) {
    static const int last[6] = {2, 1, 2, 0, 1, 0};
    return last[o];
}

bool SameRotation(const CQuaternion& a, const CQuaternion& b, double eps) {
    return a.Equals(b, eps) || a.Equals(CQuaternion(-b.w, -b.x, -b.y, -b.z), eps);
}

}  // namespace

// --- Hand-built references themselves --------------------------------------------------

TEST(RotationReference, ElementaryMatricesTurnAxesRightHanded) {
    // About Z by 90 degrees X goes to Y; about X, Y goes to Z; about Y, Z goes to X.
    const double q = PI / 2;
    CVector3 v;
    ExpectVector(v.MulByMatrix3(CVector3(1, 0, 0), CRotation(0, 0, q).GetMatrix()), 0, 1, 0);
    ExpectVector(v.MulByMatrix3(CVector3(0, 1, 0), CRotation(q, 0, 0).GetMatrix()), 0, 0, 1);
    ExpectVector(v.MulByMatrix3(CVector3(0, 0, 1), CRotation(0, q, 0).GetMatrix()), 1, 0, 0);
}

// --- CQuaternion -----------------------------------------------------------------------

TEST(CQuaternion, DefaultsToIdentityAndAccessors) {
    constexpr CQuaternion q;
    static_assert(q.w == 1.0 && q.x == 0.0 && q.y == 0.0 && q.z == 0.0);
    CQuaternion p(1, 2, 3, 4);
    EXPECT_EQ(p.GetW(), 1.0);
    EXPECT_EQ(p.GetX(), 2.0);
    EXPECT_EQ(p.GetY(), 3.0);
    EXPECT_EQ(p.GetZ(), 4.0);
    p.PutW(5).PutX(6).PutY(7).PutZ(8);
    EXPECT_EQ(p, CQuaternion(5, 6, 7, 8));
    p.Set(0, 0, 0, 1);
    EXPECT_EQ(p.z, 1.0);
}

TEST(CQuaternion, LengthNormalizeConjugate) {
    CQuaternion q(1, 2, 2, 4);
    EXPECT_EQ(q.GetLength(), 5.0);
    EXPECT_EQ(q.NormalizeInPlace(), CStatus::OK);
    EXPECT_TRUE(q.Equals(CQuaternion(0.2, 0.4, 0.4, 0.8), kExact));
    CQuaternion p(0, 0, 3, 4);
    EXPECT_EQ(p.Normalize(), CStatus::OK);  // in place too
    EXPECT_TRUE(p.Equals(CQuaternion(0, 0, 0.6, 0.8), kExact));
    CQuaternion zero(0, 0, 0, 0);
    EXPECT_EQ(zero.NormalizeInPlace(), CStatus::Fail);
    EXPECT_EQ(zero, CQuaternion());
    CQuaternion c;
    EXPECT_EQ(c.Conjugate(CQuaternion(1, 2, 3, 4)), CQuaternion(1, -2, -3, -4));
    EXPECT_EQ(c.ConjugateInPlace(), CQuaternion(1, 2, 3, 4));
}

TEST(CQuaternion, MulComposesLikeMatrices) {
    const double h = std::sqrt(0.5);
    const CQuaternion qx(h, h, 0, 0), qy(h, 0, h, 0);  // 90 degrees about X, about Y
    CQuaternion q;
    q.Mul(qx, qy);  // X first, then Y: Hamilton product qy * qx
    EXPECT_TRUE(q.Equals(CQuaternion(0.5, 0.5, 0.5, -0.5), kExact));
    ExpectMatrix(CRotation(q).GetMatrix(), Mul(Rx(PI / 2), Ry(PI / 2)));
    CQuaternion p = qx;
    p.MulInPlace(qy);
    EXPECT_TRUE(p.Equals(q, kExact));
}

TEST(CQuaternion, SlerpEndpoints) {
    const CQuaternion a = CRotation(CVector3(1, 2, 3), 0.7).GetQuaternion();
    const CQuaternion b = CRotation(CVector3(-1, 0, 2), 1.9).GetQuaternion();
    ASSERT_GT(a.Dot(b), 0.0);
    CQuaternion s;
    EXPECT_TRUE(s.Slerp(a, b, 0.0).Equals(a, kExact));
    EXPECT_TRUE(s.Slerp(a, b, 1.0).Equals(b, kExact));
}

TEST(CQuaternion, SlerpHalfwayIsHalfTheAngle) {
    // From the identity to 1.2 rad about (1,1,0): t = 0.5 is 0.6 rad, t = 0.25 is 0.3 rad.
    const CVector3 axis(1, 1, 0);
    const CQuaternion b = CRotation(axis, 1.2).GetQuaternion();
    CQuaternion s;
    EXPECT_TRUE(SameRotation(s.Slerp(CQuaternion(), b, 0.5), CRotation(axis, 0.6).GetQuaternion(), kExact));
    EXPECT_TRUE(SameRotation(s.Slerp(CQuaternion(), b, 0.25), CRotation(axis, 0.3).GetQuaternion(), kExact));
    // Between two general rotations: halfway from a to b is a followed by half of (a^-1 then b).
    const CRotation ra(CVector3(0, 1, 0), 0.4);
    CRotation delta(CVector3(0, 0, 1), 1.0);
    const CRotation rb = CRotation().Mul(ra, delta);
    CRotation half;
    half.Mul(ra, CRotation(CVector3(0, 0, 1), 0.5));
    EXPECT_TRUE(
        SameRotation(s.Slerp(ra.GetQuaternion(), rb.GetQuaternion(), 0.5), half.GetQuaternion(), kExact));
}

TEST(CQuaternion, SlerpTakesTheShortestPath) {
    const CVector3 axis(0, 0, 1);
    const CQuaternion a = CRotation(axis, 0.2).GetQuaternion();
    const CQuaternion b = CRotation(axis, 0.8).GetQuaternion();
    const CQuaternion minusB(-b.w, -b.x, -b.y, -b.z);  // the same rotation, other hemisphere
    CQuaternion s1, s2;
    s1.Slerp(a, b, 0.5);
    s2.Slerp(a, minusB, 0.5);
    EXPECT_TRUE(SameRotation(s1, CRotation(axis, 0.5).GetQuaternion(), kExact));
    EXPECT_TRUE(SameRotation(s2, CRotation(axis, 0.5).GetQuaternion(), kExact));
    // From 0.1 rad to -3.1 rad about Z (3.2 rad apart going back through 0): the short way,
    // 2 pi - 3.2 rad long, goes forward through +pi.
    const CQuaternion c = CRotation(axis, 0.1).GetQuaternion();
    const CQuaternion d = CRotation(axis, -3.1).GetQuaternion();
    CQuaternion mid;
    mid.Slerp(c, d, 0.5);
    const double shortMid = 0.1 + 0.5 * (2 * PI - 3.2);
    EXPECT_TRUE(SameRotation(mid, CRotation(axis, shortMid).GetQuaternion(), kExact));
}

TEST(CQuaternion, SlerpOfNearlyEqualInputsStaysUnit) {
    const CVector3 axis(1, 0, 0);
    const CQuaternion a = CRotation(axis, 0.5).GetQuaternion();
    const CQuaternion b = CRotation(axis, 0.5 + 1e-9).GetQuaternion();
    CQuaternion s;
    s.Slerp(a, b, 0.5);
    EXPECT_NEAR(s.GetLength(), 1.0, kExact);
    EXPECT_TRUE(SameRotation(s, CRotation(axis, 0.5 + 0.5e-9).GetQuaternion(), kExact));
    s.Slerp(a, a, 0.3);
    EXPECT_TRUE(s.Equals(a, kExact));
}

// --- CRotation -------------------------------------------------------------------------

TEST(CRotation, DefaultsToIdentity) {
    const CRotation r;
    EXPECT_EQ(r.GetMatrix(), CMatrix3());
    EXPECT_EQ(r.GetQuaternion(), CQuaternion());
    EXPECT_EQ(r.GetRotationOrder(), ovXYZ);
    EXPECT_EQ(r.GetXYZAngles(), CVector3());
}

TEST(CRotation, EachOrderMatchesHandBuiltProduct) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> angle(-PI, PI);
    for (RotationOrder order : kOrders) {
        for (int k = 0; k < 50; ++k) {
            const double x = angle(rng), y = angle(rng), z = angle(rng);
            SCOPED_TRACE(::testing::Message()
                         << "order " << order << " angles " << x << " " << y << " " << z);
            ExpectMatrix(CRotation(x, y, z, order).GetMatrix(), ByOrder(x, y, z, order));
            ExpectMatrix(CRotation(CVector3(x, y, z), order).GetMatrix(), ByOrder(x, y, z, order));
        }
    }
}

TEST(CRotation, DefaultOrderRotatesAboutXThenYThenZ) {
    // (0,1,0): about X by 90 -> (0,0,1); about Y by 90 -> (1,0,0); about Z by 0 stays.
    CVector3 v;
    ExpectVector(v.MulByRotation(CVector3(0, 1, 0), CRotation(PI / 2, PI / 2, 0)), 1, 0, 0);
    // The reverse order gives another result: about Y first leaves it, about X gives (0,0,1).
    ExpectVector(v.MulByRotation(CVector3(0, 1, 0), CRotation(PI / 2, PI / 2, 0, ovZYX)), 0, 0, 1);
}

TEST(CRotation, XYZAnglesRoundTripInAllOrders) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> outer(-PI + 1e-9, PI);
    std::uniform_real_distribution<double> middle(-1.5, 1.5);  // away from gimbal lock
    for (RotationOrder order : kOrders) {
        for (int k = 0; k < 200; ++k) {
            double a[3] = {outer(rng), outer(rng), outer(rng)};
            a[MiddleAxis(order)] = middle(rng);
            SCOPED_TRACE(::testing::Message()
                         << "order " << order << " angles " << a[0] << " " << a[1] << " " << a[2]);
            const CVector3 back = CRotation(a[0], a[1], a[2], order).GetXYZAngles();
            // Within the principal ranges the angles are unique: they come back one by one.
            // (Budget 1e-11: cos of the middle angle is down to 0.07 here.)
            ExpectVector(back, a[0], a[1], a[2], 1e-11);
        }
    }
}

TEST(CRotation, XYZAnglesRebuildAnyRotation) {
    std::mt19937 rng(13);
    std::uniform_real_distribution<double> any(-4.0, 4.0);
    for (RotationOrder order : kOrders) {
        for (int k = 0; k < 200; ++k) {
            const CRotation r(any(rng), any(rng), any(rng), order);
            const CVector3 a = r.GetXYZAngles();
            for (int i = 0; i < 3; ++i) {
                EXPECT_GT(a[i], -PI);
                EXPECT_LE(a[i], PI);
            }
            ExpectMatrix(CRotation(a, order).GetMatrix(), ByOrder(a.x, a.y, a.z, order));
            EXPECT_TRUE(CRotation(a, order).Equals(r, kExact));
        }
    }
}

TEST(CRotation, XYZAnglesAtGimbalLock) {
    std::mt19937 rng(17);
    std::uniform_real_distribution<double> outer(-3.0, 3.0);
    for (RotationOrder order : kOrders) {
        for (double lock : {PI / 2, -PI / 2}) {
            for (int k = 0; k < 50; ++k) {
                double a[3] = {outer(rng), outer(rng), outer(rng)};
                a[MiddleAxis(order)] = lock;
                SCOPED_TRACE(::testing::Message()
                             << "order " << order << " angles " << a[0] << " " << a[1] << " " << a[2]);
                const CRotation r(a[0], a[1], a[2], order);
                const CVector3 back = r.GetXYZAngles();
                EXPECT_NEAR(back[MiddleAxis(order)], lock, 1e-7);  // the middle angle is found
                EXPECT_EQ(back[LastAxis(order)], 0.0);             // the free angle is put on the first
                EXPECT_TRUE(CRotation(back, order).Equals(r, kExact));
            }
        }
    }
}

TEST(CRotation, XYZAnglesOfHalfTurnArePlusPi) {
    const CVector3 a = CRotation(PI, 0, 0).GetXYZAngles();
    EXPECT_NEAR(a.x, PI, kExact);
    EXPECT_GT(a.x, 0.0);
    const CVector3 b = CRotation(0, 0, -PI).GetXYZAngles();
    EXPECT_NEAR(std::fabs(b.z), PI, kExact);
    EXPECT_GT(b.z, -PI);
}

TEST(CRotation, PutRotationOrderKeepsTheRotation) {
    CRotation r(0.3, -0.4, 0.5);
    const CMatrix3 before = r.GetMatrix();
    r.PutRotationOrder(ovZYX);
    EXPECT_EQ(r.GetRotationOrder(), ovZYX);
    EXPECT_EQ(r.GetMatrix(), before);
    const CVector3 zyx = r.GetXYZAngles();
    ExpectMatrix(before, ByOrder(zyx.x, zyx.y, zyx.z, ovZYX));
    EXPECT_FALSE(zyx.Equals(CVector3(0.3, -0.4, 0.5), 1e-3));
}

TEST(CRotation, AxisAngle) {
    CRotation r(CVector3(0, 0, 2), 0.5);
    double angle = 0.0;
    ExpectVector(r.GetAxisAngle(angle), 0, 0, 1);
    EXPECT_NEAR(angle, 0.5, kExact);
    ExpectMatrix(r.GetMatrix(), Rz(0.5));
    // A negative angle comes back as the opposite axis.
    r.SetFromAxisAngle(CVector3(0, 0, 1), -0.5);
    ExpectVector(r.GetAxisAngle(angle), 0, 0, -1);
    EXPECT_NEAR(angle, 0.5, kExact);
    // Half a turn.
    r.SetFromAxisAngle(CVector3(1, 0, 0), PI);
    ExpectVector(r.GetAxisAngle(angle), 1, 0, 0);
    EXPECT_NEAR(angle, PI, kExact);
    // Identity, and a zero axis, give the X axis and 0.
    ExpectVector(CRotation().GetAxisAngle(angle), 1, 0, 0);
    EXPECT_EQ(angle, 0.0);
    r.SetFromAxisAngle(CVector3(), 1.0);
    EXPECT_EQ(r.GetMatrix(), CMatrix3());
    // A general axis against Rodrigues' formula written out.
    const CVector3 n = CVector3(1, 2, 3) / std::sqrt(14.0);
    const double t = 1.1, c = std::cos(t), s = std::sin(t), k = 1 - c;
    // Column form R = cI + s[n]x + k n n^T; the row form is its transpose.
    M3 want = {{{c + k * n.x * n.x, k * n.x * n.y + s * n.z, k * n.x * n.z - s * n.y},
                {k * n.y * n.x - s * n.z, c + k * n.y * n.y, k * n.y * n.z + s * n.x},
                {k * n.z * n.x + s * n.y, k * n.z * n.y - s * n.x, c + k * n.z * n.z}}};
    ExpectMatrix(CRotation(CVector3(1, 2, 3), t).GetMatrix(), want);
}

TEST(CRotation, MulAppliesFirstOperandFirst) {
    const CRotation a(CVector3(1, 0, 0), PI / 2), b(CVector3(0, 0, 1), PI / 2);
    CRotation ab;
    ab.Mul(a, b);
    ExpectMatrix(ab.GetMatrix(), Mul(Rx(PI / 2), Rz(PI / 2)));
    CVector3 v;
    // (1,0,0): about X stays, about Z goes to (0,1,0).
    ExpectVector(v.MulByRotation(CVector3(1, 0, 0), ab), 0, 1, 0);
    // (0,1,0): about X goes to (0,0,1), about Z stays.
    ExpectVector(v.MulByRotation(CVector3(0, 1, 0), ab), 0, 0, 1);
    CRotation c = a;
    c.MulInPlace(b);
    EXPECT_TRUE(c.Equals(ab, kExact));
}

TEST(CRotation, InvertUndoes) {
    const CRotation r(0.3, 1.2, -2.0, ovYZX);
    CRotation inv = r;
    inv.InvertInPlace();
    EXPECT_TRUE(CRotation().Mul(r, inv).Equals(CRotation(), kExact));
    EXPECT_TRUE(CRotation().Mul(inv, r).Equals(CRotation(), kExact));
}

TEST(CRotation, FromMatrixAndQuaternion) {
    const M3 m = ByOrder(0.2, -0.7, 2.5, ovXYZ);
    const CMatrix3 cm(m.m[0][0], m.m[0][1], m.m[0][2], m.m[1][0], m.m[1][1], m.m[1][2], m.m[2][0], m.m[2][1],
                      m.m[2][2]);
    const CRotation r(cm);
    ExpectMatrix(r.GetMatrix(), m);
    EXPECT_TRUE(CRotation(r.GetQuaternion()).Equals(r, kExact));
    // Unnormalised quaternions are normalised; q and -q are one rotation.
    const CQuaternion q = r.GetQuaternion();
    EXPECT_TRUE(CRotation(CQuaternion(3 * q.w, 3 * q.x, 3 * q.y, 3 * q.z)).Equals(r, kExact));
    EXPECT_TRUE(CRotation(CQuaternion(-q.w, -q.x, -q.y, -q.z)).Equals(r, kExact));
    EXPECT_GE(q.w, 0.0);
    // Every pivot of the matrix-to-quaternion conversion: half turns about each axis.
    for (int axis = 0; axis < 3; ++axis) {
        const CVector3 a(axis == 0, axis == 1, axis == 2);
        const CRotation half(a, PI * 0.999);
        EXPECT_TRUE(CRotation(half.GetMatrix()).Equals(half, kExact));
    }
}

TEST(CRotation, FromNearlyOrthonormalOrScaledMatrix) {
    const CRotation r(0.4, 0.1, -0.9);
    CMatrix3 m = r.GetMatrix();
    CMatrix3 scaled = m;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) scaled(i, j) *= 2.5;
    EXPECT_TRUE(CRotation(scaled).Equals(r, kExact));
    m(0, 0) += 1e-9;  // a little noise gives the nearest rotation
    EXPECT_TRUE(CRotation(m).Equals(r, 1e-8));
    EXPECT_EQ(CRotation(CMatrix3(0, 0, 0, 0, 0, 0, 0, 0, 0)).GetMatrix(), CMatrix3());
}

TEST(CRotation, SetIdentityAndEquals) {
    CRotation r(1, 2, 3);
    EXPECT_FALSE(r.Equals(CRotation()));
    r.SetIdentity();
    EXPECT_TRUE(r.Equals(CRotation()));
    EXPECT_TRUE(CRotation(0.5, 0, 0).Equals(CRotation(0.5 + 1e-14, 0, 0)));
}
