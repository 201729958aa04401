// The per-frame functions of the glue: each turns the pose the operator computed into the
// map's node transforms into the transform of one rig object. They read only the map's
// `global` transforms, plane normals and rolls, and the constraint's own fields.
#include <cmath>

#include "character/ModelStructure.h"
#include "glue/GlueMap.h"
#include "glue/SpineMap.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

namespace {

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

const double NOW = ModelMap::NOW;
const double DEG_TO_RAD = 0.017453292519943295;

// Marks the axis of the largest absolute component: X, then Y, then Z on ties.
void markAbsoluteAxis(const CVector3& v, bool marked[3]) {
    const double x = std::fabs(v.x), y = std::fabs(v.y), z = std::fabs(v.z);
    if (x >= y && x >= z)
        marked[0] = true;
    else if (y >= x && y >= z)
        marked[1] = true;
    else if (z >= x && z >= y)
        marked[2] = true;
}

CRotation swing(const CVector3& from, const CVector3& to) {
    CVector3 axis;
    axis.Cross(from, to);
    return CRotation(axis, from.GetAngle(to));
}

}  // namespace

void GlueMap::applyMocapConstraint(ORV::KinematicState state, int constraintIndex) {
    if (constraintIndex < 0 || constraintIndex >= static_cast<int>(mocaps.size()) || !modelMap) return;
    const MocapConstraint& c = mocaps[constraintIndex];
    const int n = c.nodeIndex;
    if (n < 0 || n >= static_cast<int>(modelMap->nodes.size())) return;
    const NodeMap& N = modelMap->nodes[n];
    // A node without a source leaves the object where the user put it.
    if (N.translationSource < 0) return;

    CTransformation T = state.GetTransform(NOW);
    if (c.kind == 1 || c.kind == 0) T.SetTranslation(N.global.GetTranslation());
    if (c.kind == 2 || c.kind == 0) {
        CRotation R = c.rotationOffset;
        R.MulInPlace(N.global.GetRotation());
        T.SetRotation(R);

        // A mirrored object has no proper rotation: the axes of its bone keep their negated
        // directions and the third one is rebuilt from them.
        if (T.GetScaling().x < 0.0 && c.ownNodeIndex >= 0 && c.ownNodeIndex < static_cast<int>(modelMap->nodes.size())) {
            const NodeMap& own = modelMap->nodes[c.ownNodeIndex];
            bool marked[3] = {false, false, false};
            markAbsoluteAxis(own.roll, marked);
            markAbsoluteAxis(own.align, marked);
            const ORV::MATH::CMatrix3 m = R.GetMatrix();
            CVector3 X = -m.GetRow(0), Y = -m.GetRow(1), Z = -m.GetRow(2);
            if (marked[0] && marked[1])
                Z.Cross(X, Y);
            else if (marked[0] && marked[2])
                Y.Cross(Z, X);
            else if (marked[1] && marked[2])
                X.Cross(Y, Z);
            T.SetRotationFromXYZAxes(X, Y, Z);
        }
    }
    state.PutTransform(T);
}

void GlueMap::applyPlaneConstraint(ORV::KinematicState state, int constraintIndex, double /*angle*/) {
    if (constraintIndex < 0 || constraintIndex >= static_cast<int>(planes.size()) || !modelMap) return;
    const PlaneConstraint& c = planes[constraintIndex];
    if (c.planeIndex < 0 || c.planeIndex >= modelMap->structure->numPlanes) return;
    const ModelStructure::Plane& plane = modelMap->structure->planes[c.planeIndex];
    const PlaneMap& P = modelMap->planes[c.planeIndex];
    const CTransformation& Ag = modelMap->nodes[plane.AnchorIndex].global;
    const CVector3 A = Ag.GetTranslation();
    const CVector3 M = modelMap->nodes[plane.Mid].global.GetTranslation();
    const CVector3 S = modelMap->nodes[plane.Span].global.GetTranslation();

    // A straight limb has no plane: the up-vector keeps its rest offset from the anchor.
    if (P.normal.GetLength() < 0.5) {
        CTransformation rest;
        rest.Mul(c.rest, Ag);
        state.PutTransform(rest);
        return;
    }
    CVector3 d = S - A, n = P.normal, u, w = A - M;
    d.NormalizeInPlace();
    n.NormalizeInPlace();
    u.Cross(n, d);
    u.NormalizeInPlace();
    if (c.upSign != 0) u *= static_cast<double>(c.upSign);
    w.NormalizeInPlace();
    // Folded back past its anchor the cross product loses its meaning: use the fold itself.
    if (w.Dot(d) > 0.0) {
        u = w - n * w.Dot(n);
        u.NormalizeInPlace();
    }
    u.MulByRotationInPlace(CRotation(d, P.roll * DEG_TO_RAD + c.jointRoll));
    u *= c.upLength;
    const CVector3 target = u + (plane.bones.GetCount() > 3 ? M : A);

    CTransformation T = state.GetTransform(NOW);
    T.SetTranslation(target);
    state.PutTransform(T);
}

