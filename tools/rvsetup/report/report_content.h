#pragma once

#include <string>
#include <vector>

namespace ravlo {

/// One file of a report.
struct ReportPart {
    std::string name;  ///< UTF-8, with "/" between folders
    std::string content;
    std::string what;  ///< what is in it, for the list that the user sees first
};

struct ReportContent {
    std::vector<ReportPart> parts;
    std::vector<std::string> personal;  ///< what in it concerns a person, in words
};

/// Gathers everything. With `redact`, names and account numbers are replaced by placeholders. A signalled `interrupt`
/// (an event, may be null) ends it early, with a part of it.
ReportContent GatherReport(bool redact, void* interrupt);

}  // namespace ravlo
