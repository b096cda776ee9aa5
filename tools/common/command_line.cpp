#include "common/command_line.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <numeric>

#include "common/messages.h"
#include "ravlo/version.h"

namespace ravlo {
namespace {

/// Single-character insertions, deletions and replacements that turn one word into the other.
std::size_t EditDistance(const std::string& left, const std::string& right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 1; i <= left.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= right.size(); ++j) {
            const std::size_t replaced = diagonal + (left[i - 1] == right[j - 1] ? 0U : 1U);
            diagonal = row[j];
            row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
        }
    }
    return row.back();
}

std::string DescribeParseError(const CLI::App& app, const CLI::ParseError& error) {
    const auto unknown = app.remaining();
    if (dynamic_cast<const CLI::ExtrasError*>(&error) == nullptr || unknown.empty()) {
        return error.what();
    }
    const std::string word = unknown.front().substr(0, unknown.front().find('='));
    if (!word.starts_with('-')) {
        return "what is \"" + word + "\" for? Nothing more was expected here";
    }
    const std::string nearest = NearestOption(app, word);
    return "unknown option " + word + (nearest.empty() ? std::string() : "; did you mean " + nearest + "?");
}

}  // namespace

void SetUpCommandLine(CLI::App& app, const std::string& program, const std::string& examples) {
    app.name(program);
    app.set_version_flag("--version", program + " " + RAVLO_VERSION, "Show the version and end");
    app.set_help_flag("-h,--help", "Show this help and end");
    app.footer("Examples:\n" + examples);
    app.get_formatter()->column_width(34);
}

std::string NearestOption(const CLI::App& app, const std::string& mistyped) {
    constexpr std::size_t kFarthest = 3;  // beyond that the guess is more confusing than none
    std::string nearest;
    std::size_t best = kFarthest + 1;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            const std::size_t distance = EditDistance("--" + name, mistyped);
            if (distance < best) {
                best = distance;
                nearest = "--" + name;
            }
        }
    }
    return nearest;
}

std::optional<ExitCode> ParseCommandLine(CLI::App& app, std::vector<std::string> arguments) {
    if (!arguments.empty()) {
        arguments.erase(arguments.begin());
    }
    std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
    try {
        app.parse(arguments);
        return std::nullopt;
    } catch (const CLI::Success& answered) {
        app.exit(answered);
        return ExitCode::Ok;
    } catch (const CLI::ParseError& error) {
        Say(DescribeParseError(app, error));
        Say("try --help");
        return ExitCode::Usage;
    }
}

}  // namespace ravlo
