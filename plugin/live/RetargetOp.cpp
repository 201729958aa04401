#include "live/RetargetOp.h"

#include "panels/AdjustPPG.h"
#include "panels/RotationOffsetPPG.h"
#include "shell/Placeholder.h"
#include "shell/Util.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString RetargetOp::DATA_NAME(L"ZUKRetargetOp");

namespace {
// Deletes the custom operator `name` reading or writing `state`, if there is one.
void deleteOperator(const ORV::KinematicState& state, const wchar_t* name) {
    ORV::CustomOperator op;
    if (Util::findCustomOp(state.GetFullName(), name, op)) Util::deleteObj(op.GetFullName());
}

void deleteProperty(const ORV::X3DObject& object, const wchar_t* name) {
    ORV::Property property;
    if (Util::findCustomPSet(object, name, property)) Util::deleteObj(property.GetFullName());
}
}  // namespace

bool RetargetOp::cleanupRetargetOp(ORV::Model model) {
    // The adjustment property marks an installation; without it nothing is touched.
    ORV::Property adjust;
    if (!Util::findCustomPSet(model, AdjustPPG::PROPERTY_NAME, adjust)) return false;
    Util::deleteObj(adjust.GetFullName());
    deleteProperty(model, DATA_NAME.GetWideString());
    deleteProperty(model, L"ZUKRefFrames");
    // The main operator is registered under another name than its callbacks'.
    deleteOperator(model.GetKinematics().GetLocal(), L"RetargetOperator");
    ORV::CStringArray families;
    families.Add(ov3DObjectFamily);
    ORV::CRefArray objects = model.FindChildren(L"", L"", families, true);
    for (long i = 0; i < objects.GetCount(); ++i) {
        ORV::X3DObject object(objects[i]);
        deleteOperator(object.GetKinematics().GetGlobal(), L"RetargetGlobalOp");
        deleteOperator(object.GetKinematics().GetGlobal(), L"RetargetUpVOp");
        deleteOperator(object.GetKinematics().GetLocal(), L"RetargetSpineOp");
        deleteOperator(object.GetKinematics().GetLocal(), L"RetargetDecompOp");
        deleteProperty(object, RotationOffsetPPG::PROPERTY_NAME.GetWideString());
    }
    return true;
}

bool RetargetOp::findFCurvesStartEnd(ORV::Model model, int& start, int& end) {
    ORV::Property blob;
    if (Util::findCustomPSet(model, DATA_NAME, blob)) {
        // The range of a retargeted model comes from its live operator.
        app.LogMessage(L"findFCurvesStartEnd is not built yet", 4);
        logPlaceholderCall(L"findFCurvesStartEnd", {model.GetRef()});
        return false;
    }
    start = 2147483647;
    end = -2147483647;
    Util::findStartEnd(model, start, end);
    return start < end;
}

}  // namespace ZUK

// Operator callbacks, found by the host by name.

extern "C" ORV::CStatus RetargetOp_Init(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetOp_Init is not built yet");
}
extern "C" ORV::CStatus RetargetOp_Update(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetOp_Update is not built yet");
}
extern "C" ORV::CStatus RetargetOp_Term(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetOp_Term is not built yet");
}

extern "C" ORV::CStatus RetargetUpVOp_Init(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetUpVOp_Init is not built yet");
}
extern "C" ORV::CStatus RetargetUpVOp_Update(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetUpVOp_Update is not built yet");
}
extern "C" ORV::CStatus RetargetUpVOp_Term(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetUpVOp_Term is not built yet");
}

extern "C" ORV::CStatus RetargetGlobalOp_Init(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetGlobalOp_Init is not built yet");
}
extern "C" ORV::CStatus RetargetGlobalOp_Update(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetGlobalOp_Update is not built yet");
}
extern "C" ORV::CStatus RetargetGlobalOp_Term(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetGlobalOp_Term is not built yet");
}

extern "C" ORV::CStatus RetargetDecompOp_Init(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetDecompOp_Init is not built yet");
}
extern "C" ORV::CStatus RetargetDecompOp_Update(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetDecompOp_Update is not built yet");
}
extern "C" ORV::CStatus RetargetDecompOp_Term(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetDecompOp_Term is not built yet");
}

extern "C" ORV::CStatus RetargetSpineOp_Init(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetSpineOp_Init is not built yet");
}
extern "C" ORV::CStatus RetargetSpineOp_Update(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetSpineOp_Update is not built yet");
}
extern "C" ORV::CStatus RetargetSpineOp_Term(ORV::CRef&) {
    return ZUK::notBuilt(L"RetargetSpineOp_Term is not built yet");
}
