#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "FuzzTarget.h"
#include "HostTesting.h"
#include "core/FileManager.h"
#include "mocap/Mocap.h"

namespace trovofuzz {

std::map<std::string, Entry>& Entries() {
    static std::map<std::string, Entry> entries;
    return entries;
}

bool Register(const char* name, Entry entry) {
    Entries()[name] = entry;
    return true;
}

namespace {

// Removes the scratch folder when the process ends normally.
struct ScratchFolder {
    std::string path;
    ~ScratchFolder() {
        std::error_code ignored;
        if (!path.empty()) std::filesystem::remove_all(path, ignored);
    }
};

}  // namespace

const std::string& ScratchDir() {
    static ScratchFolder folder;
    if (folder.path.empty()) {
        char pattern[] = "/tmp/trovo_fuzz_XXXXXX";
        const char* made = mkdtemp(pattern);
        if (!made) {
            std::perror("mkdtemp");
            std::abort();
        }
        folder.path = made;
    }
    return folder.path;
}

void Prepare() {
    static bool done = false;
    if (done) return;
    done = true;
    orvhost::RecordLog(false);
    orvhost::ClearAnswers();
}

std::string ScratchFile(const std::string& name, const std::uint8_t* data, std::size_t size) {
    const std::string path = ScratchDir() + "/" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        std::perror(path.c_str());
        std::abort();
    }
    if (size && std::fwrite(data, 1, size, file) != size) std::abort();
    std::fclose(file);
    return path;
}

std::string UseScratchLocations(bool withFactory) {
    const std::string user = ScratchDir() + "/user";
    const std::string structures = user + "/Addons/Trovo/Data/Structures";
    static bool made = false;
    if (!made) {
        made = true;
        std::filesystem::create_directories(structures + "/Mocap");
    }
    const std::string factory = withFactory ? TROVO_FACTORY_DATA : "";
    orvhost::SetInstallationPath(ORV::ovUserPath, std::wstring(user.begin(), user.end()));
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath, std::wstring(factory.begin(), factory.end()));
    ZUK::FileManager::rootsFilled = false;
    return structures;
}

std::uint32_t TakeSeed(const std::uint8_t*& data, std::size_t& size) {
    std::uint32_t seed = 0;
    for (int k = 0; k < 4 && size > 0; ++k, ++data, --size) seed = (seed << 8) | *data;
    return seed;
}

void PoseFirstAndLastFrame(ZUK::MocapData& mocap) {
    int frames = 0;
    for (int i = 0; i < mocap.nodeCount; ++i)
        if (mocap.nodes[i].frameCount > frames) frames = mocap.nodes[i].frameCount;
    mocap.updateTransforms(0);
    if (frames > 1) mocap.updateTransforms(frames - 1);
}

}  // namespace trovofuzz
