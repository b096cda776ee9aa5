#pragma once

#include <windows.h>

namespace ravlo {

/// Owns an open registry key.
class RegistryKey {
public:
    RegistryKey() noexcept = default;
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;
    ~RegistryKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }

    HKEY Get() const noexcept { return m_key; }

    /// Address for a function that opens or creates a key; call once.
    HKEY* Put() noexcept { return &m_key; }

private:
    HKEY m_key = nullptr;
};

}  // namespace ravlo
