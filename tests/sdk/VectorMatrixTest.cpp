// ORV::MATH::CVector3, CVector4 and CMatrix3 against hand-computed values.
//
// Error budget: 1e-12 wherever the result is exact algebra on small numbers (a few rounding
// steps of 1e-16 each); exact equality where the operations are exact in binary.
#include <gtest/gtest.h>
#include <orv/Math.h>

#include <cmath>

using namespace ORV::MATH;
using ORV::CStatus;

namespace {

constexpr double kExact = 1e-12;

void ExpectVector(const CVector3& v, double x, double y, double z, double eps = kExact) {
    EXPECT_NEAR(v.x, x, eps);
    EXPECT_NEAR(v.y, y, eps);
    EXPECT_NEAR(v.z, z, eps);
}

}  // namespace

TEST(CVector3, DefaultsToZeroAndAccessors) {
    constexpr CVector3 zero;
    static_assert(zero.x == 0.0 && zero.y == 0.0 && zero.z == 0.0);
    CVector3 v(1, 2, 3);
    EXPECT_EQ(v.GetX(), 1.0);
    EXPECT_EQ(v.GetY(), 2.0);
    EXPECT_EQ(v.GetZ(), 3.0);
    v.PutX(4).PutY(5).PutZ(6);
    EXPECT_EQ(v, CVector3(4, 5, 6));
    double x, y, z;
    v.Get(x, y, z);
    EXPECT_EQ(x, 4.0);
    EXPECT_EQ(y, 5.0);
    EXPECT_EQ(z, 6.0);
    v.Set(7, 8, 9);
    EXPECT_EQ(v[0], 7.0);
    EXPECT_EQ(v[1], 8.0);
    EXPECT_EQ(v[2], 9.0);
    v[1] = -1.0;
    EXPECT_EQ(v.y, -1.0);
}

TEST(CVector3, Arithmetic) {
    const CVector3 a(1, 2, 3), b(4, -5, 6);
    CVector3 r;
    EXPECT_EQ(r.Add(a, b), CVector3(5, -3, 9));
    EXPECT_EQ(r.Sub(a, b), CVector3(-3, 7, -3));
    EXPECT_EQ(r.Negate(a), CVector3(-1, -2, -3));
    EXPECT_EQ(r.Scale(2.0, b), CVector3(8, -10, 12));
    EXPECT_EQ(r.Cross(a, b), CVector3(27, 6, -13));
    EXPECT_EQ(a.Dot(b), 12.0);
    r = a;
    EXPECT_EQ(r.AddInPlace(b), CVector3(5, -3, 9));
    EXPECT_EQ(r.SubInPlace(b), a);
    EXPECT_EQ(r.NegateInPlace(), CVector3(-1, -2, -3));
    EXPECT_EQ(r.ScaleInPlace(-3.0), CVector3(3, 6, 9));
    EXPECT_EQ(a + b, CVector3(5, -3, 9));
    EXPECT_EQ(a - b, CVector3(-3, 7, -3));
    EXPECT_EQ(-a, CVector3(-1, -2, -3));
    EXPECT_EQ(a * 2.0, CVector3(2, 4, 6));
    EXPECT_EQ(2.0 * a, CVector3(2, 4, 6));
    EXPECT_TRUE(a != b);
    // Right-handed: X x Y = Z.
    EXPECT_EQ(r.Cross(CVector3(1, 0, 0), CVector3(0, 1, 0)), CVector3(0, 0, 1));
}

TEST(CVector3, LengthAndNormalize) {
    CVector3 v(3, 4, 12);
    EXPECT_EQ(v.GetLengthSquared(), 169.0);
    EXPECT_EQ(v.GetLength(), 13.0);
    EXPECT_EQ(v.NormalizeInPlace(), CStatus::OK);
    ExpectVector(v, 3.0 / 13, 4.0 / 13, 12.0 / 13);
    EXPECT_NEAR(v.GetLength(), 1.0, kExact);
    CVector3 n;
    EXPECT_EQ(n.Normalize(CVector3(0, 0, -2)), CStatus::OK);
    EXPECT_EQ(n, CVector3(0, 0, -1));
}

