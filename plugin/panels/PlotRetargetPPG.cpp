// Property type callbacks of the plot options page.
#include "panels/PlotRetargetPPG.h"

#include "shell/Util.h"

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

namespace ZUK {

const ORV::CString PlotRetargetPPG::PROPERTY_NAME(L"PlotRetargetPPG");

void PlotRetargetPPG::cleanup(ORV::Model model) {
    ORV::Property property;
    if (Util::findCustomPSet(model, PROPERTY_NAME, property)) Util::deleteObj(property.GetFullName());
}

}  // namespace ZUK

extern "C" ORV::CStatus PlotRetargetPPG_Define(ORV::CRef&) {
    return notBuilt(L"PlotRetargetPPG_Define is not built yet");
}

extern "C" ORV::CStatus PlotRetargetPPG_DefineLayout(ORV::CRef&) {
    return notBuilt(L"PlotRetargetPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus PlotRetargetPPG_PPGEvent(ORV::CRef&) {
    return notBuilt(L"PlotRetargetPPG_PPGEvent is not built yet");
}
