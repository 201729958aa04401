// Reading a pose into a ModelMap's working transforms: from the rig's objects (with mirrored
// objects given a proper rotation) or from the capture's nodes.
#include <climits>
#include <cmath>

#include "character/ModelStructure.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"

namespace ZUK {

using ORV::MATH::CTransformation;
using ORV::MATH::CVector3;

namespace {

// The capture frame that a time reads. A time holds its frame truncated toward zero. A time
// that no frame number can hold (the host's "now", the largest double, above all; also the
// infinities and NaN) reads frame 0: a capture has no current frame of its own, and frame 0 is
// where its readers evaluate it and where a capture map is measured.
int CaptureFrame(double time) {
    if (!(time > static_cast<double>(INT_MIN) - 1.0 && time < static_cast<double>(INT_MAX) + 1.0)) return 0;
    return static_cast<int>(time);
}

// Marks the axis a vector points along: the first of X, Y, Z whose signed component is not
// smaller than the other two.
void MarkAxis(const CVector3& v, bool marked[3]) {
    if (v.x >= v.y && v.x >= v.z)
        marked[0] = true;
    else if (v.y >= v.x && v.y >= v.z)
        marked[1] = true;
    else if (v.z >= v.x && v.z >= v.y)
        marked[2] = true;
}

// A mirrored transform has no proper rotation: the two axes that define the bone (those of
// align and roll) keep their true directions and the third one carries the mirror.
void RebuildMirroredRotation(const CTransformation& full, const CVector3& align, const CVector3& roll,
                             CTransformation& global) {
    bool marked[3] = {false, false, false};
    MarkAxis(roll, marked);
    MarkAxis(align, marked);
    const CVector3& origin = full.GetTranslation();
    CVector3 x, y, z;
    x.MulByTransformation(CVector3(1.0, 0.0, 0.0), full).SubInPlace(origin);
    y.MulByTransformation(CVector3(0.0, 1.0, 0.0), full).SubInPlace(origin);
    z.MulByTransformation(CVector3(0.0, 0.0, 1.0), full).SubInPlace(origin);
    if (marked[0] && marked[1])
        z.Cross(x, y);
    else if (marked[0] && marked[2])
        y.Cross(z, x);
    else if (marked[1] && marked[2])
        x.Cross(y, z);
    // With a single mark nothing is rebuilt; the host then keeps the rotation it decomposed.
    global.SetRotationFromXYZAxes(x, y, z);
}

}  // namespace

void ModelMap::CopyTransformsToNodeMap(double time, bool useExtraction) {
    if (mocap) {
        getMocapTransforms(CaptureFrame(time));
    } else {
        for (NodeMap& n : nodes) {
            if (!n.object.IsValid()) {
                n.global.SetIdentity();
                continue;
            }
            const bool fromExtraction = useExtraction && n.extraction && n.extraction->object.IsValid();
            const ORV::X3DObject& source = fromExtraction ? n.extraction->object : n.object;
            const CTransformation full = source.GetKinematics().GetGlobal().GetTransform(time);
            n.global = full;
            n.global.SetScalingFromValues(1.0, 1.0, 1.0);
            if (full.GetScaling().x < 0.0) {
                if (fromExtraction)
                    RebuildMirroredRotation(full, n.extraction->align, n.extraction->roll, n.global);
                else
                    RebuildMirroredRotation(full, n.align, n.roll, n.global);
            }
        }
    }

    // Locals against the structure parent; a node without one keeps the local it had.
    const int count = static_cast<int>(nodes.size());
    if (count == 0) return;
    nodes[0].local = nodes[0].global;
    if (!structure) return;
    for (int i = 1; i < count && i < structure->numNodes; ++i) {
        const int parent = structure->nodes[i].Parent;
        if (parent < 0 || parent >= count) continue;
        nodes[i].local = ORV::MATH::MapWorldPoseToObjectSpace(nodes[parent].global, nodes[i].global);
    }
}

void ModelMap::getMocapTransforms(int frame) {
    if (!mocap) return;
    mocap->updateTransforms(frame);
    for (NodeMap& n : nodes) {
        if (!n.mocapNode) continue;
        n.global = n.mocapNode->global;
        n.global.SetScalingFromValues(1.0, 1.0, 1.0);
    }
}

}  // namespace ZUK
