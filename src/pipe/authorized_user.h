#pragma once

#include <windows.h>

#include <string>

#include "pipe/anchor_words.h"

namespace ravlo {

/// Reads and vets the authorization anchor: the one user that an administrator named in the machine registry.
/// `sidString` receives the SID's text for AnchorReason::Ok and is empty otherwise. Never throws; a lack of memory is
/// ReadFailed.
AnchorReason ReadAuthorizedUserAnchor(std::wstring& sidString) noexcept;

/// True when `text` begins like a SID and converts into one. A matter of form; says nothing about who it is.
bool LooksLikeSidString(const std::wstring& text) noexcept;

/// True when the SID is a well-known group or a BUILTIN alias, judged by value, without asking any account database.
/// False for a text that is no SID. A well-known SID that cannot be built counts as a match: the check fails closed.
bool IsGroupOrBuiltinSid(const std::wstring& sidString) noexcept;

/// What an account lookup says about a SID.
enum class SidLookup : DWORD { User = 0, NotAUser = 1, NotResolvable = 2 };

/// Asks the local system who `sidString` is. `accountName` receives domain\name (may throw std::bad_alloc), `use` the
/// SID_NAME_USE, which stays SidTypeUnknown when the SID cannot be resolved.
SidLookup LookupSidUse(const std::wstring& sidString, std::wstring& accountName, DWORD& use);

/// True when the SID is no group by value and resolves to a user account.
bool IsUsableUserAnchor(const std::wstring& sidString);

/// The user that this process runs as, from its token. False leaves the Win32 error in `error`, which may be 0 when the
/// failing call left none. May throw std::bad_alloc.
bool GetOwnTokenUserSid(std::wstring& sidString, DWORD& error);

/// The owner of an open pipe. False when it cannot be read or is no valid SID. May throw std::bad_alloc.
bool GetPipeOwnerSid(HANDLE pipe, std::wstring& sidString);

/// Decides whether a producer may write into a pipe with this owner. `expectedUserSid` is the anchor's SID, or empty.
OwnerTrust ClassifyOwner(const std::wstring& ownerSid, const std::wstring& expectedUserSid);

}  // namespace ravlo
