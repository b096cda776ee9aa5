#include "pipe/pipe_security.h"

#include <new>

#include "platform/sid.h"

namespace ravlo {
namespace {

// The rights are spelled out because they are what a tool shows for the pipe.
constexpr DWORD kUserRights = 0x12019F;    // FILE_GENERIC_READ | FILE_GENERIC_WRITE
constexpr DWORD kSystemRights = 0x1F01FF;  // FILE_ALL_ACCESS
static_assert(kUserRights == (FILE_GENERIC_READ | FILE_GENERIC_WRITE));
static_assert(kSystemRights == FILE_ALL_ACCESS);

/// The list's header and, twice, an allowing entry without the first DWORD of its SID, which the SID's length counts.
constexpr DWORD kAclOverhead = sizeof(ACL) + 2 * (sizeof(ACCESS_ALLOWED_ACE) - sizeof(DWORD));
static_assert(kAclOverhead == 24);

}  // namespace

bool BuildPipeDacl(const std::wstring& authorizedSid, AclBuffer& acl, DWORD& error) noexcept {
    acl.m_bytes.reset();
    if (authorizedSid.empty()) {
        error = ERROR_INVALID_PARAMETER;
        return false;
    }
    LocalSid user;
    error = SidFromText(authorizedSid.c_str(), user);
    if (error != ERROR_SUCCESS) {
        return false;
    }
    SetLastError(ERROR_SUCCESS);
    const WellKnownSid localSystem(WinLocalSystemSid);
    if (localSystem.Get() == nullptr) {
        error = GetLastError();
        return false;
    }
    const DWORD size = GetLengthSid(user.Get()) + GetLengthSid(localSystem.Get()) + kAclOverhead;
    acl.m_bytes.reset(new (std::nothrow) DWORD[size / sizeof(DWORD)]());
    if (!acl.m_bytes) {
        error = ERROR_NOT_ENOUGH_MEMORY;
        return false;
    }
    if (!InitializeAcl(acl.Get(), size, ACL_REVISION) ||
        !AddAccessAllowedAce(acl.Get(), ACL_REVISION, kUserRights, user.Get()) ||
        !AddAccessAllowedAce(acl.Get(), ACL_REVISION, kSystemRights, localSystem.Get())) {
        error = GetLastError();
        acl.m_bytes.reset();
        return false;
    }
    return true;
}

bool PipeSecurity::SetOwner(const std::wstring& ownerSid, DWORD& error) noexcept {
    error = SidFromText(ownerSid.c_str(), m_owner);
    return error == ERROR_SUCCESS;
}

bool PipeSecurity::Assemble(DWORD& error) noexcept {
    error = ERROR_SUCCESS;
    if (!InitializeSecurityDescriptor(&m_descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&m_descriptor, TRUE, m_acl.Get(), FALSE) ||
        !SetSecurityDescriptorOwner(&m_descriptor, m_owner.Get(), FALSE)) {
        error = GetLastError();
        return false;
    }
    m_attributes.nLength = sizeof m_attributes;
    m_attributes.lpSecurityDescriptor = &m_descriptor;
    m_attributes.bInheritHandle = FALSE;
    return true;
}

}  // namespace ravlo
