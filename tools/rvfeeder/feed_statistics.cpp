#include "rvfeeder/feed_statistics.h"

#include <algorithm>
#include <vector>

#include "common/percentile.h"

namespace ravlo {
namespace {

/// A rate measured over less than this would jump about.
constexpr std::int64_t kShortestRateTime = kTicksPerSecond / 4;

double Seconds(std::int64_t ticks) noexcept {
    return static_cast<double>(ticks) / static_cast<double>(kTicksPerSecond);
}

double Milliseconds(std::int64_t ticks) noexcept {
    return static_cast<double>(ticks) / static_cast<double>(kTicksPerMs);
}

}  // namespace

void FeedStatistics::Sent(std::int64_t now, std::int64_t writeTicks) {
    ++m_sent;
    m_firstSent = m_firstSent.value_or(now);
    m_longestWrite = std::max(m_longestWrite, writeTicks);
    m_writes.push_back({now, writeTicks});
    while (now - m_writes.front().end > kWriteWindow) {
        m_writes.pop_front();
    }
}

void FeedStatistics::Demand(std::int64_t now, const std::optional<CameraDemand>& record) {
    if (!record) {
        m_heard.clear();
        return;
    }
    if (!m_heard.empty()) {
        const CameraDemand& last = m_heard.back().record;
        if (*record == last) {
            return;
        }
        if (record->sequence <= last.sequence || record->requests < last.requests) {
            m_heard.clear();  // another camera, or the same one started anew
        }
    }
    m_heard.push_back({now, *record});
    while (now - m_heard.front().at > kDemandWindow) {
        m_heard.pop_front();
    }
}

FeedStatus FeedStatistics::Status(std::int64_t now) const {
    FeedStatus status;
    status.seconds = Seconds(now - m_begin);
    status.sent = m_sent;
    status.droppedLate = m_droppedLate;
    status.droppedUnseen = m_droppedUnseen;
    status.drained = m_drained;
    status.fps = FramesPerSecond(now);
    std::vector<std::int64_t> times;
    for (const Write& write : m_writes) {
        if (now - write.end <= kWriteWindow) {
            times.push_back(write.ticks);
        }
    }
    status.writeMsP50 = Milliseconds(Percentile(times, 50));
    status.writeMsP99 = Milliseconds(Percentile(times, 99));
    status.writeMsMax = Milliseconds(m_longestWrite);
    if (!m_heard.empty()) {
        status.demand = DemandStatus{m_heard.back().record, RequestsPerSecond()};
    }
    return status;
}

double FeedStatistics::FramesPerSecond(std::int64_t now) const noexcept {
    if (!m_firstSent) {
        return 0;
    }
    const auto isRecent = [now](const Write& write) { return now - write.end < kRateWindow; };
    const auto frames = std::count_if(m_writes.begin(), m_writes.end(), isRecent);
    const std::int64_t time = std::clamp(now - *m_firstSent, kShortestRateTime, kRateWindow);
    return static_cast<double>(frames) / Seconds(time);
}

double FeedStatistics::RequestsPerSecond() const noexcept {
    const Heard& first = m_heard.front();
    const Heard& last = m_heard.back();
    if (last.at == first.at) {
        return 0;
    }
    return static_cast<double>(last.record.requests - first.record.requests) / Seconds(last.at - first.at);
}

}  // namespace ravlo
