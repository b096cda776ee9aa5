#pragma once

#include <windows.h>

#include <stdexcept>
#include <string>

namespace ravlo::bench {

/// What a line of a log costs at least: the file opened as the module opens its log, one write, the file closed. Throws
/// when the line was not written whole.
inline void AppendLine(const wchar_t* path, const std::string& line) {
    const HANDLE file = CreateFileW(path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    DWORD written = 0;
    const bool whole = file != INVALID_HANDLE_VALUE &&
                       WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr) &&
                       written == line.size();
    if (!CloseHandle(file) || !whole) {
        throw std::runtime_error("a file beside the trace log cannot be written");
    }
}

}  // namespace ravlo::bench
