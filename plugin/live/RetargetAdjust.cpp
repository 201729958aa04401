// The pose adjustments of the live retarget: stride, stretch, offsets, dampening, clamps and
// roll, each working in place on the pose that applyPose put into the map. Stride paths and
// clamp events are computed once, when a panel parameter changes; everything else is read at
// every evaluation through parameter handles resolved beforehand.
#include <cmath>
#include <vector>

#include "character/ModelStructure.h"
#include "core/Drv.h"
#include "core/UtilMath.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

using ORV::MATH::CRotation;
using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

// The parameters read per evaluation, by handle. Built by name on the first evaluation, and
// again whenever the adjustment property, the semi-free list or a rotation offset property is
// no longer the one the handles came from.
class AdjustParameters {
public:
    struct Plane {
        ORV::Parameter stretch;
        ORV::Parameter offset[3];
        ORV::Parameter roll;
    };
    struct Semi {
        ORV::Parameter offset[3];
        ORV::Parameter rotation[3];
    };
    // One per MocapConstraint; empty handles where it has no rotation offset property.
    struct Offset {
        bool has = false;
        ORV::CustomProperty property;
        ORV::Parameter rotation[3];
        ORV::Parameter reduce;
    };

    ORV::CustomProperty property;
    ORV::Parameter offsetFeet;
    ORV::Parameter hip[3];
    std::vector<Plane> planes;
    std::vector<Semi> semis;
    std::vector<Offset> offsets;
};

