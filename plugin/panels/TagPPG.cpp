#include "panels/TagPPG.h"

#include "shell/Placeholder.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString TagPPG::PROPERTY_NAME(L"TagPPG");
const ORV::CString TagPPG::STRUCTUREFILE_NAME(L"StructureFile");

bool TagPPG::SetTagValue(ORV::Model model, ORV::CString tagName, ORV::CString tagValue, int tagType) {
    app.LogMessage(L"SetTagValue is not built yet", 4);
    logPlaceholderCall(L"SetTagValue", {model.GetRef(), tagName, tagValue, tagType});
    return false;
}

bool TagPPG::ApplyTagPPGValuesToModel(ORV::Model model) {
    app.LogMessage(L"ApplyTagPPGValuesToModel is not built yet", 4);
    logPlaceholderCall(L"ApplyTagPPGValuesToModel", {model.GetRef()});
    return false;
}

bool TagPPG::CleanTagsFromRig(ORV::Model model) {
    app.LogMessage(L"CleanTagsFromRig is not built yet", 4);
    logPlaceholderCall(L"CleanTagsFromRig", {model.GetRef()});
    return false;
}

bool TagPPG::SetStructureFile(ORV::Model model, ORV::CString file) {
    app.LogMessage(L"SetStructureFile is not built yet", 4);
    logPlaceholderCall(L"SetStructureFile", {model.GetRef(), file});
    return false;
}

bool TagPPG::SaveTagTemplateFile(ORV::Model model, ORV::CString file) {
    app.LogMessage(L"SaveTagTemplateFile is not built yet", 4);
    logPlaceholderCall(L"SaveTagTemplateFile", {model.GetRef(), file});
    return false;
}

bool TagPPG::LoadTagTemplateFile(ORV::Model model, ORV::CString file) {
    app.LogMessage(L"LoadTagTemplateFile is not built yet", 4);
    logPlaceholderCall(L"LoadTagTemplateFile", {model.GetRef(), file});
    return false;
}

bool TagPPG::CreateTagPPG(ORV::Model, bool) {
    app.LogMessage(L"CreateTagPPG is not built yet", 4);
    return false;
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus TagPPG_Define(ORV::CRef&) { return ZUK::notBuilt(L"TagPPG_Define is not built yet"); }

extern "C" ORV::CStatus TagPPG_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"TagPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus TagPPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"TagPPG_PPGEvent is not built yet");
}

extern "C" ORV::CStatus TagPPG_Term(ORV::CRef& in_ctxt) {
    // Only a panel that has loaded a structure holds user data; nothing sets it yet.
    ORV::Context ctxt(in_ctxt);
    if (static_cast<void*>(ctxt.GetUserData()) != nullptr) {
        return ZUK::notBuilt(L"TagPPG_Term is not built yet");
    }
    return ORV::CStatus::OK;
}
