#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/exit_codes.h"

namespace CLI {
class App;
}

namespace ravlo {

/// The options of a program, or of one of its commands. `names` is what the user types, such as "--pipe" or
/// "-n,--name"; `valueName` stands for the value in the help, such as "SECONDS". A variable keeps what it held when its
/// option is not given. Variables must outlive the parsing.
class OptionSet {
public:
    explicit OptionSet(CLI::App& app) noexcept : m_app(app) {}
    OptionSet(const OptionSet&) = delete;
    OptionSet& operator=(const OptionSet&) = delete;

    void Flag(const std::string& names, bool& value, const std::string& help);
    void Text(const std::string& names, const std::string& valueName, std::string& value, const std::string& help);
    /// Any number of values, by repeating the option.
    void Texts(const std::string& names, const std::string& valueName, std::vector<std::string>& values,
               const std::string& help);
    /// A whole number within `low`..`high`; anything else is answered as wrong usage.
    void Number(const std::string& names, const std::string& valueName, std::int64_t& value, std::int64_t low,
                std::int64_t high, const std::string& help);
    /// A number with a fraction within `low`..`high`.
    void Decimal(const std::string& names, const std::string& valueName, double& value, double low, double high,
                 const std::string& help);
    /// One of a few words.
    void Choice(const std::string& names, std::string& value, const std::vector<std::string>& choices,
                const std::string& help);
    /// A value without an option in front of it.
    void Positional(const std::string& valueName, std::string& value, bool required, const std::string& help);
    /// Title in the help above the options that follow; "Options" until the first call.
    void Group(const std::string& title) { m_group = title; }

private:
    CLI::App& m_app;
    std::string m_group = "Options";
};

/// The command line of one program. All programs answer in the same way: `--help` and `--version` on standard output
/// with exit code 0; a mistake with one clear line on standard error, the nearest right word where there is one, and
/// exit code 2.
class CommandLine {
public:
    /// `summary` is one sentence; `examples` are the lines at the end of the help: a command line indented by two
    /// blanks, then a line that explains it indented by six.
    CommandLine(const std::string& program, const std::string& summary, const std::string& examples);
    ~CommandLine();

    /// The options that stand before any command.
    OptionSet& Options() noexcept { return m_options; }

    /// Adds a command with options of its own, as in "program command --option". The reference lives as long as this.
    OptionSet& Command(const std::string& name, const std::string& summary, const std::string& examples);

    /// Parses UTF-8 `arguments`, the program's name first. Nothing when the program shall go on; otherwise the user has
    /// been answered and the program ends with the code returned.
    std::optional<ExitCode> Parse(std::vector<std::string> arguments);

    /// The command that was given; empty when there was none. After Parse.
    std::string ChosenCommand() const;

private:
    std::unique_ptr<CLI::App> m_app;
    OptionSet m_options;
    std::deque<OptionSet> m_commands;
};

/// For what the parser cannot see: says `sentence` and where help is to be found. Always ExitCode::Usage.
ExitCode WrongUsage(const std::string& sentence);

/// The word of `known` closest to a mistyped one, or empty when none is close.
std::string NearestWord(const std::vector<std::string>& known, const std::string& mistyped);

}  // namespace ravlo
