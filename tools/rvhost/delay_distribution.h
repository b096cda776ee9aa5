#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace ravlo {

/// One bar of a histogram: how many delays are below `below` and not below the bar before.
struct DelayBucket {
    std::int64_t below;  ///< in units of 100 ns; kNoBound for the last bar
    std::uint64_t count;

    friend constexpr bool operator==(const DelayBucket&, const DelayBucket&) = default;
};

/// Bound of the bar that takes all that is longer than the others.
inline constexpr std::int64_t kNoBound = INT64_MAX;

/// Counts delays, rounded down to 10 microseconds, so that a run of days needs no more memory than one of minutes.
/// Times are in units of 100 ns; delays may be negative. One thread uses it.
class DelayDistribution {
public:
    static constexpr std::int64_t kStep = 100;

    void Add(std::int64_t delay);

    std::uint64_t Count() const noexcept { return m_count; }
    /// 0 when there is none.
    std::int64_t Smallest() const noexcept { return m_counts.empty() ? 0 : m_counts.begin()->first; }
    std::int64_t Largest() const noexcept { return m_counts.empty() ? 0 : m_counts.rbegin()->first; }

    /// The smallest delay that at least `percent` (1..100) of all do not exceed (nearest rank); 0 when there is none.
    std::int64_t Percentile(std::uint64_t percent) const noexcept;

    /// All delays, as what they exceed `origin` by, in bars that begin at 0 and end at 0.1 ms, 0.2 ms, 0.4 ms and so on
    /// to 819.2 ms, and one for the rest. The counts add up to Count().
    std::vector<DelayBucket> Buckets(std::int64_t origin) const;

private:
    std::map<std::int64_t, std::uint64_t> m_counts;
    std::uint64_t m_count = 0;
};

}  // namespace ravlo
