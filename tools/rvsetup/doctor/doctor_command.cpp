#include "rvsetup/doctor/doctor_command.h"

namespace ravlo {

DoctorCommand::DoctorCommand(CommandLine& line) {
    line.Command("doctor", "Looks for what keeps the picture away.", "  rvsetup doctor\n");
}

ExitCode DoctorCommand::Run() {
    return ExitCode::Failure;
}

}  // namespace ravlo
