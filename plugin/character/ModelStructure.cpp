#include "character/ModelStructure.h"

#include <cwctype>

#include "core/FileManager.h"
#include "core/InputStream.h"

namespace ZUK {

namespace {

ORV::Application app;

const double DEG_TO_RAD = 0.017453292519943295;

void logError(const ORV::CString& text) { app.LogMessage(text, 4); }

// Kind keywords of an item and what they make of a node.
bool isKnownKeyword(const ORV::CString& word) {
    return word == L"hip" || word == L"child" || word == L"friction" || word == L"ik" || word == L"free" ||
           word == L"anchor";
}

bool isLimbEnd(const ORV::CString& word) { return word == L"ik" || word == L"friction"; }

int nodeTypeOf(const ORV::CString& word) {
    if (word == L"child" || word == L"anchor") return 1;
    if (word == L"ik" || word == L"friction") return 2;
    if (word == L"free") return 3;
    return 0;  // "hip"
}

bool arrayContains(const ORV::CStringArray& array, const ORV::CString& text) {
    for (long i = 0; i < array.GetCount(); ++i) {
        if (array[i] == text) return true;
    }
    return false;
}

// The first `prefix.Length()` characters of `name` equal `prefix`, regardless of case.
bool startsWithNoCase(const ORV::CString& name, const wchar_t* prefix) {
    unsigned long i = 0;
    for (; prefix[i] != L'\0'; ++i) {
        if (i >= name.Length()) return false;
        if (std::towlower(static_cast<wint_t>(name[i])) != std::towlower(static_cast<wint_t>(prefix[i])))
            return false;
    }
    return true;
}

ORV::CString tail(const ORV::CString& text, unsigned long from) {
    ORV::CString rest;
    for (unsigned long i = from; i < text.Length(); ++i) rest += text[i];
    return rest;
}

// The name of a node's left/right counterpart, or empty when the name names no side. The
// whole words "left" and "right" are tried before the single letters, and a name that begins
// with one of the words never falls through to the letter rule.
ORV::CString mirrorNameOf(const ORV::CString& name) {
    if (startsWithNoCase(name, L"left")) return ORV::CString(L"right") + tail(name, 4);
    if (startsWithNoCase(name, L"right")) return ORV::CString(L"left") + tail(name, 5);
    if (startsWithNoCase(name, L"l")) return ORV::CString(L"r") + tail(name, 1);
    if (startsWithNoCase(name, L"r")) return ORV::CString(L"l") + tail(name, 1);
    return ORV::CString();
}

// Reads a decompose block after its word "decompose": the source node, then up to nine channel
// targets until "}". "Unused" leaves a channel empty; words past the ninth fill no channel but
// are still targets.
void readDecomp(InputStream& stream, const ORV::CString& name, ModelStructure::Decomp& decomp) {
    decomp.Name = name;
    GetNextToken(stream, decomp.SrcName);
    ORV::CString* channels[9] = {&decomp.PX, &decomp.PY,     &decomp.PZ,     &decomp.RX,    &decomp.RY,
                                 &decomp.RZ, &decomp.RtoP_X, &decomp.RtoP_Y, &decomp.RtoP_Z};
    int field = 0;
    for (;;) {
        ORV::CString word;
        GetNextToken(stream, word);
        if (word.IsEmpty() || word == L"}") break;  // empty: the end of the stream
        const bool unused = word.IsEqualNoCase(ORV::CString(L"Unused"));
        if (field < 9 && !unused) *channels[field] = word;
        ++field;
        if (!unused && !arrayContains(decomp.targets, word)) decomp.targets.Add(word);
    }
}

// Reads blocks up to the end of the stream. Groups go into `groups`; decompose blocks into
// `decomps` when it is given (structure files), else they read as groups. An item with an
// unknown kind stops everything: false, with that group's name in `badGroup`.
bool readBlocks(InputStream& stream, std::vector<ModelStructure::Group>& groups,
                std::vector<ModelStructure::Decomp>* decomps, ORV::CString& badGroup) {
    while (!stream.atEnd()) {
        ORV::CString name, brace;
        GetNextToken(stream, name);
        GetNextToken(stream, brace);
        // Not a block: both words are dropped and reading goes on with the next word.
        if (brace != L"{") continue;

        ORV::CString parent;
        GetNextToken(stream, parent);
        if (decomps && parent == L"decompose") {
            ModelStructure::Decomp decomp;
            readDecomp(stream, name, decomp);
            decomps->push_back(decomp);
            continue;
        }

        ModelStructure::Group group;
        group.Name = name;
        group.Parent = parent;
        for (;;) {
            ORV::CString itemName;
            GetNextToken(stream, itemName);
            // A missing last "}" is accepted: the end of the stream closes the group too.
            if (itemName.IsEmpty() || itemName == L"}") break;
            ModelStructure::GroupItem item;
            item.Name = itemName;
            GetNextToken(stream, item.Type);
            stream >> item.Align >> item.Roll >> item.Offset;
            ORV::CString word;
            stream >> word;
            if (word == L"limits:")
                stream >> item.Minlimits >> item.Maxlimits;
            else
                stream.resetToPrev();
            if (!isKnownKeyword(item.Type)) {
                badGroup = name;
                return false;
            }
            group.items.push_back(item);
        }
        groups.push_back(group);
    }
    return true;
}

}  // namespace

ModelStructure::Node::Node()
    : Parent(-1), mirror_node_index(-1), objIsValid(false), OffsetParent(-1), Type(0), Friction(false) {}

ModelStructure::ModelStructure(int numNodes_, int numPlanes_, const ORV::CString& type)
    : numNodes(numNodes_ > 0 ? numNodes_ : 0),
      numPlanes(numPlanes_ > 0 ? numPlanes_ : 0),
      nodes(new Node[static_cast<size_t>(numNodes)]),
      planes(new Plane[static_cast<size_t>(numPlanes)]),
      Type(type) {}

ModelStructure::~ModelStructure() {
    delete[] nodes;
    delete[] planes;
}

int findParentIndex(ModelStructure* structure, int count, ORV::CString& name) {
    if (name == L"world") return -1;
    for (int i = 0; i < count && i < structure->numNodes; ++i) {
        if (structure->nodes[i].Name == name) return i;
    }
    return -1;
}

bool GetNextToken(InputStream& stream, ORV::CString& word) {
    stream >> word;
    return !stream.atEnd();
}

bool ModelStructure::parseBase(ORV::CString file, std::vector<Group>& groups) {
    FileManager fileManager;
    ORV::CString path;
    if (!FileManager::getLoadPath(FileManager::BASE_FILE, file, path, FileManager::USER_SCOPE)) {
        logError(ORV::CString(L"cannot find basefile structure file: ") + file);
        return false;
    }
    InputStream stream(path);
    if (!stream.buffer || stream.atEnd()) {
        logError(ORV::CString(L"basefile structure input stream is invalid"));
        return false;
    }
    ORV::CString badGroup;
    if (!readBlocks(stream, groups, nullptr, badGroup)) {
        logError(ORV::CString(L"error while parsing the basefile ") + badGroup + L" group");
        return false;
    }
    return true;
}

ModelStructure* ModelStructure::CreateFromFile(const ORV::CString& file) {
    // 1. Resolve: a structure file, else a capture structure file.
    FileManager fileManager;
    ORV::CString path;
    if (!FileManager::getLoadPath(FileManager::STRUCTURE_FILE, file, path, FileManager::USER_SCOPE) &&
        !FileManager::getLoadPath(FileManager::MOCAP_STRUCTURE_FILE, file, path, FileManager::USER_SCOPE)) {
        logError(ORV::CString(L"cannot find structure file: ") + file);
        return nullptr;
    }

    // 2. Open.
    InputStream stream(path);
    if (!stream.buffer || stream.atEnd()) {
        logError(ORV::CString(L"structure input stream is invalid"));
        return nullptr;
    }

    // 3. The base file, named by the first word; it reports its own failures.
    ORV::CString type;
    GetNextToken(stream, type);
    std::vector<Group> baseGroups;
    if (!parseBase(type, baseGroups)) return nullptr;

    // 4. The structure's own blocks.
    std::vector<Group> groups;
    std::vector<Decomp> decomps;
    ORV::CString badGroup;
    if (!readBlocks(stream, groups, &decomps, badGroup)) {
        logError(ORV::CString(L"error while parsing the structure ") + badGroup + L" group");
        return nullptr;
    }

    // 5. Count nodes and planes, base groups first. A limb end needs an anchor and a middle
    // joint before it in its group.
    int nodeCount = 0;
    int planeCount = 0;
    for (const std::vector<Group>* list : {&baseGroups, &groups}) {
        for (const Group& group : *list) {
            for (size_t position = 0; position < group.items.size(); ++position) {
                const GroupItem& item = group.items[position];
                ++nodeCount;
                if (!isLimbEnd(item.Type)) continue;
                ++planeCount;
                if (position < 2) {
                    logError(ORV::CString(L"the ik node ") + item.Name +
                             L" is missing an anchor or midjoint");
                    return nullptr;
                }
            }
        }
    }

    // 6. Construct.
    ModelStructure* structure = new ModelStructure(nodeCount, planeCount, type);
    structure->Source = file;
    structure->baseGroups = baseGroups;
    structure->groups = groups;
    structure->decomps = decomps;

    // 7. Fill the nodes and the planes.
    int index = 0;
    int planeIndex = 0;
    for (std::vector<Group>* list : {&structure->baseGroups, &structure->groups}) {
        for (Group& group : *list) {
            int anchor = -1;
            for (size_t position = 0; position < group.items.size(); ++position, ++index) {
                const GroupItem& item = group.items[position];
                Node& node = structure->nodes[index];
                if (position == 0) {
                    const int parent = findParentIndex(structure, index, group.Parent);
                    if (parent == -1 && group.Parent != L"world") {
                        logError(ORV::CString(L"group parent node ") + group.Parent +
                                 L" must be defined before the " + group.Name + L" group");
                        delete structure;
                        return nullptr;
                    }
                    node.Parent = parent;
                    node.OffsetParent = parent;
                } else {
                    node.Parent = index - 1;
                    node.OffsetParent = index - 1;
                }
                node.Name = item.Name;
                node.align = item.Align;
                node.roll = item.Roll;
                node.Offset = item.Offset;
                node.Type = nodeTypeOf(item.Type);
                node.Friction = item.Type == L"friction";
                if (item.Type == L"anchor") anchor = index;
                // A limb end makes a plane from the group's anchor; without an anchor the plane
                // stays unset, which is why every group with a limb end needs one.
                if (anchor >= 0 && isLimbEnd(item.Type) && planeIndex < structure->numPlanes) {
                    Plane& plane = structure->planes[planeIndex++];
                    plane.AnchorIndex = anchor;
                    plane.Mid = anchor + 1;
                    plane.Name = structure->nodes[anchor + 1].Name;
                    plane.bones.Clear();
                    for (int bone = index; bone >= anchor; --bone) plane.bones.Add(bone);
                    plane.Span = index;
                    node.Parent = anchor;  // OffsetParent keeps the previous node
                }
                // Defaults pass through the conversion too: no limit stays minimum above maximum.
                node.Minlimits = item.Minlimits * DEG_TO_RAD;
                node.Maxlimits = item.Maxlimits * DEG_TO_RAD;
            }
        }
    }

    // 8. Rest positions. An offset parent always precedes its node; a later "world" group has
    // none and starts from the origin rather than reading outside the array.
    for (int i = 0; i < structure->numNodes; ++i) {
        Node& node = structure->nodes[i];
        const int offsetParent = node.OffsetParent;
        if (i > 0 && offsetParent >= 0 && offsetParent < i)
            node.Position = structure->nodes[offsetParent].Position + node.Offset;
        else
            node.Position = node.Offset;
    }

    // 9. Mirrors. A node paired with node 0 searches again, as "below 1" includes it.
    for (int i = 0; i < structure->numNodes; ++i) {
        Node& node = structure->nodes[i];
        if (node.mirror_node_index >= 1) continue;
        const ORV::CString counterpart = mirrorNameOf(node.Name);
        if (counterpart.IsEmpty()) continue;
        for (int j = 0; j < structure->numNodes; ++j) {
            if (j == i) continue;
            if (structure->nodes[j].Name.IsEqualNoCase(counterpart)) {
                node.mirror_node_index = j;
                structure->nodes[j].mirror_node_index = i;
                break;
            }
        }
    }
    return structure;
}

int ModelStructure::findNodeIndex(const ORV::CString& name) { return nodeIndex(name); }

int ModelStructure::nodeIndex(const ORV::CString& name) const {
    for (int i = 0; i < numNodes; ++i) {
        if (nodes[i].Name == name) return i;
    }
    return -1;
}

int ModelStructure::FindChild(int node) {
    for (int i = 0; i < numNodes; ++i) {
        if (nodes[i].Parent == node) return i;
    }
    return -1;
}

int ModelStructure::FindPlaneWithParent(int anchor, int span) {
    for (int i = 0; i < numPlanes; ++i) {
        if (planes[i].AnchorIndex == anchor && planes[i].Span == span) return i;
    }
    return -1;
}

ModelStructure::GroupItem* ModelStructure::FindTagItem(ORV::CString name) {
    for (std::vector<Group>* list : {&baseGroups, &groups}) {
        for (Group& group : *list) {
            for (GroupItem& item : group.items) {
                if (item.Name == name) return &item;
            }
        }
    }
    return nullptr;
}

}  // namespace ZUK
