// BVH files: the hierarchy, every frame of the motion, the end sites and the transforms of
// the first and last frame, as an import reads them.
#include "FuzzTarget.h"
#include "mocap/BvFile.h"

TROVO_FUZZ_TARGET(bvh) {
    trovofuzz::Prepare();
    const std::string path = trovofuzz::ScratchFile("input.bvh", data, size);
    const ZUK::UpDirection up = static_cast<ZUK::UpDirection>(size % 3);
    ZUK::BvFile file;
    ZUK::MocapData mocap;
    if (!file.Open(ORV::CString(path.c_str()).GetWideString()) || !file.ReadHierarchy(&mocap) ||
        !file.ReadMotionData(&mocap, false, up))
        return 0;
    file.UpdateEndsite(&mocap);
    trovofuzz::PoseFirstAndLastFrame(mocap);
    return 0;
}
