// A made-up disk under the calls of the trace log: which directories there are, who owns them, which log files open.
// Every log file really lives in a file of the test's own, so nothing else writes into it.
#pragma once

#include "support/fixtures.h"
#include "support/import_hooks.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ravlo::test {

inline constexpr wchar_t kProgramDataDirectory[] = L"C:\\ProgramData\\Ravlo";
inline constexpr wchar_t kProgramDataLog[] = L"C:\\ProgramData\\Ravlo\\trace.log";
inline constexpr wchar_t kTempLog[] = L"C:\\Windows\\Temp\\ravlo-trace.log";

inline constexpr wchar_t kSystemSid[] = L"S-1-5-18";
/// Nobody whom any of these tests trusts.
inline constexpr wchar_t kStrangerSid[] = L"S-1-5-21-7-7-7-1234";

/// What the module finds when it opens one directory to judge it.
struct StagedDirectory {
    std::wstring owner = kSystemSid;  ///< SID text; empty for a descriptor without an owner
    DWORD openError = ERROR_SUCCESS;
    DWORD queryError = ERROR_SUCCESS;
    DWORD attributes = FILE_ATTRIBUTE_DIRECTORY;
    DWORD reparseTag = 0;
    DWORD ownerError = ERROR_SUCCESS;
};

inline std::string Narrow(const std::wstring& text) {
    std::string narrow;
    for (const wchar_t unit : text) {
        narrow += static_cast<char>(unit);
    }
    return narrow;
}

/// The messages of all lines of `text`; a line that is not laid out as a trace line is shown as "BROKEN: ...".
inline std::vector<std::string> MessagesOf(const std::string& text) {
    std::vector<std::string> messages;
    std::size_t start = 0;
    while (start < text.size()) {
        const std::size_t found = text.find("\r\n", start);
        const std::size_t end = found == std::string::npos ? text.size() : found;
        const std::string line = text.substr(start, end - start);
        const std::optional<TraceLine> parsed = ParseTraceLine(line);
        messages.push_back(parsed && found != std::string::npos ? parsed->message : "BROKEN: " + line);
        start = end + 2;
    }
    return messages;
}

/// Stands in for the disk from construction to destruction. Directories that were not staged are missing.
class StagedDisk {
public:
    /// `target` is a module's handle, or the LoadHooks of a module that is still to be loaded.
    template <class Target>
    explicit StagedDisk(Target&& target) : m_files(target), m_queries(target), m_owners(target), m_creations(target) {
        wchar_t directory[MAX_PATH]{};
        GetTempPathW(MAX_PATH, directory);
        m_realDirectory = directory;
        m_files.Replace([this](LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how,
                               DWORD flags,
                               HANDLE pattern) { return Open(path, access, share, security, how, flags, pattern); });
        m_queries.Replace([this](HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID info, DWORD size) {
            return Query(handle, kind, info, size);
        });
        m_owners.Replace([this](HANDLE handle, SE_OBJECT_TYPE type, SECURITY_INFORMATION wanted, PSID* owner,
                                PSID* group, PACL* dacl, PACL* sacl, PSECURITY_DESCRIPTOR* descriptor) {
            const std::optional<StagedDirectory> look = LookBehind(handle);
            return look ? OwnerOf(*look, owner, descriptor)
                        : Owners::CallOriginal(handle, type, wanted, owner, group, dacl, sacl, descriptor);
        });
        m_creations.Replace([this](LPCWSTR, LPSECURITY_ATTRIBUTES) -> BOOL {
            SetLastError(m_creationError);
            return m_creationError == ERROR_SUCCESS;
        });
    }
    ~StagedDisk() {
        for (const auto& [path, realPath] : m_realPaths) {
            DeleteFileW(realPath.c_str());
        }
    }

    /// What the first, second, ... opening of `path` finds; the last entry stays.
    void Stage(const std::wstring& path, std::vector<StagedDirectory> looks) {
        const std::lock_guard lock(m_mutex);
        m_looks[path] = std::move(looks);
    }
    /// Opening this log file fails from now on; ERROR_SUCCESS lets it open again.
    void FailFile(const std::wstring& path, DWORD error) {
        const std::lock_guard lock(m_mutex);
        m_fileErrors[path] = error;
    }
    /// What making a directory gives.
    void FailCreation(DWORD error) { m_creationError = error; }
    /// Called on the module's thread before each look at a directory.
    void OnLook(std::function<void()> action) { m_onLook = std::move(action); }

