// The plug-in's entry: the one function the host calls when it loads the library. Afterwards
// the host finds every callback by name.
#include <orv/ORV.h>

#include "panels/MocapToRigPPG.h"

namespace {

const wchar_t* const kCommands[] = {
    L"Retarget",
    L"RetargetBVH",
    L"RetargetC3DData",
    L"ImportC3DFile",
    L"SaveC3DPoseMap",
    L"SetTagValue",
    L"SaveTagTemplateFile",
    L"LoadTagTemplateFile",
    L"InheritRetargetSetup",
    L"ApplyTagsToRig",
    L"CleanTagsFromRig",
    L"SetStructureFile",
    L"RetargetExtractStartFrame",
    L"RetargetExtractEndFrame",
    L"LoadTrovoFile",
    L"SaveTrovoFile",
    L"RemoveAllTrovoPropsAndOps",
    L"PlotRetargetMotion",
    L"RemoveTROVOOperators",
    L"SaveTROVOAdjustmentPresetFile",
    L"LoadTROVOAdjustmentPresetFile",
};

// "TagRigPPG" and "MocapToRigPPG" have no callbacks; their registrations are kept all the same.
const wchar_t* const kOtherProperties[] = {
    L"TagPPG",   L"RetargetAdjustPPG", L"TrovoFilePPG", L"RotationOffsetPPG", L"PlotRetargetPPG",
    L"MocapPPG", L"TagRigPPG",         L"RigToRigPPG",  L"MocapToRigPPG",
};

const wchar_t* const kMenus[] = {
    L"Tag Rig", L"Rig to Rig", L"Mocap to Rig", L"SaveTrovoFileMenu", L"LoadTrovoFileMenu",
};

const wchar_t* const kOperators[] = {
    L"RetargetOp",         L"RetargetUpVOp",   L"RetargetGlobalOp",
    L"RetargetDecompOp",   L"RetargetSpineOp", L"RetargetSymmetrySpecialOp",
    L"RetargetSymmetryOp",
};

}  // namespace

// Registers everything in a fixed order; the results of single registrations are not looked at.
extern "C" ORV::CStatus ORVLoadPlugin(ORV::PluginRegistrar& in_reg) {
    in_reg.PutAuthor(L"Trovo team");
    in_reg.PutName(L"TROVO Plug-in");
    in_reg.PutVersion(3, 0);

    for (const wchar_t* command : kCommands) {
        in_reg.RegisterCommand(command, command);
    }

    in_reg.RegisterProperty(ZUK::MocapToRigPPG::PROPERTY_NAME);
    for (const wchar_t* property : kOtherProperties) {
        in_reg.RegisterProperty(property);
    }

    for (const wchar_t* menu : kMenus) {
        in_reg.RegisterMenu(ORV::ovMenuTbAnimateActionsStoreID, menu, false, false);
    }

    for (const wchar_t* op : kOperators) {
        in_reg.RegisterOperator(op);
    }
    return ORV::CStatus::OK;
}
