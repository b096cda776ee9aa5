#pragma once

#include "common/command.h"
#include "common/command_line.h"

namespace ravlo {

/// "rvsetup install".
class InstallCommand final : public Command {
public:
    explicit InstallCommand(CommandLine& line);

    const char* Name() const noexcept override { return "install"; }
    ExitCode Run() override;
};

}  // namespace ravlo
