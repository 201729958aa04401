#include "panels/TrovoFilePPG.h"

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString TrovoFilePPG::PROPERTY_NAME(L"TrovoFilePPG");

TrovoFilePPG::TrovoFilePPG(ORV::CString&, ORV::Model, bool) {
    app.LogMessage(L"TrovoFilePPG is not built yet", 4);
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus TrovoFilePPG_Define(ORV::CRef&) {
    return ZUK::notBuilt(L"TrovoFilePPG_Define is not built yet");
}

extern "C" ORV::CStatus TrovoFilePPG_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"TrovoFilePPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus TrovoFilePPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"TrovoFilePPG_PPGEvent is not built yet");
}
