// Scene files: open; a scene that opens saves, opens again from what was saved, and saves
// the same bytes (a scene that saves but cannot be opened again would be work lost). A file
// that is refused leaves the open scene as it was.
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "FuzzTarget.h"
#include "HostTesting.h"

namespace {

std::string Contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string Saved(const std::string& path) {
    std::wstring error;
    if (!orvhost::SaveScene(path, error)) std::abort();
    return Contents(path);
}

}  // namespace

TROVO_FUZZ_TARGET(scene) {
    trovofuzz::Prepare();
    orvhost::NewScene();
    const std::string dir = trovofuzz::ScratchDir();
    const std::string before = Saved(dir + "/before.orvscene");
    const std::string path = trovofuzz::ScratchFile("input.orvscene", data, size);
    std::wstring error;
    if (!orvhost::OpenScene(path, error)) {
        if (error.empty() || Saved(dir + "/after.orvscene") != before) std::abort();
        return 0;
    }
    const std::string first = Saved(dir + "/first.orvscene");
    if (!orvhost::OpenScene(dir + "/first.orvscene", error)) std::abort();
    if (Saved(dir + "/second.orvscene") != first) std::abort();
    orvhost::NewScene();
    return 0;
}
