// The SDK's dense arrays: CValueArray, CRefArray, CStringArray, CLongArray, CDoubleArray and
// CTimeArray (the vector arrays live in Math.h).
#pragma once

#include <orv/CRef.h>
#include <orv/CString.h>
#include <orv/CTime.h>

#include <cstddef>
#include <vector>

namespace ORV {

class CValue;

// A growable array of plain values, indexed by long. Out-of-range reads give a default
// element and out-of-range writes go to a scratch element that is not part of the array, so
// a bad index never touches memory it does not own. A negative size counts as 0.
template <class T>
class TArray {
public:
    TArray() = default;
    explicit TArray(long n) : m_items(Size(n)) {}

    long GetCount() const noexcept { return static_cast<long>(m_items.size()); }
    const T& operator[](long i) const noexcept {
        if (i >= 0 && i < GetCount()) return m_items[static_cast<std::size_t>(i)];
        static const T outside{};
        return outside;
    }
    T& operator[](long i) noexcept {
        if (i >= 0 && i < GetCount()) return m_items[static_cast<std::size_t>(i)];
        static T scratch{};
        scratch = T{};
        return scratch;
    }
    void Add(const T& v) { m_items.push_back(v); }
    void Add(T&& v) { m_items.push_back(static_cast<T&&>(v)); }
    // Keeps the first n elements; new elements are default ones.
    void Resize(long n) { m_items.resize(Size(n)); }
    void Clear() noexcept { m_items.clear(); }
    T* GetArray() noexcept { return m_items.data(); }
    const T* GetArray() const noexcept { return m_items.data(); }

    // Element by element.
    bool operator==(const TArray& o) const { return m_items == o.m_items; }
    bool operator!=(const TArray& o) const { return !(*this == o); }

    // Iteration for host code: for (const T& v : array).
    typename std::vector<T>::iterator begin() noexcept { return m_items.begin(); }
    typename std::vector<T>::iterator end() noexcept { return m_items.end(); }
    typename std::vector<T>::const_iterator begin() const noexcept { return m_items.begin(); }
    typename std::vector<T>::const_iterator end() const noexcept { return m_items.end(); }

protected:
    static std::size_t Size(long n) noexcept { return n > 0 ? static_cast<std::size_t>(n) : 0; }

    std::vector<T> m_items;
};

// Values of any type; the argument list of commands.
class CValueArray : public TArray<CValue> {
public:
    using TArray<CValue>::TArray;
};

class CRefArray : public TArray<CRef> {
public:
    using TArray<CRef>::TArray;

    // The reference at index; invalid when out of range.
    CRef GetItem(long index) const noexcept { return (*this)[index]; }
    // The item whose name is name (resolved by the host); invalid when none.
    CRef GetItem(const CString& name) const;
    // The index of r, or -1.
    long Find(const CRef& r) const noexcept {
        for (long i = 0; i < GetCount(); ++i)
            if ((*this)[i] == r) return i;
        return -1;
    }
};

class CStringArray : public TArray<CString> {
public:
    using TArray<CString>::TArray;
};

class CLongArray : public TArray<long> {
public:
    using TArray<long>::TArray;
};

class CDoubleArray : public TArray<double> {
public:
    using TArray<double>::TArray;
};

class CTimeArray : public TArray<CTime> {
public:
    using TArray<CTime>::TArray;
};

}  // namespace ORV

// CValueArray's elements, complete for everyone who includes this header.
#include <orv/CValue.h>
