// The wide string of all logic. A thin value over std::wstring; narrow text converts through
// the C library's multibyte functions, with plain ASCII widened byte for byte so that it is
// exact whatever the locale.
#pragma once

#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>

namespace ORV {

class CValue;
class CStringArray;

class CString {
public:
    CString() = default;
    // A null pointer gives the empty string.
    CString(const wchar_t* s) : m_str(s ? s : L"") {}
    // Narrow text: bytes below 128 widen as they are; other text goes through mbstowcs in the
    // current locale, and where that fails each byte is taken as a Latin-1 code point.
    CString(const char* s) { PutAsciiString(s); }
    CString(const std::wstring& s) : m_str(s) {}
    CString(std::wstring&& s) noexcept : m_str(std::move(s)) {}
    // The text of a value (CValue::GetAsText). A template only so that `CString s = value;`
    // picks CValue's conversion operator without ambiguity; it accepts CValue alone.
    template <class V, std::enable_if_t<std::is_same_v<V, CValue>, int> = 0>
    CString(const V& value) : m_str(TextOfValue(value)) {}

    CString(const CString& o) : m_str(o.m_str) {}
    CString(CString&& o) noexcept : m_str(std::move(o.m_str)) {}

    CString& operator=(const CString& o) {
        if (this != &o) m_str = o.m_str;
        return *this;
    }
    CString& operator=(CString&& o) noexcept {
        m_str = std::move(o.m_str);
        return *this;
    }
    CString& operator=(const wchar_t* s) {
        m_str = s ? s : L"";
        return *this;
    }
    CString& operator=(const char* s) {
        PutAsciiString(s);
        return *this;
    }
    CString& operator=(const std::wstring& s) {
        m_str = s;
        return *this;
    }
    CString& operator=(const CValue& value);

    CString& operator+=(const CString& s) {
        m_str += s.m_str;
        return *this;
    }
    CString& operator+=(const wchar_t* s) {
        if (s) m_str += s;
        return *this;
    }
    CString& operator+=(wchar_t c) {
        m_str += c;
        return *this;
    }
    CString& operator+=(const char* s) { return *this += CString(s); }

    CString operator+(const CString& s) const { return CString(m_str + s.m_str); }
    CString operator+(const wchar_t* s) const { return CString(*this) += s; }
    CString operator+(wchar_t c) const { return CString(*this) += c; }
    CString operator+(const char* s) const { return CString(*this) += s; }

    // Out-of-range reads give L'\0'; an out-of-range write goes to a scratch character that
    // is not part of the string.
    wchar_t operator[](unsigned long i) const noexcept { return i < m_str.size() ? m_str[i] : L'\0'; }
    wchar_t& operator[](unsigned long i) noexcept;

    unsigned long Length() const noexcept { return static_cast<unsigned long>(m_str.size()); }
    bool IsEmpty() const noexcept { return m_str.empty(); }
    void Clear() noexcept { m_str.clear(); }

    // Never null; valid until the string changes.
    const wchar_t* GetWideString() const noexcept { return m_str.c_str(); }
    // A narrow copy (ASCII exact, other characters through wcstombs, '?' where a character
    // has no narrow form). Never null; valid until this string changes or is asked again.
    const char* GetAsciiString() const;
    // Replaces the text by the narrow text s (see the narrow constructor); null empties it.
    void PutAsciiString(const char* s);

    // Compares character by character after towupper.
    bool IsEqualNoCase(const CString& o) const;

    // The pieces between occurrences of separator, empty pieces kept: "a,,b" gives "a", "",
    // "b"; "a," gives "a", "". The empty string gives no piece at all. An empty separator
    // gives the whole string as one piece.
    CStringArray Split(const CString& separator) const;

    // For host code that wants the standard string.
    const std::wstring& std() const noexcept { return m_str; }

    friend bool operator==(const CString& a, const CString& b) noexcept { return a.m_str == b.m_str; }
    friend bool operator!=(const CString& a, const CString& b) noexcept { return a.m_str != b.m_str; }
    friend bool operator==(const CString& a, const wchar_t* b) noexcept { return a.m_str == (b ? b : L""); }
    friend bool operator!=(const CString& a, const wchar_t* b) noexcept { return !(a == b); }
    friend bool operator==(const wchar_t* a, const CString& b) noexcept { return b == a; }
    friend bool operator!=(const wchar_t* a, const CString& b) noexcept { return !(b == a); }
    // Ordinal order of the wide characters, for ordered containers.
    friend bool operator<(const CString& a, const CString& b) noexcept { return a.m_str < b.m_str; }

private:
    static std::wstring TextOfValue(const CValue& value);

    std::wstring m_str;
    mutable std::string m_ascii;
};

inline CString operator+(const wchar_t* a, const CString& b) { return CString(a) += b; }
inline CString operator+(const char* a, const CString& b) { return CString(a) += b; }
inline CString operator+(wchar_t a, const CString& b) {
    CString s;
    s += a;
    return s += b;
}

}  // namespace ORV

// Split's result type, complete for everyone who includes this header.
#include <orv/Arrays.h>
