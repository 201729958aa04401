// Small value types for the plug-in's own hot-path and file-level math: a vector, a quaternion
// and a rigid transform (translation and rotation, no scaling), all of doubles.
//
// Column convention throughout: Multiply(a, b) is a applied after b, and quaternion products are
// Hamilton products with the scalar in w. The host's CTransformation::Mul(a, b) is the other way
// round (a applied first); take care wherever the two meet.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class DrvQuaternion;
class DrvTransform;

class DrvVector {
public:
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;

    DrvVector() noexcept = default;
    DrvVector(double ax, double ay, double az) noexcept : x(ax), y(ay), z(az) {}

    void Set(double ax, double ay, double az) noexcept;
    // Each of these writes its result into this object; any argument may be this object.
    void Add(const DrvVector& a, const DrvVector& b) noexcept;
    void Subtract(const DrvVector& a, const DrvVector& b) noexcept;
    void Multiply(const DrvVector& a, double scalar) noexcept;
    void CrossProduct(const DrvVector& a, const DrvVector& b) noexcept;
    double DotProduct(const DrvVector& v) const noexcept;
    double Magnitude() const noexcept;
    // Multiplies by 1 / magnitude; a zero vector becomes NaN, callers keep away from it.
    void Normalize() noexcept;
    // Rotates v by q, expanded directly without a matrix (per node per frame in the readers).
    void MultiplyQuaternion(const DrvVector& v, const DrvQuaternion& q) noexcept;
    // Rotates v by t's rotation and adds t's translation.
    void MultiplyTransform(const DrvVector& v, const DrvTransform& t) noexcept;

    // Angle between two host vectors in [0, pi]; 0 when either is shorter than 1e-5.
    static double GetAngle(const ORV::MATH::CVector3& a, const ORV::MATH::CVector3& b);
};

class DrvQuaternion {
public:
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
    double w = 1.0;

    DrvQuaternion() noexcept = default;
    DrvQuaternion(double ax, double ay, double az, double aw) noexcept : x(ax), y(ay), z(az), w(aw) {}

    void Set(double ax, double ay, double az, double aw) noexcept;
    // Hamilton product a * b (b applied first); either argument may be this object.
    void Multiply(const DrvQuaternion& a, const DrvQuaternion& b) noexcept;
    // X first, then Y, then Z: qZ * qY * qX (the host's XYZ order).
    void SetEulerAngles(double ax, double ay, double az) noexcept;
    // Angles in [0, 2 pi) through the row matrix, with the gimbal rule at +-90 degrees about Y.
    void GetEulerAngles(DrvVector& angles) const noexcept;
    // Three letters; "x" and "y" pick their axis, any other character picks Z. p * (q * r).
    void SetOrder(const char* order, double ax, double ay, double az) noexcept;
    void SetZXY(double ax, double ay, double az) noexcept;
    // The axis is taken as given, not normalised.
    void FromRotation(const DrvVector& axis, double angle) noexcept;
    // Shortest rotation from a to b, with the fall-back axes for opposite vectors.
    void FromTwoVectors(const DrvVector& a, const DrvVector& b) noexcept;
    // a, b, c are the rows of a rotation matrix; trace method, normalised at the end.
    void FromThreeVectors(const DrvVector& a, const DrvVector& b, const DrvVector& c) noexcept;
    // Spherical interpolation with `spin` extra half turns; linear when closer than 0.05, and
    // never normalised.
    void Interpolate(const DrvQuaternion& a, const DrvQuaternion& b, double t, int spin) noexcept;
};

class DrvTransform {
public:
    DrvVector translation;
    DrvQuaternion rotation;

    DrvTransform() noexcept = default;
    // Copies translation and rotation; any scaling of the host transform is dropped.
    explicit DrvTransform(const ORV::MATH::CTransformation& t);
    void Set(const ORV::MATH::CTransformation& t);
    // A host transform with unit scaling.
    ORV::MATH::CTransformation GetCTransformation() const;
    void SetIdentity() noexcept;
    // a applied after b; either argument may be this object.
    void Multiply(const DrvTransform& a, const DrvTransform& b) noexcept;
    void Invert() noexcept;
};

extern const DrvVector NORMALX;
extern const DrvVector NORMALY;
extern const DrvVector NORMALZ;

}  // namespace ZUK

// 4 by 4 matrix of doubles, stored row by row.
struct _DrvMatrix {
    double m[4][4];
};

// Row form of a unit quaternion's rotation: a vector is a row on the left of the matrix.
void DrvMatrix_FromQuaternion(_DrvMatrix& matrix, const ZUK::DrvQuaternion& q);