namespace {
ORV::Application app;

constexpr double DEG_TO_RAD = 0.017453292519943295;
const wchar_t* const AXIS_SUFFIX[3] = {L"X", L"Y", L"Z"};
const wchar_t* const ROTATION_SUFFIX[3] = {L"RX", L"RY", L"RZ"};

// A plane is named by the structure name of its goal.
ORV::CString planeName(const ModelStructure& structure, int plane) {
    const int goal = structure.planes[plane].Span;
    if (goal < 0 || goal >= structure.numNodes) return ORV::CString();
    return structure.nodes[goal].Name;
}

bool stillBound(const AdjustParameters& cache, const RetargetOp& op) {
    if (!(cache.property == op.adjustProperty)) return false;
    if (cache.semis.size() != op.semiFrees.size()) return false;
    const std::vector<MocapConstraint>& mocaps = op.glueMap->mocaps;
    if (cache.offsets.size() != mocaps.size()) return false;
    for (size_t c = 0; c < mocaps.size(); ++c) {
        if (cache.offsets[c].has != mocaps[c].hasRotationOffsetProperty) return false;
        if (cache.offsets[c].has && !(cache.offsets[c].property == mocaps[c].rotationOffsetProperty))
            return false;
    }
    return true;
}

void bind(AdjustParameters& cache, const RetargetOp& op) {
    const ModelStructure& structure = *op.modelMap->structure;
    const ORV::CustomProperty& property = op.adjustProperty;
    cache.property = property;
    cache.offsetFeet = property.GetParameter(L"offsetFeet");
    cache.hip[0] = property.GetParameter(L"hipX");
    cache.hip[1] = property.GetParameter(L"hipY");
    cache.hip[2] = property.GetParameter(L"hipZ");
    cache.planes.assign(static_cast<size_t>(structure.numPlanes), AdjustParameters::Plane());
    for (int p = 0; p < structure.numPlanes; ++p) {
        const ORV::CString name = planeName(structure, p);
        AdjustParameters::Plane& plane = cache.planes[static_cast<size_t>(p)];
        plane.stretch = property.GetParameter(name + L"Stretch");
        plane.roll = property.GetParameter(name + L"Roll");
        for (int a = 0; a < 3; ++a) plane.offset[a] = property.GetParameter(name + AXIS_SUFFIX[a]);
    }
    cache.semis.assign(op.semiFrees.size(), AdjustParameters::Semi());
    for (size_t i = 0; i < op.semiFrees.size(); ++i) {
        const ORV::CString& name = op.semiFrees[i].name;
        for (int a = 0; a < 3; ++a) {
            cache.semis[i].offset[a] = property.GetParameter(name + AXIS_SUFFIX[a]);
            cache.semis[i].rotation[a] = property.GetParameter(name + ROTATION_SUFFIX[a]);
        }
    }
    const std::vector<MocapConstraint>& mocaps = op.glueMap->mocaps;
    cache.offsets.assign(mocaps.size(), AdjustParameters::Offset());
    for (size_t c = 0; c < mocaps.size(); ++c) {
        AdjustParameters::Offset& offset = cache.offsets[c];
        offset.has = mocaps[c].hasRotationOffsetProperty;
        if (!offset.has) continue;
        offset.property = mocaps[c].rotationOffsetProperty;
        for (int a = 0; a < 3; ++a) offset.rotation[a] = offset.property.GetParameter(AXIS_SUFFIX[a]);
        offset.reduce = offset.property.GetParameter(L"Reduce");
    }
}

// The handles for this evaluation; names are looked up only when the bindings changed.
AdjustParameters& parameters(RetargetOp& op) {
    if (!op.adjustParameters) op.adjustParameters = std::make_shared<AdjustParameters>();
    AdjustParameters& cache = *op.adjustParameters;
    if (!stillBound(cache, op)) bind(cache, op);
    return cache;
}

double readDouble(const ORV::Parameter& parameter, double time) {
    return static_cast<double>(parameter.GetValue(time));
}

// The rotation of three angles in degrees, X first, then Y, then Z.
DrvQuaternion rotationFromDegrees(const ORV::Parameter (&angles)[3], double time) {
    DrvQuaternion q;
    q.SetEulerAngles(readDouble(angles[0], time) * DEG_TO_RAD, readDouble(angles[1], time) * DEG_TO_RAD,
                     readDouble(angles[2], time) * DEG_TO_RAD);
    return q;
}

// global = offset applied first, then the pose: the offset turns the node about its own axes.
// Written back through Euler angles, as the host keeps rotations.
void turnInOwnAxes(CTransformation& global, const DrvQuaternion& offset) {
    DrvTransform current(global);
    DrvTransform turn;
    turn.rotation = offset;
    current.Multiply(current, turn);
    const CRotation rotation(ORV::MATH::CQuaternion(current.rotation.w, current.rotation.x,
                                                    current.rotation.y, current.rotation.z));
    const CVector3 angles = rotation.GetXYZAngles();
    global.SetRotationFromXYZAnglesValues(angles.x, angles.y, angles.z);
}

// The first plane whose goal is `node`, or -1.
int planeOfGoal(const ModelStructure& structure, int node) {
    for (int p = 0; p < structure.numPlanes; ++p)
        if (structure.planes[p].Span == node) return p;
    return -1;
}

// global = local applied first, then the parent's global.
void followParent(std::vector<NodeMap>& nodes, const ModelStructure& structure, int node) {
    const int parent = structure.nodes[node].Parent;
    if (parent < 0) return;
    NodeMap& n = nodes[static_cast<size_t>(node)];
    n.global.Mul(n.local, nodes[static_cast<size_t>(parent)].global);
}

// The limb's inner bones follow its anchor, from the one after the anchor down to the one
// before the goal.
void rebuildLimb(std::vector<NodeMap>& nodes, const ModelStructure::Plane& plane) {
    const long count = plane.bones.GetCount();
    const NodeMap* previous = &nodes[static_cast<size_t>(plane.AnchorIndex)];
    for (long b = count - 2; b >= 1; --b) {
        NodeMap& node = nodes[static_cast<size_t>(plane.bones[b])];
        node.global.Mul(node.local, previous->global);
        previous = &node;
    }
}

// Pulls the goal back onto the sphere of its reach about the anchor.
void limitReach(std::vector<NodeMap>& nodes, const ModelStructure::Plane& plane) {
    NodeMap& goal = nodes[static_cast<size_t>(plane.Span)];
    const CVector3& anchor = nodes[static_cast<size_t>(plane.AnchorIndex)].global.GetTranslation();
    const CVector3 d = goal.global.GetTranslation() - anchor;
    const double length = d.GetLength();
    if (length > goal.length) goal.global.SetTranslation(anchor + d * (goal.length / length));
}

// The hold position of an on item, in world space.
CVector3 holdPosition(const RetargetOp::ClampItem& item, const std::vector<NodeMap>& nodes) {
    // A reference that found no node was stored in world space (node -1).
    if (item.referenceFrame < 1 || item.node < 0 || item.node >= static_cast<int>(nodes.size()))
        return item.position;
    CVector3 world;
    world.MulByTransformation(item.position, nodes[static_cast<size_t>(item.node)].global);
    return world;
}
}  // namespace

