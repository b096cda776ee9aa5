#pragma once

#include "common/exit_codes.h"
#include "rvsetup/install/executor.h"
#include "rvsetup/install/plan.h"

namespace ravlo {

/// Writes what a plan would do to standard output, one line a change, or as JSON. Ok when it could be written.
ExitCode ShowPlan(const Plan& plan, bool asJson);

/// Writes what was done to standard output, as JSON.
void ShowAsJson(const Plan& plan, const Executor& executor);

/// Tells the user what to do, and returns AccessDenied.
ExitCode SayAdministratorNeeded();

}  // namespace ravlo
