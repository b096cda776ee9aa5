#include "delivery/process_log.h"

#include <stdexcept>

#include "platform/unique_handle.h"
#include "trace/trace_location.h"

namespace ravlo::bench {
namespace {

UniqueFile OpenForReading(const std::wstring& path) {
    return UniqueFile(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                  OPEN_EXISTING, 0, nullptr));
}

std::string ReadFrom(const std::wstring& path, std::uint64_t offset) {
    const UniqueFile file = OpenForReading(path);
    LARGE_INTEGER position{};
    position.QuadPart = static_cast<LONGLONG>(offset);
    if (!file || !SetFilePointerEx(file.Get(), position, nullptr, FILE_BEGIN)) {
        throw std::runtime_error("the trace log cannot be read");
    }
    std::string text;
    char block[16384];
    DWORD bytes = 0;
    while (ReadFile(file.Get(), block, sizeof block, &bytes, nullptr) && bytes != 0) {
        text.append(block, bytes);
    }
    return text;
}

}  // namespace

ProcessLog::ProcessLog(HMODULE module) {
    RvTraceLocation location{};
    ChooseTraceLocation(location, module);
    if (location.candidate == 0) {
        throw std::runtime_error("the module writes no trace log here");
    }
    m_path = location.path;
    LARGE_INTEGER size{};
    const UniqueFile file = OpenForReading(m_path);
    if (!file || !GetFileSizeEx(file.Get(), &size)) {
        throw std::runtime_error("the trace log cannot be opened");
    }
    m_begin = static_cast<std::uint64_t>(size.QuadPart);
}

std::vector<std::string> ProcessLog::Messages() const {
    const std::string own = "[" + std::to_string(GetCurrentProcessId()) + ":";
    const std::string text = ReadFrom(m_path, m_begin);
    std::vector<std::string> messages;
    for (std::size_t begin = 0, end = 0; (end = text.find("\r\n", begin)) != std::string::npos; begin = end + 2) {
        const std::string line = text.substr(begin, end - begin);
        // "[pid:tid process] HH:MM:SS.mmm message"
        constexpr std::size_t kTimeLength = 15;
        const std::size_t prefix = line.find("] ");
        if (line.starts_with(own) && prefix != std::string::npos && line.size() > prefix + kTimeLength) {
            messages.push_back(line.substr(prefix + kTimeLength));
        }
    }
    return messages;
}

}  // namespace ravlo::bench
