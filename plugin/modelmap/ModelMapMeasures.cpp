// The measures of a ModelMap: bone lengths, leg length and hip offset, the rotation offsets that
// carry a rig's own axes onto the canonical ones, the plane normals and bend signs of limbs, and
// the per-frame moves between a pose and its normalised form.
#include <cmath>

#include "character/ModelStructure.h"
#include "core/UtilMath.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

using ORV::MATH::CQuaternion;
using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

namespace {

constexpr double kDegToRad = 0.017453292519943295;
// A limb bent less than this (radians) counts as straight and has no plane.
constexpr double kStraightLimb = 0.1;
// How far the goal moves towards the limb's root while its bend is probed: 1%.
constexpr double kProbeReach = 0.99;

// The live global pose of an object at the current time; identity for a missing object, which
// is also what such a node holds in `global`.
CTransformation LiveGlobal(const ORV::X3DObject& object) {
    if (!object.IsValid()) return CTransformation();
    return object.GetKinematics().GetGlobal().GetTransform(ModelMap::NOW);
}

CVector3 LivePosition(const ORV::X3DObject& object) { return LiveGlobal(object).GetTranslation(); }

void PutLiveGlobal(const ORV::X3DObject& object, const CTransformation& transform) {
    object.GetKinematics().GetGlobal().PutTransform(transform, ModelMap::NOW);
}

double Distance(const CVector3& a, const CVector3& b) { return (a - b).GetLength(); }

CTransformation RotationOnly(const CRotation& rotation) {
    CTransformation t;
    t.SetRotation(rotation);
    return t;
}

// The rotation that takes the pair (align, roll) onto the canonical pair (Z, Y).
CRotation OffsetFromAlignAndRoll(const CVector3& align, const CVector3& roll) {
    return Util::BuildRotationBetweenTwoAxisPairs(align, roll, CVector3(0.0, 0.0, 1.0),
                                                  CVector3(0.0, 1.0, 0.0));
}

}  // namespace

void ModelMap::createMap() {
    CalulateSpanToEndEffectorOffset();
    CopyTransformsToNodeMap(NOW, false);
    CalculateESRNodeLengths();
    CalculateESRNodeRotationsFromAlignAndRoll();
    computeLegLength();
    computeHipOffset();
}

// Keeps the transforms as they are: only the limb ends are measured again, from the scene.
void ModelMap::synchronizeLengths() {
    CalulateSpanToEndEffectorOffset();
    CalculateESRNodeLengths();
    computeLegLength();
    computeHipOffset();
}

void ModelMap::createESR() { ORV::Application().LogMessage(L"createESR is not built yet", 4); }

// Writes to the scene on purpose: afterwards every goal of a chain-driven limb lies where its
// effector sits, which later relationships and glue rely on.
void ModelMap::CalulateSpanToEndEffectorOffset() {
    if (mocap || !structure) return;
    for (int p = 0; p < structure->numPlanes && p < static_cast<int>(planes.size()); ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        if (plane.Mid < 0 || plane.Mid >= static_cast<int>(nodes.size())) continue;
        if (plane.Span < 0 || plane.Span >= static_cast<int>(nodes.size())) continue;
        const ORV::X3DObject& mid = nodes[plane.Mid].object;
        if (!mid.IsValid() || !mid.IsA(ORV::ovChainBoneID)) continue;
        const ORV::X3DObject& span = nodes[plane.Span].object;
        const ORV::ChainEffector effector = ORV::ChainBone(mid).GetEffector();
        if (!span.IsValid() || !effector.IsValid()) continue;

        // Goal onto the effector; the host solves the chain again.
        const CVector3 e = LivePosition(effector);
        CTransformation t = LiveGlobal(span);
        t.SetTranslation(e);
        PutLiveGlobal(span, t);
        // Take up whatever offset the solve left between goal and effector.
        const CVector3 e2 = LivePosition(effector);
        t.SetTranslation(e + (e - e2));
        PutLiveGlobal(span, t);
    }
}

