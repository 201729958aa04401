#include "panels/RigToRigPPG.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString RigToRigPPG::PROPERTY_NAME(L"RigToRigPPG");

RigToRigPPG::RigToRigPPG(bool) { app.LogMessage(L"RigToRigPPG is not built yet", 4); }

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus RigToRigPPG_Define(ORV::CRef&) {
    return ZUK::notBuilt(L"RigToRigPPG_Define is not built yet");
}

extern "C" ORV::CStatus RigToRigPPG_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"RigToRigPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus RigToRigPPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"RigToRigPPG_PPGEvent is not built yet");
}
