#pragma once

#include "common/command.h"
#include "common/command_line.h"
#include "rvsetup/install/plan.h"

namespace ravlo {

/// "rvsetup uninstall".
class UninstallCommand final : public Command {
public:
    explicit UninstallCommand(CommandLine& line);

    const char* Name() const noexcept override { return "uninstall"; }
    ExitCode Run() override;

private:
    ExitCode CarryOut(const Places& places, const Plan& plan) const;

    bool m_dryRun = false;
    bool m_keepLog = false;
    bool m_json = false;
};

}  // namespace ravlo
