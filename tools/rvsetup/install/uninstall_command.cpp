#include "rvsetup/install/uninstall_command.h"

#include <windows.h>

#include <optional>
#include <string>

#include "common/messages.h"
#include "rvsetup/install/account.h"
#include "rvsetup/install/change_list.h"
#include "rvsetup/install/executor.h"
#include "rvsetup/install/file_work.h"
#include "rvsetup/install/locations.h"
#include "rvsetup/install/machine.h"
#include "rvsetup/system/text.h"

namespace ravlo {
namespace {

constexpr char kExamples[] =
    "  rvsetup uninstall\n"
    "      Take the camera away; registry and files are then as before the first install\n"
    "  rvsetup uninstall --dry-run\n"
    "      Show what would change, without being administrator\n"
    "  rvsetup uninstall --keep-log\n"
    "      Leave C:\\ProgramData\\Ravlo with the trace log\n";

ExitCode SayNothingInstalled(const MachineState& state) {
    Say(state.serverPath.empty()
            ? "nothing is installed"
            : "nothing was installed by rvsetup; the camera is registered for " + Printable(state.serverPath) +
                  ", and \"regsvr32 /u\" with that path takes it away");
    return ExitCode::NotInstalled;
}

}  // namespace

UninstallCommand::UninstallCommand(CommandLine& line) {
    OptionSet& options =
        line.Command("uninstall", "Takes the camera away and leaves registry and files as they were.", kExamples);
    options.Flag("--keep-log", m_keepLog, "Leave the trace log; without this, gather it first with \"rvsetup report\"");
    options.Flag("--dry-run", m_dryRun, "Show what would change, and change nothing");
    options.Flag("--json", m_json, "Write the list of changes as JSON to standard output");
}

ExitCode UninstallCommand::Run() {
    if (!m_dryRun && !IsAdministrator()) {
        return SayAdministratorNeeded();
    }
    std::string problem = "this system does not tell where programs are installed";
    const auto places = FindPlaces();
    if (places && !m_dryRun) {
        Sweep(places->programFolder);
    }
    const auto state = places ? ReadMachine(*places, problem) : std::nullopt;
    if (!state) {
        Say(Printable(problem));
        return ExitCode::Failure;
    }
    if (!state->journal) {
        return SayNothingInstalled(*state);
    }
    const Plan plan = PlanUninstall(*places, *state, m_keepLog);
    return m_dryRun ? ShowPlan(plan, m_json) : CarryOut(*places, plan);
}

ExitCode UninstallCommand::CarryOut(const Places& places, const Plan& plan) const {
    // A folder in which this process stands cannot be removed.
    wchar_t system[MAX_PATH]{};
    if (GetSystemDirectoryW(system, MAX_PATH) != 0) {
        SetCurrentDirectoryW(system);
    }
    for (const std::string& note : plan.notes) {
        Say(Printable(note));
    }
    Executor executor(places, plan);
    const ExitCode code = executor.Run();
    Say(code == ExitCode::Ok ? "the camera is uninstalled; restart programs that have it open"
                             : "the uninstall is not complete: run it again to finish it");
    if (m_json) {
        ShowAsJson(plan, executor);
    }
    return code;
}

}  // namespace ravlo