void GlueMap::applyDecompConstraint(ORV::KinematicState inState, ORV::KinematicState outState, int node,
                                    int decomp) {
    if (!modelMap || node < 0 || node >= static_cast<int>(modelMap->nodes.size())) return;
    const NodeMap& N = modelMap->nodes[node];
    if (decomp < 0 || decomp >= static_cast<int>(N.decomps.size())) return;
    const unsigned int m = N.decomps[decomp].mask;
    if (N.translationSource < 0) return;

    const CTransformation Tin = inState.GetTransform(NOW);
    if ((m & 56) != 56 && (m & 40) == 40) {
        // Swing: follow the direction of the node's Y axis without its twist.
        CTransformation Ts = Tin;
        const CVector3 Y(0.0, 1.0, 0.0);
        CVector3 v;
        v.MulByMatrix3(Y, N.global.GetRotationMatrix3());
        CRotation R;
        if (std::fabs(v.y) < 0.0001 && std::fabs(v.z) < 0.0001) {
            R.Mul(Ts.GetRotation(), swing(Y, v));
        } else {
            const CVector3 vp(0.0, v.y, v.z);
            R.Mul(Ts.GetRotation(), swing(Y, vp));
            R.MulInPlace(swing(vp, v));
        }
        Ts.SetRotation(R);
        outState.PutTransform(ORV::MATH::MapWorldPoseToObjectSpace(inState.GetTransform(NOW), Ts));
        return;
    }

    CTransformation L = ORV::MATH::MapWorldPoseToObjectSpace(Tin, N.global);
    const CVector3 t = L.GetTranslation();
    const CVector3 e = L.GetRotationXYZAngles();
    CVector3 o, r;
    if (m & 1) o.x = t.x;
    if (m & 2) o.y = t.y;
    if (m & 4) o.z = t.z;
    if ((m & 56) == 56)
        r = e;
    else if (m & 16)
        r.y = e.y;
    else if (m & 8)
        r.x = e.x;
    else if (m & 32)
        r.z = e.z;
    if (m & 448) {
        // A rotation turned into a position: the node's axis, seen from the input object.
        o = (m & 64) ? CVector3(1, 0, 0) : ((m & 128) ? CVector3(0, 1, 0) : CVector3(0, 0, 1));
        o.MulByTransformationInPlace(N.global);
        CTransformation inverse;
        inverse.Invert(Tin);
        o.MulByTransformationInPlace(inverse);
    }
    L.SetTranslation(o);
    L.SetRotationFromXYZAngles(r, L.GetRotation().GetRotationOrder());
    outState.PutTransform(L);
}

void GlueMap::updateSpineConstraint(ORV::KinematicState anchorState, ORV::KinematicState baseState, int spineIndex,
                                    double anchorTangent, double goalTangent) {
    if (!modelMap || spineIndex < 0 || spineIndex >= static_cast<int>(spines.size())) return;
    SpineConstraint& s = spines[spineIndex];
    SpineMap* M = s.spineMap;
    if (!M || s.nodeIndex < 0 || s.nodeIndex >= static_cast<int>(modelMap->nodes.size())) return;
    const CTransformation A = anchorState.GetTransform(NOW);
    M->anchorTransform = A;
    M->baseTransform.Mul(baseState.GetTransform(NOW), A);
    const CTransformation& G = modelMap->nodes[s.nodeIndex].global;
    s.spin = M->preSolve(G, s.atan * anchorTangent, s.gtan * goalTangent, s.spin);
    M->preComputeSegments(s);
}

void GlueMap::applySpineConstraint(ORV::KinematicState inState, ORV::KinematicState outState, int spineIndex,
                                   int segment) {
    if (!modelMap || spineIndex < 0 || spineIndex >= static_cast<int>(spines.size())) return;
    SpineConstraint& s = spines[spineIndex];
    if (segment >= s.numNodes - 1 || !s.spineMap) {
        // The last object takes the goal's rotation.
        if (s.nodeIndex < 0 || s.nodeIndex >= static_cast<int>(modelMap->nodes.size())) return;
        const CTransformation L =
            ORV::MATH::MapWorldPoseToObjectSpace(inState.GetTransform(NOW), modelMap->nodes[s.nodeIndex].global);
        CTransformation T = outState.GetTransform(NOW);
        T.SetRotation(L.GetRotation());
        outState.PutTransform(T);
        return;
    }
    s.spineMap->applySegment(inState, outState, segment);
}

}  // namespace ZUK
