#pragma once

#include <windows.h>

namespace ravlo {

/// Turns Ctrl+C, Ctrl+Break and a closing console into an event, so that a program ends in order and says what it did.
/// A second Ctrl+C or Ctrl+Break ends the process at once. One instance at a time; make it before the first thread.
class Interrupt {
public:
    Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;
    ~Interrupt();

    /// Manual-reset; signalled once the user wants the program to end.
    HANDLE Event() const noexcept;

    bool IsRaised() const noexcept { return WaitForMs(0); }

    /// Sleeps up to `milliseconds`; true as soon as the user wants the program to end.
    bool WaitForMs(DWORD milliseconds) const noexcept;
};

}  // namespace ravlo
