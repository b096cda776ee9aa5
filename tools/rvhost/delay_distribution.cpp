#include "rvhost/delay_distribution.h"

namespace ravlo {
namespace {

constexpr std::int64_t kFirstBound = 1'000;  // 0.1 ms
constexpr int kBounds = 14;                  // the last one is 819.2 ms

std::int64_t RoundedDown(std::int64_t delay) noexcept {
    const std::int64_t rest = delay % DelayDistribution::kStep;
    return delay - (rest < 0 ? rest + DelayDistribution::kStep : rest);
}

}  // namespace

void DelayDistribution::Add(std::int64_t delay) {
    ++m_counts[RoundedDown(delay)];
    ++m_count;
}

std::int64_t DelayDistribution::Percentile(std::uint64_t percent) const noexcept {
    const std::uint64_t rank = (m_count * percent + 99) / 100;
    std::uint64_t seen = 0;
    for (const auto& [delay, count] : m_counts) {
        seen += count;
        if (seen >= rank) {
            return delay;
        }
    }
    return 0;
}

std::vector<DelayBucket> DelayDistribution::Buckets(std::int64_t origin) const {
    std::vector<DelayBucket> buckets;
    std::int64_t bound = kFirstBound;
    for (int i = 0; i < kBounds; ++i, bound *= 2) {
        buckets.push_back({bound, 0});
    }
    buckets.push_back({kNoBound, 0});
    auto bucket = buckets.begin();
    for (const auto& [delay, count] : m_counts) {
        while (delay - origin >= bucket->below) {
            ++bucket;
        }
        bucket->count += count;
    }
    return buckets;
}

}  // namespace ravlo
