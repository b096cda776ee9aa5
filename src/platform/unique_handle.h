#pragma once

#include <windows.h>

#include <utility>

namespace ravlo {

/// Owns one kernel handle. `Traits` knows which value means "none": events and threads fail with null, files and pipes
/// with INVALID_HANDLE_VALUE. Closing preserves the thread's last error, so that a failure path may close before it
/// reads it.
template <class Traits>
class UniqueHandle {
public:
    UniqueHandle() noexcept = default;
    explicit UniqueHandle(HANDLE handle) noexcept : m_handle(handle) {}
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    ~UniqueHandle() { Reset(); }

    HANDLE Get() const noexcept { return m_handle; }
    bool IsValid() const noexcept { return m_handle != Traits::None(); }
    explicit operator bool() const noexcept { return IsValid(); }

    /// Gives up ownership; the caller closes the handle, or leaks it on purpose.
    HANDLE Release() noexcept { return std::exchange(m_handle, Traits::None()); }

    void Reset(HANDLE handle = Traits::None()) noexcept {
        const HANDLE old = std::exchange(m_handle, handle);
        if (old != Traits::None()) {
            const DWORD lastError = GetLastError();
            CloseHandle(old);
            SetLastError(lastError);
        }
    }

private:
    HANDLE m_handle = Traits::None();
};

struct NullHandleTraits {
    static HANDLE None() noexcept { return nullptr; }
};
struct FileHandleTraits {
    static HANDLE None() noexcept { return INVALID_HANDLE_VALUE; }
};

/// Events, timers, threads, tokens.
using UniqueObject = UniqueHandle<NullHandleTraits>;
/// Files, directories, pipe ends.
using UniqueFile = UniqueHandle<FileHandleTraits>;

}  // namespace ravlo
