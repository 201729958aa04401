#include "live/RetargetOp.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "character/ModelStructure.h"
#include "core/Drv.h"
#include "glue/GlueMap.h"
#include "live/Motion.h"
#include "modelmap/ModelMap.h"
#include "panels/AdjustPPG.h"
#include "panels/RotationOffsetPPG.h"
#include "shell/Placeholder.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;

// Sizes of the stored records.
constexpr uint64_t POSE_BYTES = 7 * sizeof(double);
constexpr uint64_t NORMAL_BYTES = 3 * sizeof(double);
constexpr unsigned int SLOT_OFFSET = 4;
constexpr unsigned int FRAMES_OFFSET = 256;

// Unaligned little-endian access: the blob has no padding.
template <typename T>
T readAt(const unsigned char* bytes, uint64_t offset) {
    T value;
    std::memcpy(&value, bytes + offset, sizeof(T));
    return value;
}

template <typename T>
void writeAt(unsigned char* bytes, uint64_t offset, T value) {
    std::memcpy(bytes + offset, &value, sizeof(T));
}

// Adds `count` items of `itemBytes` to `total`; false on overflow or when past `limit`.
bool grow(uint64_t& total, uint64_t count, uint64_t itemBytes, uint64_t limit) {
    uint64_t add = 0;
    if (__builtin_mul_overflow(count, itemBytes, &add) || __builtin_add_overflow(total, add, &total))
        return false;
    return total <= limit;
}

// Bytes of one key timing record as stored.
uint64_t keyTimingBytes(const NodeKeyTiming& timing) {
    uint64_t bytes = 4 + 4 * (static_cast<uint64_t>(timing.name.Length()) + 1);
    for (const ORV::CDoubleArray& times : timing.times)
        bytes += 4 + sizeof(double) * static_cast<uint64_t>(times.GetCount());
    return bytes;
}
}  // namespace

RetargetOp::~RetargetOp() {
    // The rows of footPaths are counted by the map's planes, so the map goes after them.
    if (footPaths) {
        const int rows = modelMap && modelMap->structure ? modelMap->structure->numPlanes : 0;
        for (int p = 0; p < rows; ++p) delete[] footPaths[p];
        delete[] footPaths;
    }
    delete modelMap;
    delete glueMap;
    delete[] cogPath;
    delete[] clampKeys;
    delete[] keyTimings;
}

