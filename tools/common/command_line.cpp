#include "common/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <numeric>
#include <system_error>

#include "common/messages.h"
#include "ravlo/version.h"

namespace ravlo {
namespace {

constexpr std::size_t kHelpColumn = 34;

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

void SetUp(CLI::App& app, const std::string& examples) {
    app.allow_windows_style_options(false);  // else "/json" would be an option where others see the path of a file
    app.set_help_flag("-h,--help", "Show this help and end");
    app.footer("Examples:\n" + examples);
    app.get_formatter()->column_width(kHelpColumn);
}

/// The command whose arguments were being read when a mistake was found, or the program itself.
const CLI::App& Innermost(const CLI::App& app) {
    const auto chosen = app.get_subcommands();
    return chosen.empty() ? app : *chosen.front();
}

std::vector<std::string> OptionNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        names.push_back(command->get_name());
    }
    return names;
}

/// Of this program or command, as it is typed: "--name" or "-n".
const CLI::Option* FindOption(const CLI::App& app, const std::string& typed) {
    return typed.starts_with('-') ? app.get_option_no_throw(typed) : nullptr;
}

std::string NeedsValue(const CLI::Option& option) {
    return option.get_name() + " needs a value: " + option.get_type_name();
}

std::string DidYouMean(const std::string& nearest) {
    return nearest.empty() ? std::string() : "; did you mean " + nearest + "?";
}

/// A check of one value: `problem` says what is wrong with the text, or nothing.
template <class Problem>
CLI::Validator Check(Problem problem) {
    CLI::Validator validator;
    validator.operation([problem](std::string& text) { return problem(text); });
    return validator;
}

CLI::Validator WholeNumberWithin(std::int64_t low, std::int64_t high) {
    return Check([low, high](const std::string& text) {
        std::int64_t value = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (error == std::errc() && stop == end && value >= low && value <= high) {
            return std::string();
        }
        return "\"" + text + "\" is no whole number from " + std::to_string(low) + " to " + std::to_string(high);
    });
}

CLI::Validator NumberWithin(double low, double high) {
    return Check([low, high](const std::string& text) {
        double value = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (error == std::errc() && stop == end && value >= low && value <= high) {  // which "nan" is not
            return std::string();
        }
        std::array<char, 64> range{};
        std::snprintf(range.data(), range.size(), "%.9g to %.9g", low, high);
        return "\"" + text + "\" is no number from " + range.data();
    });
}

CLI::Validator OneOf(const std::vector<std::string>& choices, const std::string& list) {
    return Check([choices, list](const std::string& text) {
        if (std::find(choices.begin(), choices.end(), text) != choices.end()) {
            return std::string();
        }
        return "\"" + text + "\" is none of " + list;
    });
}

/// An option took the next one for its value.
class TakenOption : public CLI::ParseError {
public:
    TakenOption(const std::string& option, const std::string& next)
        : ParseError("TakenOption", option + " needs a value, and " + next + " is an option",
                     static_cast<int>(ExitCode::Usage)) {}
};

/// Adds an option with a value that is not the name of another option.
template <class Value>
CLI::Option* AddOption(CLI::App& app, const std::string& names, Value& value, const std::string& help) {
    CLI::Option* const option = app.add_option(names, value, help);
    return option->check(Check([&app, option](const std::string& text) {
        if (FindOption(app, text) != nullptr) {
            throw TakenOption(option->get_name(), text);
        }
        return std::string();
    }));
}

/// For "--name=" with nothing behind it, which the parser would take for "--name"; empty when there is none.
std::string DescribeEmptyValue(const CLI::App& program, const std::vector<std::string>& arguments) {
    const CLI::App* app = &program;
    for (const std::string& argument : arguments) {
        const auto named = [&argument](const CLI::App* command) { return command->get_name() == argument; };
        for (const CLI::App* command : program.get_subcommands(named)) {
            app = command;
        }
        const std::size_t equals = argument.find('=');
        const CLI::Option* const option = equals + 1 == argument.size() && argument.starts_with("--")
                                              ? FindOption(*app, argument.substr(0, equals))
                                              : nullptr;
        if (option != nullptr) {
            return option->get_expected_max() == 0 ? option->get_name() + " takes no value" : NeedsValue(*option);
        }
    }
    return {};
}

/// What was not understood, said in terms of what could have been meant.
std::string DescribeExtra(const CLI::App& program, const std::string& extra) {
    const CLI::App& app = Innermost(program);
    const std::string word = extra.substr(0, extra.find('='));
    if (word.starts_with('-')) {
        const std::string nearest = NearestWord(OptionNames(app), word);
        return nearest == word ? word + " belongs behind " + app.get_name()
                               : "unknown option " + word + DidYouMean(nearest);
    }
    if (word.starts_with('/')) {
        const std::string nearest = word == "/?" ? "--help" : NearestWord(OptionNames(app), "--" + word.substr(1));
        if (!nearest.empty()) {
            return "options begin with two dashes, and not with a slash as in " + word + DidYouMean(nearest);
        }
    }
    const std::vector<std::string> commands = CommandNames(app);
    if (!commands.empty()) {
        return "unknown command " + word + DidYouMean(NearestWord(commands, word));
    }
    return "what is \"" + word + "\" for? Nothing more was expected here";
}

/// The option that an error is about stands at the begin of its text.
std::string OptionOf(const CLI::ParseError& error) {
    const std::string text = error.what();
    return text.substr(0, text.find(':'));
}

