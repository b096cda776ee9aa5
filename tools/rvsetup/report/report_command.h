#pragma once

#include "common/command.h"
#include "common/command_line.h"
#include "rvsetup/report/report_options.h"

namespace ravlo {

/// "rvsetup report": gathers what somebody needs who is to find out what is wrong.
class ReportCommand final : public Command {
public:
    explicit ReportCommand(CommandLine& line);

    const char* Name() const noexcept override { return "report"; }
    ExitCode Run() override;

private:
    ReportOptions m_options;
};

}  // namespace ravlo
