// The motion blob of a retargeted model, as a scene file carries it: loaded in place from a
// buffer of exactly its size, as the host hands it over. A blob that loads keeps every pose,
// normal and translation source that its counts promise inside the buffer.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "FuzzTarget.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"

namespace {

// Reads the last byte of `count` records of `width` bytes from `first`; they must lie in the
// buffer.
void TouchLast(const void* first, std::uint64_t count, std::uint64_t width, const std::uint8_t* begin,
               const std::uint8_t* end) {
    if (count == 0) return;
    const auto* start = static_cast<const std::uint8_t*>(first);
    if (start < begin || start + count * width > end) std::abort();
    volatile std::uint8_t last = start[count * width - 1];
    (void)last;
}

}  // namespace

TROVO_FUZZ_TARGET(motion_blob) {
    trovofuzz::Prepare();
    std::vector<std::uint8_t> blob(data, data + size);
    ZUK::RetargetOp op;
    if (!op.LoadMotionDataFromBuffer(blob.data(), static_cast<unsigned int>(blob.size()))) {
        if (op.loaded || (size > 0 && std::memcmp(blob.data(), data, size) != 0)) std::abort();
        return 0;
    }
    if (!op.loaded) std::abort();
    std::uint32_t nodes = 0, planes = 0;
    std::memcpy(&nodes, blob.data() + ZUK::RetargetOp::HEADER_SIZE + 4, 4);
    std::memcpy(&planes, blob.data() + ZUK::RetargetOp::HEADER_SIZE + 8, 4);
    const std::uint64_t frames = static_cast<std::uint64_t>(op.numFrames);
    const std::uint8_t* end = blob.data() + blob.size();
    TouchLast(op.poses, frames * nodes, 7 * sizeof(double), blob.data(), end);
    TouchLast(op.normals, frames * planes, 3 * sizeof(double), blob.data(), end);
    TouchLast(op.sourceNodes, nodes, 4, blob.data(), end);
    for (int k = 0; k < op.keyTimingCount; ++k)
        for (const ORV::CDoubleArray& times : op.keyTimings[k].times)
            if (times.GetCount() > 0) (void)times[times.GetCount() - 1];
    return 0;
}
