#include "rvhost/stamp_statistics.h"

namespace ravlo {

std::optional<std::int64_t> StampStatistics::Add(const TestCardStamp& stamp, std::int64_t arrival) {
    ++m_stamped;
    const bool repeated = m_last && m_last->frame == stamp.frame;
    if (repeated) {
        ++m_repeated;
    } else if (m_last && stamp.frame > m_last->frame) {
        m_skipped += stamp.frame - m_last->frame - 1;
    }
    m_last = stamp;
    // Not by subtraction alone: a stamp may hold any time at all.
    if (stamp.time > arrival || stamp.time < arrival - kLongestLatency) {
        return std::nullopt;
    }
    const std::int64_t latency = arrival - stamp.time;
    if (!repeated) {
        m_latency.Add(latency);
    }
    return latency;
}

}  // namespace ravlo
