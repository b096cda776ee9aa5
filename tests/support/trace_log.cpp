#include "support/trace_log.h"

#include "support/module.h"

#include <algorithm>
#include <charconv>

namespace ravlo::test {
namespace {

HANDLE OpenForReading(const std::wstring& path) {
    return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, 0, nullptr);
}

std::uint64_t SizeOf(const std::wstring& path) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data)) {
        return 0;
    }
    return (static_cast<std::uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
}

/// The file's bytes from `offset` on; nothing when it is absent.
std::string ReadFrom(const std::wstring& path, std::uint64_t offset) {
    std::string text;
    const HANDLE file = OpenForReading(path);
    if (file == INVALID_HANDLE_VALUE) {
        return text;
    }
    LARGE_INTEGER position;
    position.QuadPart = static_cast<LONGLONG>(offset);
    SetFilePointerEx(file, position, nullptr, FILE_BEGIN);
    char block[16384];
    DWORD bytes = 0;
    while (ReadFile(file, block, sizeof block, &bytes, nullptr) && bytes != 0) {
        text.append(block, bytes);
    }
    CloseHandle(file);
    return text;
}

/// Takes a decimal number from the front of `text`.
bool TakeNumber(std::string_view& text, DWORD& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{}) {
        return false;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool TakeCharacter(std::string_view& text, char character) {
    if (text.empty() || text.front() != character) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

bool IsTimeOfDay(std::string_view time) {
    constexpr std::string_view kLayout = "dd:dd:dd.ddd";
    return time.size() == kLayout.size() &&
           std::equal(time.begin(), time.end(), kLayout.begin(), [](char actual, char layout) {
               return layout == 'd' ? actual >= '0' && actual <= '9' : actual == layout;
           });
}

}  // namespace

std::optional<TraceLine> ParseTraceLine(std::string_view line) {
    TraceLine result;
    if (!TakeCharacter(line, '[') || !TakeNumber(line, result.pid) || !TakeCharacter(line, ':') ||
        !TakeNumber(line, result.tid) || !TakeCharacter(line, ' ')) {
        return std::nullopt;
    }
    const std::size_t nameEnd = line.find("] ");
    if (nameEnd == std::string_view::npos) {
        return std::nullopt;
    }
    result.process = line.substr(0, nameEnd);
    line.remove_prefix(nameEnd + 2);
    result.time = line.substr(0, 12);
    if (!IsTimeOfDay(result.time)) {
        return std::nullopt;
    }
    line.remove_prefix(12);
    if (!TakeCharacter(line, ' ')) {
        return std::nullopt;
    }
    result.message = line;
    return result;
}

std::array<std::wstring, 3> TraceLogPaths() {
    return {L"C:\\ProgramData\\Ravlo\\trace.log", ProgramDirectory() + L"\\trace.log",
            L"C:\\Windows\\Temp\\ravlo-trace.log"};
}

TraceLog::TraceLog(DWORD pid) : m_pid(pid) {
    Restart();
}

void TraceLog::Restart() {
    const auto paths = TraceLogPaths();
    std::transform(paths.begin(), paths.end(), m_begin.begin(), SizeOf);
    m_next = m_begin;
    m_lines.clear();
}

void TraceLog::Follow(DWORD pid) {
    m_pid = pid;
    m_next = m_begin;
    m_lines.clear();
}

void TraceLog::Update() {
    const auto paths = TraceLogPaths();
    for (std::size_t i = 0; i < paths.size(); ++i) {
        if (SizeOf(paths[i]) < m_next[i]) {
            m_begin[i] = m_next[i] = 0;  // the file was deleted and begun anew
        }
        const std::string text = ReadFrom(paths[i], m_next[i]);
        std::size_t start = 0;
        for (std::size_t end = 0; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
            std::optional<TraceLine> line = ParseTraceLine(std::string_view(text).substr(start, end - start));
            if (line && line->pid == m_pid) {
                m_lines.push_back(std::move(*line));
            }
        }
        m_next[i] += start;  // a line that is still being written is looked at again next time
    }
}

std::vector<TraceLine> TraceLog::Lines() {
    Update();
    return m_lines;
}

std::vector<std::string> TraceLog::Messages() {
    Update();
    std::vector<std::string> messages;
    for (const TraceLine& line : m_lines) {
        messages.push_back(line.message);
    }
    return messages;
}

std::size_t TraceLog::CountLines(std::string_view text) {
    Update();
    return static_cast<std::size_t>(std::count_if(m_lines.begin(), m_lines.end(), [&](const TraceLine& line) {
        return line.message.find(text) != std::string::npos;
    }));
}

bool TraceLog::HasMessage(std::string_view message) {
    Update();
    return std::any_of(m_lines.begin(), m_lines.end(), [&](const TraceLine& line) { return line.message == message; });
}

std::optional<std::size_t> TraceLog::Find(std::string_view text, std::size_t start) {
    Update();
    for (std::size_t i = start; i < m_lines.size(); ++i) {
        if (m_lines[i].message.find(text) != std::string::npos) {
            return i;
        }
    }
    return std::nullopt;
}

std::optional<TraceLine> TraceLog::WaitForLine(std::string_view text, DWORD timeoutMs) {
    return WaitForLine([&](const TraceLine& line) { return line.message.find(text) != std::string::npos; }, timeoutMs);
}

std::optional<TraceLine> TraceLog::WaitForLine(const std::function<bool(const TraceLine&)>& wanted, DWORD timeoutMs) {
    std::size_t seen = 0;
    std::optional<TraceLine> found;
    WaitUntil(
        [&] {
            Update();
            for (; seen < m_lines.size() && !found; ++seen) {
                if (wanted(m_lines[seen])) {
                    found = m_lines[seen];
                }
            }
            return found.has_value();
        },
        timeoutMs, 5);
    return found;
}

bool TraceLog::WaitForCount(std::string_view text, std::size_t count, DWORD timeoutMs) {
    return WaitUntil([&] { return CountLines(text) >= count; }, timeoutMs, 5);
}

std::string TraceLog::RawText(std::size_t candidate) const {
    return ReadFrom(TraceLogPaths().at(candidate), m_begin.at(candidate));
}

std::string TraceLog::Text() {
    std::string text = "the log since then:\n";
    for (const std::string& message : Messages()) {
        text += "  " + message + "\n";
    }
    return text;
}

}  // namespace ravlo::test
