// The host's small maths value types, namespace ORV::MATH.
//
// Row-vector convention throughout: a vector is a row on the left, v' = v * M, so in a product
// A * B the transform A is applied first. A transformation is scale, then rotation, then
// translation. Angles are radians. Every type defaults to identity (vectors to zero).
#pragma once

#include <orv/CStatus.h>

#include <array>
#include <cmath>
#include <vector>

namespace ORV {
namespace MATH {

class CMatrix3;
class CQuaternion;
class CRotation;
class CTransformation;

constexpr double PI = 3.14159265358979323846;

// The order of the three elementary rotations built from, or read as, Euler angles. ovXYZ
// rotates about X first, then Y, then Z: M = Rx * Ry * Rz.
enum RotationOrder { ovXYZ = 0, ovXZY = 1, ovYXZ = 2, ovYZX = 3, ovZXY = 4, ovZYX = 5 };

class CVector3 {
public:
    double x = 0.0, y = 0.0, z = 0.0;

    constexpr CVector3() noexcept = default;
    constexpr CVector3(double x_, double y_, double z_) noexcept : x(x_), y(y_), z(z_) {}

    constexpr double GetX() const noexcept { return x; }
    constexpr double GetY() const noexcept { return y; }
    constexpr double GetZ() const noexcept { return z; }
    constexpr CVector3& PutX(double v) noexcept {
        x = v;
        return *this;
    }
    constexpr CVector3& PutY(double v) noexcept {
        y = v;
        return *this;
    }
    constexpr CVector3& PutZ(double v) noexcept {
        z = v;
        return *this;
    }
    constexpr CVector3& Set(double x_, double y_, double z_) noexcept {
        x = x_;
        y = y_;
        z = z_;
        return *this;
    }
    constexpr void Get(double& x_, double& y_, double& z_) const noexcept {
        x_ = x;
        y_ = y;
        z_ = z;
    }
    // Component by index 0..2 (index clamped into range).
    constexpr double operator[](int i) const noexcept { return i <= 0 ? x : (i == 1 ? y : z); }
    constexpr double& operator[](int i) noexcept { return i <= 0 ? x : (i == 1 ? y : z); }

    constexpr CVector3& SetNull() noexcept { return Set(0.0, 0.0, 0.0); }
    // this = a + b, this = a - b, and the in-place forms this += v, this -= v.
    constexpr CVector3& Add(const CVector3& a, const CVector3& b) noexcept {
        return Set(a.x + b.x, a.y + b.y, a.z + b.z);
    }
    constexpr CVector3& AddInPlace(const CVector3& v) noexcept { return Set(x + v.x, y + v.y, z + v.z); }
    constexpr CVector3& Sub(const CVector3& a, const CVector3& b) noexcept {
        return Set(a.x - b.x, a.y - b.y, a.z - b.z);
    }
    constexpr CVector3& SubInPlace(const CVector3& v) noexcept { return Set(x - v.x, y - v.y, z - v.z); }
    constexpr CVector3& Negate(const CVector3& v) noexcept { return Set(-v.x, -v.y, -v.z); }
    constexpr CVector3& NegateInPlace() noexcept { return Set(-x, -y, -z); }
    // this = s * v, this *= s.
    constexpr CVector3& Scale(double s, const CVector3& v) noexcept { return Set(s * v.x, s * v.y, s * v.z); }
    constexpr CVector3& ScaleInPlace(double s) noexcept { return Set(s * x, s * y, s * z); }
    // Component-wise product.
    constexpr CVector3& MulComponents(const CVector3& a, const CVector3& b) noexcept {
        return Set(a.x * b.x, a.y * b.y, a.z * b.z);
    }

