#include "glue/SpineMap.h"

#include <cmath>
#include <vector>

#include "core/BezierCurve.h"
#include "core/Drv.h"
#include "core/UtilMath.h"
#include "glue/GlueMap.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

namespace {

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

const double NOW = ModelMap::NOW;
// Objects closer than this are one joint: null bones do not count.
const double COINCIDENT = 0.00001;
// These exact decimals, not full-precision values of pi.
const double TWO_PI = 6.28318530718;
const double HALF_TURN = 3.1415927;

CTransformation globalOf(const ORV::X3DObject& object) {
    return object.GetKinematics().GetGlobal().GetTransform(NOW);
}

// `point` in the space of `object` at rest (its inverted global transform).
CVector3 inSpaceOf(const ORV::X3DObject& object, const CVector3& point) {
    CVector3 p;
    p.MulByTransformation(point, Util::invertTransform(globalOf(object)));
    return p;
}

CRotation swing(const CVector3& from, const CVector3& to) {
    CVector3 axis;
    axis.Cross(from, to);
    axis.NormalizeInPlace();
    return CRotation(axis, from.GetAngle(to));
}

DrvQuaternion toDrv(const ORV::MATH::CQuaternion& q) {
    DrvQuaternion d;
    d.x = q.x;
    d.y = q.y;
    d.z = q.z;
    d.w = q.w;
    return d;
}

}  // namespace

SpineMap::SpineMap(ORV::X3DObject& anchor_, ORV::X3DObject& base_, ORV::X3DObject& goal_, CVector3& aaxis_,
                   CVector3& aroll_, CVector3& axis_, CVector3& roll_)
    : anchor(anchor_), base(base_), goal(goal_), aaxis(aaxis_), aroll(aroll_), axis(axis_), roll(roll_) {
    curve = new BezierCurve();

    // 1. From the goal up to the base, leaving out objects that sit on the previous one.
    std::vector<ORV::X3DObject> collected;
    const ORV::Model root = ORV::Application().GetActiveSceneRoot();
    ORV::X3DObject current = goal;
    while (current.IsValid()) {
        if (current == root) {
            ORV::Application().LogMessage(L"Bad nodes for the spine constraint.", 8);
            break;
        }
        if (collected.empty() ||
            (globalOf(current).GetTranslation() - globalOf(collected.back()).GetTranslation()).GetLength() >= COINCIDENT)
            collected.push_back(current);
        if (current == base) break;
        current = ORV::X3DObject(current.GetParent());
    }

    // 2. Base to goal: segment lengths, objects, and which of them the animator keys.
    const int count = static_cast<int>(collected.size());
    animated = count > 0 ? new unsigned char[count] : nullptr;
    for (int k = 0; k < count; ++k) {
        const ORV::X3DObject& object = collected[count - 1 - k];
        if (k < count - 1) {
            const ORV::X3DObject& next = collected[count - 2 - k];
            lengths.Add(inSpaceOf(object, globalOf(next).GetTranslation()).GetLength());
        }
        nodes.Add(object.GetRef());
        ORV::Parameter rotx = object.GetKinematics().GetLocal().GetParameter(L"rotx");
        animated[k] = rotx.IsValid() && rotx.IsAnimated(ORV::ovAnySource) ? 1 : 0;
    }

    // 3. A run of segments whose inner objects are keyed shares one length.
    int a = 0;
    for (int b = 1; b < count; ++b) {
        if (b < count - 1 && animated[b]) continue;
        double sum = 0.0;
        for (int k = a; k < b; ++k) sum += lengths[k];
        for (int k = a; k < b; ++k) lengths[k] = sum / (b - a);
        a = b;
    }

    // 4. Where each next object sits in this one's rest space.
    const int segments = count > 1 ? count - 1 : 0;
    directions = segments > 0 ? new CVector3[segments] : nullptr;
    for (int k = 0; k < segments; ++k)
        directions[k] = inSpaceOf(ORV::X3DObject(nodes[k]), globalOf(ORV::X3DObject(nodes[k + 1])).GetTranslation());
    segmentTransforms = count > 0 ? new CTransformation[count] : nullptr;
    intersections = ORV::MATH::CVector3Array(segments);
    intersections.Clear();
}

