#include "panels/AdjustPPG.h"

#include "shell/Placeholder.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString AdjustPPG::PROPERTY_NAME(L"RetargetAdjustPPG");
ORV::CString AdjustPPG::m_currentModel;

void AdjustPPG::closePanel() {
    // No panel has been opened in this process.
    if (m_currentModel.IsEmpty()) {
        return;
    }
    app.LogMessage(L"closePanel is not built yet", 4);
}

void AdjustPPG::SavePreset(ORV::Model model, ORV::CString file) {
    app.LogMessage(L"SavePreset is not built yet", 4);
    logPlaceholderCall(L"SavePreset", {model.GetRef(), file});
}

void AdjustPPG::LoadPreset(ORV::Model model, ORV::CString file, double time) {
    app.LogMessage(L"LoadPreset is not built yet", 4);
    logPlaceholderCall(L"LoadPreset", {model.GetRef(), file, time});
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus RetargetAdjustPPG_Define(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetAdjustPPG_Define is not built yet");
}

extern "C" ORV::CStatus RetargetAdjustPPG_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetAdjustPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus RetargetAdjustPPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetAdjustPPG_PPGEvent is not built yet");
}
