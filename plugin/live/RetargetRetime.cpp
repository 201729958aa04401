// Retiming of the live retarget: the adjustment curves follow the motion when its speed changes.
#include "live/RetargetOp.h"

namespace ZUK {

namespace {
ORV::Application app;
}

bool RetargetOp::setInsertionFrame(int frame) {
    app.LogMessage(L"setInsertionFrame is not built yet", 4);
    (void)frame;
    return false;
}

bool RetargetOp::RetimeFCurveKeys(ORV::Parameter) {
    app.LogMessage(L"RetimeFCurveKeys is not built yet", 4);
    return false;
}

void RetargetOp::RetimeAllFCurveKeys(double) { app.LogMessage(L"RetimeAllFCurveKeys is not built yet", 4); }

int RetargetOp::getEndFrame() {
    app.LogMessage(L"getEndFrame is not built yet", 4);
    return insertionFrame;
}

}  // namespace ZUK
