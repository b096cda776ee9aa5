#pragma once

#include "common/command.h"
#include "common/command_line.h"

namespace ravlo {

/// "rvsetup report".
class ReportCommand final : public Command {
public:
    explicit ReportCommand(CommandLine& line);

    const char* Name() const noexcept override { return "report"; }
    ExitCode Run() override;
};

}  // namespace ravlo