void RetargetOp::updateStride() {
    app.LogMessage(L"Constructing Stride Data", 8);
    if (!modelMap || !modelMap->structure || !cogPath || !footPaths || numFrames <= 0 || !poses) return;
    const ModelStructure& structure = *modelMap->structure;
    const int last = numFrames - 1;

    // 1. Direction of travel; only a y that is the largest signed component survives.
    CVector3 first, end;
    GetGlobalTranslation(0, last, end, 0.0);
    GetGlobalTranslation(0, 0, first, 0.0);
    CVector3 dir = end - first;
    if (dir.x > dir.y || dir.z > dir.y) dir.y = 0.0;
    // A clip that ends where it started has no direction: nothing is along it.
    if (dir.NormalizeInPlace() != ORV::CStatus::OK) dir.SetNull();

    // 2. Stride now, and the scale relative to the one at transfer.
    const ORV::Parameter strideParameter = adjustProperty.GetParameter(L"Stride");
    const double s0 = readDouble(strideParameter, currentTime);
    const ORV::Parameter scaleParameter = adjustProperty.GetParameter(L"Scale");
    const double k = scaleParameter.IsValid() ? readDouble(scaleParameter, currentTime) / baseScale : 1.0;

    // 3. A stride set past the last key ramps from that key to now.
    bool extrapolate = false;
    double keyFrame = 0.0, keyValue = 0.0, slope = 0.0;
    ORV::FCurve curve(strideParameter.GetSource());
    if (curve.IsValid()) {
        const long n = curve.GetNumKeys();
        if (n == 1 && curve.GetInterpolation() != ORV::ovLinearInterpolation) {
            curve.PutInterpolation(ORV::ovLinearInterpolation);
            ORV::Parameter(strideParameter).PutValue(s0, currentTime);
        }
        if (n >= 1 && curve.GetInterpolation() == ORV::ovLinearInterpolation) {
            bool keyAhead = false;
            for (long i = 0; i < n && !keyAhead; ++i)
                keyAhead = curve.GetKeyAtIndex(i).GetTime().GetTime() >= currentTime;
            if (!keyAhead) {
                const ORV::FCurveKey key = curve.GetKeyAtIndex(n - 1);
                keyFrame = std::trunc(key.GetTime().GetTime() * speed + 0.1);
                keyValue = static_cast<double>(key.GetValue());
                const double span = std::trunc(currentTime * speed + 0.1) - keyFrame;
                // Now on the last key's own frame leaves no ramp to define.
                if (span != 0.0) {
                    extrapolate = true;
                    slope = (s0 - keyValue) / span;
                }
            }
        }
    }

    // 4. The paths, frame by frame. j is both the time of the stride read and the sampled frame;
    // samples stay inside the clip.
    for (int i = 0; i < numFrames; ++i) {
        const int j = static_cast<int>(std::trunc(i / speed + 0.1));
        const int at = j < 0 ? 0 : (j > last ? last : j);
        const double s = (extrapolate && i > keyFrame) ? keyValue + slope * (i - keyFrame)
                                                       : readDouble(strideParameter, static_cast<double>(j));
        CVector3 root;
        GetGlobalTranslation(0, at, root, 0.0);
        root *= k;
        if (i == 0) {
            CVector3 start;
            GetGlobalTranslation(0, 0, start, 0.0);
            cogPath[0] = start * k;
        } else {
            // Past the clip's end the root stands still.
            const int previous = j - 1 < 0 ? 0 : (j - 1 > last ? last : j - 1);
            CVector3 before;
            GetGlobalTranslation(0, previous, before, 0.0);
            const CVector3 delta = root - before * k;
            const CVector3 along = dir * delta.Dot(dir);
            cogPath[i] = cogPath[i - 1] + delta - along + along * s;
        }
        for (int p = 0; p < structure.numPlanes; ++p) {
            const int goal = structure.planes[p].Span;
            CVector3 goalAt;
            GetGlobalTranslation(goal, at, goalAt, 0.0);
            const CVector3 rel = goalAt * k - root;
            const CVector3 along = dir * rel.Dot(dir);
            // Only a foot that carries the character takes longer steps; a hand does not.
            footPaths[p][i] = cogPath[i] + rel - along + along * (structure.nodes[goal].Friction ? s : 1.0);
        }
    }
}

