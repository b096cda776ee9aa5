#include "rvfeeder/feed_report.h"

#include <chrono>
#include <limits>
#include <utility>

#include "common/clock.h"
#include "common/console.h"
#include "common/messages.h"

namespace ravlo {
namespace {

constexpr std::int64_t kLinePeriod = kTicksPerSecond / 4;
constexpr std::int64_t kJsonPeriod = kTicksPerSecond;
constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
/// How long the last report may hold up the end of the program when its reader is slow.
constexpr std::chrono::milliseconds kLastReportPatience{300};

/// The next time in steps of `period`, without making up for those that were missed.
std::int64_t NextAfter(std::int64_t last, std::int64_t period, std::int64_t now) noexcept {
    return now - last < period ? last + period : now + period;
}

}  // namespace

FeedReport::FeedReport(std::string pipe, bool json)
    : m_pipe(std::move(pipe)),
      // Objects on the same console would be written into the line.
      m_nextLine(IsErrorConsole() && !(json && IsOutputConsole()) ? SteadyTicks() : kNever),
      m_nextJson(json ? SteadyTicks() + kJsonPeriod : kNever) {
    if (json) {
        m_writer.emplace([](const std::string& text) { return WriteOutput(text); });
    }
}

void FeedReport::Show(std::int64_t now, const FeedStatus& status) {
    if (now >= m_nextLine) {
        m_nextLine = NextAfter(m_nextLine, kLinePeriod, now);
        ShowStatus(StatusLine(status));
    }
    if (now >= m_nextJson) {
        m_nextJson = NextAfter(m_nextJson, kJsonPeriod, now);
        m_writer->Put(StatusJson(status, m_pipe, std::nullopt));
    }
}

void FeedReport::End(const FeedStatus& status, const FeedEnd& end) {
    ClearStatus();
    Say(end.reason);
    Say(SummaryLine(status));
    if (m_writer) {
        m_writer->Put(StatusJson(status, m_pipe, end));
        m_writer->Flush(kLastReportPatience);
    }
}

}  // namespace ravlo
