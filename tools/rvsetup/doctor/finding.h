#pragma once

#include <string>
#include <vector>

#include "common/exit_codes.h"

namespace ravlo {

enum class FindingResult { Ok, Warn, Fail };

/// What one check of the doctor found.
struct Finding {
    std::string id;  ///< which check, such as "anchor"; stable, for programs that read the JSON
    FindingResult result = FindingResult::Ok;
    std::string found;                  ///< one line
    std::string next;                   ///< what to do, one line; may be empty
    ExitCode code = ExitCode::Failure;  ///< how the program ends when this FAIL is the first one
};

Finding FoundOk(const std::string& id, const std::string& found, const std::string& next = {});
Finding FoundWarning(const std::string& id, const std::string& found, const std::string& next);
Finding FoundFailure(const std::string& id, ExitCode code, const std::string& found, const std::string& next);

/// "OK", "WARN" or "FAIL".
const char* ResultWord(FindingResult result) noexcept;

/// The findings for a person: a line a check, the next step indented below it.
std::string FindingsAsText(const std::vector<Finding>& findings);

/// {"checks":[{"id","result","found","next"}...],"worst":...,"exit":...} in one line.
std::string FindingsAsJson(const std::vector<Finding>& findings);

FindingResult WorstResult(const std::vector<Finding>& findings) noexcept;

/// ExitCode::Ok without a FAIL; otherwise the code of the first one, because the checks stand in the order in which a
/// picture needs them and a later FAIL often only follows from an earlier one.
ExitCode CodeForFindings(const std::vector<Finding>& findings) noexcept;

}  // namespace ravlo
