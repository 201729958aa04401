// Property type callbacks of the plot options page.
#include <orv/ORV.h>

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

extern "C" ORV::CStatus PlotRetargetPPG_Define(ORV::CRef&) {
    return notBuilt(L"PlotRetargetPPG_Define is not built yet");
}

extern "C" ORV::CStatus PlotRetargetPPG_DefineLayout(ORV::CRef&) {
    return notBuilt(L"PlotRetargetPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus PlotRetargetPPG_PPGEvent(ORV::CRef&) {
    return notBuilt(L"PlotRetargetPPG_PPGEvent is not built yet");
}
