#pragma once

#include <cstdint>
#include <vector>

#include "rvhost/delay_distribution.h"
#include "rvhost/picture_kind.h"

namespace ravlo {

/// One delivered sample. Times are in units of 100 ns, all of one clock.
struct SampleRecord {
    std::int64_t arrival;
    std::int64_t sampleTime;
    PictureKind kind;
    bool onGrid;
};

/// Counts samples and judges their times. The grid is the first sample's time plus whole periods; a time that is not on
/// it, or not later than the one before, is a grid error. One thread uses it.
class SampleStatistics {
public:
    /// `period` is the duration of one frame in units of 100 ns, at least 1.
    explicit SampleStatistics(std::int64_t period) noexcept : m_period(period) {}

    /// Takes the next sample into account and returns it with the judgement on its time.
    SampleRecord Add(std::int64_t arrival, std::int64_t sampleTime, PictureKind kind);

    std::uint64_t Samples() const noexcept { return m_live + m_pattern; }
    std::uint64_t Live() const noexcept { return m_live; }
    std::uint64_t Pattern() const noexcept { return m_pattern; }
    std::uint64_t GridErrors() const noexcept { return m_gridErrors; }
    /// Grid times between two samples for which no sample came.
    std::uint64_t SkippedPeriods() const noexcept { return m_skipped; }

    /// Samples a second from the first arrival to the last; 0 for less than two samples.
    double MeanRate() const noexcept;

    /// Lateness in units of 100 ns, to 10 microseconds, which `percent` of the samples do not exceed; 100 is the
    /// largest one. A sample's lateness is its arrival minus the time that the grid intends for it, which is the last
    /// grid time not after the sample's own, less the smallest such difference of all samples, so that a constant
    /// offset between the two does not count.
    std::int64_t Lateness(std::uint64_t percent) const noexcept;

    /// Lateness of the sample that was added last; 0 before the first.
    std::int64_t LastLateness() const noexcept;

    /// How many samples had which lateness; the counts add up to Samples().
    std::vector<DelayBucket> LatenessBuckets() const { return m_delays.Buckets(m_delays.Smallest()); }

private:
    std::int64_t m_period;
    std::int64_t m_firstTime = 0;
    std::int64_t m_lastTime = 0;
    std::int64_t m_firstArrival = 0;
    std::int64_t m_lastArrival = 0;
    std::int64_t m_lastDelay = 0;
    std::uint64_t m_live = 0;
    std::uint64_t m_pattern = 0;
    std::uint64_t m_gridErrors = 0;
    std::uint64_t m_skipped = 0;
    DelayDistribution m_delays;  ///< arrival minus intended time, one a sample
};

}  // namespace ravlo
