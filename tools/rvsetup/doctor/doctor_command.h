#pragma once

#include "common/command.h"
#include "common/command_line.h"

namespace ravlo {

/// "rvsetup doctor".
class DoctorCommand final : public Command {
public:
    explicit DoctorCommand(CommandLine& line);

    const char* Name() const noexcept override { return "doctor"; }
    ExitCode Run() override;
};

}  // namespace ravlo
