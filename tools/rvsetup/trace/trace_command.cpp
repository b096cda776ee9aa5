#include "rvsetup/trace/trace_command.h"

namespace ravlo {

TraceCommand::TraceCommand(CommandLine& line) {
    line.Command("trace", "Shows the trace log.", "  rvsetup trace\n");
}

ExitCode TraceCommand::Run() {
    return ExitCode::Failure;
}

}  // namespace ravlo
