#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include "common/wide_text.h"
#include "platform/local_memory.h"
#include "rvsetup/doctor/module_facts.h"

namespace ravlo {
namespace {

std::string SidText(PSID sid) {
    LocalWideString text;
    return IsValidSid(sid) && ConvertSidToStringSidW(sid, text.Put()) ? ToUtf8(text.Get()) : std::string();
}

/// Reads one entry; false for one that says nothing about rights.
bool ReadEntry(const ACE_HEADER& header, AccessEntry& entry) {
    entry.hasCondition =
        header.AceType == ACCESS_ALLOWED_CALLBACK_ACE_TYPE || header.AceType == ACCESS_DENIED_CALLBACK_ACE_TYPE;
    entry.allows = header.AceType == ACCESS_ALLOWED_ACE_TYPE || header.AceType == ACCESS_ALLOWED_CALLBACK_ACE_TYPE;
    if (!entry.allows && !entry.hasCondition && header.AceType != ACCESS_DENIED_ACE_TYPE) {
        return false;
    }
    // All four types have this layout as far as the SID.
    const auto& ace = reinterpret_cast<const ACCESS_ALLOWED_ACE&>(header);
    entry.inheritOnly = (header.AceFlags & INHERIT_ONLY_ACE) != 0;
    entry.rights = ace.Mask;
    entry.sid = SidText(const_cast<DWORD*>(&ace.SidStart));
    return true;
}

AccessList ReadAccessList(const std::wstring& path, std::string& owner, std::string& error) {
    PSID ownerSid = nullptr;
    PACL acl = nullptr;
    LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
    const DWORD status = GetNamedSecurityInfoW(const_cast<wchar_t*>(path.c_str()), SE_FILE_OBJECT,
                                               OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &ownerSid,
                                               nullptr, &acl, nullptr, descriptor.Put());
    if (status != ERROR_SUCCESS) {
        error = SystemErrorText(status);
        return std::vector<AccessEntry>();
    }
    owner = ownerSid != nullptr ? SidText(ownerSid) : std::string();
    if (acl == nullptr) {
        return std::nullopt;
    }
    std::vector<AccessEntry> entries;
    for (DWORD i = 0; i < acl->AceCount; ++i) {
        void* ace = nullptr;
        AccessEntry entry;
        if (GetAce(acl, i, &ace) && ReadEntry(*static_cast<const ACE_HEADER*>(ace), entry)) {
            entries.push_back(entry);
        }
    }
    return entries;
}

}  // namespace

AccessFacts ReadAccessFacts(const std::wstring& modulePath) {
    AccessFacts facts;
    const std::wstring folder = FolderOf(modulePath);
    facts.folder = ToUtf8(folder);
    facts.fileList = ReadAccessList(modulePath, facts.fileOwner, facts.fileError);
    facts.folderList = ReadAccessList(folder, facts.folderOwner, facts.folderError);
    return facts;
}

}  // namespace ravlo
