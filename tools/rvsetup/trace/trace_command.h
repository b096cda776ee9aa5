#pragma once

#include <string>

#include "common/command.h"
#include "common/command_line.h"
#include "rvsetup/trace/trace_options.h"

namespace ravlo {

/// "rvsetup trace": shows the camera's log, and what is written into it from now on.
class TraceCommand final : public Command {
public:
    explicit TraceCommand(CommandLine& line);

    const char* Name() const noexcept override { return "trace"; }
    ExitCode Run() override;

private:
    TraceOptions m_options;
};

}  // namespace ravlo
