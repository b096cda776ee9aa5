#include "rvsetup/install/install_command.h"

namespace ravlo {

InstallCommand::InstallCommand(CommandLine& line) {
    line.Command("install", "Puts the camera on this machine and names the one user who may send frames.",
                 "  rvsetup install\n");
}

ExitCode InstallCommand::Run() {
    return ExitCode::Failure;
}

}  // namespace ravlo