bool RetargetOp::stuffMotionDataIntoBlob(ORV::UserDataBlob& blob, Motion& motion, int insertion) {
    const ModelStructure* structure = motion.targetMap->structure;
    const uint64_t frames = static_cast<uint64_t>(motion.frames);
    const uint64_t nodes = static_cast<uint64_t>(structure->numNodes);
    const uint64_t planes = static_cast<uint64_t>(structure->numPlanes);
    const NodeKeyTiming* timings = motion.sourceMap ? motion.sourceMap->keyTiming : nullptr;
    const int count = timings ? motion.sourceMap->numKeyTiming : 0;

    uint64_t size = POSES_OFFSET + frames * (POSE_BYTES * nodes + NORMAL_BYTES * planes) + 4 * nodes + 16;
    for (int k = 0; k < count; ++k) size += keyTimingBytes(timings[k]);
    size += sizeof(double);
    if (size > UINT32_MAX) {
        app.LogMessage(L"The retargeted motion is too long to be stored", 4);
        return false;
    }
    auto* buffer = static_cast<unsigned char*>(std::calloc(size, 1));
    if (!buffer) return false;

    writeAt<uint32_t>(buffer, 0, MAGIC);
    writeAt<uint32_t>(buffer, FRAMES_OFFSET, static_cast<uint32_t>(frames));
    writeAt<uint32_t>(buffer, FRAMES_OFFSET + 4, static_cast<uint32_t>(nodes));
    writeAt<uint32_t>(buffer, FRAMES_OFFSET + 8, static_cast<uint32_t>(planes));
    uint64_t at = POSES_OFFSET;
    for (uint64_t n = 0; n < nodes; ++n) {
        for (uint64_t f = 0; f < frames; ++f) {
            const DrvTransform pose(motion.globalPoses[n][f]);
            const double record[7] = {pose.translation.x, pose.translation.y, pose.translation.z,
                                      pose.rotation.w,    pose.rotation.x,    pose.rotation.y,
                                      pose.rotation.z};
            std::memcpy(buffer + at, record, sizeof record);
            at += POSE_BYTES;
        }
    }
    for (uint64_t p = 0; p < planes; ++p) {
        for (uint64_t f = 0; f < frames; ++f) {
            const ORV::MATH::CVector3& v = motion.planeNormals[p][f];
            const double record[3] = {v.GetX(), v.GetY(), v.GetZ()};
            std::memcpy(buffer + at, record, sizeof record);
            at += NORMAL_BYTES;
        }
    }
    for (uint64_t n = 0; n < nodes; ++n, at += 4)
        writeAt<int32_t>(buffer, at, motion.targetMap->nodeMap(static_cast<int>(n))->translationSource);
    writeAt<double>(buffer, at, VERSION);
    writeAt<int32_t>(buffer, at + 8, insertion);
    writeAt<int32_t>(buffer, at + 12, count);
    at += 16;
    for (int k = 0; k < count; ++k) {
        const NodeKeyTiming& timing = timings[k];
        const ORV::CString& name = timing.name;
        const uint32_t length = static_cast<uint32_t>(name.Length()) + 1;
        writeAt<uint32_t>(buffer, at, length);
        at += 4;
        const wchar_t* chars = name.GetWideString();
        for (uint32_t c = 0; c + 1 < length; ++c, at += 4)
            writeAt<uint32_t>(buffer, at, static_cast<uint32_t>(chars[c]));
        writeAt<uint32_t>(buffer, at, 0);
        at += 4;
        for (const ORV::CDoubleArray& times : timing.times) {
            const uint32_t n = static_cast<uint32_t>(times.GetCount());
            writeAt<uint32_t>(buffer, at, n);
            at += 4;
            if (n) std::memcpy(buffer + at, times.GetArray(), sizeof(double) * n);
            at += sizeof(double) * n;
        }
    }
    writeAt<double>(buffer, at, motion.targetMap->legScale);
    // The host keeps its own copy of the bytes.
    const bool stored = blob.PutValue(buffer, static_cast<unsigned int>(size)) == ORV::CStatus::OK;
    std::free(buffer);
    return stored;
}

void RetargetOp::presynchronize(ORV::UserDataBlob& blob) {
    unsigned char* bytes = nullptr;
    unsigned int size = 0;
    blob.GetValue(bytes, size);
    if (!bytes || size == 0) return;
    if (size < 4 || readAt<uint32_t>(bytes, 0) != MAGIC) {
        // The earlier layout: its payload moves from offset 8 to the counts' offset.
        const uint64_t grown = static_cast<uint64_t>(size) + (HEADER_SIZE - OLD_HEADER_SIZE);
        if (grown > UINT32_MAX) return;
        auto* buffer = static_cast<unsigned char*>(std::calloc(grown, 1));
        if (!buffer) return;
        writeAt<uint32_t>(buffer, 0, MAGIC);
        if (size > OLD_HEADER_SIZE)
            std::memcpy(buffer + HEADER_SIZE, bytes + OLD_HEADER_SIZE, size - OLD_HEADER_SIZE);
        blob.PutValue(buffer, static_cast<unsigned int>(grown));
        std::free(buffer);
        blob.GetValue(bytes, size);
        if (!bytes) return;
    }
    // A saved scene holds a stale address in the slot.
    for (unsigned int at = SLOT_OFFSET; at < SLOT_OFFSET + 8 && at + 4 <= size; at += 4)
        writeAt<uint32_t>(bytes, at, 0);
}

