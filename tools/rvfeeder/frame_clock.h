#pragma once

#include <cstdint>

#include "common/clock.h"

namespace ravlo {

/// What to do with the next frame, and when.
struct FrameStep {
    enum class Kind : std::uint8_t {
        Wait,  ///< not due yet: ask again in `wait` ticks
        Send,  ///< due now
        Drop,  ///< the moment for it has passed
    };
    Kind kind;
    std::int64_t wait;  ///< 100 ns; 0 unless the kind is Wait
};

/// Spreads frames over time: frame k is due at the start plus k periods, computed afresh for every k so that rounding
/// never adds up. After a delay nothing is sent in a burst: what this side held up is dropped, and when the input
/// itself came late the clock starts anew at the frame that came. Times are in units of 100 ns.
class FrameClock {
public:
    /// `numerator` frames in `denominator` seconds: each 1..999,999,999, and at most 1000 frames a second.
    FrameClock(std::uint32_t numerator, std::uint32_t denominator) noexcept;

    /// Judges the next frame at time `now`; `arrived` is when the input delivered it. The first frame starts the clock.
    FrameStep Judge(std::int64_t now, std::int64_t arrived) noexcept;

    /// The next frame has been sent or dropped; the one after it is next.
    void Advance() noexcept { ++m_index; }

    /// The next frame starts the clock anew, as the first one did: after a pause that was meant, which is not counted.
    void Restart() noexcept { m_started = false; }

    /// How often the clock started anew because the input came late.
    std::uint64_t Restarts() const noexcept { return m_restarts; }

private:
    std::int64_t Due() const noexcept;
    void StartAt(std::int64_t now) noexcept;

    std::int64_t m_numerator;
    std::int64_t m_denominator;
    std::int64_t m_start = 0;
    std::int64_t m_index = 0;
    std::uint64_t m_restarts = 0;
    bool m_started = false;
};

}  // namespace ravlo
