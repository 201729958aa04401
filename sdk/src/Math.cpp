// ORV::MATH: vectors, matrices, quaternions, rotations and transformations (row convention).
#include <orv/Math.h>

#include <algorithm>
#include <cmath>

namespace ORV {
namespace MATH {

namespace {

// A matrix is treated as singular when its determinant is this small next to the product of
// its row lengths (the largest the determinant can be for those rows).
constexpr double kSingular = 1e-14;
// Below this, cos of the middle Euler angle is rounding noise: gimbal lock.
constexpr double kGimbal = 1e-14;

double WrapAngle(double a) noexcept {
    // atan2 gives [-pi, pi]; the range is (-pi, pi].
    return a <= -PI ? a + 2.0 * PI : a;
}

// The axes of an order, first applied first.
void OrderAxes(RotationOrder order, int axes[3]) noexcept {
    static const int table[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    const int o = (order >= ovXYZ && order <= ovZYX) ? order : ovXYZ;
    axes[0] = table[o][0];
    axes[1] = table[o][1];
    axes[2] = table[o][2];
}

CQuaternion AxisQuaternion(int axis, double angle) noexcept {
    const double s = std::sin(0.5 * angle), c = std::cos(0.5 * angle);
    return CQuaternion(c, axis == 0 ? s : 0.0, axis == 1 ? s : 0.0, axis == 2 ? s : 0.0);
}

// Unit and with W >= 0, so that equal rotations have equal quaternions.
CQuaternion Canonical(CQuaternion q) noexcept {
    if (q.NormalizeInPlace() != CStatus::OK) return CQuaternion();
    if (q.w < 0.0) q.Set(-q.w, -q.x, -q.y, -q.z);
    return q;
}

CQuaternion QuaternionFromRotationMatrix(const CMatrix3& m) noexcept {
    // Shepperd's method on the column form R = transpose(m), picking the largest pivot.
    const double r00 = m(0, 0), r11 = m(1, 1), r22 = m(2, 2);
    const double trace = r00 + r11 + r22;
    CQuaternion q;
    if (trace > 0.0) {
        const double s = 0.5 / std::sqrt(trace + 1.0);
        q.Set(0.25 / s, (m(1, 2) - m(2, 1)) * s, (m(2, 0) - m(0, 2)) * s, (m(0, 1) - m(1, 0)) * s);
    } else if (r00 >= r11 && r00 >= r22) {
        const double s = 2.0 * std::sqrt(std::max(0.0, 1.0 + r00 - r11 - r22));
        q.Set((m(1, 2) - m(2, 1)) / s, 0.25 * s, (m(0, 1) + m(1, 0)) / s, (m(0, 2) + m(2, 0)) / s);
    } else if (r11 >= r22) {
        const double s = 2.0 * std::sqrt(std::max(0.0, 1.0 + r11 - r00 - r22));
        q.Set((m(2, 0) - m(0, 2)) / s, (m(0, 1) + m(1, 0)) / s, 0.25 * s, (m(1, 2) + m(2, 1)) / s);
    } else {
        const double s = 2.0 * std::sqrt(std::max(0.0, 1.0 + r22 - r00 - r11));
        q.Set((m(0, 1) - m(1, 0)) / s, (m(0, 2) + m(2, 0)) / s, (m(1, 2) + m(2, 1)) / s, 0.25 * s);
    }
    return Canonical(q);
}

// Replaces m by the orthogonal factor of its polar decomposition (the nearest orthogonal
// matrix), by the Newton iteration M <- (M + M^-T) / 2. False when m is singular.
bool Orthogonalize(CMatrix3& m) noexcept {
    for (int iteration = 0; iteration < 60; ++iteration) {
        CMatrix3 inv;
        if (inv.Invert(m) != CStatus::OK) return false;
        double change = 0.0;
        CMatrix3 next;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                next(i, j) = 0.5 * (m(i, j) + inv(j, i));
                change = std::max(change, std::fabs(next(i, j) - m(i, j)));
            }
        m = next;
        if (change <= 1e-15) break;
    }
    return true;
}

using Matrix4 = std::array<double, 16>;

Matrix4 Mul4(const Matrix4& a, const Matrix4& b) noexcept {
    Matrix4 r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0.0;
            for (int k = 0; k < 4; ++k) s += a[i * 4 + k] * b[k * 4 + j];
            r[i * 4 + j] = s;
        }
    return r;
}

// Inverse of an affine matrix [U 0; t 1]: [U^-1 0; -t U^-1 1]. False when U is singular.
bool InvertAffine4(const Matrix4& m, Matrix4& out) noexcept {
    CMatrix3 u(m[0], m[1], m[2], m[4], m[5], m[6], m[8], m[9], m[10]);
    if (u.InvertInPlace() != CStatus::OK) return false;
    const CVector3 t(m[12], m[13], m[14]);
    CVector3 ti;
    ti.MulByMatrix3(t, u).NegateInPlace();
    out = {u(0, 0), u(0, 1), u(0, 2), 0.0, u(1, 0), u(1, 1), u(1, 2), 0.0,
           u(2, 0), u(2, 1), u(2, 2), 0.0, ti.x,    ti.y,    ti.z,    1.0};
    return true;
}

bool IsUniform(const CVector3& s) noexcept { return s.x == s.y && s.y == s.z; }

}  // namespace

// ---------------------------------------------------------------------------------- CVector3

CStatus CVector3::NormalizeInPlace() noexcept {
    const double len = GetLength();
    if (!(len > 0.0) || !std::isfinite(len)) return CStatus::Fail;
    x /= len;
    y /= len;
    z /= len;
    return CStatus::OK;
}

CStatus CVector3::Normalize(const CVector3& v) noexcept {
    *this = v;
    return NormalizeInPlace();
}

double CVector3::GetAngle(const CVector3& v) const noexcept {
    // atan2 of |a x b| and a . b keeps full precision near 0 and pi, where acos does not.
    CVector3 c;
    c.Cross(*this, v);
    const double s = c.GetLength(), d = Dot(v);
    if (s == 0.0 && d == 0.0) return 0.0;
    return std::atan2(s, d);
}

CVector3& CVector3::MulByTransformation(const CVector3& v, const CTransformation& t) noexcept {
    CVector3 p;
    p.MulComponents(v, t.GetScaling()).MulByRotationInPlace(t.GetRotation()).AddInPlace(t.GetTranslation());
    return *this = p;
}

CVector3& CVector3::MulByTransformationInPlace(const CTransformation& t) noexcept {
    return MulByTransformation(CVector3(*this), t);
}

CVector3& CVector3::MulByRotation(const CVector3& v, const CRotation& r) noexcept {
    return MulByMatrix3(v, r.GetMatrix());
}

CVector3& CVector3::MulByRotationInPlace(const CRotation& r) noexcept {
    return MulByRotation(CVector3(*this), r);
}

CVector3& CVector3::MulByMatrix3(const CVector3& v, const CMatrix3& m) noexcept {
    return Set(v.x * m(0, 0) + v.y * m(1, 0) + v.z * m(2, 0), v.x * m(0, 1) + v.y * m(1, 1) + v.z * m(2, 1),
               v.x * m(0, 2) + v.y * m(1, 2) + v.z * m(2, 2));
}

CVector3& CVector3::MulByMatrix3InPlace(const CMatrix3& m) noexcept {
    return MulByMatrix3(CVector3(*this), m);
}

// ---------------------------------------------------------------------------------- CMatrix3

CStatus CMatrix3::Invert(const CMatrix3& a) noexcept {
    const double det = a.GetDeterminant();
    const double rows = a.GetRow(0).GetLength() * a.GetRow(1).GetLength() * a.GetRow(2).GetLength();
    if (!(rows > 0.0) || !(std::fabs(det) > kSingular * rows) || !std::isfinite(det)) return CStatus::Fail;
    const double k = 1.0 / det;
    const CMatrix3 m = a;  // a may be this
    Set(k * (m(1, 1) * m(2, 2) - m(1, 2) * m(2, 1)), k * (m(0, 2) * m(2, 1) - m(0, 1) * m(2, 2)),
        k * (m(0, 1) * m(1, 2) - m(0, 2) * m(1, 1)), k * (m(1, 2) * m(2, 0) - m(1, 0) * m(2, 2)),
        k * (m(0, 0) * m(2, 2) - m(0, 2) * m(2, 0)), k * (m(0, 2) * m(1, 0) - m(0, 0) * m(1, 2)),
        k * (m(1, 0) * m(2, 1) - m(1, 1) * m(2, 0)), k * (m(0, 1) * m(2, 0) - m(0, 0) * m(2, 1)),
        k * (m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0)));
    return CStatus::OK;
}

