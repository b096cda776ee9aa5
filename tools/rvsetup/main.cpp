#include <array>
#include <string>

#include "common/command.h"
#include "common/command_line.h"
#include "common/messages.h"
#include "common/program.h"
#include "common/wide_text.h"
#include "rvsetup/doctor/doctor_command.h"
#include "rvsetup/install/install_command.h"
#include "rvsetup/install/uninstall_command.h"
#include "rvsetup/report/report_command.h"
#include "rvsetup/trace/trace_command.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvsetup install --me\n"
    "      Install the camera; programs of the user who runs this may send frames\n"
    "  rvsetup doctor\n"
    "      Find out why there is no picture\n";

ExitCode Main() {
    CommandLine line("rvsetup", "Installs the Ravlo camera, and finds out what is wrong with it.", kExamples);
    InstallCommand install(line);
    UninstallCommand uninstall(line);
    DoctorCommand doctor(line);
    ReportCommand report(line);
    TraceCommand trace(line);
    if (const auto ended = line.Parse(Utf8Arguments())) {
        return *ended;
    }
    if (install.IsShortForm()) {
        return line.ChosenCommand().empty() ? install.Run()
                                            : WrongUsage("--install stands alone, without a command behind it");
    }
    for (Command* command : std::array<Command*, 5>{&install, &uninstall, &doctor, &report, &trace}) {
        if (line.ChosenCommand() == command->Name()) {
            return command->Run();
        }
    }
    return WrongUsage("say what to do: install, uninstall, doctor, report or trace");
}

}  // namespace
}  // namespace ravlo

int main() {
    ravlo::RunProgram("rvsetup", ravlo::Main);
}
