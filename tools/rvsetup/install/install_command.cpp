#include "rvsetup/install/install_command.h"

#include "common/messages.h"
#include "common/wide_text.h"
#include "rvsetup/install/change_list.h"
#include "rvsetup/install/executor.h"
#include "rvsetup/install/file_work.h"
#include "rvsetup/install/locations.h"
#include "rvsetup/install/machine.h"
#include "rvsetup/system/text.h"

namespace ravlo {
namespace {

constexpr char kExamples[] =
    "  rvsetup install --me\n"
    "      Install the camera; programs of the account of this console may send frames\n"
    "  rvsetup install --user S-1-5-21-397955417-626881126-188441444-1001\n"
    "      The same for the account with this SID; \"whoami /user\" shows it\n"
    "  rvsetup install --me --dry-run\n"
    "      Show what would change, without being administrator\n"
    "  rvsetup install --dll D:\\new\\rvmediasource.dll\n"
    "      Install another version and keep the user\n";

/// Takes versions that install has removed out of the record. It works as well with them in it.
void ForgetOldVersions(const Places& places, const InstallRequest& request) {
    std::string problem;
    const auto state = ReadMachine(places, problem);
    if (!state || !state->journal || request.files.empty()) {
        return;
    }
    const Journal trimmed = TrimJournal(*state->journal, places.programFolder + "\\" + request.version, *state);
    if (trimmed != *state->journal) {
        WriteFileSafely(places.RecordPath(), JournalToText(trimmed));
    }
}

void SayWhatNext(const InstallRequest& request) {
    if (request.files.empty()) {
        Say("the user may send frames now; the camera notices within a second");
        return;
    }
    Say("Ravlo " + request.version +
        " is installed. Next: \"rvsetup doctor\" checks it, \"rvclient start\" shows the camera to Windows 11; restart "
        "programs that have a camera open");
}

}  // namespace

InstallCommand::InstallCommand(CommandLine& line) {
    line.Options().Text("--install", "SID", m_shortSid,
                        "Short for \"install --user SID\", as the camera's log advises");
    OptionSet& options = line.Command(
        "install", "Puts the camera on this machine and names the one user who may send frames.", kExamples);
    options.Text("--user", "SID", m_userText, "Whose programs may send frames: a SID or an account name");
    options.Flag("--me", m_me, "The same for the account of this console");
    options.Text("--dll", "PATH", m_dll, "The camera to install (default: rvmediasource.dll beside rvsetup.exe)");
    options.Flag("--dry-run", m_dryRun, "Show what would change, and change nothing");
    options.Flag("--json", m_json, "Write the list of changes as JSON to standard output");
}

std::string InstallCommand::FindContradiction() const {
    if (m_me && WasGiven(m_userText)) {
        return "--me and --user exclude each other: name one user";
    }
    if (m_dll.empty()) {
        return "--dll needs the path of the camera's DLL";
    }
    return {};
}

std::optional<ExitCode> InstallCommand::ChooseUser() {
    const std::string& named = IsShortForm() ? m_shortSid : m_userText;
    std::string problem;
    if (m_me) {
        m_user = FindOwnUser(problem);
    } else if (WasGiven(named)) {
        m_user = FindFrameUser(named, problem);
    } else {
        m_user = FindAnchoredUser(problem);
        if (!m_user && problem.empty()) {
            problem = "say whose programs may send frames: --me for the account of this console, or --user SID";
        }
    }
    if (!m_user) {
        return WrongUsage(Printable(problem));
    }
    if (m_user->name.empty()) {
        Say("warning: " + m_user->sid + " is no account that this machine knows just now; is it right?");
    } else {
        Say("the user who may send frames: " + Printable(m_user->name) + " (" + m_user->sid + ")" +
            (m_me ? ", the account of this console; if you work with another one, name it with --user" : ""));
    }
    return std::nullopt;
}

std::optional<ExitCode> InstallCommand::ChooseFiles(const Places& places, const MachineState& state,
                                                    InstallRequest& request) {
    std::string problem;
    request = FindFiles(places, WasGiven(m_dll) ? m_dll : std::string(), problem);
    request.sid = m_user->sid;
    if (!request.files.empty()) {
        return std::nullopt;
    }
    // The log of an installed camera advises this when the anchor is missing; that needs no files.
    if (IsShortForm() && !state.serverPath.empty()) {
        Say("the camera is registered already, for " + Printable(state.serverPath) + "; only the user is written");
        return std::nullopt;
    }
    Say(Printable(problem));
    if (!WasGiven(m_dll)) {
        Say("put rvsetup.exe beside the camera's DLL, or name it with --dll PATH");
    }
    return ExitCode::Failure;
}

ExitCode InstallCommand::Run() {
    if (const std::string contradiction = FindContradiction(); !contradiction.empty()) {
        return WrongUsage(contradiction);
    }
    if (!m_dryRun && !IsAdministrator()) {
        return SayAdministratorNeeded();
    }
    if (const auto ended = ChooseUser()) {
        return *ended;
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
    InstallRequest request;
    if (const auto ended = ChooseFiles(*places, *state, request)) {
        return *ended;
    }
    const Plan plan = PlanInstall(*places, request, *state);
    return m_dryRun ? ShowPlan(plan, m_json) : CarryOut(*places, request, plan);
}

ExitCode InstallCommand::CarryOut(const Places& places, const InstallRequest& request, const Plan& plan) const {
    Executor executor(places, plan);
    const ExitCode code = executor.Run();
    if (code == ExitCode::Ok) {
        ForgetOldVersions(places, request);
        SayWhatNext(request);
    } else {
        Say("the install is not complete: run it again to finish it, or \"rvsetup uninstall\" to go back");
    }
    if (m_json) {
        ShowAsJson(plan, executor);
    }
    return code;
}

}  // namespace ravlo
