// Base of every object handle. A handle is a light value: copying it copies the reference.
// The host checks the reference on every call, so a handle to a deleted item reports invalid
// and its operations fail cleanly instead of touching freed memory.
#pragma once

#include <orv/CRef.h>

namespace ORV {

class CBase {
public:
    CBase() noexcept = default;

    bool IsValid() const { return m_ref.IsValid(); }
    bool IsA(int classId) const { return m_ref.IsA(classId); }
    int GetClassID() const { return m_ref.GetClassID(); }
    const CRef& GetRef() const noexcept { return m_ref; }

    operator const CRef&() const noexcept { return m_ref; }
    operator CRef&() noexcept { return m_ref; }

    bool operator==(const CBase& o) const noexcept { return m_ref == o.m_ref; }
    bool operator!=(const CBase& o) const noexcept { return m_ref != o.m_ref; }
    bool operator==(const CRef& o) const noexcept { return m_ref == o; }
    bool operator!=(const CRef& o) const noexcept { return m_ref != o; }

protected:
    // Keeps the reference only when it names an item of the wrapper's class.
    void Attach(const CRef& ref, int classId) { m_ref = ref.IsA(classId) ? ref : CRef(); }

    CRef m_ref;
};

}  // namespace ORV

// Declares the two constructors every handle class has: empty (invalid) and from a reference,
// which stays invalid unless the reference names an item of the class.
#define ORV_HANDLE(Class, ClassId)            \
    Class() noexcept = default;               \
    Class(const ::ORV::CRef& ref) { Attach(ref, ClassId); }
