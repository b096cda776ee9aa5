// Pauses where the module leaves a lock, so that other threads come in between what it does before and after. What goes
// wrong only within a few instructions of a missing or early-released lock goes wrong often that way.
#pragma once

#include "support/import_hooks.h"

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace ravlo::test {

/// For the life of the object, on every thread that runs through the module. One at a time.
class Jitter {
public:
    explicit Jitter(HMODULE module) : m_hook(module, "LeaveCriticalSection", &Leave) { s_original = m_hook.Original(); }
    ~Jitter() { s_isOn = false; }
    Jitter(const Jitter&) = delete;
    Jitter& operator=(const Jitter&) = delete;

    void Set(bool isOn) { s_isOn = isOn; }

private:
    static void WINAPI Leave(CRITICAL_SECTION* section) {
        s_original(section);
        if (!s_isOn) {
            return;
        }
        const DWORD lastError = GetLastError();
        const std::uint32_t dice = s_count.fetch_add(1) * 2654435769U >> 24;
        if (dice < 6) {
            Sleep(1);
        } else if (dice < 48) {
            SwitchToThread();
        }
        SetLastError(lastError);
    }

    static inline decltype(&::LeaveCriticalSection) s_original = nullptr;
    static inline std::atomic<bool> s_isOn{false};
    static inline std::atomic<std::uint32_t> s_count{0};
    ScopedHook<decltype(::LeaveCriticalSection)> m_hook;
};

}  // namespace ravlo::test
