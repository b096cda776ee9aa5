#pragma once

#include <string>

#include "common/command_line.h"

namespace ravlo {

/// What the user asks of "rvsetup report".
struct ReportOptions {
    std::string target;
    bool force = false;
    bool redact = false;
};

void DeclareReportOptions(OptionSet& set, ReportOptions& options);

/// What is wrong with the options, as a sentence; empty when nothing is.
std::string WhatIsWrongWith(const ReportOptions& options);

/// Whether the report becomes one zip file rather than a folder.
bool IsZipName(const std::string& target);

}  // namespace ravlo
