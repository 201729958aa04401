// The one in-memory form of skeletal capture: a flat array of nodes, parents before children,
// each with its name, its parent and one local transform per frame. The BVH and Acclaim
// readers end in it; tags, model maps and motion transfer read only this.
#pragma once

#include <orv/ORV.h>

#include "core/Drv.h"

namespace ZUK {

// Shared by all capture readers.
enum UpDirection : int { XUp = 0, YUp = 1, ZUp = 2 };

struct MocapNode {
    // Node name as the capture file gives it.
    ORV::CString name;
    // Structure tag set by TagMap::applyToMocap; empty until then.
    ORV::CString tag;
    int frameCount = 0;
    // One local transform per frame, owned; null until a reader fills it.
    DrvTransform* frames = nullptr;
    bool tagged = false;
    // Local and global transforms of the frame last evaluated by updateTransforms.
    ORV::MATH::CTransformation local;
    ORV::MATH::CTransformation global;
    // The two tag vectors copied from the tag record (its align and roll); zero until then.
    ORV::MATH::CVector3 align;
    ORV::MATH::CVector3 roll;
    // Index of the parent node, -1 for the root.
    int parent = -1;
};

class MocapData {
public:
    // Custom property that marks a scene model as a capture reference.
    static constexpr const wchar_t* PROPERTY_NAME = L"ZUKMocapRef";

    int nodeCount = 0;
    MocapNode* nodes = nullptr;

    MocapData() = default;
    ~MocapData();
    MocapData(const MocapData&) = delete;
    MocapData& operator=(const MocapData&) = delete;

    // Destroys all nodes and makes `count` empty ones (no frames, identity transforms). False
    // when the memory is not there; the data is then empty.
    bool allocate(int count);
    // The first node whose name matches, without regard to case, with underscores of the query
    // standing for any character; null when none does.
    MocapNode* findNode(const ORV::CString& name) const;
    // Evaluates local and global transforms of one frame; nodes without that frame keep theirs.
    void updateTransforms(int frame);
};

// Hangs a capture reference model's cube under its parent's cube, joined by a connection line,
// with the expressions on its local position cleared so that the cube follows its parent.
// Shared by the reference models of every capture reader.
void attachReferenceCube(ORV::X3DObject parentCube, ORV::X3DObject cube);

}  // namespace ZUK