CStatus CMatrix3::InvertInPlace() noexcept { return Invert(CMatrix3(*this)); }

// ------------------------------------------------------------------------------- CQuaternion

CStatus CQuaternion::NormalizeInPlace() noexcept {
    const double len = GetLength();
    if (!(len > 0.0) || !std::isfinite(len)) {
        SetIdentity();
        return CStatus::Fail;
    }
    w /= len;
    x /= len;
    y /= len;
    z /= len;
    return CStatus::OK;
}

CQuaternion& CQuaternion::Slerp(const CQuaternion& a, const CQuaternion& b, double t) noexcept {
    CQuaternion qa = a, qb = b;
    qa.NormalizeInPlace();
    qb.NormalizeInPlace();
    if (qa.Dot(qb) < 0.0) qb.Set(-qb.w, -qb.x, -qb.y, -qb.z);  // the shorter arc
    // The angle between the two unit 4-vectors, accurate also when they are close.
    const CQuaternion diff(qa.w - qb.w, qa.x - qb.x, qa.y - qb.y, qa.z - qb.z);
    const CQuaternion sum(qa.w + qb.w, qa.x + qb.x, qa.y + qb.y, qa.z + qb.z);
    const double theta = 2.0 * std::atan2(diff.GetLength(), sum.GetLength());
    double ka, kb;
    if (theta < 1e-6) {
        // Nearly equal: linear interpolation, normalised below, differs from the arc by
        // less than theta^3.
        ka = 1.0 - t;
        kb = t;
    } else {
        const double s = std::sin(theta);
        ka = std::sin((1.0 - t) * theta) / s;
        kb = std::sin(t * theta) / s;
    }
    Set(ka * qa.w + kb * qb.w, ka * qa.x + kb * qb.x, ka * qa.y + kb * qb.y, ka * qa.z + kb * qb.z);
    NormalizeInPlace();
    return *this;
}

