#pragma once

#include <CLI/CLI.hpp>

#include <optional>
#include <string>
#include <vector>

#include "common/exit_codes.h"

namespace ravlo {

/// Gives `app` what all programs share: `--version`, and `examples` at the end of its help.
void SetUpCommandLine(CLI::App& app, const std::string& program, const std::string& examples);

/// Parses `arguments`, the program's name first. Nothing when the program shall go on; otherwise it has been answered
/// (help and version on standard output, one clear line on standard error) and ends with the code returned.
std::optional<ExitCode> ParseCommandLine(CLI::App& app, std::vector<std::string> arguments);

/// The known name closest to a mistyped option, or empty when none is close.
std::string NearestOption(const CLI::App& app, const std::string& mistyped);

}  // namespace ravlo
