#include "rvsetup/report/report_command.h"

namespace ravlo {

ReportCommand::ReportCommand(CommandLine& line) {
    line.Command("report", "Gathers all of it for a bug report.", "  rvsetup report\n");
}

ExitCode ReportCommand::Run() {
    return ExitCode::Failure;
}

}  // namespace ravlo
