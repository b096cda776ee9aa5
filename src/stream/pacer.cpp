#include "stream/pacer.h"

#include <algorithm>

namespace ravlo {
namespace {

constexpr std::int64_t kUnitsPerMs = 10'000;
constexpr std::int64_t kThirtyHertzPeriod = 333'333;
constexpr std::uint32_t kThirtyHertzWaitMs = 34;
/// A consumer that is later than this many periods is not caught up with but re-anchored.
constexpr std::int64_t kReanchorPeriods = 4;

/// `steps` x `period` + `origin`, modulo 2^64: sample counts never reach the range where that would differ.
std::int64_t GridTime(std::uint64_t steps, std::int64_t period, std::int64_t origin) noexcept {
    return static_cast<std::int64_t>(steps * static_cast<std::uint64_t>(period) + static_cast<std::uint64_t>(origin));
}

}  // namespace

void Pacer::Reset(std::int64_t baseTime, std::int64_t duration) noexcept {
    *this = Pacer();
    if (duration < 1) {
        m_period = kThirtyHertzPeriod;
        m_waitBoundMs = kThirtyHertzWaitMs;
    } else {
        m_period = duration;
        m_waitBoundMs = static_cast<std::uint32_t>(std::clamp<std::int64_t>(duration / kUnitsPerMs + 1, 1, 1000));
    }
    m_baseTime = baseTime;
    m_epoch = baseTime;
    m_nextDue = baseTime + m_period;
}

PacingDecision Pacer::Decide(std::int64_t now, bool fresh, std::uint64_t stamp) const noexcept {
    PacingDecision decision;
    decision.now = now;
    decision.sampleIndex = static_cast<std::uint32_t>(m_samples);

    const bool newLive = fresh && (!m_liveStampKnown || stamp != m_lastLiveStamp);
    const bool firstAndLive = m_samples == 0 && newLive;
    const bool due = now >= m_nextDue;
    if (!firstAndLive && !due) {
        decision.kind = PacingKind::Wait;
        decision.waitRemainder = std::max<std::int64_t>(m_nextDue - now, 1);
        const std::int64_t waitMs = decision.waitRemainder / kUnitsPerMs + (decision.waitRemainder % kUnitsPerMs != 0);
        decision.waitMs = static_cast<std::uint32_t>(std::clamp<std::int64_t>(waitMs, 1, m_waitBoundMs));
        return decision;
    }
    decision.kind = fresh ? PacingKind::Live : PacingKind::Pattern;
    decision.liveStamp = stamp;
    decision.sampleTime = GridTime(m_samples, m_period, m_baseTime);
    // Cannot happen while the grid is exact; kept, counted and reported, because a consumer must never see time stand.
    if (m_samples > 0 && decision.sampleTime <= m_lastSampleTime) {
        decision.sampleTime = m_lastSampleTime + m_period;
        decision.clamped = true;
    }
    return decision;
}

void Pacer::Commit(const PacingDecision& decision) noexcept {
    if (decision.kind == PacingKind::Wait) {
        return;
    }
    m_lastSampleTime = decision.sampleTime;
    ++m_samples;
    if (decision.clamped) {
        ++m_clamps;
    }
    if (decision.kind == PacingKind::Live) {
        m_liveStampKnown = true;
        m_lastLiveStamp = decision.liveStamp;
    }
    ++m_ticks;
    m_nextDue = GridTime(m_ticks, m_period, m_epoch);
    if (decision.now - m_nextDue > kReanchorPeriods * m_period) {
        m_epoch = decision.now - GridTime(m_ticks, m_period, 0);
        m_nextDue = decision.now + m_period;
    }
}

}  // namespace ravlo
