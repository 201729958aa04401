// The result code of host operations. OK is the only success; every other code is a failure.
#pragma once

namespace ORV {

class CStatus {
public:
    enum Code {
        OK = 0,
        Fail = 1,
        InvalidArgument = 2,
        NotImpl = 3,
        AccessDenied = 4,
        MemberNotFound = 5,
        Unexpected = 6,
        Abort = 7
    };

    constexpr CStatus(Code c = OK) noexcept : m_code(c) {}

    constexpr Code GetCode() const noexcept { return m_code; }
    constexpr bool Succeeded() const noexcept { return m_code == OK; }

    constexpr bool operator==(const CStatus& o) const noexcept { return m_code == o.m_code; }
    constexpr bool operator!=(const CStatus& o) const noexcept { return m_code != o.m_code; }
    constexpr bool operator==(Code c) const noexcept { return m_code == c; }
    constexpr bool operator!=(Code c) const noexcept { return m_code != c; }

private:
    Code m_code;
};

constexpr bool operator==(CStatus::Code c, const CStatus& s) noexcept { return s == c; }
constexpr bool operator!=(CStatus::Code c, const CStatus& s) noexcept { return s != c; }

}  // namespace ORV
