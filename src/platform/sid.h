#pragma once

#include <windows.h>

#include "platform/local_memory.h"

namespace ravlo {

/// Room for any SID: fifteen sub-authorities behind the eight fixed bytes.
inline constexpr DWORD kMaxSidBytes = 68;

/// A well-known SID built in place; Get() is null when the system could not build it.
class WellKnownSid {
public:
    explicit WellKnownSid(WELL_KNOWN_SID_TYPE type) noexcept;
    PSID Get() const noexcept { return m_built ? const_cast<BYTE*>(m_bytes) : nullptr; }

private:
    alignas(DWORD) BYTE m_bytes[kMaxSidBytes]{};
    bool m_built = false;
};

/// True when both are valid SIDs and name the same account; a missing SID equals nothing.
bool SidsAreEqual(PSID left, PSID right) noexcept;

/// Converts a SID's text, accepted only in its strict form. Returns 0 and a SID, or the Win32 error.
DWORD SidFromText(const wchar_t* text, LocalSid& sid) noexcept;

/// The user of an open token as text; null with GetLastError() set when any step fails (0 when the failing call left
/// none).
LocalWideString TokenUserText(HANDLE token) noexcept;

/// The user that this process runs as, from its token, as text; null as TokenUserText.
LocalWideString ProcessUserText() noexcept;

}  // namespace ravlo