    constexpr double Dot(const CVector3& v) const noexcept { return x * v.x + y * v.y + z * v.z; }
    // this = a x b (right-handed).
    constexpr CVector3& Cross(const CVector3& a, const CVector3& b) noexcept {
        return Set(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
    }
    constexpr double GetLengthSquared() const noexcept { return x * x + y * y + z * z; }
    double GetLength() const noexcept { return std::sqrt(GetLengthSquared()); }

    // Scales this to length 1. A zero (or non-finite) vector stays as it is and gives Fail.
    CStatus NormalizeInPlace() noexcept;
    // this = v scaled to length 1; a zero v gives zero and Fail.
    CStatus Normalize(const CVector3& v) noexcept;
    // The angle to v in [0, pi]; 0 when either vector is zero.
    double GetAngle(const CVector3& v) const noexcept;

    // this = v as a point through t: scaled, rotated, then translated.
    CVector3& MulByTransformation(const CVector3& v, const CTransformation& t) noexcept;
    CVector3& MulByTransformationInPlace(const CTransformation& t) noexcept;
    // this = v rotated by r.
    CVector3& MulByRotation(const CVector3& v, const CRotation& r) noexcept;
    CVector3& MulByRotationInPlace(const CRotation& r) noexcept;
    // this = v * m, v a row on the left.
    CVector3& MulByMatrix3(const CVector3& v, const CMatrix3& m) noexcept;
    CVector3& MulByMatrix3InPlace(const CMatrix3& m) noexcept;

    // True when no component differs by more than epsilon.
    bool Equals(const CVector3& v, double epsilon = 1e-12) const noexcept {
        return std::fabs(x - v.x) <= epsilon && std::fabs(y - v.y) <= epsilon &&
               std::fabs(z - v.z) <= epsilon;
    }

    constexpr CVector3 operator+(const CVector3& v) const noexcept {
        return CVector3(x + v.x, y + v.y, z + v.z);
    }
    constexpr CVector3 operator-(const CVector3& v) const noexcept {
        return CVector3(x - v.x, y - v.y, z - v.z);
    }
    constexpr CVector3 operator-() const noexcept { return CVector3(-x, -y, -z); }
    constexpr CVector3 operator*(double s) const noexcept { return CVector3(x * s, y * s, z * s); }
    constexpr CVector3 operator/(double s) const noexcept { return CVector3(x / s, y / s, z / s); }
    constexpr CVector3& operator+=(const CVector3& v) noexcept { return AddInPlace(v); }
    constexpr CVector3& operator-=(const CVector3& v) noexcept { return SubInPlace(v); }
    constexpr CVector3& operator*=(double s) noexcept { return ScaleInPlace(s); }
    // Exact comparison; use Equals with a tolerance for computed values.
    constexpr bool operator==(const CVector3& v) const noexcept { return x == v.x && y == v.y && z == v.z; }
    constexpr bool operator!=(const CVector3& v) const noexcept { return !(*this == v); }
};

constexpr CVector3 operator*(double s, const CVector3& v) noexcept { return v * s; }

class CVector4 {
public:
    double x = 0.0, y = 0.0, z = 0.0, w = 0.0;

    constexpr CVector4() noexcept = default;
    constexpr CVector4(double x_, double y_, double z_, double w_) noexcept : x(x_), y(y_), z(z_), w(w_) {}

