// Pose map files (".c3dpose"): a map that reads places every node over a frame of its own
// markers, as the capture solver does, which follows every marker index the file gives.
#include <vector>

#include "FuzzTarget.h"
#include "mocap/ReferencePose.h"

TROVO_FUZZ_TARGET(c3dpose) {
    trovofuzz::Prepare();
    const std::string path = trovofuzz::ScratchFile("input.c3dpose", data, size);
    ZUK::ReferencePose pose;
    if (!pose.readFromFile(ORV::CString(path.c_str()))) return 0;
    std::vector<ORV::MATH::CVector3> points(static_cast<std::size_t>(pose.markerCount));
    for (int m = 0; m < pose.markerCount; ++m) points[static_cast<std::size_t>(m)].Set(m, 2.0 * m, 1.0);
    for (int n = 0; n < pose.nodeCount; ++n) {
        pose.constraints[n].nodePose(points.data(), pose.markerCount);
        for (int corner : pose.constraints[n].markers) {
            pose.refToCurrent(corner);
            pose.currentToRef(corner);
        }
    }
    pose.tpcRefToCurrent();
    pose.tpcCurrentToRef();
    return 0;
}