void SpineMap::computeCurve(const CTransformation& goalPose, const CVector3& atan, const CVector3& gtan) {
    CTransformation F;
    F.SetRotation(anchorTransform.GetRotation());
    F.SetTranslation(baseTransform.GetTranslation());
    // The curve is rebuilt in place every frame: nothing is allocated here.
    curve->points[0] = F.GetTranslation();
    curve->points[1].MulByTransformation(atan, F);
    curve->points[2].MulByTransformation(gtan, goalPose);
    curve->points[3] = goalPose.GetTranslation();
    curve->integrate();
}

double SpineMap::preSolve(const CTransformation& goalPose, const CVector3& atan, const CVector3& gtan, double spin) {
    computeCurve(goalPose, atan, gtan);
    intersections.Clear();
    curve->findIntersection(lengths, intersections);
    return getDeltaSpin(goalPose.GetRotation(), spin);
}

double SpineMap::getDeltaSpin(const CRotation& goalRotation, double spin) {
    // The goal's rest orientation in the anchor's present frame.
    CRotation R = Util::BuildRotationBetweenTwoAxisPairs(axis, roll, aaxis, aroll);
    R.MulInPlace(anchorTransform.GetRotation());
    CVector3 a, b;
    a.MulByMatrix3(axis, R.GetMatrix());
    b.MulByMatrix3(axis, goalRotation.GetMatrix());
    CRotation swung;
    swung.Mul(R, swing(a, b));
    CVector3 p, q, m, pq;
    p.MulByMatrix3(roll, swung.GetMatrix());
    q.MulByMatrix3(roll, goalRotation.GetMatrix());
    double twist = p.GetAngle(q);
    m.MulByMatrix3(axis, swung.GetMatrix());
    pq.Cross(p, q);
    if (m.Dot(pq) < 0.0) twist = -twist;
    // Unwrapped against the running value: the nearest turn to the last one.
    const double f = spin / TWO_PI;
    double delta = twist - (f - std::trunc(f)) * TWO_PI;
    if (delta > HALF_TURN) delta -= TWO_PI;
    if (delta < -HALF_TURN) delta += TWO_PI;
    return delta + spin;
}

void SpineMap::preComputeSegments(const SpineConstraint& constraint) {
    const double spin = constraint.spin;
    const int n = constraint.numNodes;
    const long count = nodes.GetCount();
    if (n > count || intersections.GetCount() < n - 1) return;
    CRotation R = Util::BuildRotationBetweenTwoAxisPairs(axis, roll, aaxis, aroll);
    R.MulInPlace(anchorTransform.GetRotation());
    for (int k = 0; k + 1 < n; ++k) {
        const CVector3 p = intersections[k];
        const CVector3 prev = k == 0 ? curve->evaluate(0.0) : intersections[k - 1];
        CVector3 dir = p - prev;
        CVector3 v;
        v.MulByMatrix3(directions[k], R.GetMatrix());
        // Every segment is solved from the same frame R, not from the previous segment.
        CRotation R2 = R;
        R2.MulInPlace(swing(v, dir));
        dir.NormalizeInPlace();
        R2.MulInPlace(CRotation(dir, spin * k / static_cast<double>(count)));
        segmentTransforms[k].SetIdentity();
        segmentTransforms[k].SetRotation(R2);
    }
    // Keyed runs take the interpolated rotation at their start.
    int a = 0;
    for (int b = 1; b < n; ++b) {
        if (b < n - 1 && animated[b]) continue;
        DrvQuaternion blended;
        blended.Interpolate(toDrv(segmentTransforms[a].GetRotationQuaternion()),
                            toDrv(segmentTransforms[b - 1].GetRotationQuaternion()), 1.0 / (b - a), 0);
        segmentTransforms[a].SetRotationFromQuaternion(ORV::MATH::CQuaternion(blended.w, blended.x, blended.y, blended.z));
        a = b;
    }
}

void SpineMap::applySegment(ORV::KinematicState in, ORV::KinematicState out, int segment) {
    if (segment < 0 || segment >= nodes.GetCount()) return;
    const CTransformation L = ORV::MATH::MapWorldPoseToObjectSpace(in.GetTransform(NOW), segmentTransforms[segment]);
    const CVector3 e = L.GetRotationXYZAngles();
    CTransformation T = out.GetTransform(NOW);
    T.SetRotationFromXYZAngles(e, L.GetRotation().GetRotationOrder());
    out.PutTransform(T);
}

SpineMap::~SpineMap() {
    delete curve;
    delete[] animated;
    delete[] directions;
    delete[] segmentTransforms;
}

}  // namespace ZUK
