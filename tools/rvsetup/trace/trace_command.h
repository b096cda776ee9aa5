#pragma once

#include "common/command.h"
#include "common/command_line.h"

namespace ravlo {

/// "rvsetup trace".
class TraceCommand final : public Command {
public:
    explicit TraceCommand(CommandLine& line);

    const char* Name() const noexcept override { return "trace"; }
    ExitCode Run() override;
};

}  // namespace ravlo
