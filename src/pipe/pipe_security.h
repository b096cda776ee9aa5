#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "platform/local_memory.h"

namespace ravlo {

/// Owns an access-control list.
class AclBuffer {
public:
    PACL Get() const noexcept { return reinterpret_cast<PACL>(m_bytes.get()); }

private:
    friend bool BuildPipeDacl(const std::wstring& authorizedSid, AclBuffer& acl, DWORD& error) noexcept;
    std::unique_ptr<DWORD[]> m_bytes;
};

/// Builds the access list of both pipes: read and write for the authorized user, everything for LOCAL SYSTEM, nothing
/// for anybody else, administrators and the serving account included. False leaves an empty buffer and the Win32 error
/// (0 when the failing call left none).
bool BuildPipeDacl(const std::wstring& authorizedSid, AclBuffer& acl, DWORD& error) noexcept;

/// The security of one pipe: descriptor, access list, owner, and the attributes that carry them. Not copyable, because
/// the descriptor points into it; it must outlive the call that creates the pipe.
class PipeSecurity {
public:
    PipeSecurity() noexcept = default;
    PipeSecurity(const PipeSecurity&) = delete;
    PipeSecurity& operator=(const PipeSecurity&) = delete;

    /// Step 1, the access list.
    bool BuildDacl(const std::wstring& authorizedSid, DWORD& error) noexcept {
        return BuildPipeDacl(authorizedSid, m_acl, error);
    }

    /// Step 2, the owner from the text of its SID. `error` is 0 when the conversion left none.
    bool SetOwner(const std::wstring& ownerSid, DWORD& error) noexcept;

    /// Step 3, the descriptor from both.
    bool Assemble(DWORD& error) noexcept;

    /// For CreateNamedPipeW, not inheritable; valid after Assemble.
    SECURITY_ATTRIBUTES* Attributes() noexcept { return &m_attributes; }

private:
    AclBuffer m_acl;
    LocalSid m_owner;
    SECURITY_DESCRIPTOR m_descriptor{};
    SECURITY_ATTRIBUTES m_attributes{};
};

}  // namespace ravlo
