#include "faults/trace_capture.h"

#include <atomic>
#include <cstring>
#include <string_view>

namespace ravlo::faults {
namespace {

constexpr std::size_t kLogCapacity = 1 << 20;
char g_log[kLogCapacity];
std::atomic<std::size_t> g_logEnd{0};
SRWLOCK g_logLock = SRWLOCK_INIT;

}  // namespace

void KeepLogLine(const char* line, std::size_t length) {
    AcquireSRWLockExclusive(&g_logLock);
    const std::size_t end = g_logEnd.load();
    if (end + length < kLogCapacity) {
        std::memcpy(g_log + end, line, length);
        g_logEnd = end + length;
    }
    ReleaseSRWLockExclusive(&g_logLock);
}

void ForgetLog() {
    AcquireSRWLockExclusive(&g_logLock);
    g_logEnd = 0;
    ReleaseSRWLockExclusive(&g_logLock);
}

std::vector<std::string> LogLines() {
    AcquireSRWLockShared(&g_logLock);
    const std::string text(g_log, g_logEnd.load());
    ReleaseSRWLockShared(&g_logLock);
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2) {
        const std::string line = text.substr(start, end - start);
        const std::size_t bracket = line.find("] ");
        constexpr std::size_t kTimeAndBlank = 13;
        const std::size_t message = bracket == std::string::npos ? 0 : bracket + 2 + kTimeAndBlank;
        lines.push_back(message <= line.size() ? line.substr(message) : line);
    }
    return lines;
}

bool LogContains(const char* text) {
    AcquireSRWLockShared(&g_logLock);
    const bool found = std::string_view(g_log, g_logEnd.load()).find(text) != std::string_view::npos;
    ReleaseSRWLockShared(&g_logLock);
    return found;
}

}  // namespace ravlo::faults