unsigned long long RetargetOp::RequiredBlobSize(const unsigned char* bytes, unsigned int size) {
    if (!bytes || size < POSES_OFFSET) return 0;
    const uint64_t limit = size;
    const uint64_t frames = readAt<uint32_t>(bytes, FRAMES_OFFSET);
    const uint64_t nodes = readAt<uint32_t>(bytes, FRAMES_OFFSET + 4);
    const uint64_t planes = readAt<uint32_t>(bytes, FRAMES_OFFSET + 8);
    // The operator counts frames in an int.
    if (frames > INT32_MAX) return 0;
    uint64_t total = POSES_OFFSET, cells = 0;
    if (__builtin_mul_overflow(frames, nodes, &cells) || !grow(total, cells, POSE_BYTES, limit)) return 0;
    if (__builtin_mul_overflow(frames, planes, &cells) || !grow(total, cells, NORMAL_BYTES, limit)) return 0;
    if (!grow(total, nodes, 4, limit) || !grow(total, 1, sizeof(double), limit)) return 0;
    const double version = readAt<double>(bytes, total - sizeof(double));
    if (version >= 1.3) {
        if (!grow(total, 2, 4, limit)) return 0;
        const int32_t count = readAt<int32_t>(bytes, total - 4);
        if (count < 0) return 0;
        for (int32_t k = 0; k < count; ++k) {
            if (!grow(total, 1, 4, limit)) return 0;
            const uint32_t length = readAt<uint32_t>(bytes, total - 4);
            if (length == 0 || !grow(total, length, 4, limit)) return 0;
            for (int c = 0; c < NodeKeyTiming::NUM_CHANNELS; ++c) {
                if (!grow(total, 1, 4, limit)) return 0;
                if (!grow(total, readAt<uint32_t>(bytes, total - 4), sizeof(double), limit)) return 0;
            }
        }
    }
    if (version >= 1.4 && !grow(total, 1, sizeof(double), limit)) return 0;
    return total;
}

bool RetargetOp::LoadMotionDataFromBuffer(unsigned char* bytes, unsigned int size) {
    if (RequiredBlobSize(bytes, size) == 0) {
        app.LogMessage(ORV::CString(L"The motion in ") + DATA_NAME +
                           L" is damaged: its counts do not fit its " + ORV::CString(std::to_wstring(size)) +
                           L" bytes. Nothing will play.",
                       4);
        return false;
    }
    RetargetOp* self = this;
    writeAt<RetargetOp*>(bytes, SLOT_OFFSET, self);
    const uint64_t frames = readAt<uint32_t>(bytes, FRAMES_OFFSET);
    const uint64_t nodes = readAt<uint32_t>(bytes, FRAMES_OFFSET + 4);
    const uint64_t planes = readAt<uint32_t>(bytes, FRAMES_OFFSET + 8);
    numFrames = static_cast<int>(frames);
    // The operator plays in place from the host's buffer: nothing is copied.
    uint64_t at = POSES_OFFSET;
    poses = reinterpret_cast<double*>(bytes + at);
    at += frames * POSE_BYTES * nodes;
    normals = reinterpret_cast<double*>(bytes + at);
    at += planes * frames * NORMAL_BYTES;
    sourceNodes = reinterpret_cast<int*>(bytes + at);
    at += 4 * nodes;
    const double version = readAt<double>(bytes, at);
    at += 8;
    delete[] keyTimings;
    keyTimings = nullptr;
    keyTimingCount = 0;
    if (version >= 1.3) {
        insertionFrame = readAt<int32_t>(bytes, at);
        const int32_t count = readAt<int32_t>(bytes, at + 4);
        at += 8;
        if (count >= 1) {
            keyTimings = new NodeKeyTiming[static_cast<size_t>(count)];
            keyTimingCount = count;
            for (int32_t k = 0; k < count; ++k) {
                NodeKeyTiming& timing = keyTimings[k];
                const uint32_t length = readAt<uint32_t>(bytes, at);
                at += 4;
                // The name ends at its terminator, or at the end of its L characters.
                std::wstring name;
                for (uint32_t c = 0; c < length; ++c) {
                    const uint32_t ch = readAt<uint32_t>(bytes, at + 4 * static_cast<uint64_t>(c));
                    if (ch == 0) break;
                    name.push_back(static_cast<wchar_t>(ch));
                }
                at += 4 * static_cast<uint64_t>(length);
                timing.name = ORV::CString(name.c_str());
                for (ORV::CDoubleArray& times : timing.times) {
                    const uint32_t n = readAt<uint32_t>(bytes, at);
                    at += 4;
                    for (uint32_t i = 0; i < n; ++i, at += 8) times.Add(readAt<double>(bytes, at));
                }
            }
        }
    }
    if (version >= 1.4) baseScale = readAt<double>(bytes, at);
    loaded = true;
    return true;
}