void RetargetOp::applyStride() {
    const ModelStructure& structure = *modelMap->structure;
    std::vector<NodeMap>& nodes = modelMap->nodes;
    nodes[0].global.SetTranslation(GetInterpollatedValue(cogPath));
    for (int n = 1; n < structure.numNodes; ++n) {
        const int p = planeOfGoal(structure, n);
        if (p < 0) {
            followParent(nodes, structure, n);
            continue;
        }
        // The anchor comes earlier in node order, so it is placed already.
        CVector3 target = GetInterpollatedValue(footPaths[p]);
        const CVector3& anchor =
            nodes[static_cast<size_t>(structure.planes[p].AnchorIndex)].global.GetTranslation();
        const CVector3 d = target - anchor;
        const double length = d.GetLength();
        NodeMap& goal = nodes[static_cast<size_t>(n)];
        if (length > goal.length) target = anchor + d * (goal.length / length);
        goal.global.SetTranslation(target);
    }
}

void RetargetOp::applyStretch() {
    const ModelStructure& structure = *modelMap->structure;
    std::vector<NodeMap>& nodes = modelMap->nodes;
    AdjustParameters& handles = parameters(*this);
    for (int p = 0; p < structure.numPlanes; ++p) {
        const ModelStructure::Plane& plane = structure.planes[p];
        PlaneMap& planeMap = modelMap->planes[static_cast<size_t>(p)];
        planeMap.stretch = readDouble(handles.planes[static_cast<size_t>(p)].stretch, currentTime);
        NodeMap& anchor = nodes[static_cast<size_t>(plane.AnchorIndex)];
        NodeMap& goal = nodes[static_cast<size_t>(plane.Span)];
        CVector3 d = (goal.global.GetTranslation() - anchor.global.GetTranslation()) * planeMap.stretch;
        const double length = d.GetLength();
        if (length > goal.length) d *= goal.length / length;
        goal.global.SetTranslation(anchor.global.GetTranslation() + d);
        // Relative to the anchor, which is the goal's parent in a limb.
        goal.local = ORV::MATH::MapWorldPoseToObjectSpace(anchor.global, goal.global);
    }
}

