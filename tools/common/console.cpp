#include "common/console.h"

#include <windows.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "common/messages.h"
#include "common/wide_text.h"

namespace ravlo {
namespace {

#ifndef ENABLE_VIRTUAL_TERMINAL_PROCESSING
constexpr DWORD ENABLE_VIRTUAL_TERMINAL_PROCESSING = 0x0004;
#endif

/// Messages that may wait; a program that says more while nobody can read it has said it often enough.
constexpr std::size_t kMostMessages = 256;
/// What standard output leaves to messages that were said before, so that both appear in their order.
constexpr std::chrono::milliseconds kOrderPatience{200};

bool IsConsole(DWORD which, DWORD& mode) noexcept {
    const HANDLE handle = GetStdHandle(which);
    return handle != nullptr && GetConsoleMode(handle, &mode) != FALSE;
}

bool WriteWide(DWORD which, const std::wstring& text) noexcept {
    DWORD written = 0;
    return WriteConsoleW(GetStdHandle(which), text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != FALSE;
}

std::size_t ErrorConsoleWidth() noexcept {
    constexpr std::size_t kUsualWidth = 80;
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &info) ||
        info.srWindow.Right <= info.srWindow.Left) {
        return kUsualWidth;
    }
    return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left) + 1;
}

/// The console behind standard error. A thread of its own writes to it: a user who selects text in the window holds up
/// whoever writes for as long as the selection stands, and that must be nobody who has frames to send.
class ErrorConsole {
public:
    /// Never destroyed: its thread may be stuck in a write when the program ends.
    static ErrorConsole& Instance() {
        static auto* const instance = new ErrorConsole;
        s_exists.store(true);
        return *instance;
    }

    /// Whether anything was ever said.
    static bool Exists() noexcept { return s_exists.load(); }

    /// A line that stays. Left out when too many wait.
    void Put(std::wstring line) {
        {
            const std::scoped_lock lock(m_mutex);
            if (m_messages.size() == kMostMessages) {
                return;
            }
            m_messages.push_back(std::move(line));
        }
        m_work.notify_one();
    }

    /// The line at the bottom, in place of the one before; empty takes it away.
    void Show(std::wstring status) {
        {
            const std::scoped_lock lock(m_mutex);
            m_status = std::move(status);
        }
        m_work.notify_one();
    }

    void Flush(std::chrono::milliseconds patience) {
        std::unique_lock lock(m_mutex);
        m_idle.wait_for(lock, patience, [this] { return m_messages.empty() && !m_status && !m_isWriting; });
    }

private:
    ErrorConsole() {
        std::thread([this] { Run(); }).detach();
    }

    void Run() noexcept {
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_work.wait(lock, [this] { return !m_messages.empty() || m_status; });
            const std::deque<std::wstring> messages = std::exchange(m_messages, {});
            const std::optional<std::wstring> status = std::exchange(m_status, std::nullopt);
            m_isWriting = true;
            lock.unlock();
            Write(messages, status);
            lock.lock();
            m_isWriting = false;
            m_idle.notify_all();
        }
    }

    void Write(const std::deque<std::wstring>& messages, const std::optional<std::wstring>& status) {
        for (const std::wstring& message : messages) {
            WriteWide(STD_ERROR_HANDLE, Erasure() + message);
            m_statusWidth = 0;
        }
        if (!status) {
            return;
        }
        if (status->empty()) {
            WriteWide(STD_ERROR_HANDLE, Erasure());
            m_statusWidth = 0;
            return;
        }
        // One column stays free: a full line would wrap and scroll.
        const std::wstring line = status->substr(0, ErrorConsoleWidth() - 1);
        const std::size_t rest = m_statusWidth > line.size() ? m_statusWidth - line.size() : 0;
        WriteWide(STD_ERROR_HANDLE, L"\r" + line + std::wstring(rest, L' '));
        m_statusWidth = line.size();
    }

    /// Blanks over the status line, which leaves the cursor at its begin.
    std::wstring Erasure() const {
        return m_statusWidth == 0 ? std::wstring() : L"\r" + std::wstring(m_statusWidth, L' ') + L"\r";
    }

    inline static std::atomic<bool> s_exists{false};

    std::mutex m_mutex;
    std::condition_variable m_work;
    std::condition_variable m_idle;
    std::deque<std::wstring> m_messages;
    std::optional<std::wstring> m_status;
    bool m_isWriting = false;
    std::size_t m_statusWidth = 0;  ///< characters of the status line that is on the console; the thread's own
};

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
    FlushMessages(kOrderPatience);
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
    if (IsErrorConsole()) {
        try {
            ErrorConsole::Instance().Put(ToWide(program) + L": " + ToWide(text) + L"\n");
            return;
        } catch (const std::exception&) {  // no memory, or no thread: then as any file
        }
    }
    WriteMessage(program, text);
}

void ShowStatus(std::string_view text) noexcept {
    if (!IsErrorConsole()) {
        return;
    }
    try {
        ErrorConsole::Instance().Show(ToWide(text));
    } catch (const std::exception&) {
        return;  // the line of a moment ago stays
    }
}

void ClearStatus() noexcept {
    ShowStatus({});
}

void FlushMessages(std::chrono::milliseconds patience) noexcept {
    if (!ErrorConsole::Exists()) {
        return;
    }
    try {
        ErrorConsole::Instance().Flush(patience);
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace ravlo
