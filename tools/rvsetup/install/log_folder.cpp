#include "rvsetup/install/log_folder.h"

#include <aclapi.h>
#include <sddl.h>

#include <array>

#include "common/wide_text.h"
#include "platform/local_memory.h"
#include "platform/unique_handle.h"

namespace ravlo {
namespace {

using Descriptor = LocalMemory<PSECURITY_DESCRIPTOR>;

constexpr SECURITY_INFORMATION kParts = OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION;

/// BA: owner and full control; SY: full control; LS (the camera's service) and the user of an in-process camera: may
/// add files and change those that are there (0x1301BF, "modify"), but not remove or replace the folder itself
/// (0x1201BF, the same without DELETE): who can do that can put a link in its place. BU may read.
std::wstring LogFolderSecurity(const std::string& userSid) {
    const std::wstring user = ToWide(userSid);
    std::wstring text = L"O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;;0x1201bf;;;LS)(A;OICIIO;0x1301bf;;;LS)";
    if (!user.empty()) {
        text += L"(A;;0x1201bf;;;" + user + L")(A;OICIIO;0x1301bf;;;" + user + L")";
    }
    return text + L"(A;OICI;0x1200a9;;;BU)";
}

DWORD ParseSecurity(const std::wstring& text, Descriptor& descriptor) noexcept {
    return ConvertStringSecurityDescriptorToSecurityDescriptorW(text.c_str(), SDDL_REVISION_1, descriptor.Put(),
                                                                nullptr)
               ? ERROR_SUCCESS
               : GetLastError();
}

/// An administrator may take and give away any folder, once these are switched on. Where they are missing, the call that
/// needs them fails.
void EnablePrivileges() noexcept {
    HANDLE opened = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &opened)) {
        return;
    }
    const UniqueObject token(opened);
    for (const wchar_t* name : {L"SeTakeOwnershipPrivilege", L"SeRestorePrivilege", L"SeBackupPrivilege"}) {
        TOKEN_PRIVILEGES privileges{};
        privileges.PrivilegeCount = 1;
        privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
        if (LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid)) {
            AdjustTokenPrivileges(token.Get(), FALSE, &privileges, 0, nullptr, nullptr);
        }
    }
}

/// Opens the folder itself, never what a link in its place leads to.
UniqueFile OpenFolder(const std::string& folder, DWORD access) {
    return UniqueFile(CreateFileW(ToWide(folder).c_str(), access,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                  FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

bool IsPlainFolder(HANDLE handle) noexcept {
    FILE_ATTRIBUTE_TAG_INFO info{};
    constexpr DWORD kBoth = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    return GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &info, sizeof info) &&
           (info.FileAttributes & kBoth) == FILE_ATTRIBUTE_DIRECTORY;
}

DWORD ApplySecurity(const std::string& folder, const std::wstring& text) {
    Descriptor descriptor;
    if (const DWORD error = ParseSecurity(text, descriptor)) {
        return error;
    }
    PSID owner = nullptr;
    PACL list = nullptr;
    BOOL present = FALSE;
    BOOL defaulted = FALSE;
    if (!GetSecurityDescriptorOwner(descriptor.Get(), &owner, &defaulted) ||
        !GetSecurityDescriptorDacl(descriptor.Get(), &present, &list, &defaulted)) {
        return GetLastError();
    }
    SECURITY_DESCRIPTOR_CONTROL control = 0;
    DWORD revision = 0;
    if (!GetSecurityDescriptorControl(descriptor.Get(), &control, &revision)) {
        return GetLastError();
    }
    EnablePrivileges();
    const UniqueFile handle = OpenFolder(folder, READ_CONTROL | WRITE_DAC | WRITE_OWNER | FILE_READ_ATTRIBUTES);
    if (!handle) {
        return GetLastError();
    }
    if (!IsPlainFolder(handle.Get())) {
        return ERROR_CANT_ACCESS_FILE;
    }
    const SECURITY_INFORMATION inheritance = (control & SE_DACL_PROTECTED) != 0 ? PROTECTED_DACL_SECURITY_INFORMATION
                                                                                : UNPROTECTED_DACL_SECURITY_INFORMATION;
    return SetSecurityInfo(handle.Get(), SE_FILE_OBJECT, kParts | inheritance, owner, nullptr, list, nullptr);
}

}  // namespace

std::string ReadFolderSecurity(const std::string& folder) {
    const UniqueFile handle = OpenFolder(folder, READ_CONTROL);
    Descriptor descriptor;
    LocalWideString text;
    if (!handle ||
        GetSecurityInfo(handle.Get(), SE_FILE_OBJECT, kParts, nullptr, nullptr, nullptr, nullptr, descriptor.Put()) !=
            ERROR_SUCCESS ||
        !ConvertSecurityDescriptorToStringSecurityDescriptorW(descriptor.Get(), SDDL_REVISION_1, kParts, text.Put(),
                                                              nullptr)) {
        return {};
    }
    return ToUtf8(text.Get());
}

DWORD CreateLogFolder(const std::string& folder, const std::string& userSid) {
    Descriptor descriptor;
    if (const DWORD error = ParseSecurity(LogFolderSecurity(userSid), descriptor)) {
        return error;
    }
    EnablePrivileges();
    SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.Get(), FALSE};
    return CreateDirectoryW(ToWide(folder).c_str(), &attributes) ? ERROR_SUCCESS : GetLastError();
}

DWORD SecureLogFolder(const std::string& folder, const std::string& userSid) {
    return ApplySecurity(folder, LogFolderSecurity(userSid));
}

DWORD RestoreFolderSecurity(const std::string& folder, const std::string& security) {
    return ApplySecurity(folder, ToWide(security));
}

DWORD RemoveLogFolder(const std::string& folder) {
    {
        const UniqueFile handle = OpenFolder(folder, FILE_READ_ATTRIBUTES);
        if (!handle) {
            const DWORD error = GetLastError();
            return error == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : error;
        }
        if (!IsPlainFolder(handle.Get())) {
            return ERROR_CANT_ACCESS_FILE;
        }
    }
    const std::wstring log = ToWide(folder) + L"\\trace.log";
    if (!DeleteFileW(log.c_str()) && GetLastError() != ERROR_FILE_NOT_FOUND) {
        return GetLastError();
    }
    return RemoveDirectoryW(ToWide(folder).c_str()) ? ERROR_SUCCESS : GetLastError();
}

}  // namespace ravlo
