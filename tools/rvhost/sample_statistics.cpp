#include "rvhost/sample_statistics.h"

#include <algorithm>

#include "common/percentile.h"

namespace ravlo {

SampleRecord SampleStatistics::Add(std::int64_t arrival, std::int64_t sampleTime, PictureKind kind) {
    const bool first = Samples() == 0;
    if (first) {
        m_firstTime = sampleTime;
    }
    const bool onGrid = first || (sampleTime > m_lastTime && (sampleTime - m_firstTime) % m_period == 0);
    if (!onGrid) {
        ++m_gridErrors;
    } else if (!first) {
        m_skipped += static_cast<std::uint64_t>((sampleTime - m_lastTime - 1) / m_period);
    }
    m_lastTime = sampleTime;
    ++(kind == PictureKind::Live ? m_live : m_pattern);
    m_delays.push_back(arrival - sampleTime);
    return {arrival, sampleTime, kind, onGrid};
}

std::int64_t SampleStatistics::Lateness(std::size_t percent) const {
    if (m_delays.empty()) {
        return 0;
    }
    return Percentile(m_delays, percent) - *std::min_element(m_delays.begin(), m_delays.end());
}

}  // namespace ravlo
