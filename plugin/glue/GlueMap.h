// GlueMap: how the normalised pose held in a ModelMap reaches the objects of a rig. Each
// structure node gets one kind of constraint, chosen once from the way the rig was built: a
// MocapConstraint for an object that takes a transform directly, a PlaneConstraint for the
// up-vector object of an IK limb, a SpineConstraint for a run of objects between two
// controllers. Built at tagging time, stored on the model as "ZUKGlue", bound to the scene with
// applyToModel, and evaluated per frame by the operators.
#pragma once

#include <orv/ORV.h>

#include <vector>

namespace ZUK {

class ModelMap;
class SpineMap;

class MocapConstraint {
public:
    // Name of the driven object (stored as "rignodename").
    ORV::CString rigNodeName;
    // The object, set by applyToModel.
    ORV::X3DObject object;
    ORV::MATH::CTransformation neutralPose;
    // Never written by the glue.
    ORV::MATH::CTransformation offset;
    // Structure node name (stored as "TagObj").
    ORV::CString tagName;
    // The node that drives the object; syncToModelMap can move it to the parent.
    int nodeIndex = -1;
    // The object's own node, fixed by applyToModel; its align and roll rebuild mirrored objects.
    int ownNodeIndex = -1;
    // 0 translation and rotation, 1 translation only, 2 rotation only (stored as "Type").
    int kind = 0;
    // Multiplied in front of the node's rotation.
    ORV::MATH::CRotation rotationOffset;
    // Whether the object carries the rotation offset property; set by the operator.
    bool hasRotationOffsetProperty = false;
    ORV::CustomProperty rotationOffsetProperty;
    // Copied along, not used by the glue.
    bool tail = false;
};

class PlaneConstraint {
public:
    // Name of the chain's up-vector reference object (stored as "rignodename").
    ORV::CString upVectorName;
    // Name of the structure plane (stored as "Mid").
    ORV::CString planeName;
    // Found by name in applyToModel.
    int planeIndex = -1;
    // The up-vector object.
    ORV::X3DObject object;
    ORV::MATH::CTransformation neutralPose;
    // Not written by the glue.
    ORV::MATH::CTransformation offset;
    // The chain's joint roll in radians, read in applyToModel.
    double jointRoll = 0.0;
    // Distance of the up-vector from the limb: the span node's length (stored as "UpLength").
    double upLength = 0.0;
    // Side of the limb, +1 or -1; 0 applies no flip (stored as "Sign").
    int upSign = 0;
    // The up-vector in the space of the anchor node; only its translation is stored.
    ORV::MATH::CTransformation rest;
};

// One object of a spine run, with its neutral pose.
class SpineSegment {
public:
    ORV::X3DObject object;
    ORV::MATH::CTransformation neutralPose;
};

class SpineConstraint {
public:
    SpineConstraint() = default;
    // Frees the spine map and the segments.
    ~SpineConstraint();
    SpineConstraint(const SpineConstraint&) = delete;
    SpineConstraint& operator=(const SpineConstraint&) = delete;
    SpineConstraint(SpineConstraint&& other) noexcept;
    SpineConstraint& operator=(SpineConstraint&& other) noexcept;

    // Name of the parent node's object ("anchor").
    ORV::CString anchorName;
    // Name of the first object below it ("base").
    ORV::CString baseName;
    // Name of the goal node's object (column "end").
    ORV::CString goalName;
    // Structure node name of the goal (column "goal").
    ORV::CString tagName;
    int nodeIndex = -1;
    ORV::X3DObject anchor, base, goal;
    int numNodes = 0;
    // One per spine object, numNodes long; owned.
    SpineSegment* segments = nullptr;
    // align and roll of the parent node, and of the goal node.
    ORV::MATH::CVector3 aaxis, aroll, axis, roll;
    // Anchor and goal tangents of the curve.
    ORV::MATH::CVector3 atan, gtan;
    // Running twist of the goal, kept from frame to frame, radians.
    double spin = 0.0;
    // Owned.
    SpineMap* spineMap = nullptr;
};

class GlueMap {
public:
    static constexpr const wchar_t* PROPERTY_NAME = L"ZUKGlue";
    static constexpr int VERSION = 4;

    GlueMap() = default;
    ~GlueMap() = default;
    GlueMap(const GlueMap&) = delete;
    GlueMap& operator=(const GlueMap&) = delete;

    // ---- Building, storing, binding
    // A new glue from the live rig, on a map after createMap; owned by the caller.
    static GlueMap* createFromModelMap(ORV::Model model, ModelMap* map);
    // Null when the property is missing or outdated.
    static GlueMap* CreateFromCustomProperty(ORV::Model model);
    // Replaces any existing property.
    void SaveToCustomProperty(ORV::Model model);
    // Binds the constraints to the scene objects; before any constraint is evaluated.
    void applyToModel(ORV::Model model, ModelMap* map);
    // Moves unfed objects that lie on a limb's goal onto the goal; after the map's
    // translation sources are known.
    void syncToModelMap();
    // Finds on which side of each limb this rig's up-vector lies.
    void computeUpVectorSign(ORV::Model model, ModelMap* map);
    // Removes the property from the model.
    static void cleanup(ORV::Model model);

    // ---- Per frame
    void applyMocapConstraint(ORV::KinematicState state, int constraintIndex);
    void applyPlaneConstraint(ORV::KinematicState state, int constraintIndex, double angle);
    void applyDecompConstraint(ORV::KinematicState inState, ORV::KinematicState outState, int node,
                               int decomp);
    void updateSpineConstraint(ORV::KinematicState anchorState, ORV::KinematicState baseState, int spineIndex,
                               double anchorTangent, double goalTangent);
    void applySpineConstraint(ORV::KinematicState inState, ORV::KinematicState outState, int spineIndex,
                              int segment);

    std::vector<MocapConstraint> mocaps;
    std::vector<PlaneConstraint> planes;
    std::vector<SpineConstraint> spines;
    // Not owned; set by applyToModel.
    ModelMap* modelMap = nullptr;
};

}  // namespace ZUK
