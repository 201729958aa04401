#include "CliValues.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cwctype>

#include "HostTesting.h"

namespace trovo {

namespace {

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

std::wstring LowerW(std::wstring s) {
    for (wchar_t& c : s) c = static_cast<wchar_t>(std::towlower(c));
    return s;
}

bool EndsWith(const std::wstring& s, const std::wstring& tail) {
    return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

// "007" or "-01.5" would not read back as typed; such text is a name, not a number.
bool HasLeadingZero(const std::string& t) {
    const std::size_t i = (t[0] == '-' || t[0] == '+') ? 1 : 0;
    return i + 1 < t.size() && t[i] == '0' && std::isdigit(static_cast<unsigned char>(t[i + 1]));
}

bool IsWholeNumber(const std::string& t) {
    std::size_t i = (t[0] == '-' || t[0] == '+') ? 1 : 0;
    if (i >= t.size()) return false;
    for (; i < t.size(); ++i)
        if (!std::isdigit(static_cast<unsigned char>(t[i]))) return false;
    return true;
}

// Digits, an optional point and exponent: what a person types as a decimal number. Words such
// as "inf" or "nan" stay text.
bool IsDecimalNumber(const std::string& t) {
    bool digit = false;
    for (char c : t) {
        if (std::isdigit(static_cast<unsigned char>(c)))
            digit = true;
        else if (c != '.' && c != '-' && c != '+' && c != 'e' && c != 'E')
            return false;
    }
    if (!digit) return false;
    // strtod follows the C locale here: trovo sets only the character type from the
    // environment.
    char* end = nullptr;
    std::strtod(t.c_str(), &end);
    return end && *end == '\0';
}

}  // namespace

std::string Narrow(const std::wstring& text) { return ORV::CString(text).GetAsciiString(); }

std::wstring Widen(const std::string& text) { return ORV::CString(text.c_str()).GetWideString(); }

ORV::CValue ValueFromText(const std::string& text) {
    if (text.empty()) return ORV::CValue(ORV::CString());
    const std::string l = Lower(text);
    if (l == "true") return ORV::CValue(true);
    if (l == "false") return ORV::CValue(false);
    if (HasLeadingZero(text)) return ORV::CValue(ORV::CString(Widen(text)));
    if (IsWholeNumber(text)) {
        errno = 0;
        const long long v = std::strtoll(text.c_str(), nullptr, 10);
        if (errno == 0 && v >= INT_MIN && v <= INT_MAX) return ORV::CValue(static_cast<int>(v));
        if (errno == 0) return ORV::CValue(v);
    }
    if (IsDecimalNumber(text)) return ORV::CValue(std::strtod(text.c_str(), nullptr));
    return ORV::CValue(ORV::CString(Widen(text)));
}

bool IsModelArgument(const std::wstring& name) {
    const std::wstring l = LowerW(name);
    return EndsWith(l, L"model") || EndsWith(l, L"_rig");
}

ORV::CRef FindObject(const std::wstring& name) {
    if (name.empty()) return ORV::CRef();
    for (orvhost::Object3D* child : orvhost::Root()->children)
        if (child->IsModel() && child->name == name) return child->Ref();
    orvhost::Item* it = orvhost::FindByPath(name);
    return it ? it->Ref() : ORV::CRef();
}

bool BuildArguments(const std::wstring& command, const std::vector<std::wstring>& declared,
                    const std::vector<std::string>& texts, ORV::CValueArray& args, std::string& error) {
    const std::size_t n = declared.size();
    std::vector<bool> given(n, false);
    std::vector<std::string> values(n);
    std::size_t next = 0;
    for (const std::string& text : texts) {
        // name=value when the name is one of the declared ones; otherwise the text is a value.
        std::size_t slot = n;
        std::string value = text;
        const std::size_t eq = text.find('=');
        if (eq != std::string::npos) {
            const std::wstring name = Widen(text.substr(0, eq));
            for (std::size_t i = 0; i < n && slot == n; ++i)
                if (declared[i] == name) slot = i;
            for (std::size_t i = 0; i < n && slot == n; ++i)
                if (LowerW(declared[i]) == LowerW(name)) slot = i;
            if (slot != n) value = text.substr(eq + 1);
        }
        if (slot == n) {
            while (next < n && given[next]) ++next;
            slot = next;
        }
        if (slot >= n) {
            std::string names;
            for (const std::wstring& d : declared) names += (names.empty() ? "" : " ") + Narrow(d);
            error = "\"" + Narrow(command) + "\" takes " + std::to_string(n) + " argument" +
                    (n == 1 ? "" : "s") + (n ? " (" + names + ")" : std::string()) + "; " +
                    std::to_string(texts.size()) + (texts.size() == 1 ? " was" : " were") + " given";
            return false;
        }
        if (given[slot]) {
            error = "the argument \"" + Narrow(declared[slot]) + "\" is given twice";
            return false;
        }
        given[slot] = true;
        values[slot] = value;
    }

    // Arguments after the last one given stay out, so that the command sees exactly what a
    // script that left them out would pass.
    std::size_t last = 0;
    for (std::size_t i = 0; i < n; ++i)
        if (given[i]) last = i + 1;
    args.Clear();
    for (std::size_t i = 0; i < last; ++i) {
        if (!given[i]) {
            args.Add(ORV::CValue());
            continue;
        }
        const std::string& text = values[i];
        if (text.empty() && IsModelArgument(declared[i])) {
            args.Add(ORV::CValue());  // "targetmodel=" names no model: the argument is missing
            continue;
        }
        const bool byName = !text.empty() && text[0] == '@';
        if (byName || (IsModelArgument(declared[i]) && !text.empty())) {
            const std::wstring name = Widen(byName ? text.substr(1) : text);
            ORV::CRef ref = FindObject(name);
            if (!ref.IsValid()) {
                error = "the argument \"" + Narrow(declared[i]) + "\" names no object: \"" + Narrow(name) +
                        "\" is neither a model of the scene nor a scene path";
                return false;
            }
            if (!byName && !ref.IsA(ORV::ovModelID)) {
                error = "the argument \"" + Narrow(declared[i]) + "\" takes a model, and \"" + Narrow(name) +
                        "\" is not one";
                return false;
            }
            args.Add(ORV::CValue(ref));
            continue;
        }
        args.Add(ValueFromText(text));
    }
    return true;
}

}  // namespace trovo
