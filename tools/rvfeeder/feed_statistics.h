#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "common/clock.h"
#include "rvfeeder/feed_status.h"

namespace ravlo {

/// Counts what happens to the pictures of a run and measures over the last few seconds. Times are steady, in units of
/// 100 ns, and never go back.
class FeedStatistics {
public:
    static constexpr std::int64_t kRateWindow = 2 * kTicksPerSecond;
    static constexpr std::int64_t kWriteWindow = 5 * kTicksPerSecond;
    static constexpr std::int64_t kDemandWindow = 3 * kTicksPerSecond;

    explicit FeedStatistics(std::int64_t now) noexcept : m_begin(now) {}

    /// A picture was sent: its write ended `now` and took `writeTicks`.
    void Sent(std::int64_t now, std::int64_t writeTicks);
    void DroppedLate() noexcept { ++m_droppedLate; }
    void DroppedUnseen() noexcept { ++m_droppedUnseen; }
    void Drained() noexcept { ++m_drained; }
    /// The newest record that the camera gave, any number of times; nothing when there is none.
    void Demand(std::int64_t now, const std::optional<CameraDemand>& record);

    std::uint64_t SentCount() const noexcept { return m_sent; }

    /// Fills in all that is counted and measured here; the rest is the caller's.
    FeedStatus Status(std::int64_t now) const;

private:
    struct Write {
        std::int64_t end;
        std::int64_t ticks;
    };
    struct Heard {
        std::int64_t at;
        CameraDemand record;
    };

    double FramesPerSecond(std::int64_t now) const noexcept;
    double RequestsPerSecond() const noexcept;

    std::int64_t m_begin;
    std::optional<std::int64_t> m_firstSent;
    std::deque<Write> m_writes;  ///< of the last kWriteWindow
    std::deque<Heard> m_heard;   ///< of the last kDemandWindow, and of one camera
    std::int64_t m_longestWrite = 0;
    std::uint64_t m_sent = 0;
    std::uint64_t m_droppedLate = 0;
    std::uint64_t m_droppedUnseen = 0;
    std::uint64_t m_drained = 0;
};

}  // namespace ravlo
