// ZUK::TagPPG: the tag property on a model and its rules: what may be tagged to which node, how
// the tagging is checked, applied, cleaned, and saved and restored as a template.
#pragma once

#include <orv/ORV.h>

namespace ZUK {

class TagPPG {
public:
    // Registered property type of the tag property on a model.
    static const ORV::CString PROPERTY_NAME;
    // Parameter of the tag property that holds the structure file's name.
    static const ORV::CString STRUCTUREFILE_NAME;

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
};

}  // namespace ZUK
