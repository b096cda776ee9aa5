#include "rvsetup/report/report_options.h"

#include <algorithm>
#include <cctype>

namespace ravlo {

void DeclareReportOptions(OptionSet& set, ReportOptions& options) {
    set.Positional("TARGET", options.target, true, "What to write: a FILE.zip, or a folder that is new or empty");
    set.Flag("--redact", options.redact, "Replace SIDs, account names and user folders by placeholders");
    set.Flag("--force", options.force, "Write over a FILE.zip that is there");
}

std::string WhatIsWrongWith(const ReportOptions& options) {
    if (options.target.empty()) {
        return "say where the report goes: a FILE.zip or a folder";
    }
    if (options.force && !IsZipName(options.target)) {
        return "--force is for a FILE.zip; a folder must be new or empty";
    }
    return {};
}

bool IsZipName(const std::string& target) {
    std::string lower(target);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char letter) { return static_cast<char>(std::tolower(letter)); });
    return lower.ends_with(".zip");
}

}  // namespace ravlo