void RetargetOp::applyOffset() {
    const ModelStructure& structure = *modelMap->structure;
    std::vector<NodeMap>& nodes = modelMap->nodes;
    std::vector<MocapConstraint>& mocaps = glueMap->mocaps;
    AdjustParameters& handles = parameters(*this);

    // 1. The body's offsets.
    const bool offsetFeet = static_cast<bool>(handles.offsetFeet.GetValue(currentTime));
    const CVector3 hip(readDouble(handles.hip[0], currentTime), readDouble(handles.hip[1], currentTime),
                       readDouble(handles.hip[2], currentTime));

    // 2. The root's rotation offset acts in world axes, so it also turns the root's translation
    // about the origin, and every limb's plane with it.
    if (!mocaps.empty() && mocaps[0].hasRotationOffsetProperty) {
        DrvTransform turn;
        turn.rotation = rotationFromDegrees(handles.offsets[0].rotation, currentTime);
        DrvTransform root(nodes[0].global);
        root.Multiply(turn, root);
        nodes[0].global = root.GetCTransformation();
        _DrvMatrix m;
        DrvMatrix_FromQuaternion(m, turn.rotation);
        for (PlaneMap& plane : modelMap->planes) {
            const CVector3 v = plane.normal;
            plane.normal.Set(v.x * m.m[0][0] + v.y * m.m[1][0] + v.z * m.m[2][0],
                             v.x * m.m[0][1] + v.y * m.m[1][1] + v.z * m.m[2][1],
                             v.x * m.m[0][2] + v.y * m.m[1][2] + v.z * m.m[2][2]);
        }
    }

    // 3. Hip offset.
    nodes[0].global.SetTranslation(nodes[0].global.GetTranslation() + hip);

    // 4. The body follows; feet that carry the character stay put unless they move with it.
    for (int n = 1; n < structure.numNodes; ++n) {
        if (!offsetFeet && structure.nodes[n].Friction && planeOfGoal(structure, n) >= 0) continue;
        followParent(nodes, structure, n);
    }

    // 5. The limbs' inner bones follow their anchors.
    for (int p = 0; p < structure.numPlanes; ++p)
        if (structure.planes[p].AnchorIndex >= 0) rebuildLimb(nodes, structure.planes[p]);

    // 6. Semi-free nodes: offset in world units, rotation in the node's own axes.
    for (size_t i = 0; i < semiFrees.size(); ++i) {
        SemiFree& semi = semiFrees[i];
        const AdjustParameters::Semi& semiHandles = handles.semis[i];
        const int n = semi.node;
        NodeMap& node = nodes[static_cast<size_t>(n)];
        semi.offset.Set(readDouble(semiHandles.offset[0], currentTime),
                        readDouble(semiHandles.offset[1], currentTime),
                        readDouble(semiHandles.offset[2], currentTime));
        node.global.SetTranslation(node.global.GetTranslation() + semi.offset);
        turnInOwnAxes(node.global, rotationFromDegrees(semiHandles.rotation, currentTime));
        const int parent = structure.nodes[n].Parent;
        if (parent >= 0)
            node.local =
                ORV::MATH::MapWorldPoseToObjectSpace(nodes[static_cast<size_t>(parent)].global, node.global);
        for (int c = n + 1; c < structure.numNodes; ++c) {
            if (!containsNode(c, n)) continue;
            if (!semi.offsetChildren && planeOfGoal(structure, c) >= 0) continue;
            followParent(nodes, structure, c);
        }
        for (int p = 0; p < structure.numPlanes; ++p) {
            const int anchor = structure.planes[p].AnchorIndex;
            if (anchor >= 0 && containsNode(anchor, n)) rebuildLimb(nodes, structure.planes[p]);
        }
    }

    // 7. Goal offsets.
    for (int p = 0; p < structure.numPlanes; ++p) {
        const AdjustParameters::Plane& planeHandles = handles.planes[static_cast<size_t>(p)];
        NodeMap& goal = nodes[static_cast<size_t>(structure.planes[p].Span)];
        const CVector3 offset(readDouble(planeHandles.offset[0], currentTime),
                              readDouble(planeHandles.offset[1], currentTime),
                              readDouble(planeHandles.offset[2], currentTime));
        goal.global.SetTranslation(goal.global.GetTranslation() + offset);
    }

    // 8. Final pass: moved goals keep their place, the rest follows, and rotation offsets of the
    // other nodes turn them in their own axes.
    for (int n = 1; n < structure.numNodes; ++n) {
        const int parent = structure.nodes[n].Parent;
        if (parent < 0) continue;
        NodeMap& node = nodes[static_cast<size_t>(n)];
        const CTransformation& parentGlobal = nodes[static_cast<size_t>(parent)].global;
        if (planeOfGoal(structure, n) >= 0)
            node.local = ORV::MATH::MapWorldPoseToObjectSpace(parentGlobal, node.global);
        node.global.Mul(node.local, parentGlobal);
        const int c = node.constraintIndex;
        if (c > 0 && c < static_cast<int>(mocaps.size()) &&
            mocaps[static_cast<size_t>(c)].hasRotationOffsetProperty)
            turnInOwnAxes(node.global,
                          rotationFromDegrees(handles.offsets[static_cast<size_t>(c)].rotation, currentTime));
    }
}

