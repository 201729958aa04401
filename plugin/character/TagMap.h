// TagMap: a flat list of bindings between structure nodes and rig objects (or capture nodes),
// in the form that travels between rigs and files: tag templates (".tagt"), BVH map files and
// an XML form. On a rig a binding lives as the property "ZUKTag" on the object; this class also
// writes and removes those properties, and marks capture nodes.
#pragma once

#include <orv/ORV.h>

#include <vector>

class XMLFileStream;

namespace ZUK {

class InputStream;
class OutputStream;
class ModelMap;
class ModelStructure;
class MocapData;

class TagMap {
public:
    static constexpr const wchar_t* PROPERTY_NAME = L"ZUKTag";
    static constexpr const wchar_t* EXTRACTION_NAME = L"ZUKExtractionTag";
    static constexpr const wchar_t* MAPTAG = L"MapFile2.0";
    // Limits of the six direction parameters of a tag: the largest float, either side.
    static constexpr double FLOAT_LIMIT = 3.4028234663852886e38;

    class TagEntry {
    public:
        // The structure node's Name.
        ORV::CString tag_name;
        // Empty from both readers; when set, `obj_name` applies only if an object of this name
        // exists, `else_name` otherwise.
        ORV::CString test_name;
        // The rig object or capture node.
        ORV::CString obj_name;
        ORV::CString else_name;
        // The structure node whose rotation the object takes instead of its own; empty for none.
        ORV::CString override;
        // The node's canonical directions in the object's own space.
        ORV::MATH::CVector3 align;
        ORV::MATH::CVector3 roll;
    };

    TagMap();
    ~TagMap();
    TagMap(const TagMap&) = delete;
    TagMap& operator=(const TagMap&) = delete;

    // ---- Serial forms. Writers take the tags of a map's nodes that have a valid object.
    static void WriteToStream(OutputStream& stream, ModelMap& map);
    // New map owned by the caller, or null after a message.
    static TagMap* createFromStream(InputStream& stream);
    static void WriteToXMLStream(XMLFileStream& stream, ModelMap& map);
    static TagMap* createFromXMLStream(XMLFileStream& stream);

    // Moves the stream past a tag template's header (structure type, tag values, structure
    // source, structure version), to where the tag map text begins. False at the stream's end.
    static bool skipTemplateHeader(InputStream& stream);
    // Moves the stream past the header of the map file `path`: a tag template's for the suffix
    // "TAGT", else one word that must be "BVH" (false after a message otherwise).
    static bool readMapFileHeader(InputStream& stream, const ORV::CString& path);
    // Reads a BVH map file or a tag template from `path`: the suffix "TAGT" reads past a
    // template's header, any other suffix needs the first word "BVH". New map owned by the
    // caller, or null after a message.
    static TagMap* createFromMapFile(const ORV::CString& path);

    // ---- On a rig and on capture
    // Tags the rig from the values of a tag panel property. Always true.
    static bool ApplyTagsToModel(ORV::Model model, ModelStructure* structure,
                                 ORV::CustomProperty& tagProperty, bool namesAreTags);
    // Tags the rig from this map. False when an entry's object is missing; entries handled
    // before it keep their tags.
    bool applyToModel(ORV::Model model);
    // Marks the capture nodes named by the entries. Always true.
    bool applyToMocap(MocapData* mocap);
    // Removes "ZUKTag" and "ZUKExtractionTag" from every 3D object below `object`.
    static void cleanupTags(ORV::X3DObject& object);
    static void cleanup(ORV::Model model);

    std::vector<TagEntry> entries;
    // The structure file that the tags refer to.
    ORV::CString structure_file;
};

// The canonical directions of the structure item `tagName` expressed in the object's own space
// at the current time, negated for a mirrored object. An unknown item leaves both as they came.
void CalcAlignAndRollForRigNodes(const ORV::CString& tagName, ModelStructure* structure,
                                 ORV::X3DObject& object, ORV::MATH::CVector3& align,
                                 ORV::MATH::CVector3& roll);

}  // namespace ZUK
