#pragma once

#include <windows.h>

#include <utility>

namespace ravlo {

/// Owns memory that the platform hands out to be freed with LocalFree, such as a converted SID or its text.
template <class Pointer>
class LocalMemory {
public:
    LocalMemory() noexcept = default;
    explicit LocalMemory(Pointer pointer) noexcept : m_pointer(pointer) {}
    LocalMemory(LocalMemory&& other) noexcept : m_pointer(std::exchange(other.m_pointer, nullptr)) {}
    LocalMemory& operator=(LocalMemory&& other) noexcept {
        std::swap(m_pointer, other.m_pointer);
        return *this;
    }
    LocalMemory(const LocalMemory&) = delete;
    LocalMemory& operator=(const LocalMemory&) = delete;
    ~LocalMemory() { Reset(); }

    Pointer Get() const noexcept { return m_pointer; }
    explicit operator bool() const noexcept { return m_pointer != nullptr; }

    Pointer* Put() noexcept {
        Reset();
        return &m_pointer;
    }

    void Reset() noexcept {
        if (m_pointer != nullptr) {
            const DWORD lastError = GetLastError();
            LocalFree(std::exchange(m_pointer, nullptr));
            SetLastError(lastError);
        }
    }

private:
    Pointer m_pointer = nullptr;
};

/// A SID in binary form.
using LocalSid = LocalMemory<PSID>;
/// A wide string, such as a SID's text.
using LocalWideString = LocalMemory<wchar_t*>;

}  // namespace ravlo
