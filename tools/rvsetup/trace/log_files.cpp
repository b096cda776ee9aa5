#include "rvsetup/trace/log_files.h"

#include <aclapi.h>
#include <sddl.h>

#include "common/wide_text.h"
#include "pipe/authorized_user.h"
#include "platform/local_memory.h"
#include "platform/unique_handle.h"
#include "rvsetup/doctor/registered_module.h"
#include "rvsetup/system/camera_names.h"
#include "rvsetup/system/text.h"
#include "rvsetup/trace/log_clock.h"

namespace ravlo {
namespace {

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

bool BelongsToUs(const std::wstring& folder) {
    PSID owner = nullptr;
    LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
    LocalWideString text;
    std::wstring self;
    DWORD error = ERROR_SUCCESS;
    return GetNamedSecurityInfoW(const_cast<wchar_t*>(folder.c_str()), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION,
                                 &owner, nullptr, nullptr, nullptr, descriptor.Put()) == ERROR_SUCCESS &&
           owner != nullptr && ConvertSidToStringSidW(owner, text.Put()) && GetOwnTokenUserSid(self, error) &&
           self == text.Get();
}

LogFile Gated(const std::wstring& folder) {
    LogFile log;
    log.path = folder + kLogName;
    log.verdict = RvCheckTraceDirectory(folder.c_str(), &log.gateError);
    log.isOwnFolder = log.verdict == RvTraceDirVerdict::ForeignOwner && BelongsToUs(folder);
    LookAt(log);
    return log;
}

}  // namespace

std::vector<LogFile> FindLogFiles(const std::wstring& modulePath) {
    std::vector<LogFile> logs{Gated(kCameraLogFolderWide)};
    if (const std::wstring folder = FolderOf(modulePath); IsAbsolutePath(ToUtf8(modulePath)) && !folder.empty()) {
        logs.push_back(Gated(folder));
    }
    LogFile last;
    last.path = kTempLog;
    last.isGated = false;
    LookAt(last);
    logs.push_back(last);
    return logs;
}

bool IsFolderRefused(const LogFile& log) noexcept {
    return log.isGated &&
           (log.verdict == RvTraceDirVerdict::ReparsePoint || log.verdict == RvTraceDirVerdict::NotADirectory ||
            (log.verdict == RvTraceDirVerdict::ForeignOwner && !log.isOwnFolder));
}

std::optional<std::size_t> NewestLog(const std::vector<LogFile>& logs) {
    std::optional<std::size_t> newest;
    std::int64_t best = 0;
    for (std::size_t i = 0; i < logs.size(); ++i) {
        if (!logs[i].exists || IsFolderRefused(logs[i])) {
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
    UniqueFile file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING,
                                FILE_FLAG_OPEN_REPARSE_POINT | SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
    if (!file) {
        return INVALID_HANDLE_VALUE;
    }
    BY_HANDLE_FILE_INFORMATION info{};
    if (GetFileType(file.Get()) != FILE_TYPE_DISK || !GetFileInformationByHandle(file.Get(), &info) ||
        (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        file.Reset();
        SetLastError(ERROR_CANT_ACCESS_FILE);
        return INVALID_HANDLE_VALUE;
    }
    return file.Release();
}

bool IsSignalled(HANDLE event) noexcept {
    return event != nullptr && WaitForSingleObject(event, 0) == WAIT_OBJECT_0;
}

DWORD ReadTail(const std::wstring& path, std::uint64_t most, const std::function<void(std::string_view)>& sink,
               HANDLE interrupt) {
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
        if (IsSignalled(interrupt)) {
            return ERROR_CANCELLED;
        }
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
