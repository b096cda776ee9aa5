#include "rvsetup/report/report_command.h"

#include "common/interrupt.h"
#include "common/messages.h"
#include "rvsetup/report/report_content.h"
#include "rvsetup/report/report_target.h"
#include "rvsetup/system/text.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvsetup report ravlo-report.zip\n"
    "      One file to send with a question; what is in it is listed first\n"
    "  rvsetup report --redact ravlo-report\n"
    "      A folder to look through, without names and account numbers\n"
    "\n"
    "Contains: what doctor finds, the registry values of the camera, sizes, versions\n"
    "and SHA-256 of the installed files, and the last 2 MiB of each trace log.\n"
    "Exit codes: 0; 1 when it cannot be written; 4 when you may not write there.\n";

void ListContent(const ReportContent& content) {
    Say("the report contains:");
    for (const ReportPart& part : content.parts) {
        Say("  " + part.name + ": " + Printable(part.what) + " (" + std::to_string(part.content.size()) + " bytes)");
    }
    for (const std::string& item : content.personal) {
        Say("  of persons: " + Printable(item));
    }
    Say(content.personal.empty() ? "names, SIDs and user folders are replaced by placeholders"
                                 : "--redact replaces names, SIDs and user folders by placeholders");
}

}  // namespace

ReportCommand::ReportCommand(CommandLine& line) {
    DeclareReportOptions(line.Command("report", "Gathers everything for a bug report.", kExamples), m_options);
}

ExitCode ReportCommand::Run() {
    if (const std::string wrong = WhatIsWrongWith(m_options); !wrong.empty()) {
        return WrongUsage(wrong);
    }
    if (const std::string why = WhyNoTarget(m_options); !why.empty()) {
        Say(why);
        return ExitCode::Failure;
    }
    const Interrupt interrupt;
    const ReportContent content = GatherReport(m_options.redact, interrupt.Event());
    if (interrupt.IsRaised()) {
        Say("interrupted; nothing was written");
        return ExitCode::Interrupted;
    }
    ListContent(content);
    if (const ReportWritten written = WriteReport(m_options, content); !written.problem.empty()) {
        Say(written.problem);
        return written.code;
    }
    Say("written: " + m_options.target);
    return ExitCode::Ok;
}

}  // namespace ravlo
