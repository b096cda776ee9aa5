// Deadlines and bounded polling, so that no test can wait for ever.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstdint>

namespace ravlo::test {

/// How long a test waits for something that should happen at once. Generous, because both cores may be busy;
/// it costs time only where the test fails anyway.
inline constexpr DWORD kPatienceMs = 5000;

/// A point in time, a number of milliseconds after its construction.
class Deadline {
public:
    explicit Deadline(DWORD milliseconds) : m_end(GetTickCount64() + milliseconds) {}

    bool Passed() const { return GetTickCount64() >= m_end; }

    /// Milliseconds left; 0 when the deadline has passed. Never INFINITE.
    DWORD Left() const {
        const std::uint64_t now = GetTickCount64();
        return now >= m_end ? 0 : static_cast<DWORD>(std::min<std::uint64_t>(m_end - now, 0x7FFFFFFF));
    }

private:
    std::uint64_t m_end;
};

/// Calls `condition` every `stepMs` until it is true or `timeoutMs` have passed. Returns its last answer. For
/// conditions that have no event of their own (a line in a file, a counter); prefer an event where one
/// exists.
template <class Condition>
bool WaitUntil(Condition&& condition, DWORD timeoutMs = kPatienceMs, DWORD stepMs = 2) {
    const Deadline deadline(timeoutMs);
    while (!condition()) {
        if (deadline.Passed()) {
            return condition();
        }
        Sleep(stepMs);
    }
    return true;
}

}  // namespace ravlo::test
