// Reader of Biovision hierarchy (BVH) files into MocapData. One pass through the file with
// formatted reads: any white space separates words, and the section words are case sensitive.
#pragma once

#include <orv/ORV.h>

#include <cstdio>

#include "core/Drv.h"
#include "mocap/Mocap.h"

namespace ZUK {

// Channel codes as they stand in BvNode::channels.
enum BvChannel { BV_XROT = 0, BV_YROT = 1, BV_ZROT = 2, BV_XPOS = 3, BV_YPOS = 4, BV_ZPOS = 5 };

struct BvNode {
    // Name after "ROOT" or "JOINT".
    ORV::CString name;
    int parent = -1;
    // Number of "JOINT" children.
    int childCount = 0;
    int channelCount = 0;
    // Channel code per channel, in file order.
    int channels[7] = {0, 0, 0, 0, 0, 0, 0};
    DrvVector offset;
    // From "End Site"; replaced by UpdateEndsite on nodes that have children.
    DrvVector endSite;
    // The cube that createBvhModel made for this node.
    ORV::X3DObject object;
};

class BvHierarchy {
public:
    static constexpr int MAX_NODES = 200;

    int count = 0;
    BvNode nodes[MAX_NODES];

    BvHierarchy();
};

class BvFile {
public:
    BvHierarchy* hierarchy = nullptr;
    FILE* stream = nullptr;
    // Scratch for the last word scanned.
    char token[1000] = {0};
    // Largest magnitude of any node's end-site vector, set by UpdateEndsite.
    double longestEndSite = 0.0;

    BvFile() = default;
    ~BvFile();
    BvFile(const BvFile&) = delete;
    BvFile& operator=(const BvFile&) = delete;

    // Fails when a file is already open or the path does not convert to narrow text.
    bool Open(const wchar_t* path);
    // False when nothing was open or the close failed.
    bool Close();
    // "HIERARCHY", then the root and everything under it. Fails on a second call.
    bool ReadHierarchy(MocapData* data);
    // Reads one node and, recursively, its joints.
    bool ReadHierarchyNodes(int parent);
    // Reads the motion section into `data`: all frames, or only the first one.
    bool ReadMotionData(MocapData* data, bool firstFrameOnly, UpDirection up);
    // End sites of nodes with children become the mean of their children's first-frame
    // translations; keeps the longest end site.
    void UpdateEndsite(MocapData* data);

private:
    // Scans one word into token; false (and an empty token) at the end of the file.
    bool ScanWord();
};

}  // namespace ZUK
