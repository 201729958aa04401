// SpineMap: bends a run of rig objects between a fixed base and a moving goal along a Bezier
// curve, cuts the curve into pieces as long as the rig's own segments, lays each object's bone
// along its piece, and spreads the goal's twist over the run. Built once per spine constraint
// when the glue binds to the scene; solved once per frame on segment 0, then read per segment.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class BezierCurve;
class SpineConstraint;

class SpineMap {
public:
    SpineMap(ORV::X3DObject& anchor, ORV::X3DObject& base, ORV::X3DObject& goal, ORV::MATH::CVector3& aaxis,
             ORV::MATH::CVector3& aroll, ORV::MATH::CVector3& axis, ORV::MATH::CVector3& roll);
    ~SpineMap();
    SpineMap(const SpineMap&) = delete;
    SpineMap& operator=(const SpineMap&) = delete;

    // Lays the curve for this frame and finds the segment points on it; returns the new spin.
    double preSolve(const ORV::MATH::CTransformation& goal, const ORV::MATH::CVector3& atan,
                    const ORV::MATH::CVector3& gtan, double spin);
    void computeCurve(const ORV::MATH::CTransformation& goal, const ORV::MATH::CVector3& atan,
                      const ORV::MATH::CVector3& gtan);
    // The goal's twist about its bone since the rest pose, unwrapped against `spin`.
    double getDeltaSpin(const ORV::MATH::CRotation& goalRotation, double spin);
    void preComputeSegments(const SpineConstraint& constraint);
    void applySegment(ORV::KinematicState in, ORV::KinematicState out, int segment);

    ORV::X3DObject anchor, base, goal;
    // align and roll of the anchor's node and of the goal's node.
    ORV::MATH::CVector3 aaxis, aroll, axis, roll;
    // The spine objects, base first, goal last.
    ORV::CRefArray nodes;
    // Per element of nodes: 1 when the object's local "rotx" is animated. Owned.
    unsigned char* animated = nullptr;
    // Segment lengths, base first; nodes count - 1 entries.
    ORV::CDoubleArray lengths;
    // Owned.
    BezierCurve* curve = nullptr;
    // The next object's position in this object's rest space; nodes count - 1 entries. Owned.
    ORV::MATH::CVector3* directions = nullptr;
    ORV::MATH::CTransformation anchorTransform;
    ORV::MATH::CTransformation baseTransform;
    // Result per object, nodes count long; only the rotation is used. Owned.
    ORV::MATH::CTransformation* segmentTransforms = nullptr;
    // Points on the curve at the segment lengths.
    ORV::MATH::CVector3Array intersections;
};

}  // namespace ZUK
