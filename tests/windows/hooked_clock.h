// The module's clocks in the test's hand, so that seconds of camera time pass in an instant.
#pragma once

#include "support/import_hooks.h"

#include <windows.h>

#include <mfapi.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

namespace ravlo::test {

/// One wait for the next due sample, as the module asked for it.
struct PacingWait {
    DWORD handles = 0;
    DWORD timeoutMs = 0;
    LONGLONG dueTime = 0;  ///< what the timer was armed with last; negative is relative, 100 ns
};

/// System time, tick count, timer and pacing wait of a module. A wait for the next due sample takes no time: it
/// moves the clock to the moment at which it would have ended, unless the stream stops or a frame arrives.
/// Declare it before the camera. Only for the DLL: the test program's own deadlines need a clock that runs.
class HookedClock {
public:
    static constexpr LONGLONG kStart = 900'000'000'000;     ///< system time at construction, 100 ns
    static constexpr std::uint64_t kStartTick = 5'000'000;  ///< tick count at construction, ms

    explicit HookedClock(HMODULE module) : m_systemTime(module), m_tickCount(module), m_timer(module), m_waits(module) {
        m_systemTime.Replace([this] { return Now(); });
        m_tickCount.Replace([this] { return Tick(); });
        m_timer.Replace([this](HANDLE, const LARGE_INTEGER* due, LONG, PTIMERAPCROUTINE, LPVOID, BOOL) -> BOOL {
            m_dueTime = due->QuadPart;
            return m_timerWorks ? TRUE : FALSE;
        });
        m_waits.Replace([this](DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
            return Wait(count, handles, all, timeoutMs);
        });
    }

    LONGLONG Now() const { return m_now; }
    std::uint64_t Tick() const { return kStartTick + static_cast<std::uint64_t>((m_now - kStart) / 10'000); }
    void Advance(LONGLONG hundredNanoseconds) { m_now += hundredNanoseconds; }
    void AdvanceMs(LONGLONG milliseconds) { Advance(milliseconds * 10'000); }
    /// From now on SetWaitableTimer fails.
    void BreakTimer() { m_timerWorks = false; }

    /// The waits since construction or the last call of this.
    std::vector<PacingWait> TakeWaits() {
        const std::lock_guard guard(m_lock);
        return std::exchange(m_seen, {});
    }
    /// The calls of SetWaitableTimer.
    const RAVLO_HOOK(SetWaitableTimer) & Timer() const { return m_timer; }

private:
    DWORD Wait(DWORD count, const HANDLE* handles, BOOL all, DWORD timeoutMs) {
        using Hook = RAVLO_HOOK(WaitForMultipleObjects);
        if (all || timeoutMs == INFINITE) {
            return Hook::CallOriginal(count, handles, all, timeoutMs);  // the reader thread's, or a join
        }
        {
            const std::lock_guard guard(m_lock);
            m_seen.push_back({count, timeoutMs, m_dueTime});
        }
        const DWORD signalled = Hook::CallOriginal(2, handles, FALSE, 0);
        if (signalled != WAIT_TIMEOUT) {
            return signalled;
        }
        m_now += count == 3 ? -m_dueTime : timeoutMs * 10'000LL;
        return count == 3 ? WAIT_OBJECT_0 + 2 : WAIT_TIMEOUT;
    }

    std::atomic<LONGLONG> m_now{kStart};
    std::atomic<LONGLONG> m_dueTime{0};
    std::atomic<bool> m_timerWorks{true};
    std::mutex m_lock;
    std::vector<PacingWait> m_seen;
    RAVLO_HOOK(MFGetSystemTime) m_systemTime;
    RAVLO_HOOK(GetTickCount64) m_tickCount;
    RAVLO_HOOK(SetWaitableTimer) m_timer;
    RAVLO_HOOK(WaitForMultipleObjects) m_waits;
};

}  // namespace ravlo::test
