#include "rvsetup/trace/log_files.h"

#include "platform/unique_handle.h"
#include "rvsetup/doctor/registered_module.h"
#include "rvsetup/trace/log_clock.h"

namespace ravlo {
namespace {

constexpr wchar_t kProgramDataFolder[] = L"C:\\ProgramData\\Ravlo";
constexpr wchar_t kLogName[] = L"\\trace.log";
constexpr wchar_t kTempLog[] = L"C:\\Windows\\Temp\\ravlo-trace.log";
/// As much of a log's end as tells who wrote last.
constexpr std::uint64_t kGlanceBytes = 256ULL * 1024;
constexpr DWORD kBlockBytes = 256 * 1024;

std::int64_t UnixMs(const FILETIME& time) noexcept {
    constexpr std::int64_t kUnixEpochMs = 11'644'473'600'000;  // counted from 1601, as file times are
    const auto ticks = static_cast<std::int64_t>((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime);
    return ticks / 10'000 - kUnixEpochMs;
}

void LookAt(LogFile& log) {
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (!GetFileAttributesExW(log.path.c_str(), GetFileExInfoStandard, &data) ||
        (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return;
    }
    log.exists = true;
    log.bytes = (std::uint64_t{data.nFileSizeHigh} << 32) | data.nFileSizeLow;
    log.lastWriteMs = UnixMs(data.ftLastWriteTime);
}

LogFile Gated(const std::wstring& folder) {
    LogFile log;
    log.path = folder + kLogName;
    log.verdict = RvCheckTraceDirectory(folder.c_str(), &log.gateError);
    LookAt(log);
    return log;
}

}  // namespace

std::vector<LogFile> FindLogFiles(const std::wstring& modulePath) {
    std::vector<LogFile> logs{Gated(kProgramDataFolder)};
    if (const std::wstring folder = FolderOf(modulePath); !folder.empty()) {
        logs.push_back(Gated(folder));
    }
    LogFile last;
    last.path = kTempLog;
    last.isGated = false;
    LookAt(last);
    logs.push_back(last);
    return logs;
}

std::optional<std::size_t> NewestLog(const std::vector<LogFile>& logs) {
    std::optional<std::size_t> newest;
    std::int64_t best = 0;
    for (std::size_t i = 0; i < logs.size(); ++i) {
        if (!logs[i].exists) {
            continue;
        }
        std::string tail;
        ReadTail(logs[i].path, kGlanceBytes, [&tail](std::string_view bytes) { tail += bytes; });
        const std::int64_t youngest = YoungestLineOfOthers(tail, kOwnProgram, logs[i].lastWriteMs);
        if (!newest || youngest > best) {
            newest = i;
            best = youngest;
        }
    }
    return newest;
}

HANDLE OpenSharedFile(const std::wstring& path) noexcept {
    return CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                       OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

DWORD ReadTail(const std::wstring& path, std::uint64_t most, const std::function<void(std::string_view)>& sink) {
    const UniqueFile file(OpenSharedFile(path));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.Get(), &size)) {
        return GetLastError();
    }
    LARGE_INTEGER begin{};
    const auto length = static_cast<std::uint64_t>(size.QuadPart);
    begin.QuadPart = static_cast<LONGLONG>(length > most ? length - most : 0);
    if (!SetFilePointerEx(file.Get(), begin, nullptr, FILE_BEGIN)) {
        return GetLastError();
    }
    std::string block(kBlockBytes, '\0');
    // No more than what was there at first: somebody may go on writing faster than this reads.
    for (std::uint64_t left = length - static_cast<std::uint64_t>(begin.QuadPart); left != 0;) {
        DWORD read = 0;
        const auto wanted = static_cast<DWORD>(left < kBlockBytes ? left : kBlockBytes);
        if (!ReadFile(file.Get(), block.data(), wanted, &read, nullptr)) {
            return GetLastError();
        }
        if (read == 0) {
            break;
        }
        sink({block.data(), read});
        left -= read;
    }
    return ERROR_SUCCESS;
}

std::int64_t UnixNowMs() noexcept {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return UnixMs(now);
}

}  // namespace ravlo
