// ZUK::RetargetOp: the live retarget operator of a model, the motion blob "ZUKRetargetOp" it
// plays from, and its installation.
//
// The blob (little-endian, 32-bit characters, no padding, so its doubles are not aligned):
//   0    magic 0x38DEF311
//   4    8 bytes: address of the live RetargetOp, or 0 (stale in a saved scene)
//   12   reserved, zeros
//   256  frames F, nodes N, planes P (unsigned 32-bit)
//   268  N*F global poses (tx ty tz qw qx qy qz), node-major; P*F normals (3 doubles),
//        plane-major; N signed 32-bit translation sources
//   then the version (double), the insertion frame, K key timing records, and the base scale.
// Blobs written before the header existed start their counts at offset 8; presynchronize
// moves them to the present layout.
#pragma once

#include <orv/ORV.h>

#include <vector>

namespace ZUK {

class ModelMap;
class GlueMap;
class Motion;
class NodeKeyTiming;

class RetargetOp {
public:
    static constexpr const wchar_t* DATA_NAME = L"ZUKRetargetOp";
    static constexpr const wchar_t* FRAMES_NAME = L"ZUKRefFrames";
    static constexpr unsigned int MAGIC = 0x38DEF311u;
    static constexpr double VERSION = 1.4;
    // Where the counts start, and where the poses start.
    static constexpr unsigned int HEADER_SIZE = 256;
    static constexpr unsigned int POSES_OFFSET = 268;
    // The earlier layout had its counts at offset 8.
    static constexpr unsigned int OLD_HEADER_SIZE = 8;

    // One clamp event of a foot.
    class ClampItem {
    public:
        int frame = 0;
        // True: the foot is held from here on; false: the hold ends here.
        bool clamp = false;
        // For a release, the frames over which the foot returns to its own motion.
        int blendBack = 0;
        // 0 for world space; otherwise the "Frame" combo's value: held relative to `node`.
        int referenceFrame = 0;
        int node = 0;
        // World position, or position in the node's space.
        ORV::MATH::CVector3 position;
    };

    // One free node whose offset the panel adjusts; its parameters are named from `name`.
    class SemiFree {
    public:
        ORV::CString name;
        double changeTime = 0.0;
        ORV::MATH::CVector3 offset;
        bool offsetChildren = false;
        double anchorTangentLength = 0.0;
        double goalTangentLength = 0.0;
        int node = 0;
    };

    RetargetOp() = default;
    ~RetargetOp();
    RetargetOp(const RetargetOp&) = delete;
    RetargetOp& operator=(const RetargetOp&) = delete;

    // Writes the recorded motion into `blob`: counts from the target structure, key timing
    // from the source map, translation sources from the target map. False when the host
    // refuses the bytes.
    static bool stuffMotionDataIntoBlob(ORV::UserDataBlob& blob, Motion& motion, int insertionFrame);
    // Brings a blob into the present layout and clears its runtime slot. Run before a fresh
    // operator looks at a blob.
    static void presynchronize(ORV::UserDataBlob& blob);
    // Binds this operator to the blob's motion, played in place from the host's buffer.
    void LoadMotionDataFromUDB(ORV::UserDataBlob& blob);
    // The same on a writable buffer that must outlive this object. A buffer whose counts need
    // more bytes than it holds logs at severity 4 and leaves the operator unloaded. True when
    // loaded.
    bool LoadMotionDataFromBuffer(unsigned char* bytes, unsigned int size);
    // The bytes that the blob's counts and key timing need, or 0 when `bytes` cannot hold them
    // (or cannot even hold the counts).
    static unsigned long long RequiredBlobSize(const unsigned char* bytes, unsigned int size);

    // The live operator bound to the blob, or null (no buffer, or none bound).
    static RetargetOp* GetRetargetOpPointer(ORV::UserDataBlob& blob);
    // The same through the model's property named DATA_NAME; null when there is none.
    static RetargetOp* GetRetargetOpPointer(ORV::Model model);

    // Removes a previous installation from `model`: operators, adjustment property and blob.
    // True if there was one.
    static bool cleanupRetargetOp(ORV::Model model);

    // The frame range of the model's motion: from its blob when retargeted, else from its curves.
    static bool findFCurvesStartEnd(ORV::Model model, int& start, int& end);

