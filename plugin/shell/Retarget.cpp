#include "shell/Retarget.h"

#include "shell/Placeholder.h"

namespace ZUK {
namespace Retarget {

namespace {
ORV::Application app;
}

bool ModelToModel(ORV::Model source, ORV::Model target, int start, int end) {
    app.LogMessage(L"ModelToModel is not built yet", 4);
    logPlaceholderCall(L"ModelToModel", {source.GetRef(), target.GetRef(), start, end});
    return false;
}

bool LoadBVHOnToModel(const ORV::CString& bvhFile, const ORV::CString& mapFile, ORV::Model target) {
    app.LogMessage(L"LoadBVHOnToModel is not built yet", 4);
    logPlaceholderCall(L"LoadBVHOnToModel", {bvhFile, mapFile, target.GetRef()});
    return false;
}

bool LoadC3DOnToESR(const ORV::CString& c3dFile, const ORV::CString& poseMapFile) {
    app.LogMessage(L"LoadC3DOnToESR is not built yet", 4);
    logPlaceholderCall(L"LoadC3DOnToESR", {c3dFile, poseMapFile});
    return false;
}

bool ImportC3DFile(ORV::CString c3dFile, int upDirection, bool createESR, ORV::CString structureFile) {
    app.LogMessage(L"ImportC3DFile is not built yet", 4);
    logPlaceholderCall(L"ImportC3DFile", {c3dFile, upDirection, createESR, structureFile});
    return false;
}

bool SaveC3DPoseMapFile(ORV::Model c3dModel, ORV::Model esr, const ORV::CString& poseMapFile) {
    app.LogMessage(L"SaveC3DPoseMapFile is not built yet", 4);
    logPlaceholderCall(L"SaveC3DPoseMapFile", {c3dModel.GetRef(), esr.GetRef(), poseMapFile});
    return false;
}

}  // namespace Retarget
}  // namespace ZUK
