#include "trace/trace_location.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

#include "platform/unique_handle.h"

namespace ravlo {
namespace {

constexpr wchar_t kProgramDataDirectory[] = L"C:\\ProgramData\\Ravlo";
constexpr wchar_t kProgramDataFile[] = L"C:\\ProgramData\\Ravlo\\trace.log";
constexpr wchar_t kTempFile[] = L"C:\\Windows\\Temp\\ravlo-trace.log";
constexpr wchar_t kModuleFileName[] = L"\\trace.log";

void ReadProcessName(char (&name)[kProcessNameCapacity]) noexcept {
    wchar_t path[kLogPathCapacity]{};
    const DWORD length = GetModuleFileNameW(nullptr, path, kLogPathCapacity);
    const wchar_t* base = path;
    if (length == 0 || length >= kLogPathCapacity) {
        base = L"unknown.exe";
    } else {
        for (const wchar_t* cursor = path; *cursor != L'\0'; ++cursor) {
            if (*cursor == L'\\' || *cursor == L'/') {
                base = cursor + 1;
            }
        }
    }
    std::size_t count = 0;
    for (; base[count] != L'\0' && count + 1 < kProcessNameCapacity; ++count) {
        name[count] = base[count] >= 32 && base[count] <= 126 ? static_cast<char>(base[count]) : '?';
    }
    name[count] = '\0';
}

/// Opens and closes `path` as candidate number `index` + 1 would; on success the choice is made.
bool TryCandidate(RvTraceLocation& location, std::size_t index, const wchar_t* path) noexcept {
    const UniqueFile file(OpenTraceFile(path));
    if (!file) {
        location.openErrors[index] = GetLastError();
        return false;
    }
    location.openErrors[index] = ERROR_SUCCESS;
    std::copy_n(path, std::min<std::size_t>(std::wcslen(path), kLogPathCapacity - 1), location.path);
    location.candidate = static_cast<DWORD>(index + 1);
    return true;
}

bool TryProgramData(RvTraceLocation& location) noexcept {
    DWORD error = ERROR_SUCCESS;
    RvTraceDirVerdict verdict = RvCheckTraceDirectory(kProgramDataDirectory, &error);
    if (verdict == RvTraceDirVerdict::Missing) {
        if (CreateDirectoryW(kProgramDataDirectory, nullptr) || GetLastError() == ERROR_ALREADY_EXISTS) {
            verdict = RvCheckTraceDirectory(kProgramDataDirectory, &error);
        }
    }
    location.verdicts[0] = verdict;
    location.gateErrors[0] = error;
    return verdict == RvTraceDirVerdict::Ok && TryCandidate(location, 0, kProgramDataFile);
}

bool TryModuleDirectory(RvTraceLocation& location, HMODULE module) noexcept {
    if (module == nullptr) {
        return false;
    }
    wchar_t directory[kLogPathCapacity]{};
    const DWORD length = GetModuleFileNameW(module, directory, kLogPathCapacity);
    if (length == 0 || length >= kLogPathCapacity) {
        return false;
    }
    wchar_t* const lastBackslash = std::wcsrchr(directory, L'\\');
    if (lastBackslash == nullptr) {
        return false;
    }
    *lastBackslash = L'\0';
    location.verdicts[1] = RvCheckTraceDirectory(directory, &location.gateErrors[1]);

    wchar_t file[kLogPathCapacity]{};
    const auto directoryLength = static_cast<std::size_t>(lastBackslash - directory);
    std::copy_n(directory, directoryLength, file);
    const std::size_t room = kLogPathCapacity - 1 - directoryLength;
    std::copy_n(kModuleFileName, std::min(std::size(kModuleFileName) - 1, room), file + directoryLength);
    return location.verdicts[1] == RvTraceDirVerdict::Ok && TryCandidate(location, 1, file);
}

}  // namespace

HANDLE OpenTraceFile(const wchar_t* path) noexcept {
    // Append-only access puts every write at the end, whoever else writes. The reparse flag makes the open act on a
    // link itself, so a link planted under the log's name leads nowhere.
    return CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
}

void ChooseTraceLocation(RvTraceLocation& location, HMODULE module) noexcept {
    location = RvTraceLocation{};
    for (std::size_t i = 0; i < kCandidateCount; ++i) {
        location.verdicts[i] = RvTraceDirVerdict::NotRun;
        // What the report shows for a candidate whose open was never tried.
        location.openErrors[i] = ERROR_NOT_READY;
    }
    ReadProcessName(location.processName);
    if (TryProgramData(location) || TryModuleDirectory(location, module)) {
        return;
    }
    // The last resort is not gated: the system's own Temp always exists, and a lost reason for a missing picture is
    // worse.
    TryCandidate(location, 2, kTempFile);
}

}  // namespace ravlo
