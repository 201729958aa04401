// ModelMap: one character seen through a canonical skeleton (ModelStructure). It holds one
// NodeMap per structure node and one PlaneMap per structure plane, with the same indices in
// every map of a structure, and binds each of them to what this character has: a rig object, a
// capture node, or a row of a normalised motion file. Transfer between two characters walks two
// maps with the same indices.
//
// Three kinds, told apart by their fields: a rig map (built from a model; `mocap` and `motion`
// null), a capture map (`mocap` set) and a motion map (`motion` set, filled by a file reader).
#pragma once

#include <orv/ORV.h>

#include <vector>

// The XML library's element type, declared without its headers: only XMLFileStream includes
// them. The alias repeats the one the library itself declares, so both may meet in one file.
namespace xercesc_3_2 {
class DOMElement;
}
namespace xercesc = xercesc_3_2;

class XMLFileStream;

namespace ZUK {

class ModelStructure;
class MocapData;
struct MocapNode;
class GlueMap;
class Motion;
class RetargetOp;
class InputStream;
class OutputStream;

// An extra object on which a node's pose is read when the rig's skeleton is driven from
// another object.
class ExtractionMap {
public:
    ORV::MATH::CVector3 align;
    ORV::MATH::CVector3 roll;
    ORV::X3DObject object;
    ORV::MATH::CTransformation esrOffsetInverse;
};

// Channel bits of DecompMap::mask, in the order of the structure's decomposition columns.
enum DecompChannel : unsigned int {
    DECOMP_PX = 1,
    DECOMP_PY = 2,
    DECOMP_PZ = 4,
    DECOMP_RX = 8,
    DECOMP_RY = 16,
    DECOMP_RZ = 32,
    DECOMP_RTOP_X = 64,
    DECOMP_RTOP_Y = 128,
    DECOMP_RTOP_Z = 256
};

// One object that takes selected channels of a node's motion.
class DecompMap {
public:
    ORV::X3DObject object;
    unsigned int mask = 0;
    // The decomposition target that matched.
    ORV::CString tagName;
    // The node that owns this entry.
    int nodeIndex = -1;
};

class NodeMap {
public:
    NodeMap() = default;
    ~NodeMap();
    NodeMap(const NodeMap&) = delete;
    NodeMap& operator=(const NodeMap&) = delete;
    NodeMap(NodeMap&& other) noexcept;
    NodeMap& operator=(NodeMap&& other) noexcept;

    // The rig object that carries this node's tag; invalid when the rig has none.
    ORV::X3DObject object;
    // Capture node of the same name; not owned; null otherwise.
    MocapNode* mocapNode = nullptr;
    // Distance measure of the node (bone length, or limb path length for a limb end).
    double length = 0.0;
    // Working global pose, scaling forced to 1.
    ORV::MATH::CTransformation global;
    // Working pose relative to the structure parent.
    ORV::MATH::CTransformation local;
    // The reference pose recorded in the tag.
    ORV::MATH::CTransformation tpose;
    // The canonical bone direction and twist direction in the object's own space.
    ORV::MATH::CVector3 align;
    ORV::MATH::CVector3 roll;
    // Rotation only: carries (align, roll) onto (Z, Y); and its inverse.
    ORV::MATH::CTransformation esrOffset;
    ORV::MATH::CTransformation esrOffsetInverse;
    // Source node feeding this node's translation / overriding its rotation; -1 for none.
    int translationSource = -1;
    int rotationSource = -1;
    // The structure node name whose rotation this object takes instead of its own tag's.
    ORV::CString overrideTag;
    // Owned; null when the node has no extraction object.
    ExtractionMap* extraction = nullptr;
    // Set by the operator for constrained nodes outside every limb; -1 otherwise.
    int constraintIndex = -1;
    // Objects that take parts of this node's motion.
    std::vector<DecompMap> decomps;
};

class PlaneMap {
public:
    // Two-link sign, +1 or -1.
    int sign = 1;
    // Unit normal of the limb's plane in the current pose; zero when the limb is straight.
    ORV::MATH::CVector3 normal;
    // Unit direction from bone 1 to the span node in bone 1's own space, taken at tag time.
    ORV::MATH::CVector3 spanDirection;
    // Limb stretch factor, set by the operator.
    double stretch = 1.0;
    // Extra rotation of the limb about its own axis, degrees.
    double roll = 0.0;
};

// Key times kept from a source, per channel, relative to the start frame.
class NodeKeyTiming {
public:
    // Channel order of `times`.
    static constexpr int NUM_CHANNELS = 6;
    static constexpr const wchar_t* CHANNEL_NAMES[NUM_CHANNELS] = {L"posx", L"posy", L"posz",
                                                                   L"rotx", L"roty", L"rotz"};

    ORV::CDoubleArray times[NUM_CHANNELS];
    // The structure node name.
    ORV::CString name;
};

class ModelMap : public ORV::Model {
public:
    static constexpr const wchar_t* PROPERTY_NAME = L"ZUKMap";
    static constexpr const wchar_t* NORM_MOTION = L"NormMotion5.0";
    static constexpr const wchar_t* UPVECTORTAG = L"_Up_Vector_Node_Tag_TROVO";
    static constexpr int VERSION = 4;
    // The host's "now" in every read at the current time.
    static constexpr double NOW = 1.7976931348623157e308;

