#pragma once

#include <windows.h>

#include "platform/local_memory.h"

namespace ravlo {

/// Whether a directory may hold the trace log. The module runs inside a service; a log file in a directory that a less
/// privileged account could have prepared would let that account read or redirect what the service writes.
enum class RvTraceDirVerdict : LONG {
    NotRun = -1,
    Ok = 0,
    Missing = 1,
    ReparsePoint = 2,
    NotADirectory = 3,
    CannotOpen = 4,
    OwnerUnreadable = 5,
    ForeignOwner = 6,
};

/// The word that the log prints for a verdict; "REFUSED-UNKNOWN" for a value outside the enumeration.
const char* TraceDirVerdictWord(RvTraceDirVerdict verdict) noexcept;

/// Judges `directory` by what it is and who owns it; its access list is not examined. `error` receives the Win32 error,
/// 0 when there is none, or the reparse tag when a link is refused, so that the report shows what kind of link it was.
RvTraceDirVerdict RvCheckTraceDirectory(const wchar_t* directory, DWORD* error) noexcept;

/// True when `owner` is LocalSystem, LocalService, BUILTIN\Administrators, TrustedInstaller, or `authorized` (may be
/// null). False for everybody else, NETWORK SERVICE included, and for a null or invalid owner.
bool RvIsAcceptedTraceOwner(PSID owner, PSID authorized) noexcept;

/// Reads the authorized user's SID from the machine registry. False leaves a Win32 error in `error`. A broad group
/// (Everyone, Authenticated Users, BUILTIN\Users) is refused with ERROR_INVALID_SID.
bool RvReadAuthorizedUserSid(LocalSid* sid, DWORD* error) noexcept;

}  // namespace ravlo
