#include "core/InputStream.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/FileStream.h"

namespace ZUK {

namespace {

// Bytes become wide characters by sign extension: no character-set decoding takes place.
inline wchar_t widen(char c) { return static_cast<wchar_t>(static_cast<signed char>(c)); }

inline bool isWhite(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

}  // namespace

InputStream::InputStream(const ORV::CString& path) {
    if (path.IsEmpty()) return;
    FILE* file = std::fopen(path.GetAsciiString(), "rb");
    if (!file) return;
    const int length = StdFileLength(file);
    if (length < 0) {
        std::fclose(file);
        return;
    }
    // One zero byte behind the file's bytes lets atol/atof stop at the end of a number that
    // ends the file; it is never part of the stream.
    char* block = static_cast<char*>(std::calloc(static_cast<size_t>(length) + 1, 1));
    if (!block) {
        std::fclose(file);
        return;
    }
    const size_t got = std::fread(block, 1, static_cast<size_t>(length), file);
    std::fclose(file);
    if (got != static_cast<size_t>(length)) {  // a directory, or a read error: unreadable
        std::free(block);
        return;
    }
    buffer = block;
    current = buffer;
    end = buffer + length;
}

InputStream::~InputStream() { std::free(buffer); }

void InputStream::skipWhitespace() {
    if (!current) return;
    while (current < end) {
        if (*current == '#') {
            ++current;
            while (current < end && *current != '\n') ++current;
            if (current < end) ++current;  // the line feed belongs to the comment
        } else if (isWhite(*current)) {
            ++current;
        } else {
            break;
        }
    }
}

InputStream& InputStream::operator>>(char& c) {
    previous = current;
    skipWhitespace();
    if (!current) return *this;
    c = *current;  // at the end this is the zero byte behind the file
    if (current < end) ++current;
    return *this;
}

InputStream& InputStream::readDelimitedString(ORV::CString& token, const ORV::CString& delimiters) {
    previous = current;
    skipWhitespace();
    if (!current) return *this;
    while (current < end) {
        const char c = *current;
        if (isWhite(c) || c == '#' || stringContains(delimiters, widen(c))) break;
        token += widen(c);
        ++current;
    }
    return *this;
}

// A token read with the delimiter set " " whose text nobody wants: the same steps as
// readDelimitedString, `previous` included, without building the string. Numbers are the bulk
// of every large file, so this keeps their reading free of allocations.
void InputStream::discardToken() {
    previous = current;
    skipWhitespace();
    if (!current) return;
    while (current < end) {
        const char c = *current;
        if (isWhite(c) || c == '#') break;  // the one delimiter, " ", is white space anyway
        ++current;
    }
}

InputStream& InputStream::operator>>(int& value) {
    previous = current;
    skipWhitespace();
    if (!current) return *this;
    // atol takes the longest numeric prefix; the value is cut to 32 bits.
    value = static_cast<int>(static_cast<unsigned int>(std::atol(current)));
    discardToken();
    return *this;
}

InputStream& InputStream::operator>>(double& value) {
    previous = current;
    skipWhitespace();
    if (!current) return *this;
    value = std::atof(current);
    discardToken();
    return *this;
}

InputStream& InputStream::operator>>(ORV::CString& token) {
    previous = current;
    token.Clear();
    return readDelimitedString(token, ORV::CString());
}

InputStream& InputStream::operator>>(bool& value) {
    ORV::CString token;
    *this >> token;
    value = token.IsEqualNoCase(ORV::CString(L"true"));
    return *this;
}

InputStream& InputStream::operator>>(ORV::MATH::CVector3& v) {
    previous = current;
    double x = 0.0, y = 0.0, z = 0.0;
    *this >> x >> y >> z;
    v.Set(x, y, z);
    return *this;
}

InputStream& InputStream::operator>>(ORV::MATH::CRotation& r) {
    previous = current;
    double x = 0.0, y = 0.0, z = 0.0;
    *this >> x >> y >> z;
    r.SetFromXYZAngles(ORV::MATH::CVector3(x, y, z));
    return *this;
}

InputStream& InputStream::operator>>(ORV::MATH::CTransformation& t) {
    ORV::MATH::CRotation rotation;
    ORV::MATH::CVector3 translation;
    *this >> rotation >> translation;
    t.SetRotation(rotation);
    t.SetTranslation(translation);
    return *this;
}

bool InputStream::readLine(ORV::CString& line) {
    previous = current;
    skipWhitespace();
    line.Clear();
    if (!current) return false;
    while (current < end && *current != '\n' && *current != '#') {
        line += widen(*current);
        ++current;
    }
    if (current < end && *current == '#') {
        while (current < end && *current != '\n') ++current;
    }
    return true;
}

bool InputStream::findDelimiters(const ORV::CString& delimiters) {
    previous = current;
    skipWhitespace();
    if (!current) return false;
    while (current < end && !stringContains(delimiters, widen(*current))) ++current;
    return current < end;
}

bool InputStream::stringContains(const ORV::CString& text, wchar_t c) {
    const long n = static_cast<long>(text.Length());
    for (long i = 0; i < n; ++i) {
        if (text[i] == c) return true;
    }
    return false;
}

bool InputStream::isCR() {
    if (!current) return false;
    // The probe looks at the byte behind its read position, so a non-white byte leaves
    // `current` one byte early when it stands right at the start. Readers rely on the next
    // token read skipping the white space again, so the lag stays.
    char held = *current;
    char* r = current;
    for (;;) {
        if (r >= end) return false;
        if (!isWhite(held)) {
            // Never step in front of the block: at its first byte the lag has nowhere to go.
            current = (r > buffer) ? r - 1 : buffer;
            return false;
        }
        held = *r;
        ++r;
        current = r;
        if (held == '\n') return true;
    }
}

void InputStream::resetToPrev() {
    if (previous) current = previous;
}

}  // namespace ZUK
