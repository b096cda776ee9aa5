#include "common/sleeper.h"

#include <array>

#include "common/clock.h"
#include "platform/timer_flags.h"

namespace ravlo {

Sleeper::Sleeper(HANDLE wake) : m_wake(wake) {
    m_timer.Reset(CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, TIMER_ALL_ACCESS));
    if (!m_timer) {  // an older system refuses the flag
        m_timer.Reset(CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_ALL_ACCESS));
    }
}

bool Sleeper::Wait(std::int64_t ticks) const noexcept {
    if (ticks <= 0) {
        return WaitForSingleObject(m_wake, 0) != WAIT_OBJECT_0;
    }
    LARGE_INTEGER due{};
    due.QuadPart = -ticks;  // negative: relative to now
    if (m_timer && SetWaitableTimer(m_timer.Get(), &due, 0, nullptr, nullptr, FALSE)) {
        const std::array<HANDLE, 2> handles{m_wake, m_timer.Get()};
        return WaitForMultipleObjects(2, handles.data(), FALSE, INFINITE) != WAIT_OBJECT_0;
    }
    const auto milliseconds = static_cast<DWORD>((ticks + kTicksPerMs - 1) / kTicksPerMs);
    return WaitForSingleObject(m_wake, milliseconds) != WAIT_OBJECT_0;
}

}  // namespace ravlo
