#include "panels/RotationOffsetPPG.h"

#include <cwchar>

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString RotationOffsetPPG::PROPERTY_NAME(L"RotationOffsetPPG");

void RotationOffsetPPG::closePanels() {
    ORV::CRefArray views = app.GetDesktop().GetActiveLayout().GetViews();
    for (long i = 0; i < views.GetCount(); ++i) {
        ORV::CString content = ORV::View(views[i]).GetAttributeValue(L"targetcontent");
        if (std::wcsstr(content.GetWideString(), PROPERTY_NAME.GetWideString()) != nullptr) {
            app.LogMessage(L"closePanels is not built yet", 4);
            return;
        }
    }
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus RotationOffsetPPG_Define(ORV::CRef&) {
    return ZUK::notBuilt(L"RotationOffsetPPG_Define is not built yet");
}

extern "C" ORV::CStatus RotationOffsetPPG_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"RotationOffsetPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus RotationOffsetPPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"RotationOffsetPPG_PPGEvent is not built yet");
}