void RetargetOp::DampenMotion() {
    const ModelStructure& structure = *modelMap->structure;
    std::vector<NodeMap>& nodes = modelMap->nodes;
    const std::vector<MocapConstraint>& mocaps = glueMap->mocaps;
    AdjustParameters& handles = parameters(*this);
    for (int n = 0; n < structure.numNodes; ++n) {
        NodeMap& node = nodes[static_cast<size_t>(n)];
        const int c = node.constraintIndex;
        if (c < 0 || c >= static_cast<int>(mocaps.size()) ||
            !mocaps[static_cast<size_t>(c)].hasRotationOffsetProperty)
            continue;
        // 1-2. How far back to the rest pose, and the pose relative to the parent.
        const double reduce = readDouble(handles.offsets[static_cast<size_t>(c)].reduce, currentTime);
        const int parent = structure.nodes[n].Parent;
        const CTransformation* parentGlobal =
            parent >= 0 ? &nodes[static_cast<size_t>(parent)].global : nullptr;
        const CTransformation current =
            parentGlobal ? ORV::MATH::MapWorldPoseToObjectSpace(*parentGlobal, node.global) : node.global;

        // 3. The tag-time orientation, relative to the parent's.
        CTransformation rest;
        rest.SetRotation(Util::BuildRotationBetweenTwoAxisPairs(
            node.align, node.roll, structure.nodes[n].align, structure.nodes[n].roll));
        if (parentGlobal) {
            const NodeMap& parentNode = nodes[static_cast<size_t>(parent)];
            CTransformation parentRest;
            parentRest.SetRotation(Util::BuildRotationBetweenTwoAxisPairs(parentNode.align, parentNode.roll,
                                                                          structure.nodes[parent].align,
                                                                          structure.nodes[parent].roll));
            rest = ORV::MATH::MapWorldPoseToObjectSpace(parentRest, rest);
        }

        // 4. Blend towards it.
        const DrvTransform from(current);
        const DrvTransform to(rest);
        DrvQuaternion blended;
        blended.Interpolate(from.rotation, to.rotation, reduce, 0);

        // 5. The children keep their own poses relative to their parents.
        for (int k = n + 1; k < structure.numNodes; ++k) {
            const int kParent = structure.nodes[k].Parent;
            if (kParent < 0 || !containsNode(k, n)) continue;
            NodeMap& child = nodes[static_cast<size_t>(k)];
            child.local = ORV::MATH::MapWorldPoseToObjectSpace(nodes[static_cast<size_t>(kParent)].global,
                                                               child.global);
        }

        // 6. The new rotation, under the parent's.
        CRotation rotation(ORV::MATH::CQuaternion(blended.w, blended.x, blended.y, blended.z));
        if (parentGlobal) rotation.Mul(CRotation(rotation), parentGlobal->GetRotation());
        node.global.SetRotation(rotation);

        // 7. The children follow.
        for (int k = n + 1; k < structure.numNodes; ++k)
            if (containsNode(k, n)) followParent(nodes, structure, k);
    }
}