    // ---- Installation and playback ----------------------------------------------------------
    // Installs the live retarget on the glue's model: adjustment property, blob, operators.
    static void ApplyRetargetOp(GlueMap& glue, Motion& motion, int insertionFrame);
    // Takes ownership of map and glue, and builds the cached data of the adjustments.
    void PrepareDataForPlayback(ModelMap* map, GlueMap* glue, double time);
    void update(double time);
    void computeFrame(double time);
    void computePose();
    void applyPose();
    // Members behind the small operators; each does nothing while notReady.
    void ApplyGlobalOpValue(ORV::KinematicState out, int constraint);
    void ApplyUpVectorOpValue(ORV::KinematicState out, int constraint);
    void updateDecomp(ORV::KinematicState in, ORV::KinematicState out, int source, int decomp);
    void updateSpine(ORV::KinematicState in, ORV::KinematicState out, int spine, int joint);
    // Samples of the blob at a motion frame, blended towards the next frame by fraction.
    void GetGlobalRotation(int node, int frame, ORV::MATH::CQuaternion& out, double fraction);
    void GetGlobalTranslation(int node, int frame, ORV::MATH::CVector3& out, double fraction);
    void GetPlaneNormal(int plane, int frame, ORV::MATH::CVector3& out, double fraction);
    ORV::MATH::CVector3 GetInterpollatedValue(ORV::MATH::CVector3* path);
    // True if node is ancestor, or ancestor lies on node's way to the root.
    bool containsNode(int node, int ancestor);
    // Nudges "Ping" so the host re-evaluates the whole operator family.
    void UpdateEntireRig();
    // Panel events.
    void AjustmentParameterChanged(ORV::Parameter param, ORV::CustomProperty& property, double time);
    void RotationOffsetParameterChanged(ORV::CustomProperty& property);
    // Each reads the parameter at currentTime; on a difference from the cache it stores it,
    // sets changeTime to currentTime and returns true.
    bool CheckForParamValueChangeAndUpdateCache(ORV::CustomProperty& property, const ORV::CString& name,
                                                bool& cache, double& changeTime);
    bool CheckForParamValueChangeAndUpdateCache(ORV::CustomProperty& property, const ORV::CString& name,
                                                double& cache, double& changeTime);
    bool CheckForParamValueChangeAndUpdateCache(ORV::CustomProperty& property, const ORV::CString& name,
                                                short axis, ORV::MATH::CVector3& cache, double& changeTime);
    bool CheckForFootValueChange(int plane);
    bool CheckForSpeedValueChange();
    bool testSemiFreeGoalTangent(int index);
    bool testSemiFreeAnchorTangent(int index);
    bool testSemiFreeChildren(int index);

    // ---- Pose adjustments, in the order computePose runs them ---------------------------------
    void applyStride();
    void updateStride();
    void applyStretch();
    void applyOffset();
    void DampenMotion();
    void applyClamp();
    void updateClampKeys(int plane, double time);
    void applyRoll();
    void mirrorPose();

    // ---- Retiming -------------------------------------------------------------------------------
    bool setInsertionFrame(int frame);
    bool RetimeFCurveKeys(ORV::Parameter parameter);
    void RetimeAllFCurveKeys(double time);
    int getEndFrame();

    // Motion and maps are ready; set last by the load.
    bool loaded = false;
    int warmupCount = 0;
    // While true, the smaller operators do nothing.
    bool notReady = true;
    // Into the blob: per node the translation source at transfer.
    int* sourceNodes = nullptr;
    // Into the blob: N*F records of 7 doubles (tx ty tz qw qx qy qz), node-major; P*F records
    // of 3 doubles, plane-major. Not aligned: read them with memcpy.
    double* poses = nullptr;
    double* normals = nullptr;
    int numFrames = 0;
    double speed = 1.0;
    double previousSpeed = 1.0;
    // The target map's leg scale at transfer.
    double baseScale = 1.0;
    // Owned: stride-adjusted path of node 0 and of each plane's goal, by motion frame.
    ORV::MATH::CVector3* cogPath = nullptr;
    ORV::MATH::CVector3** footPaths = nullptr;
    // Owned: per plane, the clamp events.
    std::vector<ClampItem>* clampKeys = nullptr;
    // Owned: the target map and the rig's glue, rebuilt at load.
    ModelMap* modelMap = nullptr;
    GlueMap* glueMap = nullptr;
    ORV::CustomProperty adjustProperty;
    double currentTime = 0.0;
    int currentFrame = 0;
    double frameFraction = 0.0;
    ORV::CValueArray frameSelections;
    ORV::CValueArray offsetSelections;
    // Scene frame at which motion frame 0 plays.
    int insertionFrame = 0;
    // Owned.
    NodeKeyTiming* keyTimings = nullptr;
    int keyTimingCount = 0;
    std::vector<SemiFree> semiFrees;
    // The adjustment property's "Speed", found once at load so that evaluations read it without
    // a name lookup.
    ORV::Parameter speedParameter;
};

// Reflects a world pose through the plane x = 0, against the reference pose it came from.
void mirrorTransform(ORV::MATH::CTransformation& transform, int axis, ORV::MATH::CTransformation reference);

}  // namespace ZUK
