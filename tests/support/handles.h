// Counting this process's handles. GetProcessHandleCount always answers 0 under Wine.
#pragma once

#include "support/wait.h"

#include <cstddef>

namespace ravlo::test {

/// Open handles of this process now, found by asking about each number in turn. Listing the handles of all processes,
/// the other way to count them, ends the server of some Wine versions when a process starts or ends meanwhile.
std::size_t CountHandles();

/// The same, once the number stands still: the first moments of a process open handles on threads of its own.
std::size_t SettledHandles();

/// Waits until at most `count` handles are open: the handle of a thread that just ended may linger a moment.
bool HandlesSettleAt(std::size_t count, DWORD timeoutMs = kPatienceMs);

}  // namespace ravlo::test
