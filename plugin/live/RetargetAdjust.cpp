// The pose adjustments of the live retarget. Until they are built, the played pose goes
// through unchanged, which is what every adjustment does at its default value.
#include "live/RetargetOp.h"

namespace ZUK {

namespace {
ORV::Application app;
}

void RetargetOp::updateStride() { app.LogMessage(L"updateStride is not built yet", 4); }
void RetargetOp::updateClampKeys(int, double) { app.LogMessage(L"updateClampKeys is not built yet", 4); }
void RetargetOp::applyStride() {}
void RetargetOp::applyStretch() {}
void RetargetOp::applyOffset() {}
void RetargetOp::DampenMotion() {}
void RetargetOp::applyClamp() {}
void RetargetOp::applyRoll() {}
void RetargetOp::mirrorPose() { app.LogMessage(L"mirrorPose is not built yet", 4); }

void mirrorTransform(ORV::MATH::CTransformation&, int, ORV::MATH::CTransformation) {
    app.LogMessage(L"mirrorTransform is not built yet", 4);
}

}  // namespace ZUK