void ModelMap::CalculateESRNodeLengths() {
    if (mocap) {
        CalculateMocapESRNodeLengths();
        return;
    }
    if (!structure) return;
    const int count = static_cast<int>(nodes.size());
    for (int i = 0; i < count && i < structure->numNodes; ++i) {
        const ModelStructure::Node& node = structure->nodes[i];
        const int parent = node.Parent;
        NodeMap& n = nodes[i];
        if (node.Type != 2) {
            if (parent < 0 || parent >= count)
                n.length = n.local.GetTranslation().GetLength();
            else
                n.length = Distance(n.global.GetTranslation(), nodes[parent].global.GetTranslation());
            continue;
        }
        // A limb end that the rig lacks has nothing to measure: a path from the origin would
        // wander through the joints of other limbs and could pass for the longest leg.
        if (parent < 0 || parent >= i || !n.object.IsValid()) {
            n.length = 0.0;
            continue;
        }
        // Limb end: the path back to the anchor through the tagged joints, read from the scene.
        double path = 0.0;
        CVector3 last = LivePosition(n.object);
        for (int k = i - 1; k >= parent; --k) {
            if (!nodes[k].object.IsValid()) continue;
            const CVector3 at = LivePosition(nodes[k].object);
            path += Distance(at, last);
            last = at;
        }
        n.length = path;
    }
}

// Every limb node is taken from the capture. One that the capture lacks is stepped over, as an
// untagged rig joint is, and a limb end that it lacks measures 0.0, as on a rig.
void ModelMap::CalculateMocapESRNodeLengths() {
    if (!structure) return;
    const int count = static_cast<int>(nodes.size());
    for (int i = 0; i < count && i < structure->numNodes; ++i) {
        const ModelStructure::Node& node = structure->nodes[i];
        const int parent = node.Parent;
        NodeMap& n = nodes[i];
        if (node.Type != 2) {
            if (parent < 0 || parent >= count)
                n.length = n.local.GetTranslation().GetLength();
            else
                n.length = Distance(n.global.GetTranslation(), nodes[parent].global.GetTranslation());
            continue;
        }
        if (parent < 0 || parent >= i || !n.mocapNode) {
            n.length = 0.0;
            continue;
        }
        double path = 0.0;
        CVector3 last = n.mocapNode->global.GetTranslation();
        for (int k = i - 1; k >= parent; --k) {
            const MocapNode* joint = nodes[k].mocapNode;
            if (!joint) continue;
            const CVector3 at = joint->global.GetTranslation();
            path += Distance(at, last);
            last = at;
        }
        n.length = path;
    }
}

void ModelMap::CalculateESRNodeRotationsFromAlignAndRoll() {
    for (NodeMap& n : nodes) {
        n.esrOffset.SetRotation(OffsetFromAlignAndRoll(n.align, n.roll));
        n.esrOffsetInverse = Util::invertTransform(n.esrOffset);
        if (n.extraction) {
            const CTransformation offset =
                RotationOnly(OffsetFromAlignAndRoll(n.extraction->align, n.extraction->roll));
            n.extraction->esrOffsetInverse = Util::invertTransform(offset);
        }
    }
}

void ModelMap::computeLegLength() {
    legLength = 0.0;
    if (!structure) return;
    for (int i = 0; i < static_cast<int>(nodes.size()) && i < structure->numNodes; ++i) {
        if (structure->nodes[i].Friction && nodes[i].length > legLength) legLength = nodes[i].length;
    }
}

// The first of equally long legs decides: only a strictly longer one replaces it.
void ModelMap::computeHipOffset() {
    if (motion || !structure || nodes.empty()) return;
    const int count = static_cast<int>(nodes.size());
    CVector3 axis;
    axis.MulByMatrix3(nodes[0].align, nodes[0].global.GetRotationMatrix3());
    axis.NormalizeInPlace();
    const CVector3 root = nodes[0].global.GetTranslation();
    hipOffset = 0.0;
    double best = 0.0;
    for (int i = 0; i < count && i < structure->numNodes; ++i) {
        if (!structure->nodes[i].Friction || !(nodes[i].length > best)) continue;
        best = nodes[i].length;
        const int anchor = structure->nodes[i].Parent;
        const CVector3 at = (anchor >= 0 && anchor < count) ? nodes[anchor].global.GetTranslation() : root;
        hipOffset = -((at - root).Dot(axis));
    }
}

void ModelMap::computePlaneNormals() {
    if (!structure) return;
    const int count = static_cast<int>(nodes.size());
    for (int p = 0; p < structure->numPlanes && p < static_cast<int>(planes.size()); ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        if (plane.AnchorIndex < 0 || plane.AnchorIndex >= count || plane.Mid < 0 || plane.Mid >= count ||
            plane.Span < 0 || plane.Span >= count)
            continue;
        const CVector3& a = nodes[plane.AnchorIndex].global.GetTranslation();
        const CVector3& m = nodes[plane.Mid].global.GetTranslation();
        const CVector3& s = nodes[plane.Span].global.GetTranslation();
        CVector3 u;
        u.Normalize(s - a);
        CVector3 v;
        v.Normalize(m - a);
        const double angle = std::fabs(u.GetAngle(v));
        CVector3 normal;
        // Written so that a NaN angle takes the bent branch.
        if (!(angle < kStraightLimb)) {
            normal.Cross(u, v);
            normal.NormalizeInPlace();
        }
        planes[p].normal = normal;
    }
}

