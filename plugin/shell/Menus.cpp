// The five menus and their item callbacks. Each item opens a panel; the panel classes are
// one-shot, so constructing a temporary does the work.
#include <orv/ORV.h>

#include "panels/MocapToRigPPG.h"
#include "panels/RigToRigPPG.h"
#include "panels/TagPPG.h"
#include "panels/TrovoFilePPG.h"

namespace {

// Adds the menu's one item; answers the host's status of that call when it is not OK.
ORV::CStatus addItem(ORV::CRef& in_ctxt, const wchar_t* label, const wchar_t* callback) {
    ORV::Context ctxt(in_ctxt);
    ORV::Menu menu(ctxt.GetSource());
    ORV::MenuItem item;
    ORV::CStatus status = menu.AddCallbackItem(label, callback, item);
    if (status != ORV::CStatus::OK) {
        return status;
    }
    return ORV::CStatus::OK;
}

}  // namespace

extern "C" ORV::CStatus TagRig_Init(ORV::CRef& in_ctxt) {
    return addItem(in_ctxt, L"Tag Rig", L"TagMenuItem");
}

extern "C" ORV::CStatus RigtoRig_Init(ORV::CRef& in_ctxt) {
    return addItem(in_ctxt, L"Rig to Rig", L"RigToRigMenuItem");
}

extern "C" ORV::CStatus MocaptoRig_Init(ORV::CRef& in_ctxt) {
    return addItem(in_ctxt, L"Mocap to Rig", L"MocapToRigMenuItem");
}

extern "C" ORV::CStatus SaveTrovoFileMenu_Init(ORV::CRef& in_ctxt) {
    return addItem(in_ctxt, L"Save Motion", L"SaveTrovoFileMenuItem");
}

extern "C" ORV::CStatus LoadTrovoFileMenu_Init(ORV::CRef& in_ctxt) {
    return addItem(in_ctxt, L"Load Motion", L"LoadTrovoFileMenuItem");
}

// Item callbacks answer OK whatever happened in the panel.

extern "C" ORV::CStatus TagMenuItem(ORV::CRef&) {
    // An invalid model makes the panel work on the selected model.
    ZUK::TagPPG::CreateTagPPG(ORV::Model(), false);
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RigToRigMenuItem(ORV::CRef&) {
    ZUK::RigToRigPPG panel(false);
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus MocapToRigMenuItem(ORV::CRef&) {
    ZUK::MocapToRigPPG panel(false);
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus SaveTrovoFileMenuItem(ORV::CRef&) {
    ORV::CString path(L"c:\\");
    ZUK::TrovoFilePPG panel(path, ORV::Model(), true);
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus LoadTrovoFileMenuItem(ORV::CRef&) {
    ORV::CString path(L"c:\\");
    ZUK::TrovoFilePPG panel(path, ORV::Model(), false);
    return ORV::CStatus::OK;
}
