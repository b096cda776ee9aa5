#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "trace/directory_gate.h"

namespace ravlo {

/// The program whose lines say nothing about a camera: ourselves, who load the module to see whether that works.
inline constexpr const char* kOwnProgram = "rvsetup.exe";

/// One of the places where the camera may write its log.
struct LogFile {
    std::wstring path;
    bool isGated = true;  ///< the camera judges the folder before it writes there
    RvTraceDirVerdict verdict = RvTraceDirVerdict::NotRun;
    DWORD gateError = ERROR_SUCCESS;
    bool isOwnFolder = false;  ///< it belongs to the user who runs this
    bool exists = false;
    std::uint64_t bytes = 0;
    std::int64_t lastWriteMs = 0;  ///< Unix time
};

/// The three places in the order in which the camera tries them. `modulePath` is that of the DLL; one that is not
/// absolute, as an empty one, leaves out the second place. Nothing is created.
std::vector<LogFile> FindLogFiles(const std::wstring& modulePath);

/// Whether a stranger may have written what lies in the log's folder: the camera itself refuses it, and it does not belong
/// to the user who looks either.
bool IsFolderRefused(const LogFile& log) noexcept;

/// The index of the log with the youngest line that another program than this one wrote; nothing when there is no log.
/// Logs in refused folders do not count.
std::optional<std::size_t> NewestLog(const std::vector<LogFile>& logs);

/// Opens a file that others write, rename and delete meanwhile. An invalid handle leaves the reason to GetLastError:
/// ERROR_CANT_ACCESS_FILE for a link, a pipe or a device, whose server learns nothing about this process.
HANDLE OpenSharedFile(const std::wstring& path) noexcept;

/// Hands the last `most` bytes of a file to `sink`, piece by piece. Returns 0 or a Win32 error: ERROR_CANCELLED when the
/// event `interrupt` (may be null) was signalled meanwhile.
DWORD ReadTail(const std::wstring& path, std::uint64_t most, const std::function<void(std::string_view)>& sink,
               HANDLE interrupt = nullptr);

/// Whether an event is signalled; false for none.
bool IsSignalled(HANDLE event) noexcept;

/// This moment as Unix time in ms.
std::int64_t UnixNowMs() noexcept;

}  // namespace ravlo
