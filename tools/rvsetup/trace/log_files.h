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
    bool exists = false;
    std::uint64_t bytes = 0;
    std::int64_t lastWriteMs = 0;  ///< Unix time
};

/// The three places in the order in which the camera tries them. `modulePath` is that of the DLL; empty leaves out the
/// second place. Nothing is created.
std::vector<LogFile> FindLogFiles(const std::wstring& modulePath);

/// The index of the log with the youngest line that another program than this one wrote; nothing when there is no log.
std::optional<std::size_t> NewestLog(const std::vector<LogFile>& logs);

/// Opens a file that others write, rename and delete meanwhile. An invalid handle leaves the reason to GetLastError.
HANDLE OpenSharedFile(const std::wstring& path) noexcept;

/// Hands the last `most` bytes of a file to `sink`, piece by piece. Returns 0 or a Win32 error.
DWORD ReadTail(const std::wstring& path, std::uint64_t most, const std::function<void(std::string_view)>& sink);

/// This moment as Unix time in ms.
std::int64_t UnixNowMs() noexcept;

}  // namespace ravlo
