#include "rvfeeder/frame_clock.h"

#include <algorithm>

namespace ravlo {

FrameClock::FrameClock(std::uint32_t numerator, std::uint32_t denominator) noexcept
    : m_numerator(numerator), m_denominator(denominator) {
}

FrameStep FrameClock::Judge(std::int64_t now, const FrameArrival& arrival) noexcept {
    if (!m_started) {
        m_started = true;
        StartAt(now);
        return {FrameStep::Kind::Send, 0};
    }
    const std::int64_t due = Due();
    const std::int64_t period = m_denominator * kTicksPerSecond / m_numerator;
    if (now < due) {
        return {FrameStep::Kind::Wait, due - now};
    }
    if (now - due <= period) {
        return {FrameStep::Kind::Send, 0};
    }
    if (arrival.arrived - std::max(due, arrival.asked) > period / 2) {
        ++m_restarts;
        StartAt(now);
        return {FrameStep::Kind::Send, 0};
    }
    return {FrameStep::Kind::Drop, 0};
}

std::int64_t FrameClock::Due() const noexcept {
    // Frames, seconds and ticks are divided one after another, with what is left over carried on: the plain product
    // overflows, at an unreduced rate such as 999999999/33333333 within a quarter of an hour.
    const std::int64_t whole = m_index / m_numerator;
    const std::int64_t rest = m_index % m_numerator * m_denominator;
    const std::int64_t seconds = whole * m_denominator + rest / m_numerator;
    return m_start + seconds * kTicksPerSecond + rest % m_numerator * kTicksPerSecond / m_numerator;
}

void FrameClock::StartAt(std::int64_t now) noexcept {
    m_start = now;
    m_index = 0;
}

}  // namespace ravlo
