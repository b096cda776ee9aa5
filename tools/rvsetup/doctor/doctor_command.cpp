#include "rvsetup/doctor/doctor_command.h"

#include <vector>

#include "common/console.h"
#include "common/interrupt.h"
#include "common/messages.h"
#include "rvsetup/doctor/diagnose.h"
#include "rvsetup/doctor/gather.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvsetup doctor\n"
    "      What is in order, what is not, and what to do next\n"
    "  rvsetup doctor --probe --pipe \\\\.\\pipe\\Ravlo.7\n"
    "      Open that camera's pipes too, to see whether they let you in\n"
    "\n"
    "Exit codes: 0 when no check FAILs; otherwise that of the first FAIL: 3 not\n"
    "installed, 4 access denied, 5 no camera to be seen, 1 anything else.\n";

}  // namespace

DoctorCommand::DoctorCommand(CommandLine& line) {
    DeclareDoctorOptions(line.Command("doctor", "Looks for what keeps the picture away.", kExamples), m_options);
}

ExitCode DoctorCommand::Run() {
    if (const std::string wrong = WhatIsWrongWith(m_options); !wrong.empty()) {
        return WrongUsage(wrong);
    }
    const Interrupt interrupt;
    const std::vector<Finding> findings = Diagnose(GatherFacts({m_options.pipe, m_options.probe, interrupt.Event()}));
    if (interrupt.IsRaised()) {
        Say("interrupted before all checks were made");
        return ExitCode::Interrupted;
    }
    if (!WriteOutput(m_options.json ? FindingsAsJson(findings) : FindingsAsText(findings))) {
        return ExitCode::Failure;
    }
    return CodeForFindings(findings);
}

}  // namespace ravlo