    // ---- Construction (model map and tag discovery)

    // A rig map: finds the tags under `model` and reads the current pose. Measures are not
    // taken: the caller runs createMap or LoadFromCustomProperty.
    ModelMap(ORV::Model model, ModelStructure* structure);
    // A capture map: binds the capture's nodes by name, nothing else.
    ModelMap(MocapData* mocap, ModelStructure* structure);
    // An empty map for the motion file readers, which fill it.
    ModelMap();
    ~ModelMap();
    ModelMap(const ModelMap&) = delete;
    ModelMap& operator=(const ModelMap&) = delete;

    // From the tag properties of the model's objects to nodes, planes and decompositions.
    void FindTags();
    // Binds capture nodes to structure nodes by name.
    void FindMocapTags();

    // Element access with a diagnostic range test: an index out of range is logged, and the
    // element computed from it is returned all the same.
    NodeMap* nodeMap(int index);
    PlaneMap* planeMap(int index);

    // Removes the map property from the model.
    static void cleanup(ORV::Model model);

    // ---- Measures
    void createMap();
    void synchronizeLengths();
    void createESR();
    void CalulateSpanToEndEffectorOffset();
    void CalculateESRNodeLengths();
    void CalculateMocapESRNodeLengths();
    void CalculateESRNodeRotationsFromAlignAndRoll();
    void computeLegLength();
    void computeHipOffset();
    void computePlaneNormals();
    void computeTwoLinkSign();
    void addRotationOffsets(bool useExtraction);
    void addCounterRotationOffsets();
    void rollKinematicChain(int plane);

    // ---- Pose copying and IK
    bool BuildRelationshipsWithSrcModelMap(ModelMap& src, GlueMap& glue);
    void CopyTransformsToNodeMap(double time, bool useExtraction);
    void getMocapTransforms(int frame);
    bool CopyPoseFromSrcModelMap(ModelMap& src, double time);
    void solveIK();
    void ResetSrcandTgtModelTransfomsToOriginal(ModelMap& src);
    static bool InheritsTranslationFromCOG(ModelMap* map, int node);

    // ---- Motion transfer
    bool TransferNormMotion(ModelMap& src, GlueMap& glue, int startFrame);
    bool TransferMocapMotion(ModelMap& src, GlueMap& glue);
    bool TransferRigToRigMotion(ModelMap& src, GlueMap& glue, int startFrame, int endFrame);
    void ExtractSourceKeyTimingFromKinematicsParameters(ModelMap& src, ModelMap* dest, int startFrame,
                                                        int endFrame);
    void enumerateFCurveSource(ORV::X3DObject object, int& count);

    // ---- Persistence of the measures ("ZUKMap" and tag templates)
    void SaveToCustomProperty();
    void LoadFromCustomProperty();
    void WriteToStream(OutputStream& stream);
    void ReadFromStream(InputStream& stream);

    // ---- Normalised motion text file
    bool saveToFile(const ORV::CString& path, int startFrame, int endFrame);
    bool CreateFromFile(const ORV::CString& path);
    void storeKeyTiming(ORV::X3DObject object, ORV::CString name, OutputStream& stream, int startFrame,
                        int endFrame);
    // Whether `name` is one of the six channel names.
    static bool validParamName(const ORV::CString& name);
    // Whether `node` reaches `ancestor` by going up `Parent` (or is it).
    bool containedByNode(int node, int ancestor);

    // ---- Normalised motion XML file
    bool saveMotionToXMLFile(const ORV::CString& path, int startFrame, int endFrame);
    bool loadMotionFromXMLFile(const ORV::CString& path);
    void storeXMLKeyTiming(ORV::X3DObject object, ORV::CString name, XMLFileStream& stream,
                           xercesc::DOMElement* parent, int startFrame, int endFrame);
    void WriteToXMLStream(XMLFileStream& stream);

    // A motion map read from a normalised motion file of either form (told apart by
    // XMLFileStream::IsXMLFile); owned by the caller, null when the file could not be read.
    static ModelMap* CreateMotionMapFromFile(const ORV::CString& path);

    // ---- Data
    // The canonical skeleton; not owned unless `ownsStructure` (a motion file reader built it).
    ModelStructure* structure = nullptr;
    // Capture source; not owned.
    MocapData* mocap = nullptr;
    // Normalised motion, frame-major: node n of frame f at n + f * node count. Owned; a
    // non-null value marks a motion map, even with no frames.
    ORV::MATH::CTransformation* motion = nullptr;
    int numFrames = 0;
    // One per structure node / plane; their sizes never change after construction.
    std::vector<NodeMap> nodes;
    std::vector<PlaneMap> planes;
    double legLength = 0.0;
    double hipOffset = 0.0;
    double legScale = 1.0;
    bool valid = true;
    ORV::MATH::CTransformation savedGlobal;
    // Owned; null when none.
    NodeKeyTiming* keyTiming = nullptr;
    int numKeyTiming = 0;
    // True when the map made its structure itself (motion file readers) and frees it.
    bool ownsStructure = false;
};

}  // namespace ZUK
