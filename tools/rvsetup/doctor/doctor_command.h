#pragma once

#include "common/command.h"
#include "common/command_line.h"
#include "rvsetup/doctor/doctor_options.h"

namespace ravlo {

/// "rvsetup doctor": looks at everything that a picture needs and says what to do next.
class DoctorCommand final : public Command {
public:
    explicit DoctorCommand(CommandLine& line);

    const char* Name() const noexcept override { return "doctor"; }
    ExitCode Run() override;

private:
    DoctorOptions m_options;
};

}  // namespace ravlo
