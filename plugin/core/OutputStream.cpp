#include "core/OutputStream.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cwchar>
#include <string>

namespace ZUK {

OutputStream::OutputStream(const ORV::CString& path) { file = std::fopen(path.GetAsciiString(), "wt"); }

OutputStream::~OutputStream() {
    if (file) std::fclose(file);
}

// Writes on a stream whose open failed are dropped rather than crash; callers still test
// `file` first, since nothing tells them otherwise.
OutputStream& OutputStream::operator<<(char c) {
    if (file) std::fputc(static_cast<unsigned char>(c), file);
    return *this;
}

OutputStream& OutputStream::operator<<(const ORV::CString& text) {
    const size_t count = static_cast<size_t>(text.Length());
    if (count == 0 || !file) return *this;
    // Character by character through the C library. A character that the reader widened from
    // a byte above 127 (a negative value) goes back out as that byte, and one without a narrow
    // form as "?", so that no conversion failure leaves zero bytes in a text file.
    std::string narrow;
    narrow.reserve(count * MB_CUR_MAX);
    std::mbstate_t state{};
    char bytes[MB_LEN_MAX];
    for (size_t i = 0; i < count; ++i) {
        const wchar_t c = text[static_cast<unsigned long>(i)];
        if (c < 0 && c >= -128) {
            narrow += static_cast<char>(c);
            continue;
        }
        const size_t n = std::wcrtomb(bytes, c, &state);
        if (n == static_cast<size_t>(-1)) {
            narrow += '?';
            state = std::mbstate_t{};
        } else {
            narrow.append(bytes, n);
        }
    }
    // Exactly as many bytes as the string has characters, as this format always had: a
    // character of several bytes pushes the string's tail out.
    std::fwrite(narrow.data(), 1, std::min(count, narrow.size()), file);
    return *this;
}

OutputStream& OutputStream::operator<<(int value) {
    *this << ORV::CValue(value).GetAsText();
    return *this << ' ';
}

OutputStream& OutputStream::operator<<(double value) {
    *this << ORV::CValue(value).GetAsText();
    return *this << ' ';
}

OutputStream& OutputStream::operator<<(const ORV::MATH::CVector3& v) {
    return *this << v.GetX() << v.GetY() << v.GetZ();
}

OutputStream& OutputStream::operator<<(const ORV::MATH::CRotation& r) { return *this << r.GetXYZAngles(); }

OutputStream& OutputStream::operator<<(const ORV::MATH::CTransformation& t) {
    return *this << t.GetRotation() << t.GetTranslation();
}

void OutputStream::dump(unsigned char* bytes, int count) {
    if (file && bytes && count > 0) std::fwrite(bytes, 1, static_cast<size_t>(count), file);
}

}  // namespace ZUK
