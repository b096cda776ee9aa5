#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/clock.h"
#include "rvhost/delay_distribution.h"
#include "stream/geometry.h"

namespace ravlo {

/// What a distribution of delays comes down to, in units of 100 ns.
struct DelayFigures {
    std::int64_t p50 = 0;
    std::int64_t p90 = 0;
    std::int64_t p99 = 0;
    std::int64_t max = 0;
};

/// What the stamps of the test card tell.
struct StampReport {
    std::uint64_t stamped = 0;   ///< samples with a stamp; without any there is nothing else to say
    std::uint64_t repeated = 0;  ///< of them, those that showed the frame before once more
    std::uint64_t skipped = 0;   ///< frames that no sample showed
    std::uint64_t timed = 0;     ///< frames whose way could be timed
    DelayFigures latency;        ///< of those
};

/// How far the Y4M file is.
struct Y4mReport {
    std::uint64_t frames;   ///< taken for writing
    std::uint64_t dropped;  ///< lost because the file could not be written fast enough
};

/// Everything that a run has seen up to one moment.
struct HostReport {
    FrameGeometry geometry{};
    std::int64_t elapsed = 0;  ///< since the start, in units of 100 ns
    std::uint64_t samples = 0;
    std::uint64_t live = 0;
    std::uint64_t pattern = 0;
    std::uint64_t gridErrors = 0;
    std::uint64_t skippedPeriods = 0;
    double recentRate = 0;  ///< samples a second over the last two seconds
    double meanRate = 0;    ///< samples a second over the whole run
    DelayFigures lateness;
    std::vector<DelayBucket> latenessBuckets;
    StampReport stamps;
    std::uint64_t droppedPictures = 0;
    std::optional<Y4mReport> y4m;
};

/// Units of 100 ns in milliseconds.
constexpr double Ms(std::int64_t ticks) noexcept {
    return static_cast<double>(ticks) / static_cast<double>(kTicksPerMs);
}

/// The summary for people: a block of lines.
std::string ReportText(const HostReport& report);

/// One line about a run that goes on.
std::string StatusText(const HostReport& report);

/// One line of JSON, line feed included. `isFinal` marks the last one of a run.
std::string ReportJson(const HostReport& report, bool isFinal);

}  // namespace ravlo
