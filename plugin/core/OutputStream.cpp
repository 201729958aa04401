#include "core/OutputStream.h"

#include <cstdlib>
#include <vector>

namespace ZUK {

OutputStream::OutputStream(const ORV::CString& path) { file = std::fopen(path.GetAsciiString(), "wt"); }

OutputStream::~OutputStream() {
    if (file) std::fclose(file);
}

OutputStream& OutputStream::operator<<(char c) {
    std::fputc(static_cast<unsigned char>(c), file);
    return *this;
}

OutputStream& OutputStream::operator<<(const ORV::CString& text) {
    const size_t count = static_cast<size_t>(text.Length());
    if (count == 0) return *this;
    // Room for the longest multibyte form; only `count` bytes go out, as they always did.
    std::vector<char> narrow(count * MB_CUR_MAX + 1, '\0');
    std::wcstombs(narrow.data(), text.GetWideString(), narrow.size());
    std::fwrite(narrow.data(), 1, count, file);
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
    if (count > 0) std::fwrite(bytes, 1, static_cast<size_t>(count), file);
}

}  // namespace ZUK
