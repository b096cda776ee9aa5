#include "rvsetup/install/change_list.h"

#include <string>
#include <vector>

#include "common/console.h"
#include "common/messages.h"
#include "rvsetup/install/step.h"
#include "rvsetup/system/text.h"

namespace ravlo {

ExitCode ShowPlan(const Plan& plan, bool asJson) {
    std::string text;
    if (asJson) {
        text = StepsToJson(plan.steps, std::vector<bool>(plan.steps.size()), true, plan.notes);
    } else {
        for (const Step& step : plan.steps) {
            text += Printable(DescribeStep(step)) + "\n";
        }
    }
    for (const std::string& note : plan.notes) {
        Say(Printable(note));
    }
    Say(plan.steps.empty() ? "nothing would change" : "nothing was changed: this was a dry run");
    return WriteOutput(text) ? ExitCode::Ok : ExitCode::Failure;
}

void ShowAsJson(const Plan& plan, const Executor& executor) {
    std::vector<std::string> notes = plan.notes;
    notes.insert(notes.end(), executor.Notes().begin(), executor.Notes().end());
    WriteOutput(StepsToJson(plan.steps, executor.Done(), false, notes));
}

ExitCode SayAdministratorNeeded() {
    Say("this changes the whole machine and needs an administrator: run it in a console opened with \"Run as "
        "administrator\" (--dry-run works without)");
    return ExitCode::AccessDenied;
}

}  // namespace ravlo