    constexpr double GetX() const noexcept { return x; }
    constexpr double GetY() const noexcept { return y; }
    constexpr double GetZ() const noexcept { return z; }
    constexpr double GetW() const noexcept { return w; }
    constexpr CVector4& PutX(double v) noexcept {
        x = v;
        return *this;
    }
    constexpr CVector4& PutY(double v) noexcept {
        y = v;
        return *this;
    }
    constexpr CVector4& PutZ(double v) noexcept {
        z = v;
        return *this;
    }
    constexpr CVector4& PutW(double v) noexcept {
        w = v;
        return *this;
    }
    constexpr CVector4& Set(double x_, double y_, double z_, double w_) noexcept {
        x = x_;
        y = y_;
        z = z_;
        w = w_;
        return *this;
    }
    constexpr void Get(double& x_, double& y_, double& z_, double& w_) const noexcept {
        x_ = x;
        y_ = y;
        z_ = z;
        w_ = w;
    }
    constexpr double Dot(const CVector4& v) const noexcept { return x * v.x + y * v.y + z * v.z + w * v.w; }
    double GetLength() const noexcept { return std::sqrt(Dot(*this)); }
    bool Equals(const CVector4& v, double epsilon = 1e-12) const noexcept {
        return std::fabs(x - v.x) <= epsilon && std::fabs(y - v.y) <= epsilon &&
               std::fabs(z - v.z) <= epsilon && std::fabs(w - v.w) <= epsilon;
    }
    constexpr bool operator==(const CVector4& v) const noexcept {
        return x == v.x && y == v.y && z == v.z && w == v.w;
    }
    constexpr bool operator!=(const CVector4& v) const noexcept { return !(*this == v); }
};

// 3 by 3 matrix, row-major: Get(i, j) is row i, column j. Rows are the images of the X, Y, Z
// axes under v' = v * M.
class CMatrix3 {
public:
    constexpr CMatrix3() noexcept = default;
    constexpr CMatrix3(double m00, double m01, double m02, double m10, double m11, double m12, double m20,
                       double m21, double m22) noexcept
        : m{{m00, m01, m02}, {m10, m11, m12}, {m20, m21, m22}} {}

    constexpr CMatrix3& Set(double m00, double m01, double m02, double m10, double m11, double m12,
                            double m20, double m21, double m22) noexcept {
        *this = CMatrix3(m00, m01, m02, m10, m11, m12, m20, m21, m22);
        return *this;
    }
    // Indices outside 0..2 are clamped into range.
    constexpr double Get(int i, int j) const noexcept { return m[Idx(i)][Idx(j)]; }
    constexpr CMatrix3& Set(int i, int j, double v) noexcept {
        m[Idx(i)][Idx(j)] = v;
        return *this;
    }
    constexpr double operator()(int i, int j) const noexcept { return m[Idx(i)][Idx(j)]; }
    constexpr double& operator()(int i, int j) noexcept { return m[Idx(i)][Idx(j)]; }
    constexpr CVector3 GetRow(int i) const noexcept {
        return CVector3(m[Idx(i)][0], m[Idx(i)][1], m[Idx(i)][2]);
    }
    constexpr CMatrix3& SetRow(int i, const CVector3& v) noexcept {
        m[Idx(i)][0] = v.x;
        m[Idx(i)][1] = v.y;
        m[Idx(i)][2] = v.z;
        return *this;
    }

    constexpr CMatrix3& SetIdentity() noexcept { return *this = CMatrix3(); }
    // this = a * b (a applied first).
    constexpr CMatrix3& Mul(const CMatrix3& a, const CMatrix3& b) noexcept {
        CMatrix3 r;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                r.m[i][j] = a.m[i][0] * b.m[0][j] + a.m[i][1] * b.m[1][j] + a.m[i][2] * b.m[2][j];
        return *this = r;
    }
    // this = this * b.
    constexpr CMatrix3& MulInPlace(const CMatrix3& b) noexcept { return Mul(*this, b); }
    constexpr CMatrix3& Transpose(const CMatrix3& a) noexcept {
        return Set(a.m[0][0], a.m[1][0], a.m[2][0], a.m[0][1], a.m[1][1], a.m[2][1], a.m[0][2], a.m[1][2],
                   a.m[2][2]);
    }
    constexpr CMatrix3& TransposeInPlace() noexcept { return Transpose(CMatrix3(*this)); }
    constexpr double GetDeterminant() const noexcept {
        return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
               m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    }
    // Inverts this. A singular matrix (determinant 0 or negligible next to the product of the
    // row lengths) stays as it is and gives Fail.
    CStatus InvertInPlace() noexcept;
    // this = inverse of a; on Fail this is left unchanged.
    CStatus Invert(const CMatrix3& a) noexcept;

    bool Equals(const CMatrix3& o, double epsilon = 1e-12) const noexcept {
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                if (!(std::fabs(m[i][j] - o.m[i][j]) <= epsilon)) return false;
        return true;
    }
    constexpr bool operator==(const CMatrix3& o) const noexcept {
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                if (m[i][j] != o.m[i][j]) return false;
        return true;
    }
    constexpr bool operator!=(const CMatrix3& o) const noexcept { return !(*this == o); }

private:
    static constexpr int Idx(int i) noexcept { return i < 0 ? 0 : (i > 2 ? 2 : i); }

