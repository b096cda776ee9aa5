#pragma once

#include <optional>
#include <string>

#include "common/command.h"
#include "common/command_line.h"
#include "rvsetup/install/account.h"
#include "rvsetup/install/plan.h"

namespace ravlo {

/// "rvsetup install", and "rvsetup --install SID", which the camera's own log advises.
class InstallCommand final : public Command {
public:
    explicit InstallCommand(CommandLine& line);

    const char* Name() const noexcept override { return "install"; }
    ExitCode Run() override;

    /// Whether the program was started as "rvsetup --install SID", without a command.
    bool IsShortForm() const noexcept { return WasGiven(m_shortSid); }

private:
    /// What the parser cannot see; empty when the options go together.
    std::string FindContradiction() const;
    /// Sets m_user. Nothing when the install can go on, else the exit code; the user has then been told.
    std::optional<ExitCode> ChooseUser();
    /// The same for the files of `request`.
    std::optional<ExitCode> ChooseFiles(const Places& places, const MachineState& state, InstallRequest& request);
    ExitCode CarryOut(const Places& places, const InstallRequest& request, const Plan& plan) const;

    /// What an option holds that was not given: nothing that can be typed, and so told from an empty value.
    static constexpr char kNotGiven[] = "\n";
    static bool WasGiven(const std::string& value) noexcept { return value != kNotGiven; }

    std::string m_userText = kNotGiven;
    std::string m_dll = kNotGiven;
    std::string m_shortSid = kNotGiven;
    bool m_me = false;
    bool m_dryRun = false;
    bool m_json = false;
    std::optional<FrameUser> m_user;
};

}  // namespace ravlo
