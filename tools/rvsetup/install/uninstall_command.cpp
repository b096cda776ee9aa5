#include "rvsetup/install/uninstall_command.h"

namespace ravlo {

UninstallCommand::UninstallCommand(CommandLine& line) {
    line.Command("uninstall", "Takes the camera away and leaves registry and files as they were.",
                 "  rvsetup uninstall\n");
}

ExitCode UninstallCommand::Run() {
    return ExitCode::Failure;
}

}  // namespace ravlo
