// Property type callbacks of the up-direction question asked for a capture.
#include <orv/ORV.h>

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

extern "C" ORV::CStatus MocapPPG_Define(ORV::CRef&) { return notBuilt(L"MocapPPG_Define is not built yet"); }

extern "C" ORV::CStatus MocapPPG_DefineLayout(ORV::CRef&) {
    return notBuilt(L"MocapPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus MocapPPG_PPGEvent(ORV::CRef&) {
    return notBuilt(L"MocapPPG_PPGEvent is not built yet");
}
