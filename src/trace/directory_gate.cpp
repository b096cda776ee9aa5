#include "trace/directory_gate.h"

#include <aclapi.h>

#include <iterator>
#include <utility>

#include "platform/registry_names.h"
#include "platform/sid.h"
#include "platform/unique_handle.h"

namespace ravlo {
namespace {

constexpr wchar_t kTrustedInstallerSid[] = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";

bool IsTrustedInstaller(PSID owner) noexcept {
    LocalSid trustedInstaller;
    return SidFromText(kTrustedInstallerSid, trustedInstaller) == ERROR_SUCCESS &&
           SidsAreEqual(owner, trustedInstaller.Get());
}

RvTraceDirVerdict JudgeOwner(PSID owner, DWORD* error) noexcept {
    LocalSid authorized;
    DWORD readError = ERROR_SUCCESS;
    const bool wasRead = RvReadAuthorizedUserSid(&authorized, &readError);
    if (RvIsAcceptedTraceOwner(owner, wasRead ? authorized.Get() : nullptr)) {
        *error = ERROR_SUCCESS;
        return RvTraceDirVerdict::Ok;
    }
    *error = wasRead ? ERROR_SUCCESS : readError;
    return RvTraceDirVerdict::ForeignOwner;
}

}  // namespace

const char* TraceDirVerdictWord(RvTraceDirVerdict verdict) noexcept {
    static constexpr const char* kWords[] = {"NOT-RUN",
                                             "OK",
                                             "MISSING",
                                             "REFUSED-REPARSE-POINT",
                                             "REFUSED-NOT-A-DIRECTORY",
                                             "REFUSED-CANNOT-OPEN",
                                             "REFUSED-OWNER-UNREADABLE",
                                             "REFUSED-FOREIGN-OWNER"};
    const LONG index = static_cast<LONG>(verdict) + 1;
    return index >= 0 && index < static_cast<LONG>(std::size(kWords)) ? kWords[index] : "REFUSED-UNKNOWN";
}

RvTraceDirVerdict RvCheckTraceDirectory(const wchar_t* directory, DWORD* error) noexcept {
    if (directory == nullptr || *directory == L'\0') {
        *error = ERROR_INVALID_NAME;
        return RvTraceDirVerdict::CannotOpen;
    }
    // Opening the reparse point itself keeps the judgement on the very object that was named.
    UniqueFile handle(CreateFileW(directory, READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                                  nullptr));
    if (!handle) {
        *error = GetLastError();
        const bool missing = *error == ERROR_FILE_NOT_FOUND || *error == ERROR_PATH_NOT_FOUND;
        return missing ? RvTraceDirVerdict::Missing : RvTraceDirVerdict::CannotOpen;
    }
    FILE_ATTRIBUTE_TAG_INFO info{};
    if (!GetFileInformationByHandleEx(handle.Get(), FileAttributeTagInfo, &info, sizeof info)) {
        *error = GetLastError();
        return RvTraceDirVerdict::CannotOpen;
    }
    if ((info.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        *error = info.ReparseTag;
        return RvTraceDirVerdict::ReparsePoint;
    }
    if ((info.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        *error = ERROR_SUCCESS;
        return RvTraceDirVerdict::NotADirectory;
    }
    PSID owner = nullptr;
    LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
    const DWORD ownerError = GetSecurityInfo(handle.Get(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                                             nullptr, nullptr, descriptor.Put());
    handle.Reset();
    if (ownerError != ERROR_SUCCESS) {
        *error = ownerError;
        return RvTraceDirVerdict::OwnerUnreadable;
    }
    return JudgeOwner(owner, error);
}

bool RvIsAcceptedTraceOwner(PSID owner, PSID authorized) noexcept {
    if (owner == nullptr || !IsValidSid(owner)) {
        return false;
    }
    return SidsAreEqual(owner, WellKnownSid(WinLocalSystemSid).Get()) ||
           SidsAreEqual(owner, WellKnownSid(WinLocalServiceSid).Get()) ||
           SidsAreEqual(owner, WellKnownSid(WinBuiltinAdministratorsSid).Get()) || IsTrustedInstaller(owner) ||
           SidsAreEqual(owner, authorized);
}

bool RvReadAuthorizedUserSid(LocalSid* sid, DWORD* error) noexcept {
    if (sid == nullptr) {
        *error = ERROR_INVALID_PARAMETER;
        return false;
    }
    sid->Reset();
    // One zeroed character more than the read may fill: the registry does not promise a terminator.
    constexpr DWORD kValueBytes = 1024;
    wchar_t text[kValueBytes / sizeof(wchar_t) + 1]{};
    DWORD size = kValueBytes;
    const LSTATUS status =
        RegGetValueW(HKEY_LOCAL_MACHINE, kAnchorKeyName, kAnchorValueName, RRF_RT_REG_SZ, nullptr, text, &size);
    if (status != ERROR_SUCCESS) {
        *error = static_cast<DWORD>(status);
        return false;
    }
    LocalSid read;
    *error = SidFromText(text, read);
    if (*error != ERROR_SUCCESS) {
        return false;
    }
    for (const WELL_KNOWN_SID_TYPE broadGroup : {WinWorldSid, WinAuthenticatedUserSid, WinBuiltinUsersSid}) {
        if (SidsAreEqual(read.Get(), WellKnownSid(broadGroup).Get())) {
            *error = ERROR_INVALID_SID;
            return false;
        }
    }
    *sid = std::move(read);
    return true;
}

}  // namespace ravlo
