#pragma once

#include <string>

#include "common/exit_codes.h"
#include "rvsetup/report/report_content.h"
#include "rvsetup/report/report_options.h"

namespace ravlo {

/// Why no report can be written to the target, as a sentence; empty when one can. Changes nothing.
std::string WhyNoTarget(const ReportOptions& options);

/// How writing a report went.
struct ReportWritten {
    std::string problem;  ///< as a sentence; empty when it is written
    ExitCode code = ExitCode::Ok;
};

/// Writes the report. A zip file appears when it is complete; of a folder nothing stays after a failure.
ReportWritten WriteReport(const ReportOptions& options, const ReportContent& content);

}  // namespace ravlo
