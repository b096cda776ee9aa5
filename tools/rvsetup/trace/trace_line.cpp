#include "rvsetup/trace/trace_line.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <utility>

#include "rvsetup/system/text.h"

namespace ravlo {
namespace {

/// No name of a file is longer: the search for the end of a program's name must end in a line that only looks like one.
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kTimeLength = 12;
constexpr std::string_view kUnknownTime = "??:??:??.???";

bool TakeNumber(std::string_view& text, std::uint32_t& number) noexcept {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{}) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool TakeCharacter(std::string_view& text, char character) noexcept {
    if (!text.starts_with(character)) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

/// `length` digits of `text` from `at` on as a number below `limit`.
std::optional<std::uint32_t> Digits(std::string_view text, std::size_t at, std::size_t length, std::uint32_t limit) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + length; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return std::nullopt;
        }
        value = value * 10 + static_cast<std::uint32_t>(text[i] - '0');
    }
    return value < limit ? std::optional(value) : std::nullopt;
}

/// Reads "HH:MM:SS.mmm" or the text that stands for an unknown time.
bool ParseTime(std::string_view text, std::optional<std::uint32_t>& msOfDay) {
    if (text.size() != kTimeLength) {
        return false;
    }
    msOfDay.reset();
    if (text == kUnknownTime) {
        return true;
    }
    if (text[2] != ':' || text[5] != ':' || text[8] != '.') {
        return false;
    }
    const auto hour = Digits(text, 0, 2, 24);
    const auto minute = Digits(text, 3, 2, 60);
    const auto second = Digits(text, 6, 2, 60);
    const auto millisecond = Digits(text, 9, 3, 1000);
    if (!hour || !minute || !second || !millisecond) {
        return false;
    }
    msOfDay = ((*hour * 60 + *minute) * 60 + *second) * 1000 + *millisecond;
    return true;
}

/// "[pid:tid " at the front of `text`, which is afterwards what follows it.
bool TakeIdentity(std::string_view& text, LogLine& line) noexcept {
    return TakeCharacter(text, '[') && TakeNumber(text, line.processId) && TakeCharacter(text, ':') &&
           TakeNumber(text, line.threadId) && TakeCharacter(text, ' ');
}

/// True when what was taken for a program's name holds the beginning of another line.
bool HoldsIdentity(std::string_view name) noexcept {
    for (std::size_t at = name.find('['); at != std::string_view::npos; at = name.find('[', at + 1)) {
        LogLine ignored;
        std::string_view rest = name.substr(at);
        if (TakeIdentity(rest, ignored)) {
            return true;
        }
    }
    return false;
}

/// Reads everything in front of the message. `text` is afterwards the message and all that follows it.
bool TakePrefix(std::string_view& text, LogLine& line) {
    std::string_view rest = text;
    if (!TakeIdentity(rest, line)) {
        return false;
    }
    // A program's name may hold brackets and blanks itself; what counts is the time behind it.
    const std::string_view names = rest.substr(0, kLongestName + 2);
    for (std::size_t end = names.find("] "); end != std::string_view::npos; end = names.find("] ", end + 1)) {
        const std::string_view behind = rest.substr(end + 2);
        if (behind.size() > kTimeLength && behind[kTimeLength] == ' ' &&
            ParseTime(behind.substr(0, kTimeLength), line.msOfDay)) {
            line.process = rest.substr(0, end);
            text = behind.substr(kTimeLength + 1);
            return !HoldsIdentity(line.process);
        }
    }
    return false;
}

}  // namespace

std::vector<LogLine> ParseLogLines(std::string_view line) {
    std::vector<LogLine> lines;
    for (std::size_t at = 0; (at = line.find('[', at)) != std::string_view::npos;) {
        LogLine parsed;
        std::string_view rest = line.substr(at);
        if (!TakePrefix(rest, parsed)) {
            ++at;
            continue;
        }
        if (!lines.empty()) {
            // The line before this one was torn: its message ends where this one begins.
            lines.back().message.resize(lines.back().message.size() - (line.size() - at));
        }
        parsed.message = rest;
        lines.push_back(std::move(parsed));
        at = line.size() - rest.size();
    }
    for (LogLine& parsed : lines) {
        parsed.process = Printable(parsed.process);
        parsed.message = Printable(parsed.message);
    }
    return lines;
}

std::string_view TagOfMessage(std::string_view message) noexcept {
    return message.substr(0, message.find(' '));
}

std::vector<std::string> LineSplitter::Add(std::string_view bytes) {
    std::vector<std::string> lines;
    while (true) {
        const std::size_t end = bytes.find('\n');
        // One byte more than a line may have, which can be the first one of its end.
        m_rest += bytes.substr(0, std::min(end, kLongestLine + 1 - m_rest.size()));
        if (end == std::string_view::npos) {
            return lines;
        }
        if (m_rest.ends_with('\r')) {
            m_rest.pop_back();
        }
        m_rest.resize(std::min(m_rest.size(), kLongestLine));
        lines.push_back(std::exchange(m_rest, {}));
        bytes.remove_prefix(end + 1);
    }
}

std::string LineSplitter::TakeRest() {
    m_rest.resize(std::min(m_rest.size(), kLongestLine));
    return std::exchange(m_rest, {});
}

}  // namespace ravlo
