#pragma once

#include <cstdint>
#include <deque>

#include "common/clock.h"

namespace ravlo {

/// How many events a second came lately. Times are in units of 100 ns of one clock. One thread uses it.
class RateMeter {
public:
    /// What counts as lately.
    static constexpr std::int64_t kWindow = 2 * kTicksPerSecond;

    void Add(std::int64_t time) {
        m_times.push_back(time);
        // Always two left, so that a slow stream has a rate as well.
        while (m_times.size() > 2 && m_times.front() < time - kWindow) {
            m_times.pop_front();
        }
    }

    /// Events a second up to `now`; falls when none comes any more. 0 before the second event.
    double Rate(std::int64_t now) const noexcept {
        if (m_times.size() < 2 || m_times.back() <= m_times.front()) {
            return 0;
        }
        // The gap since the last event counts once it is longer than the usual one.
        const auto gaps = static_cast<std::int64_t>(m_times.size() - 1);
        const std::int64_t span = m_times.back() - m_times.front();
        const std::int64_t silence = now - m_times.back();
        const bool isLate = silence > 2 * span / gaps;
        return static_cast<double>(gaps) * static_cast<double>(kTicksPerSecond) /
               static_cast<double>(isLate ? span + silence : span);
    }

private:
    std::deque<std::int64_t> m_times;
};

}  // namespace ravlo
