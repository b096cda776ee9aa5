#pragma once

#include <string>

#include "rvsetup/report/report_content.h"
#include "rvsetup/report/report_options.h"

namespace ravlo {

/// Why no report can be written to the target, as a sentence; empty when one can. Changes nothing.
std::string WhyNoTarget(const ReportOptions& options);

/// Writes the report; what went wrong, as a sentence, or empty. A zip file appears when it is complete.
std::string WriteReport(const ReportOptions& options, const ReportContent& content);

}  // namespace ravlo
