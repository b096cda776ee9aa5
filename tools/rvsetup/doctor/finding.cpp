#include "rvsetup/doctor/finding.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "rvsetup/system/text.h"

namespace ravlo {

Finding FoundOk(const std::string& id, const std::string& found, const std::string& next) {
    return {id, FindingResult::Ok, found, next, ExitCode::Ok};
}

Finding FoundWarning(const std::string& id, const std::string& found, const std::string& next) {
    return {id, FindingResult::Warn, found, next, ExitCode::Ok};
}

Finding FoundFailure(const std::string& id, ExitCode code, const std::string& found, const std::string& next) {
    return {id, FindingResult::Fail, found, next, code};
}

const char* ResultWord(FindingResult result) noexcept {
    switch (result) {
        case FindingResult::Ok:
            return "OK";
        case FindingResult::Warn:
            return "WARN";
        default:
            return "FAIL";
    }
}

std::string FindingsAsText(const std::vector<Finding>& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        std::string word = ResultWord(finding.result);
        word.resize(5, ' ');
        text += word + Printable(finding.found) + "\n";
        if (!finding.next.empty()) {
            text += "     " + Printable(finding.next) + "\n";
        }
    }
    return text;
}

std::string FindingsAsJson(const std::vector<Finding>& findings) {
    nlohmann::ordered_json json;
    json["checks"] = nlohmann::ordered_json::array();
    for (const Finding& finding : findings) {
        json["checks"].push_back({{"id", finding.id},
                                  {"result", ResultWord(finding.result)},
                                  {"found", Printable(finding.found)},
                                  {"next", Printable(finding.next)}});
    }
    json["worst"] = ResultWord(WorstResult(findings));
    json["exit"] = static_cast<int>(CodeForFindings(findings));
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

FindingResult WorstResult(const std::vector<Finding>& findings) noexcept {
    FindingResult worst = FindingResult::Ok;
    for (const Finding& finding : findings) {
        worst = std::max(worst, finding.result);
    }
    return worst;
}

ExitCode CodeForFindings(const std::vector<Finding>& findings) noexcept {
    const auto first = std::find_if(findings.begin(), findings.end(),
                                    [](const Finding& finding) { return finding.result == FindingResult::Fail; });
    return first == findings.end() ? ExitCode::Ok : first->code;
}

}  // namespace ravlo