    double m[3][3] = {{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}};
};

// A quaternion stored as W, X, Y, Z (W the scalar part); defaults to the identity (1, 0, 0, 0).
// As a rotation, q turns a vector v into q v q* (Hamilton product).
class CQuaternion {
public:
    double w = 1.0, x = 0.0, y = 0.0, z = 0.0;

    constexpr CQuaternion() noexcept = default;
    constexpr CQuaternion(double w_, double x_, double y_, double z_) noexcept : w(w_), x(x_), y(y_), z(z_) {}

    constexpr double GetW() const noexcept { return w; }
    constexpr double GetX() const noexcept { return x; }
    constexpr double GetY() const noexcept { return y; }
    constexpr double GetZ() const noexcept { return z; }
    constexpr CQuaternion& PutW(double v) noexcept {
        w = v;
        return *this;
    }
    constexpr CQuaternion& PutX(double v) noexcept {
        x = v;
        return *this;
    }
    constexpr CQuaternion& PutY(double v) noexcept {
        y = v;
        return *this;
    }
    constexpr CQuaternion& PutZ(double v) noexcept {
        z = v;
        return *this;
    }
    constexpr CQuaternion& Set(double w_, double x_, double y_, double z_) noexcept {
        w = w_;
        x = x_;
        y = y_;
        z = z_;
        return *this;
    }
    constexpr void Get(double& w_, double& x_, double& y_, double& z_) const noexcept {
        w_ = w;
        x_ = x;
        y_ = y;
        z_ = z;
    }
    constexpr CQuaternion& SetIdentity() noexcept { return Set(1.0, 0.0, 0.0, 0.0); }

    constexpr double Dot(const CQuaternion& q) const noexcept {
        return w * q.w + x * q.x + y * q.y + z * q.z;
    }
    constexpr double GetLengthSquared() const noexcept { return Dot(*this); }
    double GetLength() const noexcept { return std::sqrt(GetLengthSquared()); }
    // Both scale this to length 1 (the two names are kept for callers of either). A zero
    // quaternion becomes the identity and gives Fail.
    CStatus NormalizeInPlace() noexcept;
    CStatus Normalize() noexcept { return NormalizeInPlace(); }
    // this = conjugate of q (the inverse rotation for a unit quaternion), and in place.
    constexpr CQuaternion& Conjugate(const CQuaternion& q) noexcept { return Set(q.w, -q.x, -q.y, -q.z); }
    constexpr CQuaternion& ConjugateInPlace() noexcept { return Set(w, -x, -y, -z); }
    // this = the rotation a followed by b, as with matrices in the row convention; that is
    // the Hamilton product b * a.
    constexpr CQuaternion& Mul(const CQuaternion& a, const CQuaternion& b) noexcept {
        return Set(
            b.w * a.w - b.x * a.x - b.y * a.y - b.z * a.z, b.w * a.x + b.x * a.w + b.y * a.z - b.z * a.y,
            b.w * a.y - b.x * a.z + b.y * a.w + b.z * a.x, b.w * a.z + b.x * a.y - b.y * a.x + b.z * a.w);
    }
    // this = this followed by b.
    constexpr CQuaternion& MulInPlace(const CQuaternion& b) noexcept { return Mul(CQuaternion(*this), b); }
    // this = spherical interpolation from a (t = 0) to b (t = 1) along the shorter arc, so at
    // t = 1 it may be -b, the same rotation. Inputs are used normalised; nearly equal inputs
    // fall back to a normalised linear interpolation.
    CQuaternion& Slerp(const CQuaternion& a, const CQuaternion& b, double t) noexcept;

