#include "core/UtilMath.h"

#include <cmath>
#include <cstdlib>

#include "core/Drv.h"

namespace ZUK {
namespace Util {

double enforceContinuity(double angle, double reference) {
    if (!std::isfinite(angle) || !std::isfinite(reference)) return angle;
    // Only corrupt input is millions of turns away; bring it near first so that the loops
    // below stay short. Nearer angles take the loops alone, turn by turn.
    const double diff = angle - reference;
    if (std::fabs(diff) > 1.0e7) angle = reference + std::fmod(diff, 6.2831853071796);
    while (angle - reference > 3.14159265359) angle -= 6.2831853071796;
    while (angle - reference < -3.14159265359) angle += 6.2831853071796;
    return angle;
}

void getEulerAngles(const ORV::MATH::CTransformation& transform, ORV::MATH::CVector3& out) {
    const ORV::MATH::CQuaternion hq = transform.GetRotationQuaternion();
    const DrvQuaternion q(hq.GetX(), hq.GetY(), hq.GetZ(), hq.GetW());
    DrvVector angles;
    q.GetEulerAngles(angles);
    double a[3] = {angles.x, angles.y, angles.z};
    for (double& v : a) {
        if (v > 3.14159265358979) v -= 6.283185307179586;
    }
    out.Set(a[0], a[1], a[2]);
}

ORV::MATH::CTransformation invertTransform(const ORV::MATH::CTransformation& transform) {
    DrvTransform t(transform);
    t.Invert();
    return t.GetCTransformation();
}

ORV::MATH::CVector3 projectOntoPlane(const ORV::MATH::CVector3& v, ORV::MATH::CVector3 normal) {
    const double length = normal.GetLength();
    normal.Set(normal.x / length, normal.y / length, normal.z / length);
    const double along = v.Dot(normal);
    return ORV::MATH::CVector3(v.x - along * normal.x, v.y - along * normal.y, v.z - along * normal.z);
}

ORV::MATH::CRotation BuildRotationBetweenTwoAxisPairs(const ORV::MATH::CVector3& a1,
                                                      const ORV::MATH::CVector3& a2,
                                                      const ORV::MATH::CVector3& b1,
                                                      const ORV::MATH::CVector3& b2) {
    // First rotation: a1 onto b1.
    ORV::MATH::CVector3 axis;
    axis.Cross(a1, b1);
    ORV::MATH::CTransformation first;
    first.SetRotationFromAxisAngle(axis, a1.GetAngle(b1));
    ORV::MATH::CTransformation t;
    t.SetIdentity();
    t.Mul(t, first);

    // a2 through T's rotation matrix, as a row vector.
    const ORV::MATH::CMatrix3 m = t.GetRotationMatrix3();
    ORV::MATH::CVector3 ra2;
    for (int j = 0; j < 3; ++j) ra2[j] = a2.x * m.Get(0, j) + a2.y * m.Get(1, j) + a2.z * m.Get(2, j);

    // b2 in the plane normal to b1.
    const ORV::MATH::CVector3 p = projectOntoPlane(b2, b1);

    // Second rotation: the rotated a2 onto p.
    ORV::MATH::CVector3 axis2;
    axis2.Cross(ra2, p);
    const double angle2 = ra2.GetAngle(p);

    // Keeps the truncating test on purpose: every angle from 3 radians up turns about b1, every
    // smaller one about the cross product. A tolerance around pi would behave differently.
    if (std::isfinite(angle2)) {
        const double whole = std::fabs(static_cast<double>(static_cast<int>(angle2)));
        const double rest = std::fabs(static_cast<double>(static_cast<int>(whole - 3.14159265359)));
        if (rest < 0.00001) axis2 = b1;
    }

    ORV::MATH::CTransformation second;
    second.SetRotationFromAxisAngle(axis2, angle2);
    ORV::MATH::CTransformation result;
    result.Mul(t, second);
    return result.GetRotation();
}

}  // namespace Util
}  // namespace ZUK
