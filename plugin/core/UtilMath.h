// The scene-free math of ZUK::Util: angle continuity, Euler angles, inversion, projection and
// the rotation between two pairs of axes. All of it on the host's value types.
#pragma once

#include <orv/ORV.h>

namespace ZUK {
namespace Util {

// The angle moved by whole turns to within half a turn of the reference; a difference of
// exactly half a turn stays.
double enforceContinuity(double angle, double reference);
// X, Y, Z angles of the transform's rotation, each in (-pi, pi].
void getEulerAngles(const ORV::MATH::CTransformation& transform, ORV::MATH::CVector3& out);
// The inverse through DrvTransform: scaling is dropped, the result has unit scaling.
ORV::MATH::CTransformation invertTransform(const ORV::MATH::CTransformation& transform);
// v minus its component along the normalised normal.
ORV::MATH::CVector3 projectOntoPlane(const ORV::MATH::CVector3& v, ORV::MATH::CVector3 normal);
// The rotation that takes a1 onto b1, then turns a2 about b1 into the plane of b2.
ORV::MATH::CRotation BuildRotationBetweenTwoAxisPairs(const ORV::MATH::CVector3& a1,
                                                      const ORV::MATH::CVector3& a2,
                                                      const ORV::MATH::CVector3& b1,
                                                      const ORV::MATH::CVector3& b2);

}  // namespace Util
}  // namespace ZUK
