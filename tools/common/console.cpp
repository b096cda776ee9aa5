#include "common/console.h"

#include <windows.h>

#include <cstddef>
#include <cstdio>
#include <mutex>
#include <new>
#include <string>

#include "common/messages.h"
#include "common/wide_text.h"

namespace ravlo {
namespace {

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
constexpr DWORD ENABLE_VIRTUAL_TERMINAL_PROCESSING = 0x0004;
#endif

/// Guards the status line and keeps a message and a redrawn status apart.
std::mutex g_mutex;
std::size_t g_statusWidth = 0;  ///< characters of the status line that is on the console; 0 for none

bool IsConsole(DWORD which, DWORD& mode) noexcept {
    const HANDLE handle = GetStdHandle(which);
    return handle != nullptr && GetConsoleMode(handle, &mode) != FALSE;
}

bool WriteWide(DWORD which, const std::wstring& text) noexcept {
    DWORD written = 0;
    return WriteConsoleW(GetStdHandle(which), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != FALSE;
}

/// Blanks over the status line, which leaves the cursor at its begin.
std::wstring Erasure() {
    return g_statusWidth == 0 ? std::wstring() : L"\r" + std::wstring(g_statusWidth, L' ') + L"\r";
}

std::size_t ErrorConsoleWidth() noexcept {
    constexpr std::size_t kUsualWidth = 80;
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) || info.dwSize.X <= 1) {
        return kUsualWidth;
    }
    return static_cast<std::size_t>(info.dwSize.X);
}

bool WriteMessageToConsole(std::string_view program, std::string_view text) noexcept {
    try {
        const std::scoped_lock lock(g_mutex);
        const std::wstring line = Erasure() + ToWide(program) + L": " + ToWide(text) + L"\n";
        g_statusWidth = 0;
        return WriteWide(STD_ERROR_HANDLE, line);
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

bool IsErrorConsole() noexcept {
    DWORD mode = 0;
    return IsConsole(STD_ERROR_HANDLE, mode);
}

bool IsOutputConsole() noexcept {
    DWORD mode = 0;
    return IsConsole(STD_OUTPUT_HANDLE, mode);
}

bool EnableOutputColour() noexcept {
    DWORD mode = 0;
    return IsConsole(STD_OUTPUT_HANDLE, mode) &&
           SetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
}

bool WriteOutput(std::string_view text) noexcept {
    if (IsOutputConsole()) {
        try {
            return WriteWide(STD_OUTPUT_HANDLE, ToWide(text));
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    std::fflush(stdout);
    while (!text.empty()) {
        DWORD written = 0;
        if (!WriteFile(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) || written == 0) {
            return false;
        }
        text.remove_prefix(written);
    }
    return true;
}

void WriteConsoleMessage(std::string_view program, std::string_view text) noexcept {
    if (!IsErrorConsole() || !WriteMessageToConsole(program, text)) {
        WriteMessage(program, text);
    }
}

void ShowStatus(std::string_view text) noexcept {
    if (!IsErrorConsole()) {
        return;
    }
    try {
        const std::scoped_lock lock(g_mutex);
        // One column stays free: a full line would wrap and scroll.
        const std::wstring line = ToWide(text).substr(0, ErrorConsoleWidth() - 1);
        const std::size_t rest = g_statusWidth > line.size() ? g_statusWidth - line.size() : 0;
        WriteWide(STD_ERROR_HANDLE, L"\r" + line + std::wstring(rest, L' '));
        g_statusWidth = line.size();
    } catch (const std::bad_alloc&) {
        return;  // the line of a moment ago stays
    }
}

void ClearStatus() noexcept {
    if (!IsErrorConsole()) {
        return;
    }
    try {
        const std::scoped_lock lock(g_mutex);
        WriteWide(STD_ERROR_HANDLE, Erasure());
        g_statusWidth = 0;
    } catch (const std::bad_alloc&) {
        return;
    }
}

}  // namespace ravlo
