// A variant of the values that travel through parameters, command arguments and operator
// user data.
#pragma once

#include <orv/Arrays.h>
#include <orv/CRef.h>
#include <orv/CStatus.h>
#include <orv/CString.h>
#include <orv/Math.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace ORV {

// The host's value type tags; the numbers are part of the host contract.
enum ovValueType {
    ovEmpty = 0,
    ovInt2 = 2,
    ovInt4 = 3,
    ovFloat = 4,
    ovDouble = 5,
    ovString = 8,
    ovBool = 11,
    ovRef = 13,
    ovUByte = 17,
    ovUInt4 = 19,
    ovInt8 = 20,
    ovPtr = 26,
    ovLPStr = 30,
    ovVector3 = 100,
    ovArray = 8192
};

// Integers of every C++ width arrive as ovInt4; one that does not fit in 32 bits is kept
// whole as ovInt8. ovInt2, ovUByte and ovUInt4 come only from ChangeType. Narrow text
// (const char*) is ovLPStr, wide text ovString.
//
// Conversions read any alternative:
// - to a number (bool, int, long, double, float): numbers convert by value, bool as 0 or 1;
//   double to an integer rounds to nearest (halves away from zero) and saturates, NaN gives
//   0; text is parsed in the C locale ("true"/"false" in any case, else a number; the whole
//   text apart from surrounding blanks must be a number, else 0); a CRef or pointer gives 0
//   as a number and "is it set" as a bool; anything else gives 0 / false.
// - to CString: GetAsText().
// - to CRef: the reference; text is resolved as a scene path (CRef::FromPath); else invalid.
// - to void*: the pointer; else null.
// - to CVector3: the vector; text "x,y,z" (as GetAsText writes it) or an array of three
//   numbers is read; else zero.
class CValue {
public:
    CValue() noexcept = default;
    CValue(const CValue&) = default;
    CValue(CValue&&) noexcept = default;
    CValue& operator=(const CValue&) = default;
    CValue& operator=(CValue&&) noexcept = default;

    CValue(bool v) noexcept : m_t(ovBool), m_v(std::in_place_type<bool>, v) {}
    CValue(int v) noexcept : m_t(ovInt4), m_v(std::in_place_type<long long>, v) {}
    CValue(short v) noexcept : CValue(int(v)) {}
    CValue(unsigned short v) noexcept : CValue(int(v)) {}
    CValue(unsigned int v) noexcept : CValue(IntTag{}, static_cast<long long>(v)) {}
    CValue(long v) noexcept : CValue(IntTag{}, static_cast<long long>(v)) {}
    CValue(long long v) noexcept : CValue(IntTag{}, v) {}
    // Above the largest 64-bit signed integer the value saturates there.
    CValue(unsigned long v) noexcept : CValue(IntTag{}, Saturate(v)) {}
    CValue(unsigned long long v) noexcept : CValue(IntTag{}, Saturate(v)) {}
    CValue(double v) noexcept : m_t(ovDouble), m_v(std::in_place_type<double>, v) {}
    CValue(float v) noexcept : m_t(ovFloat), m_v(std::in_place_type<float>, v) {}
    // A null pointer gives an empty string of that kind.
    CValue(const char* v) : m_t(ovLPStr), m_v(std::in_place_type<std::string>, std::string(v ? v : "")) {}
    CValue(const std::string& v) : m_t(ovLPStr), m_v(std::in_place_type<std::string>, v) {}
    CValue(const wchar_t* v)
        : m_t(ovString), m_v(std::in_place_type<std::wstring>, std::wstring(v ? v : L"")) {}
    CValue(const std::wstring& v) : m_t(ovString), m_v(std::in_place_type<std::wstring>, v) {}
    CValue(const CString& v) : m_t(ovString), m_v(std::in_place_type<std::wstring>, v.std()) {}
    CValue(const CRef& v) noexcept : m_t(ovRef), m_v(std::in_place_type<CRef>, v) {}
    CValue(void* v) noexcept : m_t(ovPtr), m_v(std::in_place_type<void*>, v) {}
    CValue(std::nullptr_t) noexcept : m_t(ovPtr), m_v(std::in_place_type<void*>, nullptr) {}
    CValue(const MATH::CVector3& v) noexcept : m_t(ovVector3), m_v(std::in_place_type<MATH::CVector3>, v) {}
    CValue(const CValueArray& v) : m_t(ovArray), m_v(std::in_place_type<CValueArray>, v) {}
    CValue(CValueArray&& v) noexcept : m_t(ovArray), m_v(std::in_place_type<CValueArray>, std::move(v)) {}
    // Any handle that converts to a CRef (Model, Parameter, ...) is stored as its reference.
    template <class H, std::enable_if_t<!std::is_same_v<std::decay_t<H>, CValue> &&
                                            !std::is_same_v<std::decay_t<H>, CRef> &&
                                            std::is_convertible_v<H&&, const CRef&>,
                                        int> = 0>
    CValue(H&& handle) : CValue(static_cast<const CRef&>(handle)) {}
    // Assignment from any of these goes through the constructors: v = 3; v = L"text"; ...

