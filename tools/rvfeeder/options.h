#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/command_line.h"
#include "rvfeeder/input_options.h"

namespace ravlo {

/// What the user asked of the producer. Times are in units of 100 ns where nothing else is said.
struct FeederOptions {
    InputOptions input;                        ///< with a command: only what is expected of its pictures
    std::string command;                       ///< --on-demand; empty when the pictures come from the input
    std::string pipe;                          ///< UTF-8; always a name that a camera may serve
    std::optional<std::int64_t> absenceLimit;  ///< without a camera, after which to give up
    std::uint32_t writeTimeoutMs = 0;
    std::uint64_t idleAfterMs = 0;
    bool always = false;
    bool json = false;
    std::optional<std::int64_t> timeLimit;    ///< since the start, after which to end
    std::optional<std::uint64_t> frameLimit;  ///< sent, after which to end
};

/// The program's command line. Must outlive the parsing.
class FeederOptionSet {
public:
    void Declare(OptionSet& options);

    /// After parsing: checks what the parser cannot. A sentence when something is wrong; `result` is then not complete.
    std::optional<std::string> Interpret(FeederOptions& result) const;

private:
    std::optional<std::string> InterpretSource(FeederOptions& result) const;
    std::optional<std::string> InterpretDemand(FeederOptions& result) const;

    InputOptionSet m_input;
    std::string m_pipe;
    std::string m_command;
    double m_timeoutSeconds = 0;  ///< 0 for what was not given, here and below
    std::int64_t m_writeTimeoutMs = 500;
    double m_idleAfterSeconds = 0;
    double m_seconds = 0;
    std::int64_t m_frames = 0;
    bool m_always = false;
    bool m_json = false;
};

}  // namespace ravlo
