// A file with given contents in the temporary folder, removed when the object goes.
#pragma once

#include <orv/CString.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace trovotest {

class TempFile {
public:
    explicit TempFile(const std::string& contents, const char* suffix = ".bvh") {
        std::string templ = "/tmp/trovo_test_XXXXXX";
        templ += suffix;
        std::string buffer = templ;
        const int fd = mkstemps(&buffer[0], static_cast<int>(std::char_traits<char>::length(suffix)));
        if (fd >= 0) {
            const ssize_t written = write(fd, contents.data(), contents.size());
            close(fd);
            if (written == static_cast<ssize_t>(contents.size())) m_path = buffer;
        }
    }
    ~TempFile() {
        if (!m_path.empty()) std::remove(m_path.c_str());
    }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    bool Ok() const { return !m_path.empty(); }
    const std::string& Narrow() const { return m_path; }
    ORV::CString Path() const { return ORV::CString(m_path.c_str()); }

private:
    std::string m_path;
};

}  // namespace trovotest
