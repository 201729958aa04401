#include "shell/Retarget.h"

namespace ZUK {
namespace Retarget {

namespace {
ORV::Application app;
}

bool ModelToModel(ORV::Model, ORV::Model, int, int) {
    app.LogMessage(L"ModelToModel is not built yet", 4);
    return false;
}

bool LoadBVHOnToModel(const ORV::CString&, const ORV::CString&, ORV::Model) {
    app.LogMessage(L"LoadBVHOnToModel is not built yet", 4);
    return false;
}

bool LoadC3DOnToESR(const ORV::CString&, const ORV::CString&) {
    app.LogMessage(L"LoadC3DOnToESR is not built yet", 4);
    return false;
}

bool ImportC3DFile(ORV::CString, int, bool, ORV::CString) {
    app.LogMessage(L"ImportC3DFile is not built yet", 4);
    return false;
}

bool SaveC3DPoseMapFile(ORV::Model, ORV::Model, const ORV::CString&) {
    app.LogMessage(L"SaveC3DPoseMapFile is not built yet", 4);
    return false;
}

bool LoadTrovoFile(const ORV::CString&, ORV::Model, int) {
    app.LogMessage(L"LoadTrovoFile is not built yet", 4);
    return false;
}

bool SaveTrovoFile(ORV::Model, const ORV::CString&, int, int) {
    app.LogMessage(L"SaveTrovoFile is not built yet", 4);
    return false;
}

}  // namespace Retarget
}  // namespace ZUK