    /// Everything that was written to this log file.
    std::string TextOf(const std::wstring& path) {
        std::string text;
        const HANDLE file =
            ::CreateFileW(RealPathOf(path).c_str(), GENERIC_READ,
                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING, 0, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            return text;
        }
        char block[4096];
        DWORD bytes = 0;
        while (ReadFile(file, block, sizeof block, &bytes, nullptr) && bytes != 0) {
            text.append(block, bytes);
        }
        CloseHandle(file);
        return text;
    }
    /// Where the log file of this name really is. The name ends as a log's does, so that appends are as atomic as those
    /// of the real one.
    std::wstring RealPathOf(const std::wstring& path) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_realPaths.find(path);
        if (found != m_realPaths.end()) {
            return found->second;
        }
        const std::wstring real = m_realDirectory + L"ravlo-staged-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
                                  std::to_wstring(m_realPaths.size()) + L"-trace.log";
        DeleteFileW(real.c_str());
        return m_realPaths[path] = real;
    }

    using Files = RAVLO_HOOK(CreateFileW);
    using Queries = RAVLO_HOOK(GetFileInformationByHandleEx);
    using Owners = RAVLO_HOOK(GetSecurityInfo);
    using Creations = RAVLO_HOOK(CreateDirectoryW);

    /// The openings of log files and directories, in order; those of pipes and the like are left out.
    std::vector<Files::Call> Opens() const {
        std::vector<Files::Call> opens;
        for (const Files::Call& call : m_files.Calls()) {
            if (std::get<1>(call) == READ_CONTROL || std::get<1>(call) == FILE_APPEND_DATA) {
                opens.push_back(call);
            }
        }
        return opens;
    }
    std::vector<std::wstring> OpenedPaths() const {
        std::vector<std::wstring> paths;
        for (const Files::Call& call : Opens()) {
            paths.push_back(std::get<0>(call));
        }
        return paths;
    }
    const Queries& AttributeQueries() const { return m_queries; }
    const Owners& OwnerQueries() const { return m_owners; }
    const Creations& DirectoryCreations() const { return m_creations; }

private:
    HANDLE Open(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags,
                HANDLE pattern) {
        if (access == READ_CONTROL) {
            if (m_onLook) {
                m_onLook();
            }
            const StagedDirectory look = NextLook(path);
            if (look.openError != ERROR_SUCCESS) {
                SetLastError(look.openError);
                return INVALID_HANDLE_VALUE;
            }
            const HANDLE handle =
                Files::CallOriginal(m_realDirectory.c_str(), access, share, security, how, flags, pattern);
            const std::lock_guard lock(m_mutex);
            m_open[handle] = look;
            return handle;
        }
        if (access != FILE_APPEND_DATA) {
            return Files::CallOriginal(path, access, share, security, how, flags, pattern);
        }
        const std::wstring realPath = RealPathOf(path);
        {
            const std::lock_guard lock(m_mutex);
            const auto error = m_fileErrors.find(path);
            if (error != m_fileErrors.end() && error->second != ERROR_SUCCESS) {
                SetLastError(error->second);
                return INVALID_HANDLE_VALUE;
            }
        }
        return Files::CallOriginal(realPath.c_str(), access, share, security, how, flags, pattern);
    }

    StagedDirectory NextLook(LPCWSTR path) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_looks.find(path);
        if (found == m_looks.end()) {
            return {.openError = ERROR_PATH_NOT_FOUND};
        }
        const StagedDirectory look = found->second.front();
        if (found->second.size() > 1) {
            found->second.erase(found->second.begin());
        }
        return look;
    }

    std::optional<StagedDirectory> LookBehind(HANDLE handle) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_open.find(handle);
        return found == m_open.end() ? std::nullopt : std::optional(found->second);
    }

    BOOL Query(HANDLE handle, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID info, DWORD size) {
        const std::optional<StagedDirectory> look = LookBehind(handle);
        if (!look) {
            return Queries::CallOriginal(handle, kind, info, size);
        }
        if (look->queryError != ERROR_SUCCESS) {
            SetLastError(look->queryError);
            return FALSE;
        }
        const FILE_ATTRIBUTE_TAG_INFO staged{look->attributes, look->reparseTag};
        std::memcpy(info, &staged, sizeof staged);
        return TRUE;
    }

    /// The SID is the whole descriptor: the module gives it back with LocalFree, as the conversion made it.
    static DWORD OwnerOf(const StagedDirectory& look, PSID* owner, PSECURITY_DESCRIPTOR* descriptor) {
        if (look.ownerError != ERROR_SUCCESS) {
            return look.ownerError;
        }
        *owner = nullptr;
        if (!look.owner.empty() && !ConvertStringSidToSidW(look.owner.c_str(), owner)) {
            return ERROR_INVALID_SID;
        }
        *descriptor = *owner;
        return ERROR_SUCCESS;
    }

    std::mutex m_mutex;
    std::wstring m_realDirectory;
    std::map<std::wstring, std::vector<StagedDirectory>> m_looks;
    std::map<std::wstring, DWORD> m_fileErrors;
    std::map<std::wstring, std::wstring> m_realPaths;
    std::map<HANDLE, StagedDirectory> m_open;
    std::function<void()> m_onLook;
    DWORD m_creationError = ERROR_SUCCESS;
    Files m_files;
    Queries m_queries;
    Owners m_owners;
    Creations m_creations;
};

/// A staged disk in force before the module's first line.
class StagedLogTest : public AnchoredTest {
protected:
    /// Loads and unloads the module: its first and its last line.
    void AttachAndDetach() { const ModuleUnderTest module(m_loading); }
    /// The messages in one log file.
    std::vector<std::string> Messages(const std::wstring& path) { return MessagesOf(m_disk.TextOf(path)); }
    /// The first message in it, which reports how the location was chosen; empty when there is no line.
    std::string Report(const std::wstring& path) {
        const std::vector<std::string> messages = Messages(path);
        return messages.empty() ? "" : messages.front();
    }

    const std::wstring m_moduleDirectory = ProgramDirectory();
    const std::wstring m_moduleLog = ProgramDirectory() + L"\\trace.log";
    LoadHooks m_loading;
    StagedDisk m_disk{m_loading};
};

}  // namespace ravlo::test
