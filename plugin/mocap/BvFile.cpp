#include "mocap/BvFile.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

namespace ZUK {

namespace {

// Degrees to radians, applied in single precision as the files have always been read.
constexpr float kDegToRad = 0.017453292f;
// A quarter turn as the up-direction conversion writes it (not pi / 2 to full precision).
constexpr double kQuarterTurn = 1.5707963;

int ChannelCode(const char* word) {
    static const char* const names[6] = {"Xrotation", "Yrotation", "Zrotation",
                                         "Xposition", "Yposition", "Zposition"};
    for (int i = 0; i < 6; ++i) {
        if (std::strcmp(word, names[i]) == 0) return i;
    }
    return -1;
}

ORV::CString WideName(const char* narrow) {
    const size_t n = std::mbstowcs(nullptr, narrow, 0);
    if (n == static_cast<size_t>(-1)) return ORV::CString(narrow);
    std::vector<wchar_t> wide(n + 1, L'\0');
    std::mbstowcs(wide.data(), narrow, n + 1);
    return ORV::CString(wide.data());
}

}  // namespace

BvHierarchy::BvHierarchy() {
    count = 0;
    for (BvNode& node : nodes) node.channelCount = 0;
}

BvFile::~BvFile() {
    delete hierarchy;
    hierarchy = nullptr;
    Close();
}

bool BvFile::Open(const wchar_t* path) {
    if (stream || !path) return false;
    const size_t n = std::wcstombs(nullptr, path, 0);
    if (n == static_cast<size_t>(-1)) return false;
    std::vector<char> narrow(n + 1, '\0');
    if (std::wcstombs(narrow.data(), path, n + 1) == static_cast<size_t>(-1)) return false;
    stream = std::fopen(narrow.data(), "r");
    return stream != nullptr;
}

bool BvFile::Close() {
    if (!stream) return false;
    const int rc = std::fclose(stream);
    stream = nullptr;
    return rc == 0;
}

bool BvFile::ScanWord() {
    // Width-limited so that an overlong word splits into pieces (and then fails as an unknown
    // word) instead of running past the buffer.
    if (std::fscanf(stream, "%999s", token) != 1) {
        token[0] = '\0';
        return false;
    }
    return true;
}

bool BvFile::ReadHierarchy(MocapData* /*data*/) {
    if (!stream || hierarchy) return false;
    if (!ScanWord() || std::strcmp(token, "HIERARCHY") != 0) return false;
    // The word "ROOT", result ignored: a missing or different word shows up as a broken node.
    const int ignored = std::fscanf(stream, " ROOT");
    (void)ignored;
    hierarchy = new (std::nothrow) BvHierarchy;
    if (!hierarchy) return false;
    return ReadHierarchyNodes(-1);
}

bool BvFile::ReadHierarchyNodes(int parent) {
    if (!stream || !hierarchy) return false;
    // The table is fixed; a deeper file is refused rather than written past its end.
    if (hierarchy->count >= BvHierarchy::MAX_NODES) return false;
    const int index = hierarchy->count++;
    BvNode& node = hierarchy->nodes[index];

    if (std::fscanf(stream, "%999s {", token) < 1) return false;
    node.name = WideName(token);
    node.parent = parent;
    node.childCount = 0;

    for (;;) {
        if (!ScanWord()) return false;  // the block was never closed
        if (std::strcmp(token, "OFFSET") == 0) {
            float v[3] = {0.0f, 0.0f, 0.0f};
            if (std::fscanf(stream, "%f %f %f", &v[0], &v[1], &v[2]) < 0) return false;
            node.offset.Set(v[0], v[1], v[2]);
        } else if (std::strcmp(token, "CHANNELS") == 0) {
            int count = 0;
            if (std::fscanf(stream, "%d", &count) < 0) return false;
            if (count < 0 || count > 7) return false;  // the channel table holds seven
            node.channelCount = count;
            for (int c = 0; c < count; ++c) {
                if (!ScanWord()) return false;
                const int code = ChannelCode(token);
                if (code < 0) return false;
                node.channels[c] = code;
            }
        } else if (std::strcmp(token, "JOINT") == 0) {
            if (!ReadHierarchyNodes(index)) return false;
            ++node.childCount;
        } else if (std::strcmp(token, "End") == 0) {
            float v[3] = {0.0f, 0.0f, 0.0f};
            if (std::fscanf(stream, " Site { OFFSET %f %f %f }", &v[0], &v[1], &v[2]) < 0) return false;
            node.endSite.Set(v[0], v[1], v[2]);
        } else {
            return std::strcmp(token, "}") == 0;
        }
    }
}

bool BvFile::ReadMotionData(MocapData* data, bool firstFrameOnly, UpDirection up) {
    if (!stream || !hierarchy || !data) return false;
    if (!ScanWord() || std::strcmp(token, "MOTION") != 0) return false;
    int fileFrames = 0;
    float frameTime = 0.0f;  // read and dropped: the frame rate comes from the scene
    if (std::fscanf(stream, " Frames: %d Frame Time: %f", &fileFrames, &frameTime) < 1) return false;
    if (fileFrames < 0) return false;
    const int frameCount = firstFrameOnly ? 1 : fileFrames;
    const int nodeCount = hierarchy->count;

    // Every value of every frame is needed, and each takes at least one byte: a file too short
    // to hold them is truncated, and is refused before anything is allocated for it.
    long long valuesPerFrame = 0;
    for (int i = 0; i < nodeCount; ++i) valuesPerFrame += hierarchy->nodes[i].channelCount;
    struct stat info;
    // Only a plain file has a size to measure; a pipe reads on and fails at its first gap.
    if (fstat(fileno(stream), &info) == 0 && S_ISREG(info.st_mode)) {
        const long position = std::ftell(stream);
        const long long remaining = static_cast<long long>(info.st_size) - (position < 0 ? 0 : position);
        if (valuesPerFrame * frameCount > remaining) return false;
    }

    if (!data->allocate(nodeCount)) return false;
    for (int i = 0; i < nodeCount; ++i) {
        MocapNode& m = data->nodes[i];
        m.name = hierarchy->nodes[i].name;
        m.parent = hierarchy->nodes[i].parent;
        if (frameCount > 0) {
            m.frames = new (std::nothrow) DrvTransform[frameCount];
            if (!m.frames) return false;
        }
        m.frameCount = frameCount;
    }

    // Not reset between nodes: a node with fewer than three rotation channels keeps the letters
    // of the nodes before it, which is harmless because its missing angles are 0.
    char order[4] = {'x', 'y', 'z', '\0'};
    for (int f = 0; f < frameCount; ++f) {
        for (int i = 0; i < nodeCount; ++i) {
            const BvNode& node = hierarchy->nodes[i];
            float rot[3] = {0.0f, 0.0f, 0.0f};
            float pos[3] = {static_cast<float>(node.offset.x), static_cast<float>(node.offset.y),
                            static_cast<float>(node.offset.z)};
            for (int c = 0; c < node.channelCount; ++c) {
                const int code = node.channels[c];
                // Six-channel layouts give a full order whether positions or rotations come first.
                if (code <= BV_ZROT) order[c <= 2 ? c : c - 3] = "xyz"[code];
                float value;
                if (std::fscanf(stream, "%f", &value) != 1) return false;
                if (code <= BV_ZROT)
                    rot[code] = value * kDegToRad;
                else
                    pos[code - BV_XPOS] = value;  // replaces the offset, not added to it
            }
            DrvTransform& t = data->nodes[i].frames[f];
            t.rotation.SetOrder(order, rot[0], rot[1], rot[2]);
            t.translation.Set(pos[0], pos[1], pos[2]);
        }
    }

    UpdateEndsite(data);

    if (up != YUp && data->nodeCount > 0) {
        DrvTransform a;
        DrvTransform b;
        if (up == XUp) {
            a.rotation.SetEulerAngles(0.0, 0.0, kQuarterTurn);
            b.rotation.SetEulerAngles(0.0, kQuarterTurn, 0.0);
        } else if (up == ZUp) {
            a.rotation.SetEulerAngles(-kQuarterTurn, 0.0, 0.0);
            b.rotation.SetEulerAngles(0.0, -kQuarterTurn, 0.0);
        }
        MocapNode& root = data->nodes[0];
        for (int f = 0; f < root.frameCount; ++f) {
            DrvTransform& t = root.frames[f];
            t.Multiply(a, t);  // a first, translation and rotation alike
            t.Multiply(b, t);
        }
    }
    return true;
}

void BvFile::UpdateEndsite(MocapData* data) {
    if (!hierarchy || !data) return;
    const int count = hierarchy->count < data->nodeCount ? hierarchy->count : data->nodeCount;
    for (int i = 0; i < count; ++i) {
        BvNode& node = hierarchy->nodes[i];
        DrvVector sum;
        int children = 0;
        for (int j = 0; j < count; ++j) {
            const MocapNode& child = data->nodes[j];
            if (child.parent != i || child.frameCount < 1 || !child.frames) continue;
            sum.Add(sum, child.frames[0].translation);
            ++children;
        }
        if (children > 0) {
            const float reciprocal = 1.0f / static_cast<float>(children);
            node.endSite.Multiply(sum, reciprocal);
        }
        const double length = node.endSite.Magnitude();
        if (length > longestEndSite) longestEndSite = length;
    }
}

}  // namespace ZUK
