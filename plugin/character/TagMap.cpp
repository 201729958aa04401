// TagMap: the serial forms of a rig's tags (text "MapFile2.0" and XML), the headers of the files
// that carry them (tag templates, BVH map files), and the tagging of rigs and captures.
#include "character/TagMap.h"

#include "character/ModelStructure.h"
#include "core/FileManager.h"
#include "core/InputStream.h"
#include "core/OutputStream.h"
#include "core/XMLFileStream.h"
#include "mocap/BvImport.h"
#include "mocap/Mocap.h"
#include "modelmap/ModelMap.h"
#include "shell/Util.h"

namespace ZUK {

namespace {

ORV::Application app;

// The first parameters of a tag panel property are settings, not tags.
const long NUM_NON_TAG_PARAMS = 4;
const int TAG_CAPABILITIES = 6;
const wchar_t* const ALIGN_NAMES[3] = {L"alignx", L"aligny", L"alignz"};
const wchar_t* const ROLL_NAMES[3] = {L"rollx", L"rolly", L"rollz"};

// One part of a tag panel value "control|extraction": type 1 the first part, any other type
// the second when there are exactly two.
ORV::CString nodeNameFromTagValue(const ORV::CString& value, int type) {
    ORV::CStringArray parts = value.Split(L"|");
    if (parts.GetCount() == 0) return ORV::CString();
    if (type == 1) return parts[0];
    return parts.GetCount() == 2 ? parts[1] : ORV::CString();
}

void addString(ORV::CustomProperty& property, const wchar_t* name, const ORV::CString& value) {
    ORV::Parameter parameter;
    property.AddParameter(name, ORV::ovString, TAG_CAPABILITIES, L"", L"", ORV::CValue(value), parameter);
}

// The six direction parameters, limited to the float range either side.
void addDirections(ORV::CustomProperty& property, const ORV::MATH::CVector3& align,
                   const ORV::MATH::CVector3& roll) {
    const ORV::CValue low(-TagMap::FLOAT_LIMIT), high(TagMap::FLOAT_LIMIT);
    for (int k = 0; k < 3; ++k) {
        ORV::Parameter parameter;
        property.AddParameter(ALIGN_NAMES[k], ORV::ovFloat, TAG_CAPABILITIES, L"", L"", ORV::CValue(align[k]),
                              low, high, low, high, parameter);
    }
    for (int k = 0; k < 3; ++k) {
        ORV::Parameter parameter;
        property.AddParameter(ROLL_NAMES[k], ORV::ovFloat, TAG_CAPABILITIES, L"", L"", ORV::CValue(roll[k]),
                              low, high, low, high, parameter);
    }
}

ORV::CustomProperty addCustomProperty(ORV::X3DObject& object, const wchar_t* name) {
    ORV::Property added = object.AddProperty(L"CustomProperty", false, name);
    return ORV::CustomProperty(added.GetRef());
}

void deleteProperty(const ORV::X3DObject& object, const ORV::CString& name) {
    ORV::Property property;
    if (Util::findCustomPSet(object, name, property)) Util::deleteObj(property.GetFullName());
}

// The object's global pose as "axis x,axis y,axis z,angle,x,y,z".
ORV::CString poseText(const ORV::MATH::CTransformation& global) {
    double angle = 0.0;
    const ORV::MATH::CVector3 axis = global.GetRotation().GetAxisAngle(angle);
    const ORV::MATH::CVector3& position = global.GetTranslation();
    const double values[7] = {axis.x, axis.y, axis.z, angle, position.x, position.y, position.z};
    ORV::CString text;
    for (int k = 0; k < 7; ++k) {
        if (k > 0) text += L",";
        text += ORV::CValue(values[k]).GetAsText();
    }
    return text;
}

// The name an entry stands for: `obj_name`, unless a test name is set and no object bears it.
template <class Exists>
ORV::CString resolveName(const TagMap::TagEntry& entry, Exists exists) {
    if (entry.test_name.IsEmpty()) return entry.obj_name;
    return exists(entry.test_name) ? entry.obj_name : entry.else_name;
}

// The text reader's failure: logged, the map freed, null.
TagMap* parseError(TagMap* map, const wchar_t* expected, const ORV::CString& tag) {
    app.LogMessage(ORV::CString(L"parse error: ") + expected + L" expected for tag " + tag, 4);
    delete map;
    return nullptr;
}

}  // namespace

TagMap::TagMap() = default;

TagMap::~TagMap() = default;

// ---- Text form ---------------------------------------------------------------------------------

void TagMap::WriteToStream(OutputStream& stream, ModelMap& map) {
    if (!map.structure) return;
    int count = 0;
    for (const NodeMap& node : map.nodes) {
        if (node.object.IsValid()) ++count;
    }
    stream << ORV::CString(MAPTAG) << '\n';
    stream << map.structure->Source << '\n' << '\n';
    stream << count << '\n';
    for (size_t i = 0; i < map.nodes.size(); ++i) {
        const NodeMap& node = map.nodes[i];
        if (!node.object.IsValid()) continue;
        stream << map.structure->nodes[i].Name << ORV::CString(L" {") << '\n';
        stream << '\t' << node.object.GetName() << ';' << '\n';
        stream << '\t' << node.align.x << node.align.y << node.align.z << '\n';
        stream << '\t' << node.roll.x << node.roll.y << node.roll.z << '\n';
        if (!node.overrideTag.IsEmpty()) stream << '\t' << '*' << node.overrideTag << '\n';
        stream << '}' << '\n' << '\n';
    }
}

TagMap* TagMap::createFromStream(InputStream& stream) {
    // 1. The magic word, logged whatever it is.
    ORV::CString word;
    stream >> word;
    app.LogMessage(word, 8);
    if (word != MAPTAG) {
        app.LogMessage(L"Could not parse the map file", 4);
        return nullptr;
    }

    // 2. The structure file and the count of entries.
    TagMap* map = new TagMap();
    stream >> map->structure_file;
    int count = 0;
    stream >> count;

    // 3. The entries. A count larger than the file ends quietly at its end.
    for (int k = 0; k < count; ++k) {
        TagEntry entry;
        stream.readDelimitedString(entry.tag_name, L"{");
        if (stream.atEnd()) break;
        char c = 0;
        stream >> c;
        if (c != '{') return parseError(map, L"'{'", entry.tag_name);
        stream.readDelimitedString(entry.obj_name, L"?;");
        c = 0;
        stream >> c;
        // "?" ends the name but is not accepted after it; the message names both.
        if (c != ';') return parseError(map, L"';' or '?'", entry.tag_name);
        stream >> entry.align >> entry.roll;
        c = 0;
        stream >> c;
        if (c == '*') {
            stream >> entry.override;
            c = 0;
            stream >> c;
        }
        if (c != '}') return parseError(map, L"'}'", entry.tag_name);
        map->entries.push_back(entry);
    }
    return map;
}

// ---- XML form ----------------------------------------------------------------------------------

void TagMap::WriteToXMLStream(XMLFileStream& stream, ModelMap& map) {
    if (!map.structure || !stream.document) return;
    xercesc::DOMElement* root = stream.GetChildElement(stream.document, 0);
    if (!root) return;
    int count = 0;
    for (const NodeMap& node : map.nodes) {
        if (node.object.IsValid()) ++count;
    }
    xercesc::DOMElement* tagMap = stream.WriteElement(root, L"TAG_MAP");
    stream.SetAttributeValue(tagMap, L"version", ORV::CString(MAPTAG));
    stream.SetAttributeValue(tagMap, L"structure_file", map.structure->Source);
    xercesc::DOMElement* tags = stream.WriteElement(tagMap, L"TAGS");
    stream.SetAttributeValue(tags, L"num_tags", ORV::CValue(count).GetAsText());
    for (size_t i = 0; i < map.nodes.size(); ++i) {
        const NodeMap& node = map.nodes[i];
        if (!node.object.IsValid()) continue;
        xercesc::DOMElement* tag = stream.WriteElement(tags, L"TAG");
        stream.SetAttributeValue(tag, L"tag_name", map.structure->nodes[i].Name);
        stream.SetAttributeValue(tag, L"obj_name", node.object.GetName());
        stream.SetAttributeValue(tag, L"align", node.align);
        stream.SetAttributeValue(tag, L"roll", node.roll);
        if (!node.overrideTag.IsEmpty()) stream.SetAttributeValue(tag, L"override", node.overrideTag);
    }
}

TagMap* TagMap::createFromXMLStream(XMLFileStream& stream) {
    if (!stream.document) return nullptr;
    xercesc::DOMElement* root = stream.GetChildElement(stream.document, 0);
    // 1. No tag map in the document: no message.
    xercesc::DOMElement* tagMap = root ? stream.FindElement(root, L"TAG_MAP") : nullptr;
    if (!tagMap) return nullptr;

    // 2. The version is logged, not compared.
    TagMap* map = new TagMap();
    ORV::CString version;
    stream.GetAttributeValue(tagMap, L"version", version);
    app.LogMessage(version, 8);
    stream.GetAttributeValue(tagMap, L"structure_file", map->structure_file);

    // 3.-4. The tags and their count.
    xercesc::DOMElement* tags = stream.FindElement(tagMap, L"TAGS");
    if (!tags) {
        delete map;
        return nullptr;
    }
    ORV::CString countText;
    stream.GetAttributeValue(tags, L"num_tags", countText);
    const int count = static_cast<int>(ORV::CValue(countText));

    // 5. One entry per child by position; a count beyond the children stops at the last one.
    for (int index = 0; index < count; ++index) {
        xercesc::DOMElement* tag = stream.GetChildElement(tags, index);
        if (!tag) break;
        TagEntry entry;
        stream.GetAttributeValue(tag, L"tag_name", entry.tag_name);
        stream.GetAttributeValue(tag, L"obj_name", entry.obj_name);
        stream.GetAttributeValue(tag, L"align", entry.align);
        stream.GetAttributeValue(tag, L"roll", entry.roll);
        if (stream.HasAttribute(tag, L"override")) stream.GetAttributeValue(tag, L"override", entry.override);
        map->entries.push_back(entry);
    }
    return map;
}

// ---- Files that carry the text form ------------------------------------------------------------

bool TagMap::skipTemplateHeader(InputStream& stream) {
    // Structure type; the tag values; the structure source and version.
    ORV::CString word;
    stream >> word;
    int count = 0;
    stream >> count;
    for (int k = 0; k < count && !stream.atEnd(); ++k) stream >> word >> word;
    stream >> word;
    int version = 0;
    stream >> version;
    return !stream.atEnd();
}

bool TagMap::readMapFileHeader(InputStream& stream, const ORV::CString& path) {
    if (FileManager::extractSuffix(path) == L"TAGT") {
        skipTemplateHeader(stream);
        return true;
    }
    ORV::CString word;
    stream >> word;
    if (word != BvImport::LBVHTAG) {
        app.LogMessage(
            L"To retarget a BVH file the mapfile must be built from the corresponding BVH ref pose", 4);
        return false;
    }
    return true;
}

TagMap* TagMap::createFromMapFile(const ORV::CString& path) {
    InputStream stream(path);
    if (!stream.buffer) {
        app.LogMessage(L"Could not read mapfile.", 4);
        return nullptr;
    }
    if (!readMapFileHeader(stream, path)) return nullptr;
    return createFromStream(stream);
}

// ---- Tagging -----------------------------------------------------------------------------------

void TagMap::cleanupTags(ORV::X3DObject& object) {
    ORV::CRefArray children = object.GetChildren();
    for (long k = 0; k < children.GetCount(); ++k) {
        ORV::X3DObject child(children[k]);
        if (children[k].IsA(ORV::ov3DObjectID)) {
            deleteProperty(child, PROPERTY_NAME);
            deleteProperty(child, EXTRACTION_NAME);
        }
        cleanupTags(child);
    }
}

void TagMap::cleanup(ORV::Model model) { cleanupTags(model); }

void CalcAlignAndRollForRigNodes(const ORV::CString& tagName, ModelStructure* structure,
                                 ORV::X3DObject& object, ORV::MATH::CVector3& align,
                                 ORV::MATH::CVector3& roll) {
    // 1. The canonical directions of the node.
    ModelStructure::GroupItem* item = structure ? structure->FindTagItem(tagName) : nullptr;
    if (!item) return;
    // 2.-3. Into the object's own space: row vectors times the inverse rotation.
    const ORV::MATH::CTransformation global = object.GetKinematics().GetGlobal().GetTransform(ModelMap::NOW);
    const ORV::MATH::CMatrix3 m = Util::invertTransform(global).GetRotationMatrix3();
    align.MulByMatrix3(item->Align, m);
    roll.MulByMatrix3(item->Roll, m);
    // 4. A mirrored object turns both around.
    if (global.GetScaling().x < 0.0) {
        align.NegateInPlace();
        roll.NegateInPlace();
    }
}

bool TagMap::ApplyTagsToModel(ORV::Model model, ModelStructure* structure, ORV::CustomProperty& tagProperty,
                              bool namesAreTags) {
    // 1. Earlier tags go.
    cleanupTags(model);

    // 2. One tag per panel parameter after the settings.
    ORV::CRefArray parameters = tagProperty.GetParameters();
    for (long k = NUM_NON_TAG_PARAMS; k < parameters.GetCount(); ++k) {
        ORV::Parameter parameter(parameters[k]);
        const ORV::CString tag = parameter.GetScriptName();

        // 2.1 The control object and the extraction object.
        ORV::CString controlName, extractName;
        if (namesAreTags) {
            controlName = tag;
        } else {
            const ORV::CString value = parameter.GetValue().GetAsText();
            controlName = nodeNameFromTagValue(value, 1);
            extractName = nodeNameFromTagValue(value, 2);
        }

        // 2.2 No object, no tag.
        if (controlName.IsEmpty()) continue;
        ORV::X3DObject object = model.FindChild(controlName, L"", ORV::CStringArray(), true);
        if (!object.IsValid()) continue;

        // 2.3 A second tag on one object becomes its override, except "cog".
        ORV::Property existing;
        if (Util::findCustomPSet(object, PROPERTY_NAME, existing)) {
            if (tag != L"cog") existing.PutParameterValue(L"override", ORV::CValue(tag));
            continue;
        }

        // 2.4 The tag itself.
        ORV::MATH::CVector3 align, roll;
        CalcAlignAndRollForRigNodes(tag, structure, object, align, roll);
        ORV::CustomProperty property = addCustomProperty(object, PROPERTY_NAME);
        addString(property, L"tagname", tag);
        addString(property, L"override", ORV::CString());
        addDirections(property, align, roll);
        addString(property, L"tpose_transform",
                  poseText(object.GetKinematics().GetGlobal().GetTransform(ModelMap::NOW)));

        // 2.5 The extraction object, when it is another object that exists.
        ORV::CString extractValue;
        if (!extractName.IsEmpty() && extractName != controlName) {
            ORV::X3DObject extractObject = model.FindChild(extractName, L"", ORV::CStringArray(), true);
            if (extractObject.IsValid()) {
                extractValue = extractName;
                ORV::MATH::CVector3 extractAlign, extractRoll;
                CalcAlignAndRollForRigNodes(tag, structure, extractObject, extractAlign, extractRoll);
                // Rewritten whole, like every stored property.
                deleteProperty(extractObject, EXTRACTION_NAME);
                ORV::CustomProperty extraction = addCustomProperty(extractObject, EXTRACTION_NAME);
                addDirections(extraction, extractAlign, extractRoll);
            }
        }
        addString(property, L"extractNode", extractValue);
    }
    return true;
}

bool TagMap::applyToModel(ORV::Model model) {
    // 1. Earlier tags go.
    cleanupTags(model);

    // 2. From the last entry to the first; a missing object stops the tagging there.
    for (size_t k = entries.size(); k-- > 0;) {
        const TagEntry& entry = entries[k];
        const ORV::CString name = resolveName(entry, [&](const ORV::CString& test) {
            return model.FindChild(test, L"", ORV::CStringArray(), true).IsValid();
        });
        ORV::X3DObject object = model.FindChild(name, L"", ORV::CStringArray(), true);
        if (!object.IsValid()) {
            app.LogMessage(L"cannot apply tag " + entry.tag_name + L", node not found: " + name, 4);
            return false;
        }
        // A property named as the tag (not as the tag property) is an older form; it goes.
        deleteProperty(object, entry.tag_name);

        ORV::CustomProperty property = addCustomProperty(object, PROPERTY_NAME);
        addString(property, L"tagname", entry.tag_name);
        addString(property, L"override", entry.override);
        addDirections(property, entry.align, entry.roll);
        // Not a pose: the reader falls back on the current pose for this text.
        addString(property, L"tpose_transform", entry.tag_name);
    }
    return true;
}

bool TagMap::applyToMocap(MocapData* mocap) {
    if (!mocap) return true;
    for (size_t k = entries.size(); k-- > 0;) {
        const TagEntry& entry = entries[k];
        const ORV::CString name =
            resolveName(entry, [&](const ORV::CString& test) { return mocap->findNode(test) != nullptr; });
        MocapNode* node = mocap->findNode(name);
        if (!node) {
            app.LogMessage(L"cannot apply tag " + entry.tag_name + L", node not found: " + name, 4);
            continue;
        }
        node->tagged = true;
        node->tag = entry.tag_name;
        node->align = entry.align;
        node->roll = entry.roll;
    }
    // Always true: a capture with fewer nodes than the map still plays.
    return true;
}

}  // namespace ZUK
