// Update callbacks of the two symmetry operators, found by the host by name.
#include <orv/ORV.h>

namespace {
ORV::Application app;
}

extern "C" ORV::CStatus RetargetSymmetryOp_Update(ORV::CRef&) {
    app.LogMessage(L"RetargetSymmetryOp_Update is not built yet", 4);
    return ORV::CStatus::OK;
}

extern "C" ORV::CStatus RetargetSymmetrySpecialOp_Update(ORV::CRef&) {
    app.LogMessage(L"RetargetSymmetrySpecialOp_Update is not built yet", 4);
    return ORV::CStatus::OK;
}
