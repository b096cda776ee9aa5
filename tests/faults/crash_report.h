// What is left of a play that does not end by itself: a report with stacks, and the end of the process.
#pragma once

#include <windows.h>

namespace ravlo::faults {

/// Reports go to this file, and every crash of the process from now on does.
void InstallCrashReport(HANDLE report);

/// Writes "CRASH reason" and the stack of this thread, and ends the process.
[[noreturn]] void EndAsCrash(const char* reason);

/// Every thread's stack is reported and the process ended when `milliseconds` pass before the next call; 0 stops the
/// watch.
void WatchFor(DWORD milliseconds);

inline constexpr UINT kCrashExitCode = 5;
inline constexpr UINT kHangExitCode = 3;

}  // namespace ravlo::faults
