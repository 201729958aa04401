#include "panels/MocapToRigPPG.h"

#include <cwchar>

#include "character/ModelStructure.h"
#include "character/TagMap.h"
#include "glue/GlueMap.h"
#include "live/RetargetOp.h"
#include "modelmap/ModelMap.h"
#include "panels/AdjustPPG.h"
#include "panels/PlotRetargetPPG.h"
#include "panels/RotationOffsetPPG.h"
#include "panels/TagPPG.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}

// Whether a view of the active layout shows the panel's property.
bool panelIsOpen() {
    ORV::CRefArray views = app.GetDesktop().GetActiveLayout().GetViews();
    for (long i = 0; i < views.GetCount(); ++i) {
        ORV::CString content = ORV::View(views[i]).GetAttributeValue(L"targetcontent");
        if (std::wcsstr(content.GetWideString(), MocapToRigPPG::PROPERTY_NAME.GetWideString()) != nullptr) {
            return true;
        }
    }
    return false;
}
}  // namespace

const ORV::CString MocapToRigPPG::PROPERTY_NAME(L"MocapToRig");

MocapToRigPPG::MocapToRigPPG(bool refresh) {
    // A refresh of a panel that is not open is nothing to do.
    if (refresh && !panelIsOpen()) {
        return;
    }
    app.LogMessage(L"MocapToRigPPG is not built yet", 4);
}

void MocapToRigPPG::flushRetargetData(ORV::Model model) {
    // Panels that show the model's adjustments would point at deleted parameters.
    AdjustPPG::closePanel();
    RotationOffsetPPG::closePanels();
    const bool logging = Util::logCommands(false);
    ORV::ProgressBar bar = app.GetUIToolkit().GetProgressBar();
    bar.PutMaximum(7);
    bar.PutStep(1);
    bar.PutValue(0);
    bar.PutCaption(L"Removing TROVO setup data from model ....");
    bar.PutVisible(true);
    // The operators go first: they read the properties removed after them.
    RetargetOp::cleanupRetargetOp(model);
    bar.Increment();
    TagPPG::cleanup(model);
    bar.Increment();
    TagMap::cleanup(model);
    bar.Increment();
    GlueMap::cleanup(model);
    bar.Increment();
    ModelMap::cleanup(model);
    bar.Increment();
    ModelStructure::cleanup(model);
    bar.Increment();
    PlotRetargetPPG::cleanup(model);
    bar.Increment();
    bar.PutVisible(false);
    Util::logCommands(logging);
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus MocapToRig_Define(ORV::CRef&) {
    return ZUK::notBuilt(L"MocapToRig_Define is not built yet");
}

extern "C" ORV::CStatus MocapToRig_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"MocapToRig_DefineLayout is not built yet");
}

extern "C" ORV::CStatus MocapToRig_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"MocapToRig_PPGEvent is not built yet");
}