// Probes the live scene: the goal moves 1% towards the root of the limb, the host's solver bends
// the chain, and the bend of the two upper links is compared. The goal is put back every pass.
void ModelMap::computeTwoLinkSign() {
    if (!structure) return;
    const int count = static_cast<int>(nodes.size());
    auto object = [&](long index) -> ORV::X3DObject {
        return (index >= 0 && index < count) ? nodes[index].object : ORV::X3DObject();
    };
    for (int p = 0; p < structure->numPlanes && p < static_cast<int>(planes.size()); ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        if (plane.bones.GetCount() == 3) {
            planes[p].sign = 1;
            continue;
        }
        // A limb of fewer than three bones has no second pair to compare.
        if (plane.bones.GetCount() < 3) continue;
        const ORV::X3DObject goal = object(plane.Span);
        const ORV::X3DObject first[2] = {object(plane.AnchorIndex), object(plane.bones[2])};
        const ORV::X3DObject second[2] = {object(plane.Mid), object(plane.bones[1])};
        if (!goal.IsValid() || !first[0].IsValid() || !first[1].IsValid() || !second[0].IsValid() ||
            !second[1].IsValid())
            continue;
        CVector3 bend[2];
        for (int pass = 0; pass < 2; ++pass) {
            const CTransformation kept = LiveGlobal(goal);
            const CVector3 base = LivePosition(first[pass]);
            const CVector3 g = base + (kept.GetTranslation() - base) * kProbeReach;
            CTransformation moved = kept;
            moved.SetTranslation(g);
            PutLiveGlobal(goal, moved);
            const CVector3 joint = LivePosition(second[pass]);
            bend[pass].Cross(g - base, joint - base);
            if (pass == 1 && bend[0].Dot(bend[1]) < 0.0) planes[p].sign = -1;
            PutLiveGlobal(goal, kept);
        }
    }
}

void ModelMap::addRotationOffsets(bool useExtraction) {
    for (NodeMap& n : nodes) {
        const CQuaternion q = n.global.GetRotationQuaternion();
        const CQuaternion o = (useExtraction && n.extraction)
                                  ? n.extraction->esrOffsetInverse.GetRotationQuaternion()
                                  : n.esrOffsetInverse.GetRotationQuaternion();
        const CQuaternion r(
            q.w * o.w - q.x * o.x - q.y * o.y - q.z * o.z, q.w * o.x + o.w * q.x + q.y * o.z - o.y * q.z,
            q.w * o.y + o.w * q.y + q.z * o.x - o.z * q.x, q.w * o.z + o.w * q.z + q.x * o.y - o.x * q.y);
        n.global.SetRotationFromQuaternion(r);
    }
}

// Every node, with or without an object: nodes that nothing fed keep what they held, offset.
void ModelMap::addCounterRotationOffsets() {
    for (NodeMap& n : nodes) {
        CRotation r;
        r.Mul(n.esrOffset.GetRotation(), n.global.GetRotation());
        n.global.SetRotation(r);
    }
}

// Turns the anchor about the line from anchor to span and carries the middle joint with it;
// the joints below the middle one follow in the pose's later steps.
void ModelMap::rollKinematicChain(int plane) {
    if (!structure || plane < 0 || plane >= structure->numPlanes || plane >= static_cast<int>(planes.size()))
        return;
    const ModelStructure::Plane& p = structure->planes[plane];
    const int count = static_cast<int>(nodes.size());
    if (p.AnchorIndex < 0 || p.AnchorIndex >= count || p.Mid < 0 || p.Mid >= count || p.Span < 0 ||
        p.Span >= count)
        return;
    NodeMap& anchor = nodes[p.AnchorIndex];
    NodeMap& mid = nodes[p.Mid];
    const NodeMap& span = nodes[p.Span];
    const double angle = planes[plane].roll * kDegToRad;

    const CTransformation kept = ORV::MATH::MapWorldPoseToObjectSpace(anchor.global, mid.global);
    CVector3 axis;
    axis.Normalize(span.global.GetTranslation() - anchor.global.GetTranslation());
    const CRotation turn(axis, angle);
    CRotation turned;
    turned.Mul(anchor.global.GetRotation(), turn);
    anchor.global.SetRotation(turned);
    mid.global.Mul(kept, anchor.global);
}

}  // namespace ZUK
