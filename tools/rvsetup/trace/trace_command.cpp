#include "rvsetup/trace/trace_command.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <map>
#include <optional>
#include <utility>
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
    "Exit codes: 0; 1 when FILE is no log; 3 when there is none; 4 when it may not be\n"
    "read; 130 after Ctrl+C.\n";

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

/// Puts the console's mode back, which showing colours changes for every program that uses the console later.
class OutputModeGuard {
public:
    OutputModeGuard() noexcept : m_isConsole(GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &m_mode) != FALSE) {}
    OutputModeGuard(const OutputModeGuard&) = delete;
    OutputModeGuard& operator=(const OutputModeGuard&) = delete;
    ~OutputModeGuard() {
        if (m_isConsole) {
            SetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), m_mode);
        }
    }

private:
    DWORD m_mode = 0;
    bool m_isConsole;
};

/// Shows lines and counts them.
class Printer {
public:
    Printer(const TagFilter& filter, const PrintStyle& style, const Interrupt& interrupt)
        : m_filter(filter), m_style(style), m_interrupt(interrupt) {}

    /// How to end when the user wants that, or when nobody takes the lines any more; nothing to go on.
    std::optional<ExitCode> Print(const std::vector<std::string>& lines) {
        constexpr std::size_t kBlockLines = 256;
        for (std::size_t at = 0; at < lines.size();) {
            std::string text;
            for (const std::size_t end = std::min(lines.size(), at + kBlockLines); at < end; ++at) {
                const std::string shown = ShownLine(lines[at], m_filter, m_style);
                m_count += shown.empty() ? 0U : 1U;
                text += shown;
            }
            if (!text.empty() && !WriteOutput(text)) {
                return ExitCode::Failure;
            }
            if (m_interrupt.IsRaised()) {
                return ExitCode::Interrupted;
            }
        }
        return std::nullopt;
    }

    std::size_t Count() const noexcept { return m_count; }

private:
    const TagFilter& m_filter;
    PrintStyle m_style;
    const Interrupt& m_interrupt;
    std::size_t m_count = 0;
};

/// Why a file that the user named cannot be read.
struct Unreadable {
    std::string why;  ///< empty when it can be read
    ExitCode code = ExitCode::Failure;
};

Unreadable WhyUnreadable(const std::wstring& path) {
    if (std::string why = WhyNoLog(ToUtf8(path)); !why.empty()) {
        return {std::move(why)};
    }
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return {"it is a folder"};
    }
    const DWORD error = ReadTail(path, 0, [](std::string_view) {});
    if (error == ERROR_CANT_ACCESS_FILE) {
        return {"it is a link; give the file that it leads to"};
    }
    const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
    return {error == ERROR_SUCCESS ? std::string() : SystemErrorText(error), isMissing ? ExitCode::NotInstalled
                                                                             : error == ERROR_ACCESS_DENIED
                                                                                 ? ExitCode::AccessDenied
                                                                                 : ExitCode::Failure};
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

/// The logs that are shown, each from where it was left. Without a log of the user's choice it is the newest one, which
/// may be another after a while.
class Logs {
public:
    Logs(const TraceOptions& options, const TagFilter& filter, const Interrupt& interrupt, std::wstring first)
        : m_lines(static_cast<std::size_t>(options.lines)),
          m_mayChange(options.log.empty()),
          m_filter(filter),
          m_interrupt(interrupt),
          m_path(std::move(first)),
          m_nextLook(GetTickCount64() + kLookMs) {}

    /// The last lines of the log that is shown.
    std::vector<std::string> LastLines() {
        const LogFollower::LineTest isWanted = [this](const std::string& text) { return PassesFilter(text, m_filter); };
        return Current().LastLines(m_lines, m_filter.AcceptsAll() ? LogFollower::LineTest() : isWanted);
    }

    /// A last line without an end, if lines are wanted.
    std::string TakeRest() { return m_lines == 0 ? std::string() : Current().TakeRest(); }