    ovValueType GetType() const noexcept { return m_t; }
    // True for the empty type tag only (an empty string is not empty here).
    bool IsEmpty() const noexcept { return m_t == ovEmpty; }
    void Clear() noexcept { *this = CValue(); }
    // Converts the value in place to type t (see the conversions above; integer types are
    // range-checked, text must parse). Gives InvalidArgument and leaves the value as it was
    // when it cannot be converted or t is not a type of this list.
    CStatus ChangeType(ovValueType t);

    // The value as text: "" for empty; "true"/"false"; integers in decimal; doubles (and
    // floats) in the shortest "%g"-like text that reads back to the same bits ("0.1", "-0",
    // "1e-300", "inf", "nan"); text as it is; a CRef as its scene path (CRef::GetAsText); a
    // pointer as "0x" and hex digits; a vector as "x,y,z"; an array as its elements' texts
    // joined with ",". Never depends on the locale.
    CString GetAsText() const;

    operator bool() const noexcept;
    operator int() const noexcept;
    operator long() const noexcept;
    operator double() const noexcept;
    operator float() const noexcept;
    operator CString() const { return GetAsText(); }
    operator CRef() const;
    operator void*() const noexcept;
    operator MATH::CVector3() const noexcept;
    // The array in place. A value that is not an array becomes one first: empty gives an
    // empty array, any other value an array of one element holding the old value.
    operator CValueArray&();
    // The array, or (when this is not an array) a shared empty array.
    operator const CValueArray&() const noexcept;

    // Same type and equal value, with two widenings: numbers (bool, the integer types, float,
    // double) compare by numeric value whatever their types (NaN equals nothing), and narrow
    // and wide text compare as text. Arrays compare element by element.
    bool operator==(const CValue& o) const;
    bool operator!=(const CValue& o) const { return !(*this == o); }
    // Shorthands, so that comparing with a plain number, text or reference is never
    // ambiguous: value == 3, value != L"abc".
    template <class T, std::enable_if_t<std::is_arithmetic_v<T>, int> = 0>
    bool operator==(T v) const {
        return *this == CValue(v);
    }
    bool operator==(const char* v) const { return *this == CValue(v); }
    bool operator==(const wchar_t* v) const { return *this == CValue(v); }
    bool operator==(const CString& v) const { return *this == CValue(v); }
    bool operator==(const CRef& v) const { return *this == CValue(v); }
    template <class T>
    bool operator!=(const T& v) const {
        return !(*this == v);
    }

private:
    friend struct CValueAccess;  // the conversion routines of CValue.cpp
    struct IntTag {};
    CValue(IntTag, long long v) noexcept;  // ovInt4 when it fits in 32 bits, else ovInt8
    template <class U>
    static constexpr long long Saturate(U v) noexcept {
        return v > static_cast<U>(0x7fffffffffffffffLL) ? 0x7fffffffffffffffLL : static_cast<long long>(v);
    }

    using Storage = std::variant<std::monostate, bool, long long, double, float, std::string, std::wstring,
                                 CRef, void*, MATH::CVector3, CValueArray>;

    ovValueType m_t = ovEmpty;
    Storage m_v;
};

}  // namespace ORV
