#include "panels/RotationOffsetPPG.h"

#include <cwchar>

namespace ZUK {

namespace {
ORV::Application app;

ORV::CStatus notBuilt(const wchar_t* what) {
    app.LogMessage(what, 4);
    return ORV::CStatus::OK;
}
}  // namespace

const ORV::CString RotationOffsetPPG::PROPERTY_NAME(L"RotationOffsetPPG");

void RotationOffsetPPG::closePanels() {
    ORV::CRefArray views = app.GetDesktop().GetActiveLayout().GetViews();
    for (long i = 0; i < views.GetCount(); ++i) {
        ORV::View view(views[i]);
        if (!(view.GetType() == L"Property Panel")) continue;
        ORV::CString content = view.GetAttributeValue(L"targetcontent");
        if (std::wcsstr(content.GetWideString(), PROPERTY_NAME.GetWideString()) != nullptr) view.Close();
    }
}

}  // namespace ZUK

// Property type callbacks, found by the host by name.

extern "C" ORV::CStatus RotationOffsetPPG_Define(ORV::CRef& in_ctxt) {
    ORV::Context ctxt(in_ctxt);
    ORV::CustomProperty property(ctxt.GetSource());
    ORV::Parameter unused;
    const int animated = ORV::ovPersistable | ORV::ovAnimatable;
    for (const wchar_t* axis : {L"X", L"Y", L"Z"})
        property.AddParameter(axis, ORV::ovDouble, animated, L"", L"", ORV::CValue(0.0), ORV::CValue(-180.0),
                              ORV::CValue(180.0), ORV::CValue(-180.0), ORV::CValue(180.0), unused);
    property.AddParameter(L"Reduce", ORV::ovDouble, animated, L"", L"", ORV::CValue(0.0), ORV::CValue(0.0),
                          ORV::CValue(1.0), ORV::CValue(0.0), ORV::CValue(1.0), unused);
    property.AddParameter(L"IsCog", ORV::ovBool, ORV::ovPersistable | ORV::ovSilent, L"", L"",
                          ORV::CValue(false), unused);
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RotationOffsetPPG_DefineLayout(ORV::CRef&) {
    return ZUK::notBuilt(L"RotationOffsetPPG_DefineLayout is not built yet");
}

extern "C" ORV::CStatus RotationOffsetPPG_PPGEvent(ORV::CRef&) {
    return ZUK::notBuilt(L"RotationOffsetPPG_PPGEvent is not built yet");
}