    /// What came since the last call.
    std::vector<std::string> NewLines() {
        std::vector<std::string> lines = Current().NewLines();
        if (!m_mayChange || GetTickCount64() < m_nextLook) {
            return lines;
        }
        m_nextLook = GetTickCount64() + kLookMs;
        const std::optional<std::wstring> newest = FindLog(FindLogFiles());
        if (newest && *newest != m_path) {
            m_path = *newest;
            Say("the newest log is " + ToUtf8(m_path) + " now");
            const bool isKnown = m_followers.contains(m_path);
            std::vector<std::string> more = isKnown ? Current().NewLines() : LastLines();
            lines.insert(lines.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
        }
        return lines;
    }

private:
    static constexpr ULONGLONG kLookMs = 2000;

    LogFollower& Current() { return m_followers.try_emplace(m_path, m_path, m_interrupt.Event()).first->second; }

    std::size_t m_lines;
    bool m_mayChange;
    const TagFilter& m_filter;
    const Interrupt& m_interrupt;
    std::wstring m_path;
    ULONGLONG m_nextLook;
    std::map<std::wstring, LogFollower> m_followers;
};

ExitCode Show(const TraceOptions& options, const Interrupt& interrupt, Logs& logs, Printer& printer) {
    std::vector<std::string> lines = logs.LastLines();
    if (!options.follow) {
        if (std::string rest = logs.TakeRest(); !rest.empty()) {
            lines.push_back(std::move(rest));
        }
    }
    std::optional<ExitCode> ended = printer.Print(lines);
    while (!ended && options.follow) {
        ended = interrupt.WaitForMs(kPollMs) ? ExitCode::Interrupted : printer.Print(logs.NewLines());
    }
    return ended.value_or(interrupt.IsRaised() ? ExitCode::Interrupted : ExitCode::Ok);
}

/// The log that the user named, made absolute; nothing, and how to end, when it cannot be shown.
std::optional<std::wstring> NamedLog(const TraceOptions& options, ExitCode& code) {
    const std::string path = FullPath(options.log);
    const Unreadable unreadable = WhyUnreadable(ToWide(path));
    if (!unreadable.why.empty() && !(options.follow && unreadable.code == ExitCode::NotInstalled)) {
        Say("cannot read " + path + ": " + unreadable.why);
        code = unreadable.code;
        return std::nullopt;
    }
    if (!unreadable.why.empty()) {
        Say("waiting for " + path);
    }
    return ToWide(path);
}

/// The newest log; nothing, and how to end, when there is none.
std::optional<std::wstring> OwnLog(const TraceOptions& options, const Interrupt& interrupt, ExitCode& code) {
    const std::vector<LogFile> logs = FindLogFiles();
    std::optional<std::wstring> log = FindLog(logs);
    if (log) {
        return log;
    }
    if (!options.follow) {
        Say("there is no trace log; looked for " + PlacesText(logs));
        Say("it begins when a program opens the camera; rvsetup doctor tells whether one can");
        code = ExitCode::NotInstalled;
        return std::nullopt;
    }
    code = ExitCode::Interrupted;
    return WaitForLog(interrupt, logs);
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
    const OutputModeGuard mode;
    const TagFilter filter(m_options.only);
    Printer printer(filter, {m_options.json, !m_options.json && EnableOutputColour()}, interrupt);
    ExitCode code = ExitCode::Ok;
    const std::optional<std::wstring> log =
        m_options.log.empty() ? OwnLog(m_options, interrupt, code) : NamedLog(m_options, code);
    if (log) {
        Logs logs(m_options, filter, interrupt, *log);
        code = Show(m_options, interrupt, logs, printer);
    }
    if (code == ExitCode::Interrupted) {
        Say("interrupted; " + std::to_string(printer.Count()) + " lines shown");
    }
    return code;
}

}  // namespace ravlo
