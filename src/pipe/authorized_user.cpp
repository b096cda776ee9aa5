#include "pipe/authorized_user.h"

#include <aclapi.h>
#include <sddl.h>

#include <utility>
#include <vector>

#include "platform/registry_key.h"
#include "platform/registry_names.h"
#include "platform/sid.h"

namespace ravlo {
namespace {

/// Longest anchor value in bytes; a SID's text needs fewer than 400.
constexpr DWORD kMaxAnchorBytes = 1024;

AnchorReason ReadAnchorText(std::wstring& text) {
    RegistryKey key;
    // The 64-bit view by name, so that a 32-bit reader of the same anchor sees the same value.
    LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAnchorKeyName, 0, KEY_READ | KEY_WOW64_64KEY, key.Put());
    if (status != ERROR_SUCCESS) {
        return status == ERROR_FILE_NOT_FOUND ? AnchorReason::Absent : AnchorReason::ReadFailed;
    }
    DWORD type = REG_NONE;
    DWORD size = 0;
    status = RegQueryValueExW(key.Get(), kAnchorValueName, nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS) {
        return status == ERROR_FILE_NOT_FOUND ? AnchorReason::Absent : AnchorReason::ReadFailed;
    }
    if (type != REG_SZ) {
        return AnchorReason::WrongType;
    }
    if (size == 0) {
        return AnchorReason::Malformed;
    }
    if (size > kMaxAnchorBytes) {
        return AnchorReason::TooLarge;
    }
    // Two characters more than the value: one that the read may fill, for a value that grew a terminator meanwhile, and
    // one that it may not, because the registry stores whatever it was given and promises no terminator.
    std::vector<wchar_t> buffer(size / sizeof(wchar_t) + 2, L'\0');
    size = static_cast<DWORD>((buffer.size() - 1) * sizeof(wchar_t));
    status =
        RegQueryValueExW(key.Get(), kAnchorValueName, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()), &size);
    if (status != ERROR_SUCCESS) {
        return AnchorReason::ReadFailed;
    }
    if (type != REG_SZ) {
        return AnchorReason::WrongType;
    }
    buffer.back() = L'\0';
    text = buffer.data();
    return AnchorReason::Ok;
}

AnchorReason ReadAndVetAnchor(std::wstring& sidString) {
    std::wstring text;
    const AnchorReason reason = ReadAnchorText(text);
    if (reason != AnchorReason::Ok) {
        return reason;
    }
    if (!LooksLikeSidString(text)) {
        return AnchorReason::Malformed;
    }
    if (IsGroupOrBuiltinSid(text)) {
        return AnchorReason::NotAUser;
    }
    sidString = std::move(text);
    return AnchorReason::Ok;
}

bool IsBuiltinAlias(PSID sid) noexcept {
    constexpr BYTE kNtAuthority[6] = {0, 0, 0, 0, 0, 5};
    const SID_IDENTIFIER_AUTHORITY* const authority = GetSidIdentifierAuthority(sid);
    for (std::size_t i = 0; i < sizeof kNtAuthority; ++i) {
        if (authority->Value[i] != kNtAuthority[i]) {
            return false;
        }
    }
    return *GetSidSubAuthorityCount(sid) > 0 && *GetSidSubAuthority(sid, 0) == SECURITY_BUILTIN_DOMAIN_RID;
}

}  // namespace

AnchorReason ReadAuthorizedUserAnchor(std::wstring& sidString) noexcept {
    sidString.clear();
    try {
        return ReadAndVetAnchor(sidString);
    } catch (...) {
        sidString.clear();
        return AnchorReason::ReadFailed;
    }
}

bool LooksLikeSidString(const std::wstring& text) noexcept {
    if (text.size() < 3 || (text[0] != L'S' && text[0] != L's') || text[1] != L'-') {
        return false;
    }
    LocalSid sid;
    return SidFromText(text.c_str(), sid) == ERROR_SUCCESS;
}

