#pragma once

#include <string>
#include <vector>

namespace ravlo {

/// One kind of change to the machine.
enum class StepKind {
    WriteRecord,
    CreateFolder,
    SetAside,
    InstallFile,
    WriteAnchor,
    CreateLogFolder,
    SecureLogFolder,
    Register,
    RemoveFile,
    PutBack,
    RemoveFolder,
    RemoveClass,
    RestoreClass,
    RemoveAnchor,
    RestoreAnchor,
    RemoveAnchorKey,
    RestoreLogSecurity,
    RemoveLogFolder,
    RemoveRecord,
};

/// One change. `target` is the file, folder or key that changes; `source` the file that is copied, or the SID that is
/// written or let into the log folder.
struct Step {
    StepKind kind;
    std::string target;
    std::string source;

    friend bool operator==(const Step&, const Step&) = default;
};

/// "create    C:\Program Files\Ravlo": what the step would do, as one line of a list.
std::string DescribeStep(const Step& step);

/// "create C:\Program Files\Ravlo", to follow a "cannot".
std::string NameStep(const Step& step);

/// "created C:\Program Files\Ravlo": what the step has done.
std::string ReportStep(const Step& step);

/// The steps as one JSON object for a machine to read; `done` tells for each whether it was carried out.
std::string StepsToJson(const std::vector<Step>& steps, const std::vector<bool>& done, bool dryRun,
                        const std::vector<std::string>& notes);

}  // namespace ravlo
