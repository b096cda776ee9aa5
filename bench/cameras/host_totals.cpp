#include "cameras/host_totals.h"

#include <algorithm>
#include <cstddef>

namespace ravlo::bench {

void HostTotals::Add(const HostResult& result) {
    for (const HostBlock& block : result.blocks) {
        m_sum.hostUs += block.hostUs;
        m_sum.serverUs += block.serverUs;
        m_sum.machineUs += block.machineUs;
        m_sum.machineCapacityUs += block.machineCapacityUs;
        m_sum.seconds += block.seconds;
        m_sum.samples += block.samples;
        m_sum.patterns += block.patterns;
        m_sum.frames += block.frames;
    }
    m_latenessMs.insert(m_latenessMs.end(), result.latenessMs.begin(), result.latenessMs.end());
    m_exact = m_exact && result.exact;
}

double HostTotals::SamplesPerSecond(unsigned cameras) const {
    return m_sum.samples / m_sum.seconds / cameras;
}

double HostTotals::LatenessMs(double share) const {
    if (m_latenessMs.empty()) {
        return 0;
    }
    std::vector<double> values = m_latenessMs;
    const auto index = static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + index, values.end());
    return values[static_cast<std::size_t>(index)];
}

std::vector<std::pair<std::string, double>> HostTotals::Context(unsigned cameras) const {
    return {
        {"fps_per_camera", m_sum.frames / m_sum.seconds / cameras},
        {"fps_asked", kAskedRate},
        {"samples", m_sum.samples},
        {"samples_per_camera", SamplesPerSecond(cameras)},
        {"pattern_samples", m_sum.patterns},
        {"lateness_p50_ms", LatenessMs(0.5)},
        {"lateness_p99_ms", LatenessMs(0.99)},
        {"host_core_percent", 100 * m_sum.hostUs / (m_sum.seconds * 1e6)},
        {"server_core_percent", 100 * m_sum.serverUs / (m_sum.seconds * 1e6)},
        {"server_us_per_frame", m_sum.serverUs / m_sum.frames},
        {"machine_busy_percent", 100 * m_sum.machineUs / m_sum.machineCapacityUs},
        {"machine_us_per_frame", m_sum.machineUs / m_sum.frames},
        {"exact_clock", m_exact ? 1.0 : 0.0},
    };
}

}  // namespace ravlo::bench