void RetargetOp::updateClampKeys(int plane, double time) {
    if (!clampKeys || !modelMap || !modelMap->structure || !glueMap || plane < 0 ||
        plane >= modelMap->structure->numPlanes)
        return;
    const ModelStructure& structure = *modelMap->structure;
    std::vector<ClampItem>& items = clampKeys[plane];
    items.clear();
    const ORV::CString name = planeName(structure, plane);
    const int goal = structure.planes[plane].Span;
    const ORV::Parameter clampParameter = adjustProperty.GetParameter(name + L"Clamp");
    const ORV::Parameter frameParameter = adjustProperty.GetParameter(name + L"Frame");
    const ORV::Parameter blendParameter = adjustProperty.GetParameter(name + L"BlendBack");

    // 1. One event for a constant value, else one per key.
    long n = 1;
    const ORV::FCurve curve(clampParameter.GetSource());
    if (curve.IsValid()) n = curve.GetNumKeys();
    if (n <= 0) return;

    for (long k = 0; k < n; ++k) {
        // 2. The event at the key, or at the insertion frame for a constant.
        ClampItem item;
        double t = 0.0;
        if (n < 2) {
            item.clamp = static_cast<bool>(clampParameter.GetValue(ModelMap::NOW));
            if (!item.clamp) return;
            item.frame = insertionFrame;
            t = insertionFrame;
        } else {
            const ORV::FCurveKey key = curve.GetKeyAtIndex(k);
            item.clamp = static_cast<bool>(key.GetValue());
            t = key.GetTime().GetTime();
            item.frame = static_cast<int>(std::trunc(t * speed + 0.1));
        }
        if (item.clamp) {
            currentTime = time;
            if (n > 1 && numFrames > 0) {
                // The whole frame's pose decides where the foot is held; a key outside the
                // clip holds the pose at its nearer end.
                currentFrame = item.frame < 0 ? 0 : (item.frame > numFrames - 1 ? numFrames - 1 : item.frame);
                frameFraction = 0.0;
                applyPose();
                applyStride();
                applyStretch();
                applyOffset();
                DampenMotion();
            }
            item.referenceFrame = static_cast<int>(frameParameter.GetValue(t));
            const CVector3& world = modelMap->nodes[static_cast<size_t>(goal)].global.GetTranslation();
            item.position = world;
            if (item.referenceFrame > 0) {
                // The n-th constraint with an object, counting from 1, as the "Frame" combo lists them.
                int counted = 0;
                item.node = -1;
                for (const MocapConstraint& constraint : glueMap->mocaps) {
                    if (!constraint.object.IsValid() || ++counted != item.referenceFrame) continue;
                    const int node = constraint.nodeIndex;
                    if (node >= 0 && node < structure.numNodes) {
                        item.node = node;
                        item.position = ORV::MATH::MapWorldPositionToObjectSpace(
                            modelMap->nodes[static_cast<size_t>(node)].global, world);
                    }
                    break;
                }
            }
        } else {
            item.blendBack = static_cast<int>(blendParameter.GetValue(t));
        }
        items.push_back(item);
    }
}

