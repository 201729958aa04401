// Shared scaffolding of the structure tests: a scratch add-on root in a mkdtemp folder, the
// host's installation locations pointed at it, and the host log.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "HostTesting.h"
#include "character/ModelStructure.h"
#include "core/FileManager.h"

namespace structtest {

namespace fs = std::filesystem;

inline std::wstring Wide(const std::string& s) { return std::wstring(s.begin(), s.end()); }

// <tmp>/Addons/Trovo/Data/ with Structures/ and Structures/Mocap/, removed again at the end.
class ScratchRoot {
public:
    ScratchRoot() {
        char pattern[] = "/tmp/trovo_structs_XXXXXX";
        const char* made = mkdtemp(pattern);
        dir = made ? made : "";
        fs::create_directories(Data() / "Structures" / "Mocap");
    }
    ~ScratchRoot() {
        std::error_code ignored;
        if (!dir.empty()) fs::remove_all(dir, ignored);
    }
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    fs::path Data() const { return fs::path(dir) / "Addons" / "Trovo" / "Data"; }

    // Writes `text` to Data()/relative, e.g. "Structures/test.structure".
    void Write(const std::string& relative, const std::string& text) const {
        std::ofstream out(Data() / relative, std::ios::binary);
        out << text;
    }

    std::string dir;
};

// Points the user location at `user` and the factory location at `factory` (either may be
// empty), with no shared location. FileManager reads the locations once per process, so its
// cache is refilled here.
inline void UseLocations(const std::string& user, const std::string& factory) {
    orvhost::SetInstallationPath(ORV::ovUserPath, Wide(user));
    orvhost::SetInstallationPath(ORV::ovSharedPath, L"");
    orvhost::SetInstallationPath(ORV::ovFactoryPath, Wide(factory));
    ZUK::FileManager::rootsFilled = false;
    ZUK::FileManager refill;
}

inline std::vector<std::wstring> Messages(int severity) { return orvhost::LogTexts(severity); }

inline std::vector<std::wstring> One(const std::wstring& text) { return std::vector<std::wstring>{text}; }

inline std::wstring Text(const ORV::CString& s) { return s.GetWideString(); }

}  // namespace structtest
