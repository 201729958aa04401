// ZUK::Motion: the whole-clip buffer between a per-frame transfer and the operator's blob. A
// transfer records the target map's pose at every frame, then runs the foot passes once: they
// hold planted feet, set the feet's height from the source, and repair limb normals that
// collapsed on straight limbs. The result is baked into the blob and the buffer is dropped.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class ModelMap;

// -1 below zero, 1 above zero, 0 at zero.
double mysign(double value);

class Motion {
public:
    // Allocates every array for the target structure's node and plane counts.
    Motion(long frames, ModelMap* target, ModelMap* source);
    ~Motion();
    Motion(const Motion&) = delete;
    Motion& operator=(const Motion&) = delete;

    // Copies the target map's pose, its plane normals and the source positions of the limb
    // ends into `frame`. A frame outside 0 to frames-1 is ignored.
    void RecordPoseFromModelMap(long frame);
    // The foot passes, once, after the last frame: the quadruped ones for more than two
    // friction nodes, the biped ones otherwise.
    void ProcessFootMovement();

    // The passes; called only from ProcessFootMovement.
    void ScaleFeetLift();
    void ClampFootMotionWhilePlanted();
    void processBounds();
    void processQuadFeet();
    void InterpollateBrokenPlaneNormals();

    // One segment of the bounds remap of a plane's goal on one axis (0, 1, 2 for x, y, z).
    void computeMap(long plane, short axis, double& srcStart, double& tgtStart, double& scale,
                    long& startFrame, long& endFrame, long newEndFrame);
    // The node above the nearest free joint on the way from `node` to the root; 0 when none.
    long FindSemiFreeNode(long node);

    long frames;
    // Per node, `frames` world poses; the frames of one node are contiguous.
    ORV::MATH::CTransformation** globalPoses = nullptr;
    // Per node, `frames` poses relative to the structure parent; recorded only.
    ORV::MATH::CTransformation** localPoses = nullptr;
    // Per plane, `frames` limb normals.
    ORV::MATH::CVector3** planeNormals = nullptr;
    // Per plane, `frames` world positions of the source node bound to the plane's goal. The
    // biped clamp turns them into per-frame steps in place.
    ORV::MATH::CVector3** goalPositions = nullptr;
    ModelMap* targetMap = nullptr;
    ModelMap* sourceMap = nullptr;
    // Per plane, the largest vertical gap between anchor and goal that the limb spans.
    double* maxReach = nullptr;

private:
    long numNodes = 0;
    long numPlanes = 0;
    // The single blocks behind the per-node and per-plane rows.
    ORV::MATH::CTransformation* globalBlock = nullptr;
    ORV::MATH::CTransformation* localBlock = nullptr;
    ORV::MATH::CVector3* normalBlock = nullptr;
    ORV::MATH::CVector3* goalBlock = nullptr;

    int goalSource(long plane);
    void blendBack(long plane, int axis, long i, double reach);
};

}  // namespace ZUK
