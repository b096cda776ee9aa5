#pragma once

#include <cstdint>

namespace ravlo {

/// What the next step of the pacing is.
enum class PacingKind { Wait, Live, Pattern };

/// One step of the pacing. Times are signed 64-bit in 100 ns units.
struct PacingDecision {
    PacingKind kind = PacingKind::Wait;
    std::uint32_t waitMs = 0;        ///< upper bound of the wait, rounded up
    std::int64_t waitRemainder = 0;  ///< exact wait, 100 ns, at least 1
    std::int64_t now = 0;
    std::int64_t sampleTime = 0;
    std::uint32_t sampleIndex = 0;  ///< samples before this one, low 32 bits
    std::uint64_t liveStamp = 0;    ///< stamp of the live frame to deliver, ms
    bool clamped = false;
};

/// Decides when the next sample is due and whether it is live. Two grids hang on Start: sample times are base + k x
/// period for ever, and due times follow the same step but are re-anchored when the consumer fell far behind, so that
/// no burst of catch-up samples follows. Pure arithmetic; the owner serialises the calls.
class Pacer {
public:
    /// Starts afresh at `baseTime` with samples `duration` long (100 ns); a duration below 1 counts as 1/30 s.
    void Reset(std::int64_t baseTime, std::int64_t duration) noexcept;

    /// Decides what happens at `now`. `fresh` says whether a live frame is there, `stamp` which one (ms tick).
    PacingDecision Decide(std::int64_t now, bool fresh, std::uint64_t stamp) const noexcept;

    /// Records that the sample of a live or pattern decision is being delivered.
    void Commit(const PacingDecision& decision) noexcept;

    std::int64_t Period() const noexcept { return m_period; }
    /// The longest single wait: one period, rounded up to whole ms, within 1..1000.
    std::uint32_t WaitBoundMs() const noexcept { return m_waitBoundMs; }
    std::int64_t LastSampleTime() const noexcept { return m_lastSampleTime; }
    std::uint64_t Samples() const noexcept { return m_samples; }
    std::uint64_t Clamps() const noexcept { return m_clamps; }

private:
    std::int64_t m_period = 333'333;
    std::uint32_t m_waitBoundMs = 34;
    std::int64_t m_baseTime = 0;
    std::int64_t m_nextDue = 0;
    std::int64_t m_lastSampleTime = -1;
    std::uint64_t m_samples = 0;
    std::uint64_t m_clamps = 0;
    bool m_liveStampKnown = false;
    std::uint64_t m_lastLiveStamp = 0;
    std::int64_t m_epoch = 0;
    std::uint64_t m_ticks = 0;
};

}  // namespace ravlo