void RetargetOp::LoadMotionDataFromUDB(ORV::UserDataBlob& blob) {
    unsigned char* bytes = nullptr;
    unsigned int size = 0;
    blob.GetValue(bytes, size);
    LoadMotionDataFromBuffer(bytes, size);
}

RetargetOp* RetargetOp::GetRetargetOpPointer(ORV::UserDataBlob& blob) {
    const unsigned char* bytes = nullptr;
    unsigned int size = 0;
    blob.GetValue(bytes, size);
    if (!bytes || size < SLOT_OFFSET + sizeof(RetargetOp*)) return nullptr;
    return readAt<RetargetOp*>(bytes, SLOT_OFFSET);
}

RetargetOp* RetargetOp::GetRetargetOpPointer(ORV::Model model) {
    ORV::Property property;
    if (!Util::findCustomPSet(model, DATA_NAME, property)) return nullptr;
    ORV::UserDataBlob blob(property.GetRef());
    if (!blob.IsValid()) return nullptr;
    return GetRetargetOpPointer(blob);
}

namespace {
// Deletes the custom operator `name` reading or writing `state`, if there is one.
void deleteOperator(const ORV::KinematicState& state, const wchar_t* name) {
    ORV::CustomOperator op;
    if (Util::findCustomOp(state.GetFullName(), name, op)) Util::deleteObj(op.GetFullName());
}

void deleteProperty(const ORV::X3DObject& object, const wchar_t* name) {
    ORV::Property property;
    if (Util::findCustomPSet(object, name, property)) Util::deleteObj(property.GetFullName());
}
}  // namespace

bool RetargetOp::cleanupRetargetOp(ORV::Model model) {
    // The adjustment property marks an installation; without it nothing is touched.
    ORV::Property adjust;
    if (!Util::findCustomPSet(model, AdjustPPG::PROPERTY_NAME, adjust)) return false;
    Util::deleteObj(adjust.GetFullName());
    deleteProperty(model, DATA_NAME);
    deleteProperty(model, L"ZUKRefFrames");
    // The main operator is registered under another name than its callbacks'.
    deleteOperator(model.GetKinematics().GetLocal(), L"RetargetOperator");
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray objects = model.FindChildren(L"", L"", families, true);
    for (long i = 0; i < objects.GetCount(); ++i) {
        ORV::X3DObject object(objects[i]);
        deleteOperator(object.GetKinematics().GetGlobal(), L"RetargetGlobalOp");
        deleteOperator(object.GetKinematics().GetGlobal(), L"RetargetUpVOp");
        deleteOperator(object.GetKinematics().GetLocal(), L"RetargetSpineOp");
        deleteOperator(object.GetKinematics().GetLocal(), L"RetargetDecompOp");
        deleteProperty(object, RotationOffsetPPG::PROPERTY_NAME.GetWideString());
    }
    return true;
}

bool RetargetOp::findFCurvesStartEnd(ORV::Model model, int& start, int& end) {
    ORV::Property blob;
    if (Util::findCustomPSet(model, DATA_NAME, blob)) {
        // The range of a retargeted model comes from its live operator.
        app.LogMessage(L"findFCurvesStartEnd is not built yet", 4);
        logPlaceholderCall(L"findFCurvesStartEnd", {model.GetRef()});
        return false;
    }
    start = 2147483647;
    end = -2147483647;
    Util::findStartEnd(model, start, end);
    return start < end;
}

}  // namespace ZUK
