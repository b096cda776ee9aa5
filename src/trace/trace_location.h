#pragma once

#include <windows.h>

#include <cstddef>

#include "trace/directory_gate.h"

namespace ravlo {

inline constexpr std::size_t kProcessNameCapacity = 64;
inline constexpr DWORD kLogPathCapacity = 260;
inline constexpr std::size_t kCandidateCount = 3;

/// Where the trace log of this process goes, and why. Plain data, so that it may be a constant-initialised global.
struct RvTraceLocation {
    char processName[kProcessNameCapacity];  ///< ASCII base name of the executable
    wchar_t path[kLogPathCapacity];          ///< full path of the log file; empty when logging is off
    DWORD candidate;                         ///< 0 none, 1 ProgramData, 2 the module's directory, 3 Temp
    RvTraceDirVerdict verdicts[kCandidateCount];
    DWORD gateErrors[kCandidateCount];
    DWORD openErrors[kCandidateCount];
};

/// Opens a log file for one append, as the test of a candidate and for every line. The caller closes the handle.
HANDLE OpenTraceFile(const wchar_t* path) noexcept;

/// Makes the choice: gates and test-opens the candidates in order until one can be written.
/// `module` is this module's handle, or null when it is not known yet, which skips the second candidate.
void ChooseTraceLocation(RvTraceLocation& location, HMODULE module) noexcept;

}  // namespace ravlo