TEST(CVector3, NormalizeZeroStaysZeroAndFails) {
    CVector3 v;
    EXPECT_EQ(v.NormalizeInPlace(), CStatus::Fail);
    EXPECT_EQ(v, CVector3());
    CVector3 n(1, 1, 1);
    EXPECT_EQ(n.Normalize(CVector3()), CStatus::Fail);
    EXPECT_EQ(n, CVector3());
}

TEST(CVector3, GetAngle) {
    EXPECT_NEAR(CVector3(1, 0, 0).GetAngle(CVector3(0, 1, 0)), PI / 2, kExact);
    EXPECT_NEAR(CVector3(1, 0, 0).GetAngle(CVector3(1, 1, 0)), PI / 4, kExact);
    EXPECT_NEAR(CVector3(2, 0, 0).GetAngle(CVector3(-3, 0, 0)), PI, kExact);
    EXPECT_EQ(CVector3(1, 2, 3).GetAngle(CVector3(2, 4, 6)), 0.0);
    // Small angles keep their precision (acos of a dot product would give ~1e-8 here).
    EXPECT_NEAR(CVector3(1, 0, 0).GetAngle(CVector3(1, 1e-10, 0)), 1e-10, 1e-20);
    EXPECT_EQ(CVector3().GetAngle(CVector3(1, 0, 0)), 0.0);
}

TEST(CVector3, MulByMatrix3IsRowTimesMatrix) {
    const CMatrix3 m(1, 2, 3, 4, 5, 6, 7, 8, 10);
    CVector3 r;
    EXPECT_EQ(r.MulByMatrix3(CVector3(1, 2, 3), m), CVector3(30, 36, 45));
    r.Set(1, 0, 0);
    EXPECT_EQ(r.MulByMatrix3InPlace(m), CVector3(1, 2, 3));  // X picks the first row
}

TEST(CVector3, MulByRotation) {
    const CRotation rz(CVector3(0, 0, 1), PI / 2);
    CVector3 r;
    ExpectVector(r.MulByRotation(CVector3(1, 0, 0), rz), 0, 1, 0);
    r.Set(0, 1, 0);
    ExpectVector(r.MulByRotationInPlace(rz), -1, 0, 0);
}

TEST(CVector3, MulByTransformationScalesRotatesTranslates) {
    CTransformation t;
    t.SetScalingFromValues(2, 3, 4);
    t.SetRotationFromAxisAngle(CVector3(0, 0, 1), PI / 2);
    t.SetTranslationFromValues(10, 20, 30);
    // (1,1,1) -> scaled (2,3,4) -> about Z by 90 degrees (-3,2,4) -> moved (7,22,34).
    CVector3 r;
    ExpectVector(r.MulByTransformation(CVector3(1, 1, 1), t), 7, 22, 34);
    r.Set(0, 0, 0);
    ExpectVector(r.MulByTransformationInPlace(t), 10, 20, 30);
}

TEST(CVector3, EqualsWithTolerance) {
    EXPECT_TRUE(CVector3(1, 2, 3).Equals(CVector3(1 + 1e-13, 2, 3)));
    EXPECT_FALSE(CVector3(1, 2, 3).Equals(CVector3(1 + 1e-9, 2, 3)));
    EXPECT_TRUE(CVector3(1, 2, 3).Equals(CVector3(1.1, 2, 3), 0.2));
}

TEST(CVector4, Basics) {
    CVector4 v(1, 2, 3, 4);
    EXPECT_EQ(v.GetX(), 1.0);
    EXPECT_EQ(v.GetW(), 4.0);
    v.PutW(5);
    EXPECT_EQ(v.w, 5.0);
    EXPECT_EQ(v.Dot(CVector4(1, 1, 1, 1)), 11.0);
    EXPECT_EQ(CVector4(0, 3, 0, 4).GetLength(), 5.0);
    EXPECT_TRUE(v.Equals(CVector4(1, 2, 3, 5)));
    EXPECT_TRUE(CVector4() == CVector4(0, 0, 0, 0));
}

