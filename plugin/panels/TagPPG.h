// ZUK::TagPPG: the tag property on a model and its rules: what may be tagged to which node, how
// the tagging is checked, applied, cleaned, and saved and restored as a template.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class ModelStructure;

class TagPPG {
public:
    // Registered property type of the tag property on a model.
    static const ORV::CString PROPERTY_NAME;
    // The blob that `cleanup` removes.
    static const ORV::CString DATA_NAME;
    // How an empty tag value is written in a template, so that every line has two words.
    static const ORV::CString emptystring;
    // The settings that come before the tag parameters.
    static constexpr long NUM_NON_TAG_PARAMS = 4;
    static constexpr const wchar_t* STRUCTUREFILE_INDEX = L"StructureTag";
    static constexpr const wchar_t* STRUCTUREFILE_NAME = L"StructureFile";
    static constexpr const wchar_t* TEMPLATEFILE_NAME = L"TemplateFile";
    static constexpr const wchar_t* DIRTY_NAME = L"dirty";

    // One part of a tag value "control|extraction": type 1 the control object, any other type
    // the extraction object when the value has exactly two parts.
    static ORV::CString GetNodeNameFromTagValue(ORV::CString value, int type);
    // The one door for changing a tag value on the model's tag property.
    static bool SetTagValue(ORV::Model model, ORV::CString tagName, ORV::CString value, int tagType);
    // Checks the tagging and turns it into a working setup on the rig.
    static bool ApplyTagPPGValuesToModel(ORV::Model model);
    // Removes every trace of the retarget setup from the rig.
    static bool CleanTagsFromRig(ORV::Model model);
    // Stores the structure `file` on the model and rebuilds the tag parameters.
    static bool SetStructureFile(ORV::Model model, ORV::CString file);
    // Writes the rig's tagging and measures as a tag template.
    static bool SaveTagTemplateFile(ORV::Model model, ORV::CString file);
    // Restores a rig's tagging from a tag template.
    static bool LoadTagTemplateFile(ORV::Model model, ORV::CString file);
    // Opens the tag panel on `model`, or on the selected model when `model` is invalid.
    static bool CreateTagPPG(ORV::Model model, bool unused);
    // Removes the tag parameters and the panel's blob from the model.
    static void cleanup(ORV::Model model);
};

// Whether the rig object `value` may play `tagName`; stores it, and fills the mirror tag.
bool CheckAndApplyTagValue(ORV::CustomProperty& tagProperty, ORV::CString& tagName, ORV::CString& value,
                           ModelStructure* structure, ORV::Model model, ORV::CString currentValue,
                           int tagType);
// Whether the tagging is complete enough to apply: ancestors and whole limbs.
bool CheckTagValidity(ModelStructure* structure, ORV::CustomProperty& tagProperty);
// Replaces the tag parameters of the model's tag property by one per node and one per
// decomposition target of `structure`.
void CreateTagPPGPropertyFromStructure(ORV::Model model, ModelStructure* structure);
// The object below `current` whose name best mirrors `target`'s; `found` and `best` carry the
// best candidate so far.
void FindSymmetricNode(ORV::X3DObject current, ORV::X3DObject target, ORV::CString& found, int& best);
// Length of the common beginning (or end) of two objects' names.
int CountMatchingChars(ORV::X3DObject a, ORV::X3DObject b, bool fromStart);
// Whether the two objects reach a common ancestor when climbing in step, within a's model.
bool CountDepthToCommonAncestor(ORV::X3DObject a, ORV::X3DObject b);

}  // namespace ZUK