    // Component-wise within epsilon (q and -q are not equal here; compare CRotations for that).
    bool Equals(const CQuaternion& q, double epsilon = 1e-12) const noexcept {
        return std::fabs(w - q.w) <= epsilon && std::fabs(x - q.x) <= epsilon &&
               std::fabs(y - q.y) <= epsilon && std::fabs(z - q.z) <= epsilon;
    }
    constexpr bool operator==(const CQuaternion& q) const noexcept {
        return w == q.w && x == q.x && y == q.y && z == q.z;
    }
    constexpr bool operator!=(const CQuaternion& q) const noexcept { return !(*this == q); }
};

// A rotation, kept as a unit quaternion, plus the rotation order used when it is built from
// or read as Euler angles.
class CRotation {
public:
    constexpr CRotation() noexcept = default;
    explicit CRotation(const CMatrix3& m) noexcept { SetFromMatrix(m); }
    CRotation(const CVector3& axis, double angle) noexcept { SetFromAxisAngle(axis, angle); }
    CRotation(double x, double y, double z, RotationOrder order = ovXYZ) noexcept {
        SetFromXYZAngles(x, y, z, order);
    }
    explicit CRotation(const CVector3& angles, RotationOrder order = ovXYZ) noexcept {
        SetFromXYZAngles(angles, order);
    }
    explicit CRotation(const CQuaternion& q) noexcept { SetFromQuaternion(q); }

    constexpr CRotation& SetIdentity() noexcept {
        m_q.SetIdentity();
        return *this;
    }
    // The matrix should be a rotation (v' = v * m); its nearest rotation is taken otherwise,
    // and a matrix without one (singular) gives the identity.
    CRotation& SetFromMatrix(const CMatrix3& m) noexcept;
    // Right-handed rotation by angle about axis; a zero axis gives the identity.
    CRotation& SetFromAxisAngle(const CVector3& axis, double angle) noexcept;
    // Euler angles in radians, applied in the given order, which is also stored. Without an
    // order it is ovXYZ, as for the constructors, whatever order was stored before.
    CRotation& SetFromXYZAngles(double x, double y, double z, RotationOrder order = ovXYZ) noexcept;
    CRotation& SetFromXYZAngles(const CVector3& angles, RotationOrder order = ovXYZ) noexcept {
        return SetFromXYZAngles(angles.x, angles.y, angles.z, order);
    }
    // Normalised; a zero quaternion gives the identity.
    CRotation& SetFromQuaternion(const CQuaternion& q) noexcept;

    // v' = v * GetMatrix().
    CMatrix3 GetMatrix() const noexcept;
    // Unit, with W >= 0.
    CQuaternion GetQuaternion() const noexcept;
    // Angles about X, Y, Z in radians, each in (-pi, pi], for the stored order; they rebuild
    // this rotation (at gimbal lock the last angle of the order is 0).
    CVector3 GetXYZAngles() const noexcept;
    // The unit axis, and the angle in [0, pi] through the argument; the identity gives the X
    // axis and 0.
    CVector3 GetAxisAngle(double& angle) const noexcept;

    // this = a followed by b (matrix a * b); the result takes a's rotation order.
    CRotation& Mul(const CRotation& a, const CRotation& b) noexcept;
    // this = this followed by b.
    CRotation& MulInPlace(const CRotation& b) noexcept { return Mul(CRotation(*this), b); }
    CRotation& InvertInPlace() noexcept {
        m_q.ConjugateInPlace();
        return *this;
    }
    CRotation& Invert(const CRotation& r) noexcept {
        *this = r;
        return InvertInPlace();
    }

    // Changes the order used for Euler angles only, not the rotation.
    constexpr void PutRotationOrder(RotationOrder order) noexcept { m_order = order; }
    constexpr RotationOrder GetRotationOrder() const noexcept { return m_order; }

    // Same rotation within epsilon, element by element of the matrices.
    bool Equals(const CRotation& r, double epsilon = 1e-12) const noexcept {
        return GetMatrix().Equals(r.GetMatrix(), epsilon);
    }

private:
    CQuaternion m_q;
    RotationOrder m_order = ovXYZ;
};

// Scale, then rotation, then translation, applied to a row vector: v' = v * S * R + T.
class CTransformation {
public:
    CTransformation() noexcept = default;
    CTransformation(const CVector3& scaling, const CRotation& rotation, const CVector3& translation) noexcept
        : m_scl(scaling), m_rot(rotation), m_pos(translation) {}