// --------------------------------------------------------------------------------- CRotation

CRotation& CRotation::SetFromMatrix(const CMatrix3& m) noexcept {
    CMatrix3 r = m;
    if (!Orthogonalize(r) || !(r.GetDeterminant() > 0.0)) {
        m_q.SetIdentity();
        return *this;
    }
    m_q = QuaternionFromRotationMatrix(r);
    return *this;
}

CRotation& CRotation::SetFromAxisAngle(const CVector3& axis, double angle) noexcept {
    CVector3 a = axis;
    if (a.NormalizeInPlace() != CStatus::OK || !std::isfinite(angle)) {
        m_q.SetIdentity();
        return *this;
    }
    const double s = std::sin(0.5 * angle);
    m_q = Canonical(CQuaternion(std::cos(0.5 * angle), s * a.x, s * a.y, s * a.z));
    return *this;
}

CRotation& CRotation::SetFromXYZAngles(double x, double y, double z, RotationOrder order) noexcept {
    int axes[3];
    OrderAxes(order, axes);
    const double angle[3] = {x, y, z};
    CQuaternion q = AxisQuaternion(axes[0], angle[axes[0]]);
    q.MulInPlace(AxisQuaternion(axes[1], angle[axes[1]]));
    q.MulInPlace(AxisQuaternion(axes[2], angle[axes[2]]));
    m_q = Canonical(q);
    m_order = order;
    return *this;
}

CRotation& CRotation::SetFromQuaternion(const CQuaternion& q) noexcept {
    m_q = Canonical(q);
    return *this;
}

CMatrix3 CRotation::GetMatrix() const noexcept {
    const double w = m_q.w, x = m_q.x, y = m_q.y, z = m_q.z;
    return CMatrix3(1.0 - 2.0 * (y * y + z * z), 2.0 * (x * y + w * z), 2.0 * (x * z - w * y),  //
                    2.0 * (x * y - w * z), 1.0 - 2.0 * (x * x + z * z), 2.0 * (y * z + w * x),  //
                    2.0 * (x * z + w * y), 2.0 * (y * z - w * x), 1.0 - 2.0 * (x * x + y * y));
}

CQuaternion CRotation::GetQuaternion() const noexcept { return m_q; }

