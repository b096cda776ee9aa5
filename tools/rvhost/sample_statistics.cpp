#include "rvhost/sample_statistics.h"

#include <algorithm>

#include "common/clock.h"

namespace ravlo {

SampleRecord SampleStatistics::Add(std::int64_t arrival, std::int64_t sampleTime, PictureKind kind) {
    const bool first = Samples() == 0;
    if (first) {
        m_firstTime = sampleTime;
        m_firstArrival = arrival;
    }
    const std::int64_t sinceFirst = sampleTime - m_firstTime;
    const bool onGrid = first || (sampleTime > m_lastTime && sinceFirst % m_period == 0);
    if (!onGrid) {
        ++m_gridErrors;
    } else if (!first) {
        m_skipped += static_cast<std::uint64_t>((sampleTime - m_lastTime - 1) / m_period);
    }
    // A time before the first one, which is an error already, counts as due at the begin.
    const std::int64_t intended = m_firstTime + std::max<std::int64_t>(sinceFirst, 0) / m_period * m_period;
    m_lastTime = sampleTime;
    m_lastArrival = arrival;
    m_lastDelay = arrival - intended;
    ++(kind == PictureKind::Live ? m_live : m_pattern);
    m_delays.Add(m_lastDelay);
    return {arrival, sampleTime, kind, onGrid};
}

double SampleStatistics::MeanRate() const noexcept {
    const std::int64_t span = m_lastArrival - m_firstArrival;
    if (Samples() < 2 || span <= 0) {
        return 0;
    }
    return static_cast<double>(Samples() - 1) * static_cast<double>(kTicksPerSecond) / static_cast<double>(span);
}

std::int64_t SampleStatistics::Lateness(std::uint64_t percent) const noexcept {
    return m_delays.Percentile(percent) - m_delays.Smallest();
}

std::int64_t SampleStatistics::LastLateness() const noexcept {
    return Samples() == 0 ? 0 : m_lastDelay - m_delays.Smallest();
}

}  // namespace ravlo
