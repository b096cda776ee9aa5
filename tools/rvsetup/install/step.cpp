#include "rvsetup/install/step.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstddef>

namespace ravlo {
namespace {

struct StepWords {
    StepKind kind;
    const char* present;
    const char* past;
};

constexpr std::array kWords{
    StepWords{StepKind::WriteRecord, "write", "wrote"},
    StepWords{StepKind::CreateFolder, "create", "created"},
    StepWords{StepKind::SetAside, "rename", "renamed"},
    StepWords{StepKind::InstallFile, "copy", "copied"},
    StepWords{StepKind::WriteAnchor, "write", "wrote"},
    StepWords{StepKind::CreateLogFolder, "create", "created"},
    StepWords{StepKind::SecureLogFolder, "secure", "secured"},
    StepWords{StepKind::Register, "register", "registered"},
    StepWords{StepKind::RemoveFile, "remove", "removed"},
    StepWords{StepKind::PutBack, "restore", "restored"},
    StepWords{StepKind::RemoveFolder, "remove", "removed"},
    StepWords{StepKind::RemoveClass, "remove", "removed"},
    StepWords{StepKind::RestoreClass, "restore", "restored"},
    StepWords{StepKind::RemoveAnchor, "remove", "removed"},
    StepWords{StepKind::RestoreAnchor, "restore", "restored"},
    StepWords{StepKind::RemoveAnchorKey, "remove", "removed"},
    StepWords{StepKind::RestoreLogSecurity, "restore", "restored"},
    StepWords{StepKind::RemoveLogFolder, "remove", "removed"},
    StepWords{StepKind::RemoveRecord, "remove", "removed"},
};

const StepWords& WordsOf(StepKind kind) {
    for (const StepWords& words : kWords) {
        if (words.kind == kind) {
            return words;
        }
    }
    return kWords.front();
}

/// What the step acts on, in words.
std::string Object(const Step& step) {
    switch (step.kind) {
        case StepKind::WriteRecord:
            return step.target + " (what uninstall puts back)";
        case StepKind::SetAside:
            return step.target + " to " + step.source;
        case StepKind::InstallFile:
            return step.source + " to " + step.target;
        case StepKind::WriteAnchor:
            return step.target + " = " + step.source;
        case StepKind::CreateLogFolder:
        case StepKind::SecureLogFolder:
            return step.target + " (trace log: owner Administrators; LOCAL SERVICE and " + step.source + " may write)";
        case StepKind::RemoveLogFolder:
            return step.target + " with the trace log";
        case StepKind::RestoreLogSecurity:
            return step.target + " (owner and access list)";
        case StepKind::PutBack:
            return step.target + " from " + step.source;
        default:
            return step.target;
    }
}

}  // namespace

std::string DescribeStep(const Step& step) {
    constexpr std::size_t kColumn = 10;
    std::string line = WordsOf(step.kind).present;
    line.resize(kColumn, ' ');
    return line + Object(step);
}

std::string NameStep(const Step& step) {
    return std::string(WordsOf(step.kind).present) + " " + Object(step);
}

std::string ReportStep(const Step& step) {
    return std::string(WordsOf(step.kind).past) + " " + Object(step);
}

std::string StepsToJson(const std::vector<Step>& steps, const std::vector<bool>& done, bool dryRun,
                        const std::vector<std::string>& notes) {
    using Json = nlohmann::ordered_json;
    Json changes = Json::array();
    for (std::size_t i = 0; i < steps.size(); ++i) {
        changes.push_back(Json{{"action", WordsOf(steps[i].kind).present},
                               {"target", steps[i].target},
                               {"source", steps[i].source},
                               {"done", static_cast<bool>(done.at(i))}});
    }
    const Json json{{"dryRun", dryRun}, {"changes", std::move(changes)}, {"notes", notes}};
    constexpr int kIndent = 2;
    return json.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace ravlo
