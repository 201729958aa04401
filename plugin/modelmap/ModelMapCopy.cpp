// Pose copying between two maps of one structure, and the analytic limb solver. Everything
// here works on the maps' working transforms; only the relationship step touches the scene
// (goal offsets, the two models put at the origin, the two-link sign test).
#include <climits>

#include "character/ModelStructure.h"
#include "core/UtilMath.h"
#include "glue/GlueMap.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

namespace {

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

// Below this a source length or leg length counts as zero: no ratio is taken from it.
const double MIN_LENGTH = 0.0001;
// A node that lies this close to a limb's goal stays in the hierarchy even when unfed.
const double ON_GOAL_DISTANCE = 0.00001;

CVector3 livePosition(const ORV::X3DObject& object) {
    return object.GetKinematics().GetGlobal().GetTransform(ModelMap::NOW).GetTranslation();
}

// The rotation that turns `from` onto `to` about their common normal.
CRotation swing(const CVector3& from, const CVector3& to) {
    CVector3 axis;
    axis.Cross(from, to);
    return CRotation(axis, from.GetAngle(to));
}

// A time as a frame of stored motion: truncated toward zero, as a frame number is. The host's
// "now" (the largest double) and other times no frame number holds read frame 0, as on a
// capture; a frame outside the stored clip reads its nearest end, so the read stays inside.
int motionFrame(double time, int numFrames) {
    if (numFrames <= 0) return 0;
    if (!(time > static_cast<double>(INT_MIN) - 1.0 && time < static_cast<double>(INT_MAX) + 1.0)) return 0;
    const int frame = static_cast<int>(time);
    if (frame < 0) return 0;
    return frame < numFrames ? frame : numFrames - 1;
}

}  // namespace

bool ModelMap::BuildRelationshipsWithSrcModelMap(ModelMap& src, GlueMap& glue) {
    // Goals onto their effectors, so that the target's limbs are measured where they end.
    CalulateSpanToEndEffectorOffset();

    if (src.structure->Type != structure->Type) {
        ORV::Application().LogMessage(L"The normalized motion must have the same type as the model structure.", 4);
        return false;
    }
    if (src.structure->numNodes < 1 || structure->numNodes < 1 ||
        src.structure->nodes[0].Name != structure->nodes[0].Name)
        return false;

    const int numNodes = static_cast<int>(nodes.size());
    const int numSrcNodes = static_cast<int>(src.nodes.size());
    for (NodeMap& node : nodes) {
        node.translationSource = -1;
        node.rotationSource = -1;
    }

    // Pair the nodes: equal names feed translation, an override feeds rotation.
    for (int s = 0; s < numSrcNodes; ++s) {
        for (int t = 0; t < numNodes; ++t) {
            bool usable;
            if (src.motion)
                usable = src.structure->nodes[s].objIsValid && nodes[t].object.IsValid();
            else if (src.mocap)
                usable = nodes[t].object.IsValid() && src.nodes[s].mocapNode != nullptr;
            else
                usable = nodes[t].object.IsValid() && src.nodes[s].object.IsValid();
            if (!usable) continue;
            const ORV::CString& srcName = src.structure->nodes[s].Name;
            if (structure->nodes[t].Name == srcName) nodes[t].translationSource = s;
            if (nodes[t].overrideTag == srcName) nodes[t].rotationSource = s;
        }
    }

    // Second splice: an unfed node leaves the hierarchy unless it sits on a limb's goal.
    for (int i = 0; i < numNodes; ++i) {
        ModelStructure::Node& node = structure->nodes[i];
        bool onGoal = false;
        for (int p = 0; p < structure->numPlanes && !onGoal; ++p) {
            const int span = structure->planes[p].Span;
            if (span != node.Parent || span < 0 || span >= numNodes) continue;
            const ORV::X3DObject& spanObject = nodes[span].object;
            if (!spanObject.IsValid() || !nodes[i].object.IsValid()) continue;
            CVector3 d;
            d.Sub(livePosition(spanObject), livePosition(nodes[i].object));
            onGoal = d.GetLength() < ON_GOAL_DISTANCE;
        }
        if (onGoal || nodes[i].translationSource >= 0) continue;
        for (int j = i + 1; j < numNodes; ++j)
            if (structure->nodes[j].Parent == i) structure->nodes[j].Parent = node.Parent;
        node.Parent = 0;
    }

    // Limbs keep only their tagged bones: bones[1] and bones[2] become the last two of them.
    for (int p = 0; p < structure->numPlanes; ++p) {
        ORV::CLongArray& bones = structure->planes[p].bones;
        ORV::CLongArray kept;
        for (long b = 0; b < bones.GetCount(); ++b) {
            const long index = bones[b];
            if (index >= 0 && index < numNodes && nodes[index].object.IsValid()) kept.Add(index);
        }
        bones = kept;
    }

    glue.syncToModelMap();

    // Both characters at the origin, so that their world positions compare.
    ORV::KinematicState global = GetKinematics().GetGlobal();
    savedGlobal = global.GetTransform(NOW);
    global.PutTransform(CTransformation());
    if (src.IsValid()) {
        ORV::KinematicState srcGlobal = src.GetKinematics().GetGlobal();
        src.savedGlobal = srcGlobal.GetTransform(NOW);
        srcGlobal.PutTransform(CTransformation());
    }

    computeTwoLinkSign();
    if (src.legLength > MIN_LENGTH) legScale = legLength / src.legLength;
    CopyTransformsToNodeMap(NOW, false);
    return true;
}

