// Helpers shared by the stream, file location and XML document tests: a temporary folder
// per test (never the source tree) and small file writers.
#pragma once

#include <dirent.h>
#include <orv/ORV.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace streamtest {

// A fresh folder under the system's temporary directory, removed with its content.
class TempDir {
public:
    TempDir() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/trovo_core_XXXXXX";
        std::vector<char> buffer(pattern.begin(), pattern.end());
        buffer.push_back('\0');
        if (mkdtemp(buffer.data())) path = buffer.data();
    }
    ~TempDir() {
        if (!path.empty()) removeTree(path);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string file(const std::string& name) const { return path + "/" + name; }
    ORV::CString wfile(const std::string& name) const { return ORV::CString(file(name).c_str()); }

    std::string path;

private:
    static void removeTree(const std::string& dir) {
        if (DIR* d = opendir(dir.c_str())) {
            while (dirent* e = readdir(d)) {
                const std::string name = e->d_name;
                if (name == "." || name == "..") continue;
                const std::string full = dir + "/" + name;
                struct stat st;
                if (lstat(full.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
                    removeTree(full);
                else
                    unlink(full.c_str());
            }
            closedir(d);
        }
        rmdir(dir.c_str());
    }
};

inline bool writeFile(const std::string& path, const std::string& bytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    const size_t n = std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    return n == bytes.size();
}

inline std::string readFile(const std::string& path) {
    std::string out;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return out;
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    std::fclose(f);
    return out;
}

inline bool makeDirs(const std::string& path) {
    std::string partial;
    for (size_t i = 0; i <= path.size(); ++i) {
        if (i == path.size() || path[i] == '/') {
            if (!partial.empty()) mkdir(partial.c_str(), 0755);
        }
        if (i < path.size()) partial += path[i];
    }
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

inline std::wstring wide(const ORV::CString& s) { return s.std(); }

}  // namespace streamtest
