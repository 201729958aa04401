#include "live/RetargetOp.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

bool RetargetOp::cleanupRetargetOp(ORV::Model) {
    app.LogMessage(L"cleanupRetargetOp is not built yet", 4);
    return false;
}

bool RetargetOp::findFCurvesStartEnd(ORV::Model, int&, int&) {
    app.LogMessage(L"findFCurvesStartEnd is not built yet", 4);
    return false;
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
