#pragma once

#include <cstdint>
#include <optional>

#include "common/clock.h"
#include "common/test_card_stamp.h"
#include "rvhost/delay_distribution.h"

namespace ravlo {

/// Follows the stamps of the test card through the camera: how long frames were under way, and which are missing.
/// One thread uses it.
class StampStatistics {
public:
    /// A longer way is none: the stamp is of a recording, or of another machine's clock.
    static constexpr std::int64_t kLongestLatency = 10 * kTicksPerSecond;

    /// Takes the stamp of the next stamped sample into account. `arrival` is SteadyTicks() when it came. Returns how
    /// long the picture was under way, in units of 100 ns; nothing when its stamp cannot tell.
    std::optional<std::int64_t> Add(const TestCardStamp& stamp, std::int64_t arrival);

    /// Samples with a stamp.
    std::uint64_t Stamped() const noexcept { return m_stamped; }
    /// Samples that showed the frame of the stamped sample before once more.
    std::uint64_t Repeated() const noexcept { return m_repeated; }
    /// Frames that the producer counted and no sample showed. A number that falls begins a new count.
    std::uint64_t Skipped() const noexcept { return m_skipped; }

    /// How long each frame was under way until the first sample that showed it.
    const DelayDistribution& Latency() const noexcept { return m_latency; }

private:
    std::optional<TestCardStamp> m_last;
    std::uint64_t m_stamped = 0;
    std::uint64_t m_repeated = 0;
    std::uint64_t m_skipped = 0;
    DelayDistribution m_latency;
};

}  // namespace ravlo