bool ModelMap::CopyPoseFromSrcModelMap(ModelMap& src, double time) {
    const int numNodes = static_cast<int>(nodes.size());
    const int numSrcNodes = static_cast<int>(src.nodes.size());

    // 1. The source's normalised pose at this time. File motion was stored normalised.
    if (src.motion) {
        const CTransformation* frame = src.motion + static_cast<long>(numSrcNodes) * motionFrame(time, src.numFrames);
        for (int i = 0; i < numSrcNodes; ++i) src.nodes[i].global = frame[i];
    } else {
        src.CopyTransformsToNodeMap(time, true);
        src.addRotationOffsets(true);
    }

    // 2. Rotations: an override wins over the node's own source.
    for (NodeMap& node : nodes) {
        int s = node.rotationSource >= 0 ? node.rotationSource : node.translationSource;
        if (s >= 0 && s < numSrcNodes) node.global.SetRotation(src.nodes[s].global.GetRotation());
    }

    // 3. Limb planes come from the source pose.
    src.computePlaneNormals();
    const size_t numPlanes = planes.size() < src.planes.size() ? planes.size() : src.planes.size();
    for (size_t p = 0; p < numPlanes; ++p) planes[p].normal = src.planes[p].normal;

    // 4. Into this rig's axis conventions.
    addCounterRotationOffsets();

    // 5. Local rotations against the structure parents; local translations stay.
    static const CTransformation identity;
    for (int i = 1; i < numNodes; ++i) {
        const int p = structure->nodes[i].Parent;
        const CTransformation& parent = p >= 0 ? nodes[p].global : identity;
        nodes[i].local.SetRotation(ORV::MATH::MapWorldPoseToObjectSpace(parent, nodes[i].global).GetRotation());
    }

    // 6. The root stands where the source's root stands.
    NodeMap& root = nodes[0];
    root.global.SetTranslation(src.nodes[0].global.GetTranslation());
    root.local = root.global;

    // 7. Translations staged from the source; nodes fed by the root keep their rest offset.
    for (int i = 1; i < numNodes; ++i) {
        NodeMap& node = nodes[i];
        ModelStructure::Node& snode = structure->nodes[i];
        const int s = node.translationSource;
        const int p = snode.Parent;
        if (s < 1 || s >= numSrcNodes) {
            CVector3 t;
            t.MulByTransformation(node.local.GetTranslation(), p >= 0 ? nodes[p].global : identity);
            node.global.SetTranslation(t);
            continue;
        }
        if (snode.Type == 3 && p >= 0) {
            // A free node that falls behind its parent is a plain child from now on.
            CVector3 d;
            d.MulByRotation(nodes[p].align, nodes[p].global.GetRotation());
            CVector3 toNode;
            toNode.Sub(src.nodes[s].global.GetTranslation(), nodes[p].global.GetTranslation());
            if (d.Dot(toNode) <= 0.0) snode.Type = 1;
        }
        node.global.SetTranslation(src.nodes[s].global.GetTranslation());
    }

    // 8. Limb ends and free nodes keep the direction of the source and this rig's length.
    for (int i = 1; i < numNodes; ++i) {
        NodeMap& node = nodes[i];
        const int s = node.translationSource;
        const int type = structure->nodes[i].Type;
        if (s <= 0 || s >= numSrcNodes || (type != 2 && type != 3)) continue;
        const double srcLength = src.nodes[s].length;
        if (!(srcLength > MIN_LENGTH)) continue;
        const int p = structure->nodes[i].Parent;
        node.local = ORV::MATH::MapWorldPoseToObjectSpace(p >= 0 ? nodes[p].global : identity, node.global);
        CVector3 t = node.local.GetTranslation();
        t.ScaleInPlace(node.length / srcLength);
        node.local.SetTranslation(t);
    }

    // 9. The root scales with the legs, its hip offsets of both rigs taken into account.
    if (src.legLength > MIN_LENGTH) {
        CVector3 a;
        a.MulByRotation(root.align, root.global.GetRotation());
        a.NormalizeInPlace();
        CVector3 p = root.local.GetTranslation();
        p -= a * src.hipOffset;
        p *= legLength / src.legLength;
        p += a * hipOffset;
        root.local.SetTranslation(p);
        root.global.SetTranslation(p);
    }

    // 10. Forward pass from the locals.
    for (int i = 1; i < numNodes; ++i) {
        const int p = structure->nodes[i].Parent;
        if (p < 0)
            nodes[i].global = nodes[i].local;
        else
            nodes[i].global.Mul(nodes[i].local, nodes[p].global);
    }
    return true;
}

