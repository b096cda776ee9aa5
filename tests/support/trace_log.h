// Reading the module's trace log from outside.
#pragma once

#include "support/wait.h"

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ravlo::test {

/// One line of the log: "[pid:tid process] HH:MM:SS.mmm message".
struct TraceLine {
    DWORD pid = 0;
    DWORD tid = 0;
    std::string process;
    std::string time;
    std::string message;
};

/// Takes a line without its CR LF apart; nothing when it has not exactly the layout above.
std::optional<TraceLine> ParseTraceLine(std::string_view line);

/// The three places where the module may put its log, in the order in which it tries them: ProgramData, the
/// directory of the DLL (that of this program), the last resort in the Windows Temp directory.
std::array<std::wstring, 3> TraceLogPaths();

/// The lines that one process wrote since construction, wherever its log is. Not for several threads at once.
class TraceLog {
public:
    explicit TraceLog(DWORD pid = GetCurrentProcessId());

    /// Forgets everything up to now.
    void Restart();
    /// Shows the lines of another process, a child for instance, since construction or Restart.
    void Follow(DWORD pid);

    std::vector<TraceLine> Lines();
    std::vector<std::string> Messages();

    /// Lines whose message contains `text`.
    std::size_t CountLines(std::string_view text);
    bool Contains(std::string_view text) { return CountLines(text) != 0; }
    /// True when a line has exactly this message.
    bool HasMessage(std::string_view message);
    /// Index in Lines() of the first message that contains `text`, from `start` on; nothing when there is
    /// none. For the order of lines.
    std::optional<std::size_t> Find(std::string_view text, std::size_t start = 0);

    /// Waits for a line whose message contains `text`, those already written included; returns it, or
    /// nothing.
    std::optional<TraceLine> WaitForLine(std::string_view text, DWORD timeoutMs = kPatienceMs);
    std::optional<TraceLine> WaitForLine(const std::function<bool(const TraceLine&)>& wanted,
                                         DWORD timeoutMs = kPatienceMs);
    /// Waits until at least `count` lines contain `text`.
    bool WaitForCount(std::string_view text, std::size_t count, DWORD timeoutMs = kPatienceMs);

    /// All bytes, of all processes, that were appended to the candidate (0, 1 or 2) since construction.
    std::string RawText(std::size_t candidate) const;

    /// All messages one below the other, for failure messages: EXPECT_TRUE(...) << log.Text();
    std::string Text();

private:
    void Update();

    DWORD m_pid;
    std::array<std::uint64_t, 3> m_begin{};
    std::array<std::uint64_t, 3> m_next{};
    std::vector<TraceLine> m_lines;
};

}  // namespace ravlo::test
