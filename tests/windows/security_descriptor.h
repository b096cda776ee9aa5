// A security descriptor taken apart, field by field, and the accounts that a test may pretend to be.
#pragma once

#include "support/import_hooks.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace ravlo::test {

/// The text of a SID; "(none)" without one.
inline std::wstring TextOfSid(PSID sid) {
    LPWSTR text = nullptr;
    if (sid == nullptr || !ConvertSidToStringSidW(sid, &text)) {
        return L"(none)";
    }
    const std::wstring result = text;
    LocalFree(text);
    return result;
}

/// One entry of an access list as "type flags rights sid".
inline std::wstring TextOfAce(PACL acl, DWORD index) {
    void* entry = nullptr;
    if (!GetAce(acl, index, &entry)) {
        return L"(no such entry)";
    }
    auto* const allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    wchar_t text[32];
    swprintf(text, 32, L"%u %u 0x%lX ", allowed->Header.AceType, allowed->Header.AceFlags, allowed->Mask);
    return text + TextOfSid(&allowed->SidStart);
}

/// Every field of a descriptor.
struct DescriptorFields {
    DWORD revision = 0;
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    std::wstring owner;
    std::wstring group;
    bool ownerDefaulted = true;
    bool daclPresent = false;
    bool daclDefaulted = true;
    bool daclIsNull = true;  ///< present and null would let everybody in
    bool saclPresent = true;
    DWORD aclRevision = 0;
    DWORD aclSize = 0;
    std::vector<std::wstring> entries;
};

inline DescriptorFields FieldsOf(PSECURITY_DESCRIPTOR descriptor) {
    DescriptorFields fields;
    PSID owner = nullptr;
    PSID group = nullptr;
    PACL dacl = nullptr;
    PACL sacl = nullptr;
    BOOL ownerDefaulted = FALSE;
    BOOL groupDefaulted = FALSE;
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    BOOL saclPresent = FALSE;
    BOOL saclDefaulted = FALSE;
    if (!IsValidSecurityDescriptor(descriptor) ||
        !GetSecurityDescriptorControl(descriptor, &fields.control, &fields.revision) ||
        !GetSecurityDescriptorOwner(descriptor, &owner, &ownerDefaulted) ||
        !GetSecurityDescriptorGroup(descriptor, &group, &groupDefaulted) ||
        !GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted) ||
        !GetSecurityDescriptorSacl(descriptor, &saclPresent, &sacl, &saclDefaulted)) {
        throw std::runtime_error("the descriptor cannot be read, error " + std::to_string(GetLastError()));
    }
    fields.owner = TextOfSid(owner);
    fields.group = TextOfSid(group);
    fields.ownerDefaulted = ownerDefaulted != FALSE;
    fields.daclPresent = present != FALSE;
    fields.daclDefaulted = present != FALSE && defaulted != FALSE;
    fields.daclIsNull = dacl == nullptr;
    fields.saclPresent = saclPresent != FALSE;
    if (present != FALSE && dacl != nullptr) {
        fields.aclRevision = dacl->AclRevision;
        fields.aclSize = dacl->AclSize;
        for (DWORD i = 0; i < dacl->AceCount; ++i) {
            fields.entries.push_back(TextOfAce(dacl, i));
        }
    }
    return fields;
}

/// The same of an open pipe, as the system reports it through either end.
inline DescriptorFields FieldsOfPipe(HANDLE pipe) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const DWORD error = GetSecurityInfo(
        pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
        nullptr, nullptr, nullptr, nullptr, &descriptor);
    if (error != ERROR_SUCCESS) {
        throw std::runtime_error("the pipe's security cannot be read, error " + std::to_string(error));
    }
    const DescriptorFields fields = FieldsOf(descriptor);
    LocalFree(descriptor);
    return fields;
}

using TokenHook = RAVLO_HOOK(GetTokenInformation);

/// From now on every process token of the hooked module belongs to `user`, such as S-1-5-19 for the camera service. The
/// text must be no longer a SID than that of the real user, whose place it takes.
inline void PretendToRunAs(TokenHook& tokens, const std::wstring& user) {
    tokens.Replace([user](HANDLE token, TOKEN_INFORMATION_CLASS kind, LPVOID data, DWORD size, PDWORD needed) -> BOOL {
        if (!TokenHook::CallOriginal(token, kind, data, size, needed)) {
            return FALSE;
        }
        PSID sid = nullptr;
        if (kind == TokenUser && ConvertStringSidToSidW(user.c_str(), &sid)) {
            const PSID real = static_cast<TOKEN_USER*>(data)->User.Sid;
            const BOOL copied = CopySid(GetLengthSid(real), real, sid);
            LocalFree(sid);
            return copied;
        }
        return TRUE;
    });
}

}  // namespace ravlo::test
