#include "support/import_hooks.h"

#include <algorithm>
#include <cstring>

namespace ravlo::test {
namespace {

/// The table entry through which `module` calls `function`, or nullptr.
void** FindImport(HMODULE module, const char* function) {
    auto* const image = reinterpret_cast<BYTE*>(module);
    const auto* const dos = reinterpret_cast<IMAGE_DOS_HEADER*>(image);
    const auto* const headers = reinterpret_cast<IMAGE_NT_HEADERS*>(image + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    if (imports.Size == 0) {
        return nullptr;
    }
    auto* library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(image + imports.VirtualAddress);
    for (; library->Name != 0; ++library) {
        const auto* name = reinterpret_cast<IMAGE_THUNK_DATA*>(image + library->OriginalFirstThunk);
        auto* entry = reinterpret_cast<IMAGE_THUNK_DATA*>(image + library->FirstThunk);
        for (; name->u1.AddressOfData != 0; ++name, ++entry) {
            if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) {
                continue;
            }
            const auto* const byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(image + name->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(byName->Name), function) == 0) {
                return reinterpret_cast<void**>(&entry->u1.Function);
            }
        }
    }
    return nullptr;
}

void* Exchange(void** entry, void* value) {
    DWORD protection = 0;
    VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection);
    void* const previous = InterlockedExchangePointer(entry, value);
    VirtualProtect(entry, sizeof *entry, protection, &protection);
    return previous;
}

bool IsMapped(const void* address) {
    HMODULE module = nullptr;
    return GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                              static_cast<LPCWSTR>(address), &module) != FALSE;
}

}  // namespace

void* PatchImport(HMODULE module, const char* function, void* hook) {
    void** const entry = FindImport(module, function);
    return entry ? Exchange(entry, hook) : nullptr;
}

bool ImportSlot::Install(HMODULE module, const char* function, void* hook) {
    void** const entry = FindImport(module, function);
    if (!entry) {
        m_entry = nullptr;
        return false;
    }
    m_hook = hook;
    m_original = *entry;  // before the exchange: the module's threads may call through the entry at once
    m_entry = entry;
    Exchange(entry, hook);
    return true;
}

void ImportSlot::Restore() {
    void** const entry = m_entry.exchange(nullptr);
    // A module that was unloaded, or loaded anew at the same place, has a table of its own again.
    if (entry && IsMapped(entry) && *entry == m_hook) {
        Exchange(entry, m_original.load());
    }
}

LoadHooks::LoadHooks(std::wstring moduleName)
    : m_notice(std::move(moduleName), [this](HMODULE module) { OnLoaded(module); }) {
}

void LoadHooks::Add(ImportSlot* slot, const char* function, void* hook) {
    const detail::SrwGuard guard(m_lock);
    m_entries.push_back({slot, function, hook});
}

void LoadHooks::Remove(ImportSlot* slot) {
    const detail::SrwGuard guard(m_lock);
    std::erase_if(m_entries, [slot](const Entry& entry) { return entry.slot == slot; });
}

std::string LoadHooks::Missing() const {
    const detail::SrwGuard guard(m_lock);
    return m_missing;
}

void LoadHooks::OnLoaded(HMODULE module) {
    const detail::SrwGuard guard(m_lock);
    ++m_loads;
    m_missing.clear();
    for (const Entry& entry : m_entries) {
        if (!entry.slot->Install(module, entry.function, entry.hook)) {
            m_missing += (m_missing.empty() ? "" : " ");
            m_missing += entry.function;
        }
    }
}

}  // namespace ravlo::test