    CTransformation& SetIdentity() noexcept {
        *this = CTransformation();
        return *this;
    }

    const CVector3& GetTranslation() const noexcept { return m_pos; }
    CTransformation& SetTranslation(const CVector3& t) noexcept {
        m_pos = t;
        return *this;
    }
    CTransformation& SetTranslationFromValues(double x, double y, double z) noexcept {
        m_pos.Set(x, y, z);
        return *this;
    }
    CTransformation& SetPosX(double v) noexcept {
        m_pos.x = v;
        return *this;
    }
    CTransformation& SetPosY(double v) noexcept {
        m_pos.y = v;
        return *this;
    }
    CTransformation& SetPosZ(double v) noexcept {
        m_pos.z = v;
        return *this;
    }
    double GetPosX() const noexcept { return m_pos.x; }
    double GetPosY() const noexcept { return m_pos.y; }
    double GetPosZ() const noexcept { return m_pos.z; }

    const CRotation& GetRotation() const noexcept { return m_rot; }
    CTransformation& SetRotation(const CRotation& r) noexcept {
        m_rot = r;
        return *this;
    }
    CMatrix3 GetRotationMatrix3() const noexcept { return m_rot.GetMatrix(); }
    CQuaternion GetRotationQuaternion() const noexcept { return m_rot.GetQuaternion(); }
    // In the rotation's stored order.
    CVector3 GetRotationXYZAngles() const noexcept { return m_rot.GetXYZAngles(); }
    CTransformation& SetRotationFromAxisAngle(const CVector3& axis, double angle) noexcept {
        m_rot.SetFromAxisAngle(axis, angle);
        return *this;
    }
    CTransformation& SetRotationFromQuaternion(const CQuaternion& q) noexcept {
        m_rot.SetFromQuaternion(q);
        return *this;
    }
    CTransformation& SetRotationFromMatrix3(const CMatrix3& m) noexcept {
        m_rot.SetFromMatrix(m);
        return *this;
    }
    CTransformation& SetRotationFromXYZAngles(const CVector3& angles, RotationOrder order = ovXYZ) noexcept {
        m_rot.SetFromXYZAngles(angles, order);
        return *this;
    }
    CTransformation& SetRotationFromXYZAnglesValues(double x, double y, double z,
                                                    RotationOrder order = ovXYZ) noexcept {
        m_rot.SetFromXYZAngles(x, y, z, order);
        return *this;
    }
    // The three axes are the rows of the rotation matrix (the images of X, Y and Z). They are
    // normalised, and made orthogonal when they are not quite. Axes that are zero, parallel or
    // left-handed leave the rotation as it is and give InvalidArgument.
    CStatus SetRotationFromXYZAxes(const CVector3& x, const CVector3& y, const CVector3& z) noexcept;

    const CVector3& GetScaling() const noexcept { return m_scl; }
    CTransformation& SetScaling(const CVector3& s) noexcept {
        m_scl = s;
        return *this;
    }
    CTransformation& SetScalingFromValues(double x, double y, double z) noexcept {
        m_scl.Set(x, y, z);
        return *this;
    }

    // The 4 by 4 matrix, row-major, for v' = [v 1] * M: the upper 3 by 3 is S * R, the last
    // row holds the translation, the last column is (0, 0, 0, 1).
    std::array<double, 16> GetMatrix4() const noexcept;
    // Decomposes an affine 4 by 4 matrix of that layout: the scale is the lengths of the rows
    // of the upper 3 by 3, with the sign on X when the determinant is negative; the rotation
    // is the nearest one to the normalised rows (exact when there is no shear). A singular
    // upper 3 by 3 leaves this unchanged and gives Fail.
    CStatus SetMatrix4(const std::array<double, 16>& m) noexcept;