CVector3 CRotation::GetXYZAngles() const noexcept {
    // With M = Ei(a) * Ej(b) * Ek(c) for the order's axes i, j, k, relabel the axes so that
    // i, j, k become X, Y, Z and decompose as the XYZ order. An odd relabelling is a mirror,
    // which turns every angle round, hence the sign.
    int ax[3];
    OrderAxes(m_order, ax);
    const bool odd = m_order == ovXZY || m_order == ovYXZ || m_order == ovZYX;
    const CMatrix3 m = GetMatrix();
    // c(r, s): the column-convention matrix transpose(M) in the relabelled axes.
    auto c = [&](int r, int s) { return m(ax[s], ax[r]); };

    // Column form Rz(c3) * Ry(b) * Rx(a):
    //   c(2,0) = -sin b, c(0,0) = cos b cos c3, c(1,0) = cos b sin c3; a from the rows
    //   without dividing by cos b, so it stays exact at gimbal lock.
    const double cosB = std::hypot(c(0, 0), c(1, 0));
    const double b = std::atan2(-c(2, 0), cosB);
    const double last = cosB < kGimbal ? 0.0 : std::atan2(c(1, 0), c(0, 0));
    const double sl = std::sin(last), cl = std::cos(last);
    const double a = std::atan2(sl * c(0, 2) - cl * c(1, 2), cl * c(1, 1) - sl * c(0, 1));

    const double sign = odd ? -1.0 : 1.0;
    double angle[3];
    angle[ax[0]] = WrapAngle(sign * a);
    angle[ax[1]] = WrapAngle(sign * b);
    angle[ax[2]] = WrapAngle(sign * last);
    return CVector3(angle[0], angle[1], angle[2]);
}

CVector3 CRotation::GetAxisAngle(double& angle) const noexcept {
    const CVector3 v(m_q.x, m_q.y, m_q.z);
    const double s = v.GetLength();
    if (!(s > 0.0)) {
        angle = 0.0;
        return CVector3(1.0, 0.0, 0.0);
    }
    angle = 2.0 * std::atan2(s, std::fabs(m_q.w));
    return (m_q.w < 0.0 ? -v : v) / s;
}

CRotation& CRotation::Mul(const CRotation& a, const CRotation& b) noexcept {
    CQuaternion q;
    q.Mul(a.m_q, b.m_q);
    m_q = Canonical(q);
    m_order = a.m_order;
    return *this;
}

// --------------------------------------------------------------------------- CTransformation

CStatus CTransformation::SetRotationFromXYZAxes(const CVector3& x, const CVector3& y,
                                                const CVector3& z) noexcept {
    CVector3 a = x, b = y, c = z;
    if (a.NormalizeInPlace() != CStatus::OK || b.NormalizeInPlace() != CStatus::OK ||
        c.NormalizeInPlace() != CStatus::OK)
        return CStatus::InvalidArgument;
    CMatrix3 m;
    m.SetRow(0, a).SetRow(1, b).SetRow(2, c);
    // Unit rows: the determinant is the volume they span, 1 for a right-handed frame.
    if (!(m.GetDeterminant() > kSingular) || !Orthogonalize(m) || !(m.GetDeterminant() > 0.0))
        return CStatus::InvalidArgument;
    m_rot.SetFromMatrix(m);
    return CStatus::OK;
}

std::array<double, 16> CTransformation::GetMatrix4() const noexcept {
    const CMatrix3 r = m_rot.GetMatrix();
    const double s[3] = {m_scl.x, m_scl.y, m_scl.z};
    std::array<double, 16> m{};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) m[i * 4 + j] = s[i] * r(i, j);
        m[i * 4 + 3] = 0.0;
    }
    m[12] = m_pos.x;
    m[13] = m_pos.y;
    m[14] = m_pos.z;
    m[15] = 1.0;
    return m;
}

CStatus CTransformation::SetMatrix4(const std::array<double, 16>& m) noexcept {
    CMatrix3 u(m[0], m[1], m[2], m[4], m[5], m[6], m[8], m[9], m[10]);
    const double det = u.GetDeterminant();
    const double len[3] = {u.GetRow(0).GetLength(), u.GetRow(1).GetLength(), u.GetRow(2).GetLength()};
    const double rows = len[0] * len[1] * len[2];
    if (!(rows > 0.0) || !(std::fabs(det) > kSingular * rows) || !std::isfinite(det)) return CStatus::Fail;
    // A mirror puts its sign on the X scale.
    const CVector3 scale(det < 0.0 ? -len[0] : len[0], len[1], len[2]);
    CMatrix3 r;
    r.SetRow(0, u.GetRow(0) / scale.x).SetRow(1, u.GetRow(1) / scale.y).SetRow(2, u.GetRow(2) / scale.z);
    m_rot.SetFromMatrix(r);
    m_scl = scale;
    m_pos.Set(m[12], m[13], m[14]);
    return CStatus::OK;
}

