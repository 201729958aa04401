// Retiming of the live retarget: the adjustment curves are authored in scene time, so when the
// motion's speed changes their keys move with it. Also the frame range the motion covers.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "character/ModelStructure.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
constexpr unsigned int FRAMES_OFFSET = 256;

template <typename T>
T readAt(const unsigned char* bytes, uint64_t offset) {
    T value;
    std::memcpy(&value, bytes + offset, sizeof(T));
    return value;
}

ORV::CString planeName(const ModelStructure& structure, int plane) {
    const int goal = structure.planes[plane].Span;
    if (goal < 0 || goal >= structure.numNodes) return ORV::CString();
    return structure.nodes[goal].Name;
}

// Where the version of a well-formed blob stands, or 0 when the blob cannot hold its counts.
uint64_t versionOffset(const unsigned char* bytes, unsigned int size) {
    if (RetargetOp::RequiredBlobSize(bytes, size) == 0) return 0;
    const uint64_t frames = readAt<uint32_t>(bytes, FRAMES_OFFSET);
    const uint64_t nodes = readAt<uint32_t>(bytes, FRAMES_OFFSET + 4);
    const uint64_t planes = readAt<uint32_t>(bytes, FRAMES_OFFSET + 8);
    return RetargetOp::POSES_OFFSET + frames * (56 * nodes + 24 * planes) + 4 * nodes;
}
}  // namespace

bool RetargetOp::setInsertionFrame(int frame) {
    if (frame == insertionFrame) return false;
    insertionFrame = frame;
    // The blob keeps the start frame too, so that a saved scene plays from where it was moved to.
    // Blobs older than 1.3 have no place for it.
    ORV::Property property;
    if (!poses || !Util::findCustomPSet(adjustProperty.GetModel(), DATA_NAME, property)) return true;
    ORV::UserDataBlob blob(property.GetRef());
    unsigned char* bytes = nullptr;
    unsigned int size = 0;
    if (blob.IsValid()) blob.GetValue(bytes, size);
    const uint64_t at = versionOffset(bytes, size);
    // Only into the blob this operator plays from.
    if (at != 0 && reinterpret_cast<double*>(bytes + POSES_OFFSET) == poses &&
        readAt<double>(bytes, at) >= 1.3) {
        const int32_t stored = frame;
        std::memcpy(bytes + at + 8, &stored, sizeof stored);
    }
    return true;
}

bool RetargetOp::RetimeFCurveKeys(ORV::Parameter parameter) {
    ORV::FCurve curve(parameter.GetSource());
    if (!curve.IsValid()) return false;
    // A speed of 0 would send every key to infinity; the parameter's own minimum keeps it away.
    if (!(speed > 0.0)) return false;
    const long n = curve.GetNumKeys();
    const double factor = previousSpeed / speed;
    // Keys may not pass one another while they move: walk from the end they move away from.
    if (speed >= previousSpeed) {
        for (long k = 0; k < n; ++k) {
            ORV::FCurveKey key = curve.GetKeyAtIndex(k);
            key.PutTime(key.GetTime().GetTime() * factor);
        }
    } else {
        for (long k = n - 1; k >= 0; --k) {
            ORV::FCurveKey key = curve.GetKeyAtIndex(k);
            key.PutTime(key.GetTime().GetTime() * factor);
        }
    }
    return true;
}

void RetargetOp::RetimeAllFCurveKeys(double time) {
    if (!modelMap || !modelMap->structure) return;
    const ModelStructure& structure = *modelMap->structure;
    const int planes = structure.numPlanes;
    ORV::CustomProperty& property = adjustProperty;
    auto retime = [&](const ORV::CString& name) { return RetimeFCurveKeys(property.GetParameter(name)); };

    // 1-2. Stride and hip offsets.
    if (retime(L"Stride")) updateStride();
    retime(L"hipX");
    retime(L"hipY");
    retime(L"hipZ");

    // 3. Planes.
    static const wchar_t* const AXIS[3] = {L"X", L"Y", L"Z"};
    auto retimePlaneSettings = [&](int plane) {
        const ORV::CString name = planeName(structure, plane);
        retime(name + L"Roll");
        retime(name + L"Stretch");
        const bool clamp = retime(name + L"Clamp");
        const bool blend = retime(name + L"BlendBack");
        if (clamp || blend) updateClampKeys(plane, time);
    };
    if (planes >= 5) {
        // Five limbs or more: every limb's curves move once, each with the motion.
        for (int p = 0; p < planes; ++p) {
            retimePlaneSettings(p);
            const ORV::CString name = planeName(structure, p);
            for (const wchar_t* axis : AXIS) retime(name + axis);
        }
        return;
    }
    // Up to four limbs, one index serves the limb walk and the axis walk inside it: the first
    // limb's settings move, then the first limb's X offset, the second's Y and the third's Z,
    // and the shared index has then run past four.
    if (planes < 1) return;
    retimePlaneSettings(0);
    for (int i = 0; i < 3 && i < planes; ++i) retime(planeName(structure, i) + AXIS[i]);
}

int RetargetOp::getEndFrame() {
    const double s = static_cast<double>(adjustProperty.GetParameterValue(L"Speed", ModelMap::NOW));
    // Without a forward speed the motion never advances past its first frame.
    if (!(s > 0.0) || !std::isfinite(s)) return insertionFrame;
    const double last = numFrames - 1;
    for (double f = insertionFrame;; f += 1.0)
        if (std::trunc((f - insertionFrame) * s + 0.1) >= last) return static_cast<int>(std::trunc(f + 0.1));
}

}  // namespace ZUK
