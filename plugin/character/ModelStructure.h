// ModelStructure: the canonical skeleton. An ordered list of named nodes (each with a parent, a
// rest offset, two canonical directions and a joint kind), the limbs (planes) those nodes form,
// and the channel decompositions. It is read from a hand-written `.structure` file, which names
// a `.base` file holding the shared body, and it travels with a tagged model as the custom
// property "ZUKStructure" in a reduced form.
#pragma once

#include <orv/ORV.h>

#include <vector>

namespace ZUK {

class InputStream;

class ModelStructure {
public:
    static constexpr const wchar_t* PROPERTY_NAME = L"ZUKStructure";
    static constexpr const wchar_t* TAG_NAME = L"ZUKStructTag";
    // The stored form written now; the oldest one still read is OLDEST_VERSION.
    static constexpr int CURRENT_VERSION = 8;
    static constexpr int OLDEST_VERSION = 7;

    class Node {
    public:
        Node();

        // Logical parent, -1 for a root. A limb end ("ik", "friction") has its anchor here.
        int Parent;
        // The left/right counterpart, or -1.
        int mirror_node_index;
        // Set only by the normalised motion readers: the saving rig had this node.
        bool objIsValid;
        // The physical predecessor, to which `Offset` refers.
        int OffsetParent;
        ORV::CString Name;
        // Bone direction and the second direction fixing its twist, canonical global space.
        ORV::MATH::CVector3 align;
        ORV::MATH::CVector3 roll;
        // 0 plain ("hip"), 1 child ("child", "anchor"), 2 limb end ("ik", "friction"), 3 free.
        int Type;
        // True for "friction" limb ends: they touch the ground.
        bool Friction;
        ORV::MATH::CVector3 Offset;
        // Sum of the offsets from the root; computed, never read.
        ORV::MATH::CVector3 Position;
        // Per-axis limits in radians; minimum above maximum means no limit.
        ORV::MATH::CVector3 Minlimits;
        ORV::MATH::CVector3 Maxlimits;
    };

    class Plane {
    public:
        // Name of the limb's middle joint (the node after the anchor).
        ORV::CString Name;
        int AnchorIndex = 0;
        int Mid = 0;
        int Span = 0;
        // Node indices from Span down to AnchorIndex, both included.
        ORV::CLongArray bones;
    };

    class GroupItem {
    public:
        ORV::CString Name;
        // The kind keyword as written in the file.
        ORV::CString Type;
        ORV::MATH::CVector3 Align;
        ORV::MATH::CVector3 Roll;
        ORV::MATH::CVector3 Offset;
        // Degrees, as in the file; the defaults mean "no limit".
        ORV::MATH::CVector3 Minlimits{1.0, 1.0, 1.0};
        ORV::MATH::CVector3 Maxlimits{-1.0, -1.0, -1.0};
    };

    class Group {
    public:
        ORV::CString Name;
        // Node that parents the first item, or "world".
        ORV::CString Parent;
        std::vector<GroupItem> items;
    };

    class Decomp {
    public:
        ORV::CString Name;
        // The node whose motion is split.
        ORV::CString SrcName;
        // Channel targets; empty where unused.
        ORV::CString PX, PY, PZ, RX, RY, RZ, RtoP_X, RtoP_Y, RtoP_Z;
        // The distinct target names in order of first appearance.
        ORV::CStringArray targets;
    };

    ModelStructure(int numNodes, int numPlanes, const ORV::CString& type);
    ~ModelStructure();
    ModelStructure(const ModelStructure&) = delete;
    ModelStructure& operator=(const ModelStructure&) = delete;

    // Reads a structure by name (file type 0, then 2) and its base file (type 1). A new object
    // owned by the caller, or null after a message at severity 4.
    static ModelStructure* CreateFromFile(const ORV::CString& file);

    // Reads the groups of a base file found by name as file type 1. False after a message.
    static bool parseBase(ORV::CString file, std::vector<Group>& groups);

    // The first node named exactly `name`, or -1. Two entries, one body.
    int findNodeIndex(const ORV::CString& name);
    int nodeIndex(const ORV::CString& name) const;
    // The first node whose Parent is `node`, or -1.
    int FindChild(int node);
    // The first plane with this anchor and span, or -1.
    int FindPlaneWithParent(int anchor, int span);
    // The first item named `name` in the base groups, then the groups; null when none. Its
    // vectors are the file's values.
    GroupItem* FindTagItem(ORV::CString name);

    // Replaces the property "ZUKStructure" on `model` by this structure's reduced form.
    void SaveToCustomProperty(ORV::Model model);
    // Rebuilds a structure from the model's "ZUKStructure"; null when there is none or it is
    // older than version 7. Offsets, positions and limits of the nodes stay zero.
    static ModelStructure* CreateFromCustomProperty(ORV::Model model);
    // Deletes the model's "ZUKStructure" and "ZUKStructTag" properties.
    static void cleanup(ORV::Model model);

    int numNodes;
    int numPlanes;
    Node* nodes;
    Plane* planes;
    // The structure's family: the first word of its file, the base file's name.
    ORV::CString Type;
    // The file name CreateFromFile was given, unchanged.
    ORV::CString Source;
    std::vector<Group> baseGroups;
    std::vector<Group> groups;
    std::vector<Decomp> decomps;
};

// -1 for "world"; else the first of the first `count` nodes named `name`, or -1.
int findParentIndex(ModelStructure* structure, int count, ORV::CString& name);

// Reads one word into `word`; whether the stream has more to read after it.
bool GetNextToken(InputStream& stream, ORV::CString& word);

// Three numbers separated by "," as a vector; anything else gives zero and a note.
ORV::MATH::CVector3 StringToVector(ORV::CString text);

}  // namespace ZUK
