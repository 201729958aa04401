#include "core/Drv.h"

#include <cmath>

namespace ZUK {

namespace {

// Thresholds kept at the single-precision values they always had.
constexpr double kSmall = 9.999999747378752e-06;   // 0.00001f
constexpr double kAlmostOne = 0.9999899864196777;  // 0.99999f
constexpr double kHalfTurnApprox = 3.1415927;      // the half turn of the fall-backs
constexpr double kFullTurnEuler = 6.28318531;      // wraps GetEulerAngles into [0, 2 pi)

inline DrvQuaternion AxisQuaternion(int axis, double angle) noexcept {
    const double s = std::sin(angle * 0.5);
    const double c = std::cos(angle * 0.5);
    switch (axis) {
        case 0:
            return DrvQuaternion(s, 0.0, 0.0, c);
        case 1:
            return DrvQuaternion(0.0, s, 0.0, c);
        default:
            return DrvQuaternion(0.0, 0.0, s, c);
    }
}

}  // namespace

const DrvVector NORMALX(1.0, 0.0, 0.0);
const DrvVector NORMALY(0.0, 1.0, 0.0);
const DrvVector NORMALZ(0.0, 0.0, 1.0);

// ---------------------------------------------------------------------------------------------
// DrvVector

void DrvVector::Set(double ax, double ay, double az) noexcept {
    x = ax;
    y = ay;
    z = az;
}

void DrvVector::Add(const DrvVector& a, const DrvVector& b) noexcept { Set(a.x + b.x, a.y + b.y, a.z + b.z); }

void DrvVector::Subtract(const DrvVector& a, const DrvVector& b) noexcept {
    Set(a.x - b.x, a.y - b.y, a.z - b.z);
}

void DrvVector::Multiply(const DrvVector& a, double scalar) noexcept {
    Set(a.x * scalar, a.y * scalar, a.z * scalar);
}

void DrvVector::CrossProduct(const DrvVector& a, const DrvVector& b) noexcept {
    Set(a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x);
}

double DrvVector::DotProduct(const DrvVector& v) const noexcept { return x * v.x + y * v.y + z * v.z; }

double DrvVector::Magnitude() const noexcept { return std::sqrt(x * x + y * y + z * z); }

void DrvVector::Normalize() noexcept { Multiply(*this, 1.0 / Magnitude()); }

void DrvVector::MultiplyQuaternion(const DrvVector& v, const DrvQuaternion& q) noexcept {
    // v' = (w^2 - |q|^2) v + 2 (q . v) q + 2 w (q x v)
    const double qq = q.x * q.x + q.y * q.y + q.z * q.z;
    const double a = q.w * q.w - qq;
    const double b = 2.0 * (q.x * v.x + q.y * v.y + q.z * v.z);
    const double c = 2.0 * q.w;
    const double cx = q.y * v.z - q.z * v.y;
    const double cy = q.z * v.x - q.x * v.z;
    const double cz = q.x * v.y - q.y * v.x;
    Set(a * v.x + b * q.x + c * cx, a * v.y + b * q.y + c * cy, a * v.z + b * q.z + c * cz);
}

void DrvVector::MultiplyTransform(const DrvVector& v, const DrvTransform& t) noexcept {
    MultiplyQuaternion(v, t.rotation);
    Add(*this, t.translation);
}

double DrvVector::GetAngle(const ORV::MATH::CVector3& a, const ORV::MATH::CVector3& b) {
    const double ma = std::sqrt(a.x * a.x + a.y * a.y + a.z * a.z);
    const double mb = std::sqrt(b.x * b.x + b.y * b.y + b.z * b.z);
    if (ma < kSmall || mb < kSmall) return 0.0;
    const double c = (a.x * b.x + a.y * b.y + a.z * b.z) / (ma * mb);
    if (c < -1.0) return 3.14159265358979;
    if (c > 1.0) return 0.0;
    return std::acos(c);
}

// ---------------------------------------------------------------------------------------------
// DrvQuaternion

void DrvQuaternion::Set(double ax, double ay, double az, double aw) noexcept {
    x = ax;
    y = ay;
    z = az;
    w = aw;
}

void DrvQuaternion::Multiply(const DrvQuaternion& a, const DrvQuaternion& b) noexcept {
    Set(a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
        a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z);
}

void DrvQuaternion::SetEulerAngles(double ax, double ay, double az) noexcept {
    const DrvQuaternion qx = AxisQuaternion(0, ax);
    const DrvQuaternion qy = AxisQuaternion(1, ay);
    const DrvQuaternion qz = AxisQuaternion(2, az);
    DrvQuaternion zy;
    zy.Multiply(qz, qy);
    Multiply(zy, qx);
}

void DrvQuaternion::GetEulerAngles(DrvVector& angles) const noexcept {
    _DrvMatrix mat;
    DrvMatrix_FromQuaternion(mat, *this);
    const double(&m)[4][4] = mat.m;

    double ay = std::atan2(-m[0][2], std::sqrt(m[0][0] * m[0][0] + m[0][1] * m[0][1]));
    const double c = std::cos(ay);  // before wrapping
    if (ay < 0.0) ay += kFullTurnEuler;

    double ax;
    double az;
    if (std::fabs(c) > 0.001) {
        az = std::atan2(m[0][1] / c, m[0][0] / c);
        ax = std::atan2(m[1][2] / c, m[2][2] / c);
    } else {
        // Gimbal lock: all of the turn goes to x. y is wrapped already, so 1.6 tells +90 degrees
        // from -90 degrees.
        az = 0.0;
        ax = std::atan2(m[1][0], m[1][1]);
        if (ay > 1.6) ax = -ax;
    }
    if (ax < 0.0) ax += kFullTurnEuler;
    if (az < 0.0) az += kFullTurnEuler;
    angles.Set(ax, ay, az);
}

void DrvQuaternion::SetOrder(const char* order, double ax, double ay, double az) noexcept {
    DrvQuaternion q[3];
    for (int i = 0; i < 3; ++i) {
        const char letter = order[i];
        if (letter == 'x')
            q[i].SetEulerAngles(ax, 0.0, 0.0);
        else if (letter == 'y')
            q[i].SetEulerAngles(0.0, ay, 0.0);
        else
            q[i].SetEulerAngles(0.0, 0.0, az);
        if (letter == '\0') {
            // A short string: the remaining letters count as "any other character" too.
            for (int j = i + 1; j < 3; ++j) q[j].SetEulerAngles(0.0, 0.0, az);
            break;
        }
    }
    DrvQuaternion qr;
    qr.Multiply(q[1], q[2]);
    Multiply(q[0], qr);
}

void DrvQuaternion::SetZXY(double ax, double ay, double az) noexcept { SetOrder("zxy", ax, ay, az); }

void DrvQuaternion::FromRotation(const DrvVector& axis, double angle) noexcept {
    const double s = std::sin(angle * 0.5);
    Set(axis.x * s, axis.y * s, axis.z * s, std::cos(angle * 0.5));
}

void DrvQuaternion::FromTwoVectors(const DrvVector& a, const DrvVector& b) noexcept {
    if (a.Magnitude() < kSmall || b.Magnitude() < kSmall) {
        Set(0.0, 0.0, 0.0, 1.0);
        return;
    }
    DrvVector na = a;
    DrvVector nb = b;
    na.Normalize();
    nb.Normalize();
    const double d = na.DotProduct(nb);
    if (d > kAlmostOne) {
        Set(0.0, 0.0, 0.0, 1.0);
        return;
    }
    DrvVector axis;
    double angle;
    if (d >= -kAlmostOne) {
        axis.CrossProduct(na, nb);
        axis.Normalize();
        angle = std::acos(d);
    } else {
        // Opposite vectors: a half turn about a fall-back axis picked on a's zero components.
        // For any a with fewer than two zero components the axis stays zero, which leaves the
        // nearly null quaternion (0, 0, 0, cos(pi / 2)); callers get no rotation at all.
        // An a along Y alone (x and z zero) turns about X, not Y: the Y rule needs y zero.
        const bool zx = std::fabs(a.x) < kSmall;
        const bool zy = std::fabs(a.y) < kSmall;
        const bool zz = std::fabs(a.z) < kSmall;
        if (zy && (zx || zz))
            axis = NORMALY;
        else if (zx && (zy || zz))
            axis = NORMALX;
        angle = kHalfTurnApprox;
    }
    FromRotation(axis, angle);
}

void DrvQuaternion::FromThreeVectors(const DrvVector& a0, const DrvVector& b0, const DrvVector& c0) noexcept {
    DrvVector a = a0;
    DrvVector b = b0;
    DrvVector c = c0;
    a.Normalize();
    b.Normalize();
    c.Normalize();

    const double t = a.x + 1.0 + b.y + c.z;
    if (t > kSmall) {
        w = std::sqrt(t) / 2.0;
        x = (b.z - c.y) / (4.0 * w);
        y = (c.x - a.z) / (4.0 * w);
        z = (a.y - b.x) / (4.0 * w);
    } else {
        w = 0.0;
        const double u = -(b.y + c.z) / 2.0;
        if (u > kSmall) {
            x = std::sqrt(u);
            y = b.x / (2.0 * x);
            z = c.x / (2.0 * x);
        } else {
            x = 0.0;
            const double v = (1.0 - c.z) / 2.0;
            if (v > kSmall) {
                y = std::sqrt(v);
                z = c.y / (2.0 * y);
            } else {
                y = 0.0;
                z = 1.0;
            }
        }
    }
    const double len = std::sqrt(x * x + y * y + z * z + w * w);
    Set(x / len, y / len, z / len, w / len);
}

void DrvQuaternion::Interpolate(const DrvQuaternion& a0, const DrvQuaternion& b, double t,
                                int spin) noexcept {
    DrvQuaternion a = a0;
    double d = a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
    if (d < 0.0) {
        a.Set(-a.x, -a.y, -a.z, -a.w);
        d = -d;
    }
    double wa;
    double wb;
    if (1.0 - d < 0.05) {
        wa = 1.0 - t;
        wb = t;
    } else {
        const double o = std::acos(d);
        const double p = (o + spin * kHalfTurnApprox) * t;
        const double so = std::sin(o);
        wa = std::sin(o - p) / so;
        wb = std::sin(p) / so;
    }
    Set(wa * a.x + wb * b.x, wa * a.y + wb * b.y, wa * a.z + wb * b.z, wa * a.w + wb * b.w);
}

// ---------------------------------------------------------------------------------------------
// DrvTransform

DrvTransform::DrvTransform(const ORV::MATH::CTransformation& t) { Set(t); }

void DrvTransform::Set(const ORV::MATH::CTransformation& t) {
    const ORV::MATH::CVector3 p = t.GetTranslation();
    translation.Set(p.x, p.y, p.z);
    const ORV::MATH::CQuaternion q = t.GetRotationQuaternion();
    rotation.Set(q.GetX(), q.GetY(), q.GetZ(), q.GetW());
}

ORV::MATH::CTransformation DrvTransform::GetCTransformation() const {
    ORV::MATH::CTransformation t;
    t.SetIdentity();
    t.SetRotationFromQuaternion(ORV::MATH::CQuaternion(rotation.w, rotation.x, rotation.y, rotation.z));
    t.SetTranslationFromValues(translation.x, translation.y, translation.z);
    return t;
}

void DrvTransform::SetIdentity() noexcept {
    translation.Set(0.0, 0.0, 0.0);
    rotation.Set(0.0, 0.0, 0.0, 1.0);
}

void DrvTransform::Multiply(const DrvTransform& a, const DrvTransform& b) noexcept {
    DrvVector t;
    t.MultiplyQuaternion(b.translation, a.rotation);
    t.Add(t, a.translation);
    rotation.Multiply(a.rotation, b.rotation);
    translation = t;
}

void DrvTransform::Invert() noexcept {
    rotation.Set(-rotation.x, -rotation.y, -rotation.z, rotation.w);
    DrvVector negated;
    negated.Multiply(translation, -1.0);
    translation.MultiplyQuaternion(negated, rotation);
}

}  // namespace ZUK

void DrvMatrix_FromQuaternion(_DrvMatrix& matrix, const ZUK::DrvQuaternion& q) {
    const double x = q.x, y = q.y, z = q.z, w = q.w;
    double(&m)[4][4] = matrix.m;
    m[0][0] = 1.0 - 2.0 * (y * y + z * z);
    m[0][1] = 2.0 * (x * y + w * z);
    m[0][2] = 2.0 * (x * z - w * y);
    m[0][3] = 0.0;
    m[1][0] = 2.0 * (x * y - w * z);
    m[1][1] = 1.0 - 2.0 * (x * x + z * z);
    m[1][2] = 2.0 * (y * z + w * x);
    m[1][3] = 0.0;
    m[2][0] = 2.0 * (x * z + w * y);
    m[2][1] = 2.0 * (y * z - w * x);
    m[2][2] = 1.0 - 2.0 * (x * x + y * y);
    m[2][3] = 0.0;
    m[3][0] = 0.0;
    m[3][1] = 0.0;
    m[3][2] = 0.0;
    m[3][3] = 1.0;
}
