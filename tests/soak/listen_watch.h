// What becomes of the camera's listens on its frame pipe, and ways to spoil them.
#pragma once

#include "soak/lock.h"
#include "soak/stall_meter.h"
#include "support/import_hooks.h"

#include <windows.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace ravlo::test {

/// Watches ConnectNamedPipe of a module. One at a time. Keeps no record of single calls, so that it may watch for ever.
class ListenWatch {
public:
    /// The pause that the reader makes when two listens in a row have failed it.
    static constexpr double kBackOffMs = 1000;

    explicit ListenWatch(HMODULE module) : m_hook(module, "ConnectNamedPipe", &Connect) {
        if (std::exchange(s_watch, this) != nullptr) {
            throw std::runtime_error("the listens are watched already");
        }
    }
    ~ListenWatch() { s_watch = nullptr; }
    ListenWatch(const ListenWatch&) = delete;
    ListenWatch& operator=(const ListenWatch&) = delete;

    /// Just before the next listen a client opens this pipe and goes again.
    void ComeAndGoBeforeNextListen(const std::wstring& pipeName) {
        const LockGuard lock(m_lock);
        m_visitedName = pipeName;
    }
    /// The next `count` listens are refused by the system.
    void RefuseNext(unsigned count) {
        const LockGuard lock(m_lock);
        m_toRefuse = count;
    }
    /// Listens that failed since the last call.
    unsigned TakeFailed() {
        const LockGuard lock(m_lock);
        return std::exchange(m_failed, 0U);
    }
    /// When the reader's current pause ends (NowMs); in the past when it makes none.
    double BackOffEndsMs() const {
        const LockGuard lock(m_lock);
        return m_backOffEndsMs;
    }

private:
    static BOOL WINAPI Connect(HANDLE pipe, OVERLAPPED* overlapped) {
        ListenWatch* const watch = s_watch;
        DWORD flags = 0;
        GetNamedPipeInfo(pipe, &flags, nullptr, nullptr, nullptr);
        if (watch == nullptr || (flags & PIPE_TYPE_MESSAGE) != 0) {
            return ConnectNamedPipe(pipe, overlapped);  // the gate's
        }
        return watch->ConnectFramePipe(pipe, overlapped);
    }
    BOOL ConnectFramePipe(HANDLE pipe, OVERLAPPED* overlapped) {
        const LockGuard lock(m_lock);
        if (!m_visitedName.empty()) {
            CloseHandle(CreateFileW(std::exchange(m_visitedName, {}).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    0, nullptr));
        }
        BOOL connected = FALSE;
        DWORD error = ERROR_NO_SYSTEM_RESOURCES;
        if (m_toRefuse != 0) {
            --m_toRefuse;
        } else {
            connected = ConnectNamedPipe(pipe, overlapped);
            error = GetLastError();
        }
        if (connected || error == ERROR_IO_PENDING || error == ERROR_PIPE_CONNECTED) {
            m_failedInARow = 0;
        } else {
            ++m_failed;
            if (++m_failedInARow == 2) {
                m_failedInARow = 0;
                m_backOffEndsMs = NowMs() + kBackOffMs;
            }
        }
        SetLastError(error);
        return connected;
    }

    static inline ListenWatch* s_watch = nullptr;
    ScopedHook<BOOL WINAPI(HANDLE, OVERLAPPED*)> m_hook;
    mutable Lock m_lock;
    std::wstring m_visitedName;
    unsigned m_toRefuse = 0;
    unsigned m_failed = 0;
    unsigned m_failedInARow = 0;
    double m_backOffEndsMs = 0;
};

}  // namespace ravlo::test