void RetargetOp::applyClamp() {
    const ModelStructure& structure = *modelMap->structure;
    std::vector<NodeMap>& nodes = modelMap->nodes;
    for (int p = 0; p < structure.numPlanes; ++p) {
        const std::vector<ClampItem>& items = clampKeys[p];
        NodeMap& goal = nodes[static_cast<size_t>(structure.planes[p].Span)];
        const size_t count = items.size();
        bool stopped = false;
        for (size_t k = 0; k < count && !stopped; ++k) {
            const ClampItem& item = items[k];
            if (item.clamp) {
                // An on item holds from its frame until the next event has come.
                if (item.frame > currentFrame) continue;
                if (k + 1 < count && items[k + 1].frame <= currentFrame) continue;
                goal.global.SetTranslation(holdPosition(item, nodes));
                stopped = true;
            } else if (item.blendBack >= 0 && item.frame <= currentFrame &&
                       currentFrame < item.frame + item.blendBack) {
                // Release: blend from the last hold back to the motion computed so far.
                stopped = true;
                for (size_t b = k; b-- > 0;) {
                    if (!items[b].clamp) continue;
                    const CVector3 held = holdPosition(items[b], nodes);
                    const double t = (currentFrame + frameFraction - item.frame) / item.blendBack;
                    goal.global.SetTranslation(held * (1.0 - t) + goal.global.GetTranslation() * t);
                    break;
                }
            }
        }
        // The anchor always wins over the clamp.
        if (stopped) limitReach(nodes, structure.planes[p]);
    }
}

void RetargetOp::applyRoll() {
    const ModelStructure& structure = *modelMap->structure;
    AdjustParameters& handles = parameters(*this);
    for (int p = 0; p < structure.numPlanes; ++p) {
        modelMap->planes[static_cast<size_t>(p)].roll =
            readDouble(handles.planes[static_cast<size_t>(p)].roll, currentTime);
        if (modelMap->nodes[static_cast<size_t>(structure.planes[p].Span)].constraintIndex > 0)
            modelMap->rollKinematicChain(p);
    }
}

void RetargetOp::mirrorPose() {
    if (!modelMap || !modelMap->structure) return;
    const ModelStructure& structure = *modelMap->structure;
    std::vector<NodeMap>& nodes = modelMap->nodes;
    for (int n = 0; n < structure.numNodes; ++n) {
        const int m = structure.nodes[n].mirror_node_index;
        NodeMap& node = nodes[static_cast<size_t>(n)];
        if (m < 1) {
            mirrorTransform(node.global, 0, node.tpose);
        } else if (m > n && m < structure.numNodes) {
            // Each pose is mirrored against the reference pose of the node it came from.
            NodeMap& other = nodes[static_cast<size_t>(m)];
            CTransformation fromOther = other.global;
            CTransformation fromNode = node.global;
            mirrorTransform(fromOther, 0, other.tpose);
            mirrorTransform(fromNode, 0, node.tpose);
            node.global = fromOther;
            other.global = fromNode;
        }
    }
}

void mirrorTransform(CTransformation& transform, int axis, CTransformation reference) {
    // 1. The reference turns only.
    CVector3 t = transform.GetTranslation();
    reference.SetTranslationFromValues(0.0, 0.0, 0.0);
    const CTransformation inverse = Util::invertTransform(reference);

    // 2. Two axes of the pose, seen from the reference.
    CVector3 y(0.0, 1.0, 0.0), z(0.0, 0.0, 1.0);
    y.MulByTransformationInPlace(inverse);
    z.MulByTransformationInPlace(inverse);
    const ORV::MATH::CMatrix3 rotation = transform.GetRotationMatrix3();
    y.MulByMatrix3InPlace(rotation);
    z.MulByMatrix3InPlace(rotation);

    // 3. Reflect. The axis 2 form reflects the translation in x as well; kept as it is.
    if (axis == 0) {
        t.x = -t.x;
        y.x = -y.x;
        z.x = -z.x;
    } else if (axis == 2) {
        t.x = -t.x;
        y.z = -y.z;
        z.z = -z.z;
    }

    // 4-5. Back through the reference, with the third axis made right-handed again.
    y.MulByTransformationInPlace(reference);
    z.MulByTransformationInPlace(reference);
    CVector3 x;
    x.Cross(y, z);
    transform.SetRotationFromXYZAxes(x, y, z);
    transform.SetTranslation(t);
}

}  // namespace ZUK