    // Inverts this. A zero scale leaves this unchanged and gives Fail. A non-uniform scale
    // under a rotation has no exact inverse of this form (the inverse shears); the nearest one
    // is then taken as in SetMatrix4.
    CStatus InvertInPlace() noexcept;
    CStatus Invert(const CTransformation& t) noexcept {
        *this = t;
        return InvertInPlace();
    }
    // this = a applied first, then b. Exact when b's scale is uniform and positive, otherwise
    // rebuilt from the 4 by 4 product as in SetMatrix4. The rotation takes a's order.
    CTransformation& Mul(const CTransformation& a, const CTransformation& b) noexcept;
    // this = this followed by b.
    CTransformation& MulInPlace(const CTransformation& b) noexcept { return Mul(CTransformation(*this), b); }

    // Same scale and translation within epsilon, and same rotation (see CRotation::Equals).
    bool Equals(const CTransformation& t, double epsilon = 1e-12) const noexcept {
        return m_scl.Equals(t.m_scl, epsilon) && m_pos.Equals(t.m_pos, epsilon) &&
               m_rot.Equals(t.m_rot, epsilon);
    }

private:
    CVector3 m_scl{1.0, 1.0, 1.0};
    CRotation m_rot;
    CVector3 m_pos;
};

// The pose relative to a parent: global * inverse(parentGlobal).
CTransformation MapWorldPoseToObjectSpace(const CTransformation& parentGlobal,
                                          const CTransformation& global) noexcept;
// The world pose of a local one: local * parentGlobal.
CTransformation MapObjectPoseToWorldSpace(const CTransformation& parentGlobal,
                                          const CTransformation& local) noexcept;
// A world point in the space of t (through the inverse of t), and back.
CVector3 MapWorldPositionToObjectSpace(const CTransformation& t, const CVector3& point) noexcept;
CVector3 MapObjectPositionToWorldSpace(const CTransformation& t, const CVector3& point) noexcept;

// Dense arrays of vectors. Out-of-range access reads a default element and writes to a
// scratch element that is not part of the array.
class CVector3Array {
public:
    CVector3Array() = default;
    explicit CVector3Array(long n) : m_items(n > 0 ? static_cast<std::size_t>(n) : 0) {}

    long GetCount() const noexcept { return static_cast<long>(m_items.size()); }
    const CVector3& operator[](long i) const noexcept;
    CVector3& operator[](long i) noexcept;
    void Add(const CVector3& v) { m_items.push_back(v); }
    void Resize(long n) { m_items.resize(n > 0 ? static_cast<std::size_t>(n) : 0); }
    void Clear() noexcept { m_items.clear(); }
    CVector3* GetArray() noexcept { return m_items.data(); }
    const CVector3* GetArray() const noexcept { return m_items.data(); }
    bool operator==(const CVector3Array& o) const noexcept { return m_items == o.m_items; }
    bool operator!=(const CVector3Array& o) const noexcept { return !(*this == o); }

private:
    std::vector<CVector3> m_items;
};

class CVector4Array {
public:
    CVector4Array() = default;
    explicit CVector4Array(long n) : m_items(n > 0 ? static_cast<std::size_t>(n) : 0) {}

    long GetCount() const noexcept { return static_cast<long>(m_items.size()); }
    const CVector4& operator[](long i) const noexcept;
    CVector4& operator[](long i) noexcept;
    void Add(const CVector4& v) { m_items.push_back(v); }
    void Resize(long n) { m_items.resize(n > 0 ? static_cast<std::size_t>(n) : 0); }
    void Clear() noexcept { m_items.clear(); }
    CVector4* GetArray() noexcept { return m_items.data(); }
    const CVector4* GetArray() const noexcept { return m_items.data(); }
    bool operator==(const CVector4Array& o) const noexcept { return m_items == o.m_items; }
    bool operator!=(const CVector4Array& o) const noexcept { return !(*this == o); }

private:
    std::vector<CVector4> m_items;
};

}  // namespace MATH
}  // namespace ORV
