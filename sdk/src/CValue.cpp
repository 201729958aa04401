// Conversions, text form and comparison of ORV::CValue.
#include <orv/CValue.h>

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cwctype>
#include <limits>

namespace ORV {

// A number read from a value: an integer, a real, or nothing.
struct Number {
    enum Kind { None, Int, Real } kind = None;
    long long i = 0;
    double d = 0.0;

    double AsDouble() const noexcept {
        return kind == Int ? static_cast<double>(i) : (kind == Real ? d : 0.0);
    }
};

struct CValueAccess {
    static bool IsNumeric(ovValueType t) noexcept {
        switch (t) {
            case ovBool:
            case ovInt2:
            case ovInt4:
            case ovUByte:
            case ovUInt4:
            case ovInt8:
            case ovFloat:
            case ovDouble:
                return true;
            default:
                return false;
        }
    }
    static bool IsText(ovValueType t) noexcept { return t == ovString || t == ovLPStr; }

    // The value's text as a wide string (text alternatives only).
    static std::wstring WideText(const CValue& v) {
        if (v.m_t == ovString) return std::get<std::wstring>(v.m_v);
        if (v.m_t == ovLPStr) return CString(std::get<std::string>(v.m_v).c_str()).std();
        return std::wstring();
    }

    static Number ParseNumber(const std::wstring& text) noexcept;
    static Number ToNumber(const CValue& v) noexcept;
    static bool ParseVector(const std::wstring& text, MATH::CVector3& out) noexcept;
};

namespace {

bool IsBlank(wchar_t c) noexcept { return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n'; }

bool EqualsNoCaseAscii(const std::string& a, const char* b) noexcept {
    std::size_t i = 0;
    for (; i < a.size() && b[i]; ++i) {
        char c = a[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != b[i]) return false;
    }
    return i == a.size() && b[i] == '\0';
}

// Rounds to nearest (halves away from zero) and saturates into [lo, hi]; NaN gives 0.
long long RoundToInteger(double d, long long lo, long long hi) noexcept {
    if (std::isnan(d)) return 0;
    const double r = std::round(d);
    if (r <= static_cast<double>(lo)) return lo;
    if (r >= static_cast<double>(hi)) return hi;
    return static_cast<long long>(r);
}

long long Clamp(long long v, long long lo, long long hi) noexcept { return v < lo ? lo : (v > hi ? hi : v); }

long long NumberToInteger(const Number& n, long long lo, long long hi) noexcept {
    if (n.kind == Number::Int) return Clamp(n.i, lo, hi);
    if (n.kind == Number::Real) return RoundToInteger(n.d, lo, hi);
    return 0;
}

// The shortest "%g"-style text of d that reads back to the same double.
std::string DoubleText(double d) {
    if (std::isnan(d)) return "nan";
    if (std::isinf(d)) return d < 0 ? "-inf" : "inf";
    char buf[64];
    for (int precision = 15; precision <= 17; ++precision) {
        const auto res = std::to_chars(buf, buf + sizeof buf, d, std::chars_format::general, precision);
        double back = 0.0;
        std::from_chars(buf, res.ptr, back);
        if (back == d || precision == 17) return std::string(buf, res.ptr);
    }
    return std::string();
}

std::string FloatText(float f) {
    if (std::isnan(f)) return "nan";
    if (std::isinf(f)) return f < 0 ? "-inf" : "inf";
    char buf[64];
    for (int precision = 6; precision <= 9; ++precision) {
        const auto res = std::to_chars(buf, buf + sizeof buf, f, std::chars_format::general, precision);
        float back = 0.0f;
        std::from_chars(buf, res.ptr, back);
        if (back == f || precision == 9) return std::string(buf, res.ptr);
    }
    return std::string();
}

std::wstring Widen(const std::string& ascii) { return std::wstring(ascii.begin(), ascii.end()); }

// Integer value and real value equal exactly?
bool IntEqualsReal(long long i, double d) noexcept {
    if (!(d == std::trunc(d))) return false;  // also false for NaN and infinities
    if (d < -9223372036854775808.0 || d >= 9223372036854775808.0) return false;
    return static_cast<long long>(d) == i;
}

}  // namespace

Number CValueAccess::ParseNumber(const std::wstring& text) noexcept {
    Number n;
    std::size_t b = 0, e = text.size();
    while (b < e && IsBlank(text[b])) ++b;
    while (e > b && IsBlank(text[e - 1])) --e;
    if (b == e || e - b > 400) return n;
    // Numbers are ASCII; anything else is not a number.
    std::string s;
    s.reserve(e - b);
    for (std::size_t k = b; k < e; ++k) {
        if (text[k] <= 0 || text[k] >= 128) return n;
        s += static_cast<char>(text[k]);
    }
    if (EqualsNoCaseAscii(s, "true") || EqualsNoCaseAscii(s, "false")) {
        n.kind = Number::Int;
        n.i = EqualsNoCaseAscii(s, "true") ? 1 : 0;
        return n;
    }
    const char* first = s.data();
    const char* last = s.data() + s.size();
    // from_chars takes no leading '+'.
    if (*first == '+' && last - first > 1 && first[1] != '-' && first[1] != '+') ++first;
    long long i = 0;
    const auto ri = std::from_chars(first, last, i);
    if (ri.ec == std::errc() && ri.ptr == last) {
        if (i == 0 && *first == '-') {
            // "-0" is the text of the negative zero double; keep its sign.
            n.kind = Number::Real;
            n.d = -0.0;
            return n;
        }
        n.kind = Number::Int;
        n.i = i;
        return n;
    }
    double d = 0.0;
    const auto rd = std::from_chars(first, last, d, std::chars_format::general);
    if (rd.ptr == last && (rd.ec == std::errc() || rd.ec == std::errc::result_out_of_range)) {
        if (rd.ec == std::errc::result_out_of_range) {
            // Too large gives an infinity, too small a zero, with the sign of the text.
            const bool negative = *first == '-';
            const char* exp = first;
            while (exp < last && *exp != 'e' && *exp != 'E') ++exp;
            const bool tiny = exp < last && exp + 1 < last && exp[1] == '-';
            d = tiny ? (negative ? -0.0 : 0.0)
                     : (negative ? -std::numeric_limits<double>::infinity()
                                 : std::numeric_limits<double>::infinity());
        }
        n.kind = Number::Real;
        n.d = d;
    }
    return n;
}

Number CValueAccess::ToNumber(const CValue& v) noexcept {
    Number n;
    switch (v.m_t) {
        case ovBool:
            n.kind = Number::Int;
            n.i = std::get<bool>(v.m_v) ? 1 : 0;
            break;
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
        case ovInt8:
            n.kind = Number::Int;
            n.i = std::get<long long>(v.m_v);
            break;
        case ovDouble:
            n.kind = Number::Real;
            n.d = std::get<double>(v.m_v);
            break;
        case ovFloat:
            n.kind = Number::Real;
            n.d = static_cast<double>(std::get<float>(v.m_v));
            break;
        case ovString:
        case ovLPStr:
            return ParseNumber(WideText(v));
        default:
            break;
    }
    return n;
}

bool CValueAccess::ParseVector(const std::wstring& text, MATH::CVector3& out) noexcept {
    const CStringArray parts = CString(text).Split(L",");
    if (parts.GetCount() != 3) return false;
    double c[3];
    for (long k = 0; k < 3; ++k) {
        const Number n = ParseNumber(parts[k].std());
        if (n.kind == Number::None) return false;
        c[k] = n.AsDouble();
    }
    out.Set(c[0], c[1], c[2]);
    return true;
}

CValue::CValue(IntTag, long long v) noexcept
    : m_t(v >= INT_MIN && v <= INT_MAX ? ovInt4 : ovInt8), m_v(std::in_place_type<long long>, v) {}

CString CValue::GetAsText() const {
    switch (m_t) {
        case ovEmpty:
            return CString();
        case ovBool:
            return CString(std::get<bool>(m_v) ? L"true" : L"false");
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
        case ovInt8:
            return CString(std::to_wstring(std::get<long long>(m_v)));
        case ovDouble:
            return CString(Widen(DoubleText(std::get<double>(m_v))));
        case ovFloat:
            return CString(Widen(FloatText(std::get<float>(m_v))));
        case ovString:
            return CString(std::get<std::wstring>(m_v));
        case ovLPStr:
            return CString(std::get<std::string>(m_v).c_str());
        case ovRef:
            return std::get<CRef>(m_v).GetAsText();
        case ovPtr: {
            char buf[32];
            std::snprintf(
                buf, sizeof buf, "0x%llx",
                static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(std::get<void*>(m_v))));
            return CString(buf);
        }
        case ovVector3: {
            const MATH::CVector3& v = std::get<MATH::CVector3>(m_v);
            return CString(Widen(DoubleText(v.x) + "," + DoubleText(v.y) + "," + DoubleText(v.z)));
        }
        case ovArray: {
            const CValueArray& a = std::get<CValueArray>(m_v);
            CString text;
            for (long k = 0; k < a.GetCount(); ++k) {
                if (k) text += L',';
                text += a[k].GetAsText();
            }
            return text;
        }
        default:
            return CString();
    }
}

CValue::operator bool() const noexcept {
    switch (m_t) {
        case ovRef:
            return std::get<CRef>(m_v).GetId() != 0;
        case ovPtr:
            return std::get<void*>(m_v) != nullptr;
        default: {
            const Number n = CValueAccess::ToNumber(*this);
            return n.kind == Number::Int ? n.i != 0 : (n.kind == Number::Real ? n.d != 0.0 : false);
        }
    }
}

CValue::operator int() const noexcept {
    return static_cast<int>(NumberToInteger(CValueAccess::ToNumber(*this), INT_MIN, INT_MAX));
}

CValue::operator long() const noexcept {
    return static_cast<long>(NumberToInteger(CValueAccess::ToNumber(*this), LONG_MIN, LONG_MAX));
}

CValue::operator double() const noexcept { return CValueAccess::ToNumber(*this).AsDouble(); }

CValue::operator float() const noexcept {
    if (m_t == ovFloat) return std::get<float>(m_v);
    return static_cast<float>(CValueAccess::ToNumber(*this).AsDouble());
}

CValue::operator CRef() const {
    if (m_t == ovRef) return std::get<CRef>(m_v);
    if (CValueAccess::IsText(m_t)) {
        const std::wstring path = CValueAccess::WideText(*this);
        if (!path.empty()) return CRef::FromPath(CString(path));
    }
    return CRef();
}

CValue::operator void*() const noexcept { return m_t == ovPtr ? std::get<void*>(m_v) : nullptr; }

CValue::operator MATH::CVector3() const noexcept {
    MATH::CVector3 v;
    if (m_t == ovVector3) return std::get<MATH::CVector3>(m_v);
    if (CValueAccess::IsText(m_t)) {
        if (!CValueAccess::ParseVector(CValueAccess::WideText(*this), v)) v.SetNull();
    } else if (m_t == ovArray) {
        const CValueArray& a = std::get<CValueArray>(m_v);
        if (a.GetCount() == 3) v.Set(a[0], a[1], a[2]);
    }
    return v;
}

CValue::operator CValueArray&() {
    if (m_t != ovArray) {
        CValueArray a;
        if (m_t != ovEmpty) a.Add(std::move(*this));
        m_v.emplace<CValueArray>(std::move(a));
        m_t = ovArray;
    }
    return std::get<CValueArray>(m_v);
}

CValue::operator const CValueArray&() const noexcept {
    if (m_t == ovArray) return std::get<CValueArray>(m_v);
    static const CValueArray none;
    return none;
}

bool CValue::operator==(const CValue& o) const {
    if (CValueAccess::IsNumeric(m_t) && CValueAccess::IsNumeric(o.m_t)) {
        const Number a = CValueAccess::ToNumber(*this);
        const Number b = CValueAccess::ToNumber(o);
        if (a.kind == Number::Int && b.kind == Number::Int) return a.i == b.i;
        if (a.kind == Number::Int) return IntEqualsReal(a.i, b.d);
        if (b.kind == Number::Int) return IntEqualsReal(b.i, a.d);
        return a.d == b.d;
    }
    if (CValueAccess::IsText(m_t) && CValueAccess::IsText(o.m_t)) {
        if (m_t == o.m_t) return m_v == o.m_v;
        return CValueAccess::WideText(*this) == CValueAccess::WideText(o);
    }
    if (m_t != o.m_t) return false;
    switch (m_t) {
        case ovEmpty:
            return true;
        case ovRef:
            return std::get<CRef>(m_v) == std::get<CRef>(o.m_v);
        case ovPtr:
            return std::get<void*>(m_v) == std::get<void*>(o.m_v);
        case ovVector3:
            return std::get<MATH::CVector3>(m_v) == std::get<MATH::CVector3>(o.m_v);
        case ovArray:
            return std::get<CValueArray>(m_v) == std::get<CValueArray>(o.m_v);
        default:
            return false;
    }
}

CStatus CValue::ChangeType(ovValueType t) {
    if (t == m_t) return CStatus::OK;
    switch (t) {
        case ovEmpty:
            Clear();
            return CStatus::OK;
        case ovBool: {
            if (m_t == ovRef || m_t == ovPtr) break;
            const Number n = CValueAccess::ToNumber(*this);
            if (n.kind == Number::None) break;
            *this = CValue(n.kind == Number::Int ? n.i != 0 : n.d != 0.0);
            return CStatus::OK;
        }
        case ovInt2:
        case ovInt4:
        case ovUByte:
        case ovUInt4:
        case ovInt8: {
            const Number n = CValueAccess::ToNumber(*this);
            long long i = 0;
            if (n.kind == Number::Int) {
                i = n.i;
            } else if (n.kind == Number::Real && std::isfinite(n.d) && std::fabs(n.d) < 9.2e18) {
                i = static_cast<long long>(std::round(n.d));
            } else {
                break;
            }
            const long long lo =
                t == ovInt2 ? SHRT_MIN : (t == ovInt4 ? INT_MIN : (t == ovInt8 ? LLONG_MIN : 0));
            const long long hi =
                t == ovInt2
                    ? SHRT_MAX
                    : (t == ovInt4 ? INT_MAX
                                   : (t == ovUByte ? UCHAR_MAX : (t == ovUInt4 ? UINT_MAX : LLONG_MAX)));
            if (i < lo || i > hi) break;
            m_v.emplace<long long>(i);
            m_t = t;
            return CStatus::OK;
        }
        case ovDouble:
        case ovFloat: {
            const Number n = CValueAccess::ToNumber(*this);
            if (n.kind == Number::None) break;
            const double d = n.AsDouble();
            if (t == ovDouble) {
                *this = CValue(d);
            } else {
                if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max()) break;
                *this = CValue(static_cast<float>(d));
            }
            return CStatus::OK;
        }
        case ovString:
            *this = CValue(GetAsText());
            return CStatus::OK;
        case ovLPStr:
            *this = CValue(GetAsText().GetAsciiString());
            return CStatus::OK;
        case ovRef: {
            if (!CValueAccess::IsText(m_t)) break;
            const CRef r = *this;
            if (r.GetId() == 0) break;
            *this = CValue(r);
            return CStatus::OK;
        }
        case ovVector3: {
            MATH::CVector3 v;
            if (CValueAccess::IsText(m_t)) {
                if (!CValueAccess::ParseVector(CValueAccess::WideText(*this), v)) break;
            } else if (m_t == ovArray) {
                const CValueArray& a = std::get<CValueArray>(m_v);
                if (a.GetCount() != 3) break;
                if (CValueAccess::ToNumber(a[0]).kind == Number::None ||
                    CValueAccess::ToNumber(a[1]).kind == Number::None ||
                    CValueAccess::ToNumber(a[2]).kind == Number::None)
                    break;
                v.Set(a[0], a[1], a[2]);
            } else {
                break;
            }
            *this = CValue(v);
            return CStatus::OK;
        }
        case ovArray:
            static_cast<void>(static_cast<CValueArray&>(*this));
            return CStatus::OK;
        default:
            break;
    }
    return CStatus::InvalidArgument;
}

// CString's members that need CValue.
std::wstring CString::TextOfValue(const CValue& value) { return value.GetAsText().std(); }

CString& CString::operator=(const CValue& value) {
    m_str = value.GetAsText().std();
    return *this;
}

}  // namespace ORV
