#include "rvsetup/trace/log_clock.h"

#include <string>

#include "rvsetup/trace/trace_line.h"

namespace ravlo {
namespace {

constexpr std::int64_t kDayMs = 86'400'000;
/// Writers take the time before they write, so lines of several threads may stand a little out of order.
constexpr std::int64_t kDisorderMs = 60'000;

}  // namespace

std::int64_t LogClock::Place(std::uint32_t msOfDay) noexcept {
    std::int64_t place = m_dayBegin + msOfDay;
    if (m_hasLines && place < m_last - kDisorderMs) {
        m_dayBegin += kDayMs;
        place += kDayMs;
    }
    m_hasLines = true;
    m_last = place;
    return place;
}

std::int64_t LogClock::UnixMs(std::int64_t place, std::int64_t lastWriteMs) const noexcept {
    const std::int64_t day = lastWriteMs / kDayMs * kDayMs;
    std::int64_t last = day + m_last % kDayMs;
    if (last > lastWriteMs + kDisorderMs) {
        last -= kDayMs;
    }
    return place + (last - m_last);
}

std::int64_t YoungestLineOfOthers(std::string_view tail, std::string_view ownProgram, std::int64_t lastWriteMs) {
    LogClock clock;
    LineSplitter splitter;
    std::int64_t youngest = -1;
    bool found = false;
    for (const std::string& text : splitter.Add(tail)) {
        for (const LogLine& line : ParseLogLines(text)) {
            const std::int64_t place = line.msOfDay ? clock.Place(*line.msOfDay) : youngest;
            if (line.process != ownProgram) {
                youngest = place;
                found = true;
            }
        }
    }
    return found ? clock.UnixMs(youngest, lastWriteMs) : 0;
}

}  // namespace ravlo
