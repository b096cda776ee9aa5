#pragma once

#include <windows.h>

#include <cstdint>

#include "platform/unique_handle.h"

namespace ravlo {

/// Waits for short times more finely than the system's clock tick, and lets an event cut the wait short.
/// One thread uses it.
class Sleeper {
public:
    /// `wake` is borrowed: a signalled event ends every wait at once.
    explicit Sleeper(HANDLE wake);

    /// Waits `ticks` of 100 ns. False when the event cut the wait short.
    bool Wait(std::int64_t ticks) const noexcept;

private:
    HANDLE m_wake;
    UniqueObject m_timer;
};

}  // namespace ravlo
