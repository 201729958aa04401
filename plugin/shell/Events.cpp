#include "shell/Events.h"

#include <orv/ORV.h>

#include <cfloat>

#include "panels/AdjustPPG.h"
#include "panels/MocapToRigPPG.h"
#include "panels/RotationOffsetPPG.h"
#include "shell/Util.h"

namespace ZUK {

void GooseAnyRetargetedModels() {
    ORV::Application app;
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray objects = app.GetActiveSceneRoot().FindChildren(L"", L"", families, true);
    for (long i = 0; i < objects.GetCount(); ++i) {
        if (!objects[i].IsA(ORV::ovModelID)) {
            continue;
        }
        ORV::Model model(objects[i]);
        ORV::Property property;
        if (!Util::findCustomPSet(model, AdjustPPG::PROPERTY_NAME, property)) {
            continue;
        }
        // Writing the same transform back is what dirties the graph.
        ORV::KinematicState global = model.GetKinematics().GetGlobal();
        global.PutTransform(global.GetTransform(DBL_MAX), DBL_MAX);
    }
}

namespace {
// Panels of the previous scene are refreshed or closed.
void refreshPanels() {
    MocapToRigPPG panel(true);
    AdjustPPG::closePanel();
    RotationOffsetPPG::closePanels();
}
}  // namespace

}  // namespace ZUK

extern "C" ORV::CStatus MyNewScene_OnEvent(ORV::CRef&) {
    ZUK::refreshPanels();
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus MyOpenScene_OnEvent(ORV::CRef&) {
    ZUK::refreshPanels();
    ZUK::GooseAnyRetargetedModels();
    return ORV::CStatus::OK;
}