bool IsGroupOrBuiltinSid(const std::wstring& sidString) noexcept {
    static constexpr WELL_KNOWN_SID_TYPE kRefused[] = {
        WinWorldSid,       WinAuthenticatedUserSid,     WinAnonymousSid,
        WinInteractiveSid, WinBuiltinAdministratorsSid, WinBuiltinUsersSid};
    LocalSid sid;
    if (SidFromText(sidString.c_str(), sid) != ERROR_SUCCESS) {
        return false;
    }
    for (const WELL_KNOWN_SID_TYPE type : kRefused) {
        const WellKnownSid refused(type);
        if (refused.Get() == nullptr || EqualSid(sid.Get(), refused.Get())) {
            return true;
        }
    }
    return IsBuiltinAlias(sid.Get());
}

SidLookup LookupSidUse(const std::wstring& sidString, std::wstring& accountName, DWORD& use) {
    constexpr DWORD kNameCapacity = 256;
    accountName.clear();
    use = SidTypeUnknown;
    LocalSid sid;
    if (SidFromText(sidString.c_str(), sid) != ERROR_SUCCESS) {
        return SidLookup::NotResolvable;
    }
    wchar_t name[kNameCapacity]{};
    wchar_t domain[kNameCapacity]{};
    DWORD nameLength = kNameCapacity;
    DWORD domainLength = kNameCapacity;
    SID_NAME_USE found = SidTypeUnknown;
    if (!LookupAccountSidW(nullptr, sid.Get(), name, &nameLength, domain, &domainLength, &found)) {
        return SidLookup::NotResolvable;
    }
    name[kNameCapacity - 1] = L'\0';
    domain[kNameCapacity - 1] = L'\0';
    accountName = domain;
    if (!accountName.empty()) {
        accountName += L'\\';
    }
    accountName += name;
    use = static_cast<DWORD>(found);
    return found == SidTypeUser ? SidLookup::User : SidLookup::NotAUser;
}

bool IsUsableUserAnchor(const std::wstring& sidString) {
    if (sidString.empty() || IsGroupOrBuiltinSid(sidString)) {
        return false;
    }
    std::wstring accountName;
    DWORD use = 0;
    return LookupSidUse(sidString, accountName, use) == SidLookup::User;
}

bool GetOwnTokenUserSid(std::wstring& sidString, DWORD& error) {
    sidString.clear();
    error = ERROR_SUCCESS;
    const LocalWideString text = ProcessUserText();
    if (!text) {
        error = GetLastError();
        return false;
    }
    sidString = text.Get();
    return true;
}

bool GetPipeOwnerSid(HANDLE pipe, std::wstring& sidString) {
    sidString.clear();
    PSID owner = nullptr;
    LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
    if (GetSecurityInfo(pipe, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        descriptor.Put()) != ERROR_SUCCESS) {
        return false;
    }
    // A pipe that was made without a security descriptor may report success and no owner.
    if (owner == nullptr || !IsValidSid(owner)) {
        return false;
    }
    LocalWideString text;
    if (!ConvertSidToStringSidW(owner, text.Put())) {
        return false;
    }
    sidString = text.Get();
    return true;
}

OwnerTrust ClassifyOwner(const std::wstring& ownerSid, const std::wstring& expectedUserSid) {
    LocalSid owner;
    if (SidFromText(ownerSid.c_str(), owner) != ERROR_SUCCESS) {
        return OwnerTrust::Untrusted;
    }
    if (SidsAreEqual(owner.Get(), WellKnownSid(WinLocalServiceSid).Get())) {
        return OwnerTrust::LocalService;
    }
    if (SidsAreEqual(owner.Get(), WellKnownSid(WinLocalSystemSid).Get())) {
        return OwnerTrust::LocalSystem;
    }
    LocalSid expected;
    if (IsUsableUserAnchor(expectedUserSid) && SidFromText(expectedUserSid.c_str(), expected) == ERROR_SUCCESS &&
        SidsAreEqual(owner.Get(), expected.Get())) {
        return OwnerTrust::AuthorizedUser;
    }
    return OwnerTrust::Untrusted;
}

}  // namespace ravlo