CStatus CTransformation::InvertInPlace() noexcept {
    if (m_scl.x == 0.0 || m_scl.y == 0.0 || m_scl.z == 0.0) return CStatus::Fail;
    if (IsUniform(m_scl)) {
        // v = (v' - t) R^T / s: scale 1/s, rotation R^T, translation -(t R^T) / s.
        CRotation inv = m_rot;
        inv.InvertInPlace();
        CVector3 t;
        t.MulByRotation(m_pos, inv).ScaleInPlace(-1.0 / m_scl.x);
        m_scl.Set(1.0 / m_scl.x, 1.0 / m_scl.x, 1.0 / m_scl.x);
        m_rot = inv;
        m_pos = t;
        return CStatus::OK;
    }
    std::array<double, 16> inv;
    if (!InvertAffine4(GetMatrix4(), inv)) return CStatus::Fail;
    return SetMatrix4(inv);
}

CTransformation& CTransformation::Mul(const CTransformation& a, const CTransformation& b) noexcept {
    if (IsUniform(b.m_scl) && b.m_scl.x > 0.0) {
        // p = (v Sa Ra + ta) s Rb + tb = v (s Sa) (Ra Rb) + (ta Rb s + tb): exact.
        const double s = b.m_scl.x;
        CVector3 t;
        t.MulByRotation(a.m_pos, b.m_rot).ScaleInPlace(s).AddInPlace(b.m_pos);
        CRotation r;
        r.Mul(a.m_rot, b.m_rot);
        m_scl = a.m_scl * s;
        m_rot = r;
        m_pos = t;
        return *this;
    }
    const std::array<double, 16> m = Mul4(a.GetMatrix4(), b.GetMatrix4());
    const CTransformation keepA = a, keepB = b;  // a or b may be this
    m_rot.PutRotationOrder(keepA.m_rot.GetRotationOrder());
    if (SetMatrix4(m) != CStatus::OK) {
        // A zero scale has no rotation to decompose: keep the factors' rotations and scales,
        // and the exact translation.
        m_rot.Mul(keepA.m_rot, keepB.m_rot);
        m_scl.MulComponents(keepA.m_scl, keepB.m_scl);
        m_pos.Set(m[12], m[13], m[14]);
    }
    return *this;
}

// ---------------------------------------------------------------------------- free functions

CTransformation MapWorldPoseToObjectSpace(const CTransformation& parentGlobal,
                                          const CTransformation& global) noexcept {
    CTransformation local;
    if (IsUniform(parentGlobal.GetScaling())) {
        CTransformation inv = parentGlobal;
        if (inv.InvertInPlace() == CStatus::OK) return local.Mul(global, inv);
        return global;
    }
    // Non-uniform parent scale: one decomposition of the exact product.
    std::array<double, 16> inv;
    if (!InvertAffine4(parentGlobal.GetMatrix4(), inv)) return global;
    local.SetRotation(global.GetRotation());  // keeps the rotation order
    if (local.SetMatrix4(Mul4(global.GetMatrix4(), inv)) != CStatus::OK) return global;
    return local;
}

CTransformation MapObjectPoseToWorldSpace(const CTransformation& parentGlobal,
                                          const CTransformation& local) noexcept {
    CTransformation world;
    return world.Mul(local, parentGlobal);
}

CVector3 MapWorldPositionToObjectSpace(const CTransformation& t, const CVector3& point) noexcept {
    // v = (p - T) R^T S^-1, exact for any scale; an axis of zero scale gives 0.
    CRotation inv = t.GetRotation();
    inv.InvertInPlace();
    CVector3 v;
    v.Sub(point, t.GetTranslation()).MulByRotationInPlace(inv);
    const CVector3& s = t.GetScaling();
    return CVector3(s.x != 0.0 ? v.x / s.x : 0.0, s.y != 0.0 ? v.y / s.y : 0.0, s.z != 0.0 ? v.z / s.z : 0.0);
}

CVector3 MapObjectPositionToWorldSpace(const CTransformation& t, const CVector3& point) noexcept {
    CVector3 v;
    return v.MulByTransformation(point, t);
}

}  // namespace MATH
}  // namespace ORV