std::string DescribeParseError(const CLI::App& app, const CLI::ParseError& error) {
    const auto extras = app.remaining(true);
    // The parser looks for what is missing first; a mistyped option is the better explanation for that.
    const bool isMissing = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr;
    if ((isMissing || dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) && !extras.empty()) {
        return DescribeExtra(app, extras.front());
    }
    if (const CLI::Option* const option = Innermost(app).get_option_no_throw(OptionOf(error));
        option != nullptr && dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
        if (option->get_expected_max() == 0) {
            return option->get_name() + " takes no value";
        }
        return option->count() > 1 ? option->get_name() + " is given more than once" : NeedsValue(*option);
    }
    if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
        const std::string text = error.what();  // "Could not convert: --json = maybe"
        const std::size_t begin = text.find("--");
        if (begin != std::string::npos) {
            return text.substr(begin, text.find(' ', begin) - begin) + " takes no value";
        }
    }
    return error.what();
}

/// The parser puts one blank line or several between its sections, as its version has it; here it is always one.
std::string WithSingleBlankLines(const std::string& help) {
    std::string text;
    for (const char c : help) {
        if (c != '\n' || !text.ends_with("\n\n")) {
            text += c;
        }
    }
    while (text.ends_with("\n\n")) {
        text.pop_back();
    }
    return text;
}

}  // namespace

void OptionSet::Flag(const std::string& names, bool& value, const std::string& help) {
    m_app.add_flag(names, value, help)->group(m_group);
}

void OptionSet::Text(const std::string& names, const std::string& valueName, std::string& value,
                     const std::string& help) {
    AddOption(m_app, names, value, help)->type_name(valueName)->group(m_group);
}

void OptionSet::Texts(const std::string& names, const std::string& valueName, std::vector<std::string>& values,
                      const std::string& help) {
    AddOption(m_app, names, values, help)->type_name(valueName)->group(m_group)->allow_extra_args(false);
}

void OptionSet::Number(const std::string& names, const std::string& valueName, std::int64_t& value, std::int64_t low,
                       std::int64_t high, const std::string& help) {
    AddOption(m_app, names, value, help)->check(WholeNumberWithin(low, high))->type_name(valueName)->group(m_group);
}

void OptionSet::Decimal(const std::string& names, const std::string& valueName, double& value, double low, double high,
                        const std::string& help) {
    AddOption(m_app, names, value, help)->check(NumberWithin(low, high))->type_name(valueName)->group(m_group);
}

void OptionSet::Choice(const std::string& names, std::string& value, const std::vector<std::string>& choices,
                       const std::string& help) {
    std::string list;
    for (const std::string& choice : choices) {
        list += (list.empty() ? "" : "|") + choice;
    }
    AddOption(m_app, names, value, help)->check(OneOf(choices, list))->type_name(list)->group(m_group);
}

void OptionSet::Positional(const std::string& valueName, std::string& value, bool required, const std::string& help) {
    m_app.add_option(valueName, value, help)->type_name("")->required(required);
}

CommandLine::CommandLine(const std::string& program, const std::string& summary, const std::string& examples)
    : m_app(std::make_unique<CLI::App>(summary, program)), m_options(*m_app) {
    SetUp(*m_app, examples);
    m_app->set_version_flag("--version", program + " " + RAVLO_VERSION, "Show the version and end");
    m_app->require_subcommand(0, 1);
    m_app->get_formatter()->label("SUBCOMMAND", "COMMAND");
}

CommandLine::~CommandLine() = default;

OptionSet& CommandLine::Command(const std::string& name, const std::string& summary, const std::string& examples) {
    CLI::App* const command = m_app->add_subcommand(name, summary);
    command->group("Commands");
    SetUp(*command, examples);
    return m_commands.emplace_back(*command);
}

std::optional<ExitCode> CommandLine::Parse(std::vector<std::string> arguments) {
    if (!arguments.empty()) {
        arguments.erase(arguments.begin());
    }
    const std::string emptyValue = DescribeEmptyValue(*m_app, arguments);
    if (!emptyValue.empty()) {
        return WrongUsage(emptyValue);
    }
    std::reverse(arguments.begin(), arguments.end());  // the parser takes them from the back
    try {
        m_app->parse(arguments);
        return std::nullopt;
    } catch (const CLI::CallForHelp&) {
        std::fputs(WithSingleBlankLines(m_app->help()).c_str(), stdout);
        return ExitCode::Ok;
    } catch (const CLI::Success& answered) {
        m_app->exit(answered);
        return ExitCode::Ok;
    } catch (const CLI::ParseError& error) {
        return WrongUsage(DescribeParseError(*m_app, error));
    }
}

std::string CommandLine::ChosenCommand() const {
    const auto chosen = m_app->get_subcommands();
    return chosen.empty() ? std::string() : chosen.front()->get_name();
}

ExitCode WrongUsage(const std::string& sentence) {
    Say(sentence);
    Say("try --help");
    return ExitCode::Usage;
}

std::string NearestWord(const std::vector<std::string>& known, const std::string& mistyped) {
    constexpr std::size_t kFarthest = 3;  // beyond that the guess is more confusing than none
    std::string nearest;
    std::size_t best = kFarthest + 1;
    for (const std::string& word : known) {
        const std::size_t distance = EditDistance(word, mistyped);
        if (distance < best) {
            best = distance;
            nearest = word;
        }
    }
    return nearest;
}

}  // namespace ravlo
