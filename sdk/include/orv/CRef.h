// A reference to any item of the host's scene: object, property, parameter, curve, operator...
// A CRef is a plain value (a slot and a generation); the host resolves it on every use, so a
// reference to a deleted item simply stops resolving instead of dangling.
#pragma once

#include <cstdint>

namespace ORV {

class CString;

class CRef {
public:
    CRef() noexcept = default;

    // Host side: builds a reference from its slot id. Id 0 is the invalid reference.
    static CRef FromId(std::uint64_t id) noexcept {
        CRef r;
        r.m_id = id;
        return r;
    }
    std::uint64_t GetId() const noexcept { return m_id; }

    // True when the item exists in the host and is of (or derives from) that class id.
    bool IsA(int classId) const;
    // The host's class id of the item, 0 when it does not resolve.
    int GetClassID() const;
    // True while the item exists.
    bool IsValid() const;
    // The full scene path of the item ("Model.Obj.kine.local.posx"); empty when invalid.
    CString GetAsText() const;
    // Resolves a scene path (as GetAsText gives it) to a reference; invalid when nothing matches.
    static CRef FromPath(const CString& path);

    bool operator==(const CRef& o) const noexcept { return m_id == o.m_id; }
    bool operator!=(const CRef& o) const noexcept { return m_id != o.m_id; }

private:
    std::uint64_t m_id = 0;
};

}  // namespace ORV
