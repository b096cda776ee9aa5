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

/// How the input brought a frame.
struct FrameArrival {
    std::int64_t asked;    ///< when the input was free to bring it
    std::int64_t arrived;  ///< when it was there
};

/// Spreads frames over time: frame k is due at the start plus k periods, computed afresh for every k so that rounding
/// never adds up. A frame that is up to one period late is still sent, so two may follow each other closely, but never
/// more: after a delay on this side the frames whose moment has passed are dropped, which brings the input back to its
/// place. That needs an input that is ahead of its rate; one that takes more than half a period for a frame that is due
/// would only be dropped on and on, so the clock starts anew at what it brings. Times are in units of 100 ns.
class FrameClock {
public:
    /// `numerator` frames in `denominator` seconds: each 1..999,999,999, and at most 1000 frames a second.
    FrameClock(std::uint32_t numerator, std::uint32_t denominator) noexcept;

    /// Judges the next frame at time `now`. The first frame starts the clock.
    FrameStep Judge(std::int64_t now, const FrameArrival& arrival) noexcept;

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
