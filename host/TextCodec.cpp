#include "TextCodec.h"

namespace orvhost {

std::string Utf8(const std::wstring& w) {
    std::string out;
    for (wchar_t wc : w) {
        unsigned long c = static_cast<unsigned long>(wc);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

std::wstring Wide(const std::string& s) {
    std::wstring out;
    for (std::size_t i = 0; i < s.size();) {
        const unsigned char b = static_cast<unsigned char>(s[i]);
        int extra = b < 0x80 ? 0 : (b >> 5) == 6 ? 1 : (b >> 4) == 14 ? 2 : (b >> 3) == 30 ? 3 : -1;
        if (extra < 0 || i + static_cast<std::size_t>(extra) >= s.size() + (extra == 0 ? 1 : 0)) {
            out += static_cast<wchar_t>(0xFFFD);
            ++i;
            continue;
        }
        unsigned long c = extra == 0 ? b : (b & (0x3F >> extra));
        for (int k = 1; k <= extra; ++k) c = (c << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
        out += static_cast<wchar_t>(c);
        i += static_cast<std::size_t>(extra) + 1;
    }
    return out;
}

}  // namespace orvhost
