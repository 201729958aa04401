#include "live/RetargetOp.h"

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

bool RetargetOp::cleanupRetargetOp(ORV::Model model) {
    app.LogMessage(L"cleanupRetargetOp is not built yet", 4);
    logPlaceholderCall(L"cleanupRetargetOp", {model.GetRef()});
    return false;
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
