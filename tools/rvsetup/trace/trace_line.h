#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "trace/line_layout.h"

namespace ravlo {

/// One line of the trace log, "[pid:tid process] HH:MM:SS.mmm message", taken apart.
struct LogLine {
    std::uint32_t processId = 0;
    std::uint32_t threadId = 0;
    std::string process;                   ///< base name of the executable
    std::optional<std::uint32_t> msOfDay;  ///< UTC; nothing where the writer had no clock
    std::string message;
};

/// Takes one line without its line end apart. Where the file holds torn lines, a second line may begin in the middle of
/// the first: each beginning gives one LogLine. Text in front of the first beginning is lost; empty when there is none.
/// Process and message are printable, whoever wrote them.
std::vector<LogLine> ParseLogLines(std::string_view line);

/// The first word of a message, such as "PIPE", "FAIL" or "STM.RequestSample"; empty for an empty message.
std::string_view TagOfMessage(std::string_view message) noexcept;

/// Cuts bytes that arrive piece by piece into lines without their line ends. Of a line that is far longer than any that
/// the camera writes only the beginning is kept.
class LineSplitter {
public:
    /// The lines that `bytes` completes.
    std::vector<std::string> Add(std::string_view bytes);

    /// What is left without a line end; empty afterwards.
    std::string TakeRest();

    /// The longest line that is handed out, in bytes.
    static constexpr std::size_t kLongestLine = std::size_t{16} * kLineCapacity;

private:
    std::string m_rest;  ///< of the line that has no end yet; at most one byte longer than the longest
};

}  // namespace ravlo
