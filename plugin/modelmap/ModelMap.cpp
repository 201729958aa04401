// ModelMap construction, tag discovery, capture binding, element access and cleanup.
#include "modelmap/ModelMap.h"

#include <utility>

#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "mocap/Mocap.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

ORV::CStringArray objectFamilies() {
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    return families;
}

// The directions of a tag or extraction tag property: "alignx" to "rollz".
void readDirections(const ORV::Property& property, ORV::MATH::CVector3& align, ORV::MATH::CVector3& roll) {
    align.Set(static_cast<double>(property.GetParameterValue(L"alignx")),
              static_cast<double>(property.GetParameterValue(L"aligny")),
              static_cast<double>(property.GetParameterValue(L"alignz")));
    roll.Set(static_cast<double>(property.GetParameterValue(L"rollx")),
             static_cast<double>(property.GetParameterValue(L"rolly")),
             static_cast<double>(property.GetParameterValue(L"rollz")));
}

// The decomposition columns in bit order.
const ORV::CString* decompColumn(const ModelStructure::Decomp& decomp, int bit) {
    const ORV::CString* columns[9] = {&decomp.PX, &decomp.PY,     &decomp.PZ,     &decomp.RX,    &decomp.RY,
                                      &decomp.RZ, &decomp.RtoP_X, &decomp.RtoP_Y, &decomp.RtoP_Z};
    return columns[bit];
}

}  // namespace

// ---- NodeMap ----------------------------------------------------------------------------------

NodeMap::~NodeMap() { delete extraction; }

NodeMap::NodeMap(NodeMap&& other) noexcept { *this = std::move(other); }

NodeMap& NodeMap::operator=(NodeMap&& other) noexcept {
    if (this == &other) return *this;
    object = other.object;
    mocapNode = other.mocapNode;
    length = other.length;
    global = other.global;
    local = other.local;
    tpose = other.tpose;
    align = other.align;
    roll = other.roll;
    esrOffset = other.esrOffset;
    esrOffsetInverse = other.esrOffsetInverse;
    translationSource = other.translationSource;
    rotationSource = other.rotationSource;
    overrideTag = std::move(other.overrideTag);
    delete extraction;
    extraction = other.extraction;
    other.extraction = nullptr;
    constraintIndex = other.constraintIndex;
    decomps = std::move(other.decomps);
    return *this;
}

// ---- Construction -----------------------------------------------------------------------------

ModelMap::ModelMap(ORV::Model model, ModelStructure* s) : ORV::Model(model), structure(s) {
    legScale = 1.0;
    valid = true;
    if (!structure) {
        // Nothing to map onto: an empty map that callers see as failed.
        valid = false;
        return;
    }
    nodes = std::vector<NodeMap>(static_cast<size_t>(structure->numNodes > 0 ? structure->numNodes : 0));
    planes = std::vector<PlaneMap>(static_cast<size_t>(structure->numPlanes > 0 ? structure->numPlanes : 0));
    FindTags();
    CopyTransformsToNodeMap(NOW, false);
}

ModelMap::ModelMap(MocapData* capture, ModelStructure* s) : ORV::Model(), structure(s), mocap(capture) {
    legScale = 1.0;
    valid = true;
    if (!structure) {
        valid = false;
        return;
    }
    nodes = std::vector<NodeMap>(static_cast<size_t>(structure->numNodes > 0 ? structure->numNodes : 0));
    planes = std::vector<PlaneMap>(static_cast<size_t>(structure->numPlanes > 0 ? structure->numPlanes : 0));
    FindMocapTags();
}

ModelMap::ModelMap() : ORV::Model() {}

ModelMap::~ModelMap() {
    delete[] motion;
    delete[] keyTiming;
    if (ownsStructure) delete structure;
}

// ---- Tag discovery ----------------------------------------------------------------------------