void ModelMap::solveIK() {
    const int numNodes = static_cast<int>(nodes.size());
    for (int p = 0; p < structure->numPlanes; ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        const long n = plane.bones.GetCount();
        if (n < 3) continue;
        const long r = plane.bones[2];
        const long m = plane.bones[1];
        const int s = plane.Span;
        if (r < 0 || r >= numNodes || m < 0 || m >= numNodes || s < 0 || s >= numNodes) continue;
        NodeMap& R = nodes[r];
        NodeMap& M = nodes[m];
        const NodeMap& S = nodes[s];

        // 1. Upper and lower lengths; the middle bones count into the upper one.
        double sum = 0.0;
        for (long b = 1; b <= n - 2; ++b) sum += nodes[plane.bones[b]].length;
        const double L1 = M.length;
        const double L2 = S.length - sum;

        // 2-3. Bend normal, and the middle joint where the pose put it.
        CVector3 nrm = planes[p].normal * static_cast<double>(planes[p].sign);
        M.global.Mul(M.local, R.global);
        CVector3 E;
        E.Sub(M.global.GetTranslation(), R.global.GetTranslation());

        // 4. Goal and normal in the space of the limb's root.
        const CTransformation inverse = Util::invertTransform(R.global);
        CVector3 G;
        G.MulByTransformation(S.global.GetTranslation(), inverse);
        CVector3 nL;
        nL.MulByMatrix3(nrm, inverse.GetRotationMatrix3());
        const double D = G.GetLength();

        // 5-6. Law of cosines gives the middle joint's place in the plane.
        double c = (D * D + L1 * L1 - L2 * L2) / (2.0 * D * L1);
        if (c < -1.0) c = -1.0;
        if (c > 1.0) c = 1.0;
        const double alpha = std::acos(c);
        CVector3 Q = G * (L1 / D);
        Q.MulByRotationInPlace(CRotation(nL, alpha));
        Q.MulByTransformationInPlace(R.global);

        // 7. Swing the root bone onto the middle joint.
        CVector3 t;
        t.Sub(Q, R.global.GetTranslation());
        CRotation rotation;
        rotation.Mul(R.global.GetRotation(), swing(E, t));
        R.global.SetRotation(rotation);

        // 8-9. Carry the middle joint along, then swing it onto the goal.
        M.global.Mul(M.local, R.global);
        CVector3 e;
        e.MulByMatrix3(planes[p].spanDirection, M.global.GetRotationMatrix3());
        t.Sub(S.global.GetTranslation(), Q);
        rotation.Mul(M.global.GetRotation(), swing(e, t));
        M.global.SetRotation(rotation);
    }
}

void ModelMap::ResetSrcandTgtModelTransfomsToOriginal(ModelMap& src) {
    GetKinematics().GetGlobal().PutTransform(savedGlobal);
    if (src.IsValid()) src.GetKinematics().GetGlobal().PutTransform(src.savedGlobal);
}

bool ModelMap::InheritsTranslationFromCOG(ModelMap* map, int node) {
    // The node's own kind does not count: a foot (a limb end) follows the root when every
    // joint above it is a plain bone. A limb end or a free node above it carries its own
    // translation. The walk is bounded so that a spliced hierarchy cannot loop it.
    const ModelStructure* structure = map->structure;
    if (node == 0) return true;
    if (node < 0 || node >= structure->numNodes) return false;
    int parent = structure->nodes[node].Parent;
    for (int steps = 0; parent != 0; ++steps) {
        if (parent < 0 || parent >= structure->numNodes || steps >= structure->numNodes) return false;
        const int type = structure->nodes[parent].Type;
        if (type == 2 || type == 3) return false;
        parent = structure->nodes[parent].Parent;
    }
    return true;
}

}  // namespace ZUK
