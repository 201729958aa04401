// The normalised motion file drivers: a rig's motion saved once, loaded on any rig of the
// same structure.
#include "shell/Retarget.h"

#include "shell/Placeholder.h"

namespace ZUK {
namespace Retarget {

namespace {
ORV::Application app;
}

bool LoadTrovoFile(const ORV::CString& file, ORV::Model target, int start) {
    app.LogMessage(L"LoadTrovoFile is not built yet", 4);
    logPlaceholderCall(L"LoadTrovoFile", {file, target.GetRef(), start});
    return false;
}

bool SaveTrovoFile(ORV::Model source, const ORV::CString& file, int start, int end) {
    app.LogMessage(L"SaveTrovoFile is not built yet", 4);
    logPlaceholderCall(L"SaveTrovoFile", {source.GetRef(), file, start, end});
    return false;
}

}  // namespace Retarget
}  // namespace ZUK
