#include "rvsetup/trace/trace_command.h"

#include <windows.h>

#include <optional>
#include <vector>

#include "common/console.h"
#include "common/interrupt.h"
#include "common/messages.h"
#include "common/wide_text.h"
#include "rvsetup/doctor/registered_module.h"
#include "rvsetup/trace/log_files.h"
#include "rvsetup/trace/log_follower.h"
#include "rvsetup/trace/trace_print.h"

namespace ravlo {
namespace {

constexpr const char* kExamples =
    "  rvsetup trace --only FAIL --only WARN\n"
    "      The failures among the last lines of the log\n"
    "  rvsetup trace --follow --only PIPE\n"
    "      What happens on the frame pipe from now on\n"
    "\n"
    "Without --log: the newest of the places where the camera may write its log.\n"
    "Exit codes: 0; 3 when there is no log; 130 after Ctrl+C.\n";

constexpr DWORD kPollMs = 200;

/// The log to show; nothing when the camera has none yet.
std::optional<std::wstring> FindLog(const std::vector<LogFile>& logs) {
    const std::optional<std::size_t> newest = NewestLog(logs);
    return newest ? std::optional(logs[*newest].path) : std::nullopt;
}

std::vector<LogFile> FindLogFiles() {
    return ravlo::FindLogFiles(ReadRegisteredModule().path);
}

std::string PlacesText(const std::vector<LogFile>& logs) {
    std::string text;
    for (const LogFile& log : logs) {
        text += (text.empty() ? "" : ", ") + ToUtf8(log.path);
    }
    return text;
}

std::string FullPath(const std::string& path) {
    const std::wstring wide = ToWide(path);
    std::wstring full(GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr), L'\0');
    full.resize(GetFullPathNameW(wide.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr));
    return ToUtf8(full);
}

/// Shows lines; false when nobody takes them any more.
class Printer {
public:
    Printer(const TagFilter& filter, const PrintStyle& style) : m_filter(filter), m_style(style) {}

    bool Print(const std::vector<std::string>& lines) const {
        std::string text;
        for (const std::string& line : lines) {
            text += ShownLine(line, m_filter, m_style);
        }
        return text.empty() || WriteOutput(text);
    }

private:
    const TagFilter& m_filter;
    PrintStyle m_style;
};

/// Why a file that the user named cannot be read; empty when it can.
std::string WhyUnreadable(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return SystemErrorText(GetLastError());
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return "it is a folder";
    }
    const DWORD error = ReadTail(path, 0, [](std::string_view) {});
    return error == ERROR_SUCCESS ? std::string() : SystemErrorText(error);
}

/// Waits until the camera has a log; nothing when the user gave up.
std::optional<std::wstring> WaitForLog(const Interrupt& interrupt, const std::vector<LogFile>& logs) {
    Say("there is no trace log yet; waiting for one at " + PlacesText(logs));
    for (std::optional<std::wstring> log; !interrupt.WaitForMs(kPollMs);) {
        log = FindLog(FindLogFiles());
        if (log) {
            return log;
        }
    }
    return std::nullopt;
}

ExitCode Follow(const Interrupt& interrupt, LogFollower& follower, const Printer& printer) {
    while (!interrupt.WaitForMs(kPollMs)) {
        if (!printer.Print(follower.NewLines())) {
            return ExitCode::Failure;
        }
    }
    return ExitCode::Interrupted;
}

}  // namespace

TraceCommand::TraceCommand(CommandLine& line) {
    DeclareTraceOptions(line.Command("trace", "Shows the trace log of the camera.", kExamples), m_options);
}

ExitCode TraceCommand::Run() {
    if (const std::string wrong = WhatIsWrongWith(m_options); !wrong.empty()) {
        return WrongUsage(wrong);
    }
    const Interrupt interrupt;
    std::optional<std::wstring> log;
    if (!m_options.log.empty()) {
        log = ToWide(m_options.log);
        const std::string why = WhyUnreadable(*log);
        const bool isMissing = GetFileAttributesW(log->c_str()) == INVALID_FILE_ATTRIBUTES;
        if (!why.empty() && !(isMissing && m_options.follow)) {
            Say("cannot read " + FullPath(m_options.log) + ": " + why);
            return isMissing ? ExitCode::NotInstalled : ExitCode::Failure;
        }
        if (!why.empty()) {
            Say("waiting for " + FullPath(m_options.log));
        }
    } else {
        const std::vector<LogFile> logs = FindLogFiles();
        log = FindLog(logs);
        if (!log && !m_options.follow) {
            Say("there is no trace log; looked for " + PlacesText(logs));
            Say("it begins when a program opens the camera; rvsetup doctor tells whether one can");
            return ExitCode::NotInstalled;
        }
        if (!log) {
            log = WaitForLog(interrupt, logs);
        }
        if (!log) {
            return ExitCode::Interrupted;
        }
    }
    const TagFilter filter(m_options.only);
    const Printer printer(filter, {m_options.json, !m_options.json && EnableOutputColour()});
    LogFollower follower(*log);
    const LogFollower::LineTest isWanted = [&filter](const std::string& text) { return PassesFilter(text, filter); };
    std::vector<std::string> lines = follower.LastLines(static_cast<std::size_t>(m_options.lines),
                                                        filter.AcceptsAll() ? LogFollower::LineTest() : isWanted);
    if (!m_options.follow) {
        if (std::string rest = follower.TakeRest(); !rest.empty() && m_options.lines != 0) {
            lines.push_back(std::move(rest));
        }
        return printer.Print(lines) ? ExitCode::Ok : ExitCode::Failure;
    }
    return printer.Print(lines) ? Follow(interrupt, follower, printer) : ExitCode::Failure;
}

}  // namespace ravlo
