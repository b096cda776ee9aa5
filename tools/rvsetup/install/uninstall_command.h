#pragma once

#include "common/command.h"
#include "common/command_line.h"

namespace ravlo {

/// "rvsetup uninstall".
class UninstallCommand final : public Command {
public:
    explicit UninstallCommand(CommandLine& line);

    const char* Name() const noexcept override { return "uninstall"; }
    ExitCode Run() override;
};

}  // namespace ravlo