TEST(CMatrix3, DefaultsToIdentity) {
    constexpr CMatrix3 m;
    static_assert(m.Get(0, 0) == 1.0 && m.Get(0, 1) == 0.0 && m.Get(2, 2) == 1.0);
    EXPECT_EQ(m, CMatrix3(1, 0, 0, 0, 1, 0, 0, 0, 1));
}

TEST(CMatrix3, AccessIsRowMajor) {
    CMatrix3 m(1, 2, 3, 4, 5, 6, 7, 8, 9);
    EXPECT_EQ(m.Get(0, 2), 3.0);
    EXPECT_EQ(m.Get(2, 0), 7.0);
    EXPECT_EQ(m(1, 2), 6.0);
    m.Set(1, 2, -6.0);
    EXPECT_EQ(m(1, 2), -6.0);
    m(2, 1) = 11.0;
    EXPECT_EQ(m.Get(2, 1), 11.0);
    EXPECT_EQ(m.GetRow(2), CVector3(7, 11, 9));
    m.SetIdentity();
    EXPECT_EQ(m, CMatrix3());
}

TEST(CMatrix3, MulAppliesLeftFirst) {
    const CMatrix3 a(1, 2, 0, 0, 1, 0, 0, 0, 1), b(1, 0, 0, 3, 1, 0, 0, 0, 2);
    CMatrix3 r;
    EXPECT_EQ(r.Mul(a, b), CMatrix3(7, 2, 0, 3, 1, 0, 0, 0, 2));
    EXPECT_EQ(r.Mul(b, a), CMatrix3(1, 2, 0, 3, 7, 0, 0, 0, 2));
    CMatrix3 c = a;
    EXPECT_EQ(c.MulInPlace(b), CMatrix3(7, 2, 0, 3, 1, 0, 0, 0, 2));
    // v * (a * b) == (v * a) * b.
    CVector3 v1, v2;
    v1.MulByMatrix3(CVector3(1, 2, 3), r.Mul(a, b));
    v2.MulByMatrix3(CVector3(1, 2, 3), a).MulByMatrix3InPlace(b);
    EXPECT_EQ(v1, v2);
}

TEST(CMatrix3, TransposeDeterminantInverse) {
    CMatrix3 m(1, 2, 3, 4, 5, 6, 7, 8, 10);
    EXPECT_NEAR(m.GetDeterminant(), -3.0, kExact);
    CMatrix3 t = m;
    EXPECT_EQ(t.TransposeInPlace(), CMatrix3(1, 4, 7, 2, 5, 8, 3, 6, 10));
    CMatrix3 inv = m;
    ASSERT_EQ(inv.InvertInPlace(), CStatus::OK);
    // adjugate / determinant, by hand.
    EXPECT_TRUE(inv.Equals(CMatrix3(-2.0 / 3, -4.0 / 3, 1, -2.0 / 3, 11.0 / 3, -2, 1, -2, 1), kExact));
    CMatrix3 id;
    EXPECT_TRUE(id.Mul(m, inv).Equals(CMatrix3(), kExact));
}

TEST(CMatrix3, SingularInverseFailsAndKeepsMatrix) {
    const CMatrix3 s(1, 2, 3, 2, 4, 6, 0, 0, 1);
    CMatrix3 m = s;
    EXPECT_EQ(m.InvertInPlace(), CStatus::Fail);
    EXPECT_EQ(m, s);
    CMatrix3 zero(0, 0, 0, 0, 0, 0, 0, 0, 0);
    EXPECT_EQ(zero.InvertInPlace(), CStatus::Fail);
    CMatrix3 r;
    EXPECT_EQ(r.Invert(s), CStatus::Fail);
    EXPECT_EQ(r, CMatrix3());
}
