// ASF/AMC pairs: the input is the skeleton file, a NUL byte, then the motion file (no NUL: an
// empty motion). Both are read together as a driver reads them, every step-th frame, and a
// capture that reads is posed at its first and last frame.
#include <cstring>
#include <memory>

#include "FuzzTarget.h"
#include "mocap/AcclaimFile.h"
#include "mocap/Mocap.h"

TROVO_FUZZ_TARGET(acclaim) {
    trovofuzz::Prepare();
    const auto* split = static_cast<const std::uint8_t*>(std::memchr(data, 0, size));
    const std::size_t asfSize = split ? static_cast<std::size_t>(split - data) : size;
    const std::size_t amcAt = split ? asfSize + 1 : size;
    const std::string asf = trovofuzz::ScratchFile("input.asf", data, asfSize);
    const std::string amc = trovofuzz::ScratchFile("input.amc", data + amcAt, size - amcAt);
    const int step = 1 + static_cast<int>(size % 3);
    std::unique_ptr<ZUK::MocapData> mocap(
        ZUK::AcclaimFile::extractMocapData(ORV::CString(asf.c_str()), ORV::CString(amc.c_str()), step));
    if (mocap) trovofuzz::PoseFirstAndLastFrame(*mocap);
    return 0;
}
