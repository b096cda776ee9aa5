#pragma once

#include <string>
#include <utility>
#include <vector>

#include "cameras/camera_host.h"

namespace ravlo::bench {

/// What host processes with the same number of cameras did, all their blocks together.
class HostTotals {
public:
    void Add(const HostResult& result);

    double SamplesPerSecond(unsigned cameras) const;  ///< of each camera
    double PatternSamples() const noexcept { return m_sum.patterns; }
    double LatenessMs(double share) const;  ///< this percentile of all samples; 0 where there are none

    /// What is to be shown beside a figure that these runs gave.
    std::vector<std::pair<std::string, double>> Context(unsigned cameras) const;

private:
    HostBlock m_sum;
    std::vector<double> m_latenessMs;
    bool m_exact = true;
};

}  // namespace ravlo::bench
