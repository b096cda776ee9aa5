#pragma once

#include <windows.h>

namespace ravlo {

/// A critical section with two-phase construction, because making one can fail. Recursive, like the platform's own.
class CriticalSection {
public:
    CriticalSection() noexcept = default;
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;
    ~CriticalSection() { Destroy(); }

    /// False leaves the reason in GetLastError().
    bool Initialize() noexcept {
        m_initialized = InitializeCriticalSectionAndSpinCount(&m_section, 0) != FALSE;
        return m_initialized;
    }

    void Destroy() noexcept {
        if (m_initialized) {
            m_initialized = false;
            DeleteCriticalSection(&m_section);
        }
    }

    void Enter() noexcept { EnterCriticalSection(&m_section); }
    void Leave() noexcept { LeaveCriticalSection(&m_section); }

private:
    CRITICAL_SECTION m_section{};
    bool m_initialized = false;
};

/// Holds a critical section for a scope; Unlock lets go early and the end of the scope then does nothing.
class ScopedLock {
public:
    explicit ScopedLock(CriticalSection& section) noexcept : m_section(&section) { section.Enter(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;
    ~ScopedLock() { Unlock(); }

    void Unlock() noexcept {
        if (m_section != nullptr) {
            CriticalSection* const section = m_section;
            m_section = nullptr;
            section->Leave();
        }
    }

private:
    CriticalSection* m_section;
};

}  // namespace ravlo
