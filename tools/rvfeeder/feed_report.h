#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/report_writer.h"
#include "rvfeeder/feed_status.h"

namespace ravlo {

/// Shows how a run goes: on the console behind standard error as a status line, and as JSON on standard output if that
/// is wanted. Times are steady, in units of 100 ns. One thread uses it.
class FeedReport {
public:
    FeedReport(std::string pipe, bool json);

    /// Whether something is to be shown now; only then the status need be put together.
    bool IsDue(std::int64_t now) const noexcept { return now >= m_nextLine || now >= m_nextJson; }

    void Show(std::int64_t now, const FeedStatus& status);

    /// The last report and the summary.
    void End(const FeedStatus& status, const FeedEnd& end);

private:
    std::string m_pipe;
    std::optional<ReportWriter> m_writer;
    std::int64_t m_nextLine;
    std::int64_t m_nextJson;
};

}  // namespace ravlo