void ModelMap::FindTags() {
    if (!structure) return;
    const int numNodes = static_cast<int>(nodes.size());
    const int numPlanes = static_cast<int>(planes.size());

    // 1. Every object below the model, depth first.
    ORV::CRefArray objects = FindChildren(L"", L"", objectFamilies(), true);

    // 2.-5. Each tagged object fills the node its tag names; a later object with the same tag
    // overwrites an earlier one.
    for (long k = 0; k < objects.GetCount(); ++k) {
        ORV::X3DObject object(objects[k]);
        ORV::Property tag;
        if (!Util::findCustomPSet(object, TagMap::PROPERTY_NAME, tag)) continue;
        const ORV::CString tagName = tag.GetParameterValue(L"tagname").GetAsText();
        int i = 0;
        while (i < numNodes && structure->nodes[i].Name != tagName) ++i;
        if (i >= numNodes) continue;

        NodeMap& node = nodes[static_cast<size_t>(i)];
        // 3. Object, directions, override and the current pose.
        node.object = object;
        readDirections(tag, node.align, node.roll);
        node.overrideTag = tag.GetParameterValue(L"override").GetAsText();
        node.global = object.GetKinematics().GetGlobal().GetTransform(NOW);

        // 4. The reference pose: axis x, y, z, angle, translation x, y, z.
        ORV::CStringArray parts = tag.GetParameterValue(L"tpose_transform").GetAsText().Split(L",");
        if (parts.GetCount() == 7) {
            double p[7];
            for (long n = 0; n < 7; ++n) p[n] = static_cast<double>(ORV::CValue(parts[n]));
            node.tpose = ORV::MATH::CTransformation();
            node.tpose.SetRotationFromAxisAngle(ORV::MATH::CVector3(p[0], p[1], p[2]), p[3]);
            node.tpose.SetTranslationFromValues(p[4], p[5], p[6]);
        } else {
            node.tpose = node.global;
        }

        // 5. The extraction object, when it exists and carries its own tag.
        const ORV::CString extractName = tag.GetParameterValue(L"extractNode").GetAsText();
        if (!extractName.IsEmpty()) {
            ORV::X3DObject extractObject = FindChild(extractName, L"", ORV::CStringArray(), true);
            ORV::Property extractTag;
            if (extractObject.IsValid() &&
                Util::findCustomPSet(extractObject, TagMap::EXTRACTION_NAME, extractTag)) {
                delete node.extraction;
                node.extraction = new ExtractionMap();
                readDirections(extractTag, node.extraction->align, node.extraction->roll);
                node.extraction->object = extractObject;
            }
        }
    }

    // 6. Planes: the span direction in the middle bone's own space, and that bone's local pose.
    for (int p = 0; p < numPlanes; ++p) {
        const ModelStructure::Plane& plane = structure->planes[p];
        if (plane.Span < 0 || plane.Span >= numNodes || plane.bones.GetCount() < 2) continue;
        const NodeMap& span = nodes[static_cast<size_t>(plane.Span)];
        if (!span.object.IsValid()) continue;
        const long b1 = plane.bones[1];
        if (b1 < 0 || b1 >= numNodes) continue;
        NodeMap& bone1 = nodes[static_cast<size_t>(b1)];
        ORV::MATH::CVector3 direction = span.global.GetTranslation() - bone1.global.GetTranslation();
        direction.MulByMatrix3InPlace(Util::invertTransform(bone1.global).GetRotationMatrix3());
        direction.NormalizeInPlace();
        planes[static_cast<size_t>(p)].spanDirection = direction;
        bone1.local = bone1.object.GetKinematics().GetLocal().GetTransform(NOW);
    }

    // 7. Untagged nodes drop out of the hierarchy: their children hang from their parent.
    for (int i = 0; i < numNodes; ++i) {
        if (nodes[static_cast<size_t>(i)].object.IsValid()) continue;
        for (int j = i + 1; j < numNodes; ++j) {
            if (structure->nodes[j].Parent == i) structure->nodes[j].Parent = structure->nodes[i].Parent;
        }
    }

    // 8. Decompositions: the objects that take channels of a node.
    for (const ModelStructure::Decomp& decomp : structure->decomps) {
        int n = 0;
        for (; n < numNodes; ++n) {
            // The trace of every comparison is kept: it is how a user finds a misspelt source.
            app.LogMessage(decomp.PX + L" vs. " + structure->nodes[n].Name, 8);
            if (decomp.SrcName == structure->nodes[n].Name) break;
        }
        if (n >= numNodes) continue;
        NodeMap& node = nodes[static_cast<size_t>(n)];

        for (long t = 0; t < decomp.targets.GetCount(); ++t) {
            const ORV::CString& target = decomp.targets[t];
            // A channel that no object takes is stored empty; it must not pair with every
            // object whose override is empty.
            if (target.IsEmpty()) continue;
            for (long k = 0; k < objects.GetCount(); ++k) {
                ORV::X3DObject object(objects[k]);
                ORV::Property tag;
                if (!Util::findCustomPSet(object, TagMap::PROPERTY_NAME, tag)) continue;
                // Name and override are tested per object in one scan.
                if (tag.GetParameterValue(L"tagname").GetAsText() == target ||
                    tag.GetParameterValue(L"override").GetAsText() == target) {
                    DecompMap entry;
                    entry.object = object;
                    entry.mask = 0;
                    entry.tagName = target;
                    entry.nodeIndex = n;
                    node.decomps.push_back(entry);
                    break;
                }
            }
        }

        for (DecompMap& entry : node.decomps) {
            for (int bit = 0; bit < 9; ++bit) {
                if (*decompColumn(decomp, bit) == entry.tagName) entry.mask |= 1u << bit;
            }
        }
    }
}

void ModelMap::FindMocapTags() {
    if (!structure || !mocap) return;
    const int numNodes = static_cast<int>(nodes.size());
    for (int k = 0; k < mocap->nodeCount; ++k) {
        MocapNode& capture = mocap->nodes[k];
        // The name a capture node answers to is the structure name its tag gave it: joint
        // names are the capture's own (a CMU file has a joint "lhand" that is not the hand),
        // and only the map file says which joint plays which node.
        if (!capture.tagged) continue;
        const ORV::CString& name = capture.tag;
        for (int i = 0; i < numNodes; ++i) {
            if (structure->nodes[i].Name != name) continue;
            NodeMap& node = nodes[static_cast<size_t>(i)];
            node.mocapNode = &capture;
            node.align = capture.align;
            node.roll = capture.roll;
            break;
        }
    }
}

// ---- Element access ---------------------------------------------------------------------------

NodeMap* ModelMap::nodeMap(int index) {
    // A diagnostic, not a guard: no caller tests for failure.
    if (index < 0 || index >= static_cast<int>(nodes.size()))
        app.LogMessage(L"invalid nodeMap index! " + ORV::CValue(index).GetAsText(), 4);
    return nodes.data() + index;
}

PlaneMap* ModelMap::planeMap(int index) {
    if (index < 0 || index >= static_cast<int>(planes.size()))
        app.LogMessage(L"invalid planeMap index! " + ORV::CValue(index).GetAsText(), 4);
    return planes.data() + index;
}

// ---- Cleanup ----------------------------------------------------------------------------------

void ModelMap::cleanup(ORV::Model model) {
    ORV::Property property;
    if (Util::findCustomPSet(model, PROPERTY_NAME, property)) Util::deleteObj(property.GetFullName());
}

}  // namespace ZUK
