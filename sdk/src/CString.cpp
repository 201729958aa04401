// Narrow/wide conversion, case-insensitive comparison and splitting of ORV::CString.
#include <orv/Arrays.h>
#include <orv/CString.h>

#include <climits>
#include <cstdlib>
#include <cwchar>
#include <cwctype>

namespace ORV {

namespace {

bool IsPlainAscii(const char* s) noexcept {
    for (; *s; ++s)
        if (static_cast<unsigned char>(*s) >= 128) return false;
    return true;
}

}  // namespace

wchar_t& CString::operator[](unsigned long i) noexcept {
    if (i < m_str.size()) return m_str[i];
    static wchar_t scratch = L'\0';
    scratch = L'\0';
    return scratch;
}

void CString::PutAsciiString(const char* s) {
    m_str.clear();
    if (!s) return;
    // ASCII widens byte for byte: exact in every locale.
    if (IsPlainAscii(s)) {
        for (; *s; ++s) m_str += static_cast<wchar_t>(*s);
        return;
    }
    // Other text is multibyte text of the current locale.
    const std::size_t n = std::mbstowcs(nullptr, s, 0);
    if (n != static_cast<std::size_t>(-1)) {
        m_str.resize(n + 1);
        std::mbstowcs(&m_str[0], s, n + 1);
        m_str.resize(n);
        return;
    }
    // Not valid in the locale: keep every byte as the Latin-1 character of the same value
    // rather than lose the text.
    for (; *s; ++s) m_str += static_cast<wchar_t>(static_cast<unsigned char>(*s));
}

const char* CString::GetAsciiString() const {
    m_ascii.clear();
    m_ascii.reserve(m_str.size());
    std::mbstate_t state{};
    char buf[MB_LEN_MAX];
    for (wchar_t c : m_str) {
        if (c >= 0 && c < 128) {
            m_ascii += static_cast<char>(c);
            continue;
        }
        const std::size_t n = std::wcrtomb(buf, c, &state);
        if (n == static_cast<std::size_t>(-1)) {
            m_ascii += '?';
            state = std::mbstate_t{};
        } else {
            m_ascii.append(buf, n);
        }
    }
    return m_ascii.c_str();
}

bool CString::IsEqualNoCase(const CString& o) const {
    if (m_str.size() != o.m_str.size()) return false;
    for (std::size_t i = 0; i < m_str.size(); ++i)
        if (std::towupper(static_cast<std::wint_t>(m_str[i])) !=
            std::towupper(static_cast<std::wint_t>(o.m_str[i])))
            return false;
    return true;
}

CStringArray CString::Split(const CString& separator) const {
    CStringArray pieces;
    if (m_str.empty()) return pieces;
    if (separator.m_str.empty()) {
        pieces.Add(*this);
        return pieces;
    }
    std::size_t from = 0;
    for (;;) {
        const std::size_t at = m_str.find(separator.m_str, from);
        if (at == std::wstring::npos) {
            pieces.Add(CString(m_str.substr(from)));
            return pieces;
        }
        pieces.Add(CString(m_str.substr(from, at - from)));
        from = at + separator.m_str.size();
    }
}

}  // namespace ORV
