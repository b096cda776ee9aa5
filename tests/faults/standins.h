// What stands in for some of the module's imports in every play: clocks that run faster, waits that are shorter by the
// same factor, and accounts of what the module takes and gives back.
#pragma once

#include <windows.h>

namespace ravlo::faults {

/// How much faster the module's clocks run than the real one.
inline constexpr int kTimeFactor = 10;

/// What stands in for the import `name`, or null: the function itself serves.
void* StandInFor(const char* name);

/// Moves the module's clocks forward at once.
void AdvanceClock(DWORD milliseconds);

/// What the module did in a play, besides its results.
struct Accounts {
    long localBlocks = 0;   ///< blocks of the local heap that it was given and did not free
    long failedCloses = 0;  ///< handles it closed that were not open
    long runningThreads = 0;
    long threadsStarted = 0;
    bool readerRuns = false;
    bool gateRuns = false;
};
Accounts CurrentAccounts();
/// Begins anew, the kept lines of the log and what was staged included.
void ResetAccounts();

}  // namespace ravlo::faults
