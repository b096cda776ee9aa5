#include "rvsetup/install/file_work.h"

#include <algorithm>
#include <cstddef>

#include "common/wide_text.h"
#include "platform/unique_handle.h"

namespace ravlo {
namespace {

constexpr DWORD kMove = MOVEFILE_WRITE_THROUGH;

DWORD ResultOf(BOOL succeeded) noexcept {
    return succeeded ? ERROR_SUCCESS : GetLastError();
}

bool IsAbsence(DWORD error) noexcept {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

/// Errors of removing or replacing a file that a program runs from, or holds open.
bool IsInUse(DWORD error) noexcept {
    return error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION || error == ERROR_USER_MAPPED_FILE;
}

DWORD Remove(const std::wstring& path) noexcept {
    const DWORD error = ResultOf(DeleteFileW(path.c_str()));
    return IsAbsence(error) ? ERROR_SUCCESS : error;
}

DWORD MakeFolder(const std::string& path) noexcept {
    const DWORD error = ResultOf(CreateDirectoryW(ToWide(path).c_str(), nullptr));
    return error == ERROR_ALREADY_EXISTS ? ERROR_SUCCESS : error;
}

/// Names of what lies in a folder; none when it cannot be read.
std::vector<std::wstring> NamesIn(const std::string& folder) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found{};
    const HANDLE search = FindFirstFileW(ToWide(folder + "\\*").c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L"..") {
            names.push_back(name);
        }
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return names;
}

void RemoveAtRestart(const std::string& path) noexcept {
    MoveFileExW(ToWide(path).c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT);
}

/// Name of the file that names a folder which was left for later.
constexpr wchar_t kLeftPrefix[] = L"left-";

void RemoveLeftFolders(const std::string& programFolder) {
    const std::string notes = OldFilesFolder(programFolder);
    for (const std::wstring& name : NamesIn(notes)) {
        DWORD error = ERROR_SUCCESS;
        const std::string note = notes + "\\" + ToUtf8(name);
        const auto bytes = name.starts_with(kLeftPrefix) ? ReadWholeFile(note, error) : std::nullopt;
        const std::string path = bytes ? std::string(bytes->begin(), bytes->end()) : std::string();
        if (path == programFolder || path.starts_with(programFolder + "\\")) {
            RemoveFolder(path);
        }
    }
}

void EmptyAndRemove(const std::string& folder) {
    for (const std::wstring& name : NamesIn(folder)) {
        DeleteFileW(ToWide(folder).append(L"\\").append(name).c_str());
    }
    RemoveDirectoryW(ToWide(folder).c_str());
}

/// A file in use cannot be removed, but it can be given another name: its place is free at once. The next restart of
/// Windows removes it, or an earlier sweep.
Removal MoveAway(const std::string& path, const std::string& programFolder) {
    const std::string folder = OldFilesFolder(programFolder);
    if (const DWORD error = MakeFolder(folder)) {
        return {error, {}};
    }
    const std::string name = path.substr(path.rfind('\\') + 1);
    constexpr int kMostOfAName = 1000;
    for (int number = 1; number < kMostOfAName; ++number) {
        std::string target = folder + "\\";
        target += std::to_string(number) + "-" + name;
        if (PathExists(target)) {
            continue;
        }
        if (const DWORD error = ResultOf(MoveFileExW(ToWide(path).c_str(), ToWide(target).c_str(), kMove))) {
            return {error, {}};
        }
        RemoveAtRestart(target);
        RemoveAtRestart(folder);
        return {ERROR_SUCCESS, target};
    }
    return {ERROR_ALREADY_EXISTS, {}};
}

}  // namespace

std::string WorkFolder(const std::string& programFolder) {
    return programFolder + ".new";
}

std::string OldFilesFolder(const std::string& programFolder) {
    return programFolder + ".old";
}

void Sweep(const std::string& programFolder) noexcept {
    try {
        // The inner ones in the first round, the outer one in the second, whatever their order.
        RemoveLeftFolders(programFolder);
        RemoveLeftFolders(programFolder);
        EmptyAndRemove(WorkFolder(programFolder));
        EmptyAndRemove(OldFilesFolder(programFolder));
        Remove(ToWide(programFolder + "\\install.json.new"));
    } catch (...) {
        return;  // left for the next run
    }
}

bool PathExists(const std::string& path) noexcept {
    return GetFileAttributesW(ToWide(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool HoldsOnly(const std::string& folder, const std::string& name) {
    return NamesIn(folder) == std::vector<std::wstring>{ToWide(name)};
}

std::optional<std::vector<std::uint8_t>> ReadWholeFile(const std::string& path, DWORD& error) {
    constexpr LONGLONG kLargest = 256LL << 20;
    const UniqueFile file(CreateFileW(ToWide(path).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                      OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.Get(), &size)) {
        error = GetLastError();
        return std::nullopt;
    }
    if (size.QuadPart > kLargest) {
        error = ERROR_FILE_TOO_LARGE;
        return std::nullopt;
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size.QuadPart));
    DWORD read = 0;
    if (!ReadFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr)) {
        error = GetLastError();
        return std::nullopt;
    }
    bytes.resize(read);
    error = ERROR_SUCCESS;
    return bytes;
}

bool HaveSameContent(const std::string& left, const std::string& right) {
    DWORD error = ERROR_SUCCESS;
    const auto leftBytes = ReadWholeFile(left, error);
    const auto rightBytes = leftBytes ? ReadWholeFile(right, error) : std::nullopt;
    return rightBytes && *leftBytes == *rightBytes;
}

DWORD WriteFileSafely(const std::string& path, const std::string& text) noexcept {
    const std::string temporary = path + ".new";
    {
        const UniqueFile file(CreateFileW(ToWide(temporary).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
        DWORD written = 0;
        if (!file || !WriteFile(file.Get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) ||
            !FlushFileBuffers(file.Get())) {
            return GetLastError();
        }
    }
    return MoveOver(temporary, path);
}

Removal CopyFileSafely(const std::string& source, const std::string& target, const std::string& programFolder) {
    const std::wstring temporary = ToWide(target + ".new");
    // A read-only original must not make a copy that cannot be removed.
    DWORD error = ResultOf(CopyFileW(ToWide(source).c_str(), temporary.c_str(), FALSE));
    if (error == ERROR_SUCCESS) {
        error = ResultOf(SetFileAttributesW(temporary.c_str(), FILE_ATTRIBUTE_NORMAL));
    }
    if (error != ERROR_SUCCESS) {
        Remove(temporary);
        return {error, {}};
    }
    Removal old{MoveOver(target + ".new", target), {}};
    if (IsInUse(old.error)) {
        old = MoveAway(target, programFolder);
        if (old.error == ERROR_SUCCESS) {
            old.error = MoveOver(target + ".new", target);
        }
    }
    if (old.error != ERROR_SUCCESS) {
        Remove(temporary);
    }
    return old;
}

Removal RemoveFileSafely(const std::string& path, const std::string& programFolder) {
    if (const DWORD error = Remove(ToWide(path + ".new"))) {
        return {error, {}};
    }
    const DWORD error = Remove(ToWide(path));
    return IsInUse(error) ? MoveAway(path, programFolder) : Removal{error, {}};
}

void LeaveFolderForLater(const std::string& folder, const std::string& programFolder) noexcept {
    try {
        const std::string notes = OldFilesFolder(programFolder);
        const std::string note = notes + "\\" + ToUtf8(kLeftPrefix) + folder.substr(folder.rfind('\\') + 1);
        if (MakeFolder(notes) == ERROR_SUCCESS && WriteFileSafely(note, folder) == ERROR_SUCCESS) {
            RemoveAtRestart(note);
        }
        RemoveAtRestart(folder);
        RemoveAtRestart(notes);
    } catch (...) {
        return;  // the user is told of the folder in any case
    }
}

DWORD RemoveFolder(const std::string& path) noexcept {
    const DWORD error = ResultOf(RemoveDirectoryW(ToWide(path).c_str()));
    return IsAbsence(error) ? ERROR_SUCCESS : error;
}

DWORD MoveFolder(const std::string& from, const std::string& to) noexcept {
    return ResultOf(MoveFileExW(ToWide(from).c_str(), ToWide(to).c_str(), kMove));
}

DWORD MoveOver(const std::string& from, const std::string& to) noexcept {
    return ResultOf(MoveFileExW(ToWide(from).c_str(), ToWide(to).c_str(), kMove | MOVEFILE_REPLACE_EXISTING));
}

}  // namespace ravlo
