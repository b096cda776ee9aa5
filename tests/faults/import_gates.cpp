#include "faults/gates.h"

#include "faults/standins.h"

#include <cstring>
#include <map>
#include <memory>
#include <utility>

namespace ravlo::faults {
namespace {

/// The hook of an import; made at the first load, so that a site keeps its number through all loads.
Hook& HookForImport(const ImportRule& rule) {
    static std::map<std::string, std::unique_ptr<Hook>> hooks;
    std::unique_ptr<Hook>& hook = hooks[rule.name];
    if (!hook) {
        hook = std::make_unique<Hook>();
        hook->name = rule.name;
        hook->kind = rule.kind;
        hook->failures = rule.failures;
        hook->watched = IsLeftToRuntime(rule);
        for (const char* heapFunction : {"malloc", "calloc", "realloc", "_strdup"}) {
            hook->byStack = hook->byStack || hook->name == heapFunction;
        }
        RegisterHook(*hook);
    }
    return *hook;
}

}  // namespace

void* GateOf(Hook& hook) {
    static std::map<Hook*, void*> gates;
    void*& gate = gates[&hook];
    if (gate == nullptr) {
        gate = MakeGate(&hook);
    }
    return gate;
}

ImportGates::ImportGates(std::wstring fileName)
    : m_notice(std::move(fileName), [this](HMODULE module) { OnLoaded(module); }) {
    // Made now and not when the module asks: that may happen on any thread.
    for (const char* name : {"MFCreateSensorProfile", "MFCreateSensorProfileCollection"}) {
        GateOf(HookForImport(*FindResolvedRule(name)));
    }
}

void ImportGates::OnLoaded(HMODULE module) {
    SetModuleImage(module);
    m_treatments.clear();
    m_unknown.clear();
    auto* const image = reinterpret_cast<BYTE*>(module);
    const auto* const headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(image + reinterpret_cast<IMAGE_DOS_HEADER*>(image)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* library = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(image + imports.VirtualAddress);
    for (; library->Name != 0; ++library) {
        const auto* const libraryName = reinterpret_cast<const char*>(image + library->Name);
        const auto* entryName = reinterpret_cast<IMAGE_THUNK_DATA*>(image + library->OriginalFirstThunk);
        auto* entry = reinterpret_cast<IMAGE_THUNK_DATA*>(image + library->FirstThunk);
        for (; entryName->u1.AddressOfData != 0; ++entryName, ++entry) {
            if (IMAGE_SNAP_BY_ORDINAL(entryName->u1.Ordinal)) {
                m_unknown += std::string(libraryName) + "#ordinal ";
                continue;
            }
            const auto* const byName = reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(image + entryName->u1.AddressOfData);
            Gate(libraryName, reinterpret_cast<const char*>(byName->Name),
                 reinterpret_cast<void**>(&entry->u1.Function));
        }
    }
}

void ImportGates::Gate(const char* library, const char* name, void** entry) {
    const ImportRule* const rule = FindImportRule(name);
    if (rule == nullptr) {
        m_unknown += std::string(name) + " ";
        return;
    }
    m_treatments.push_back({library, name, rule->leftOut != nullptr ? rule->leftOut : ""});
    void* const standIn = StandInFor(name);
    // A function that captures its caller's registers stays as it is, and one that is called for every byte as well.
    if (rule->leftOut != nullptr && standIn == nullptr && !IsLeftToRuntime(*rule)) {
        return;
    }
    Hook& hook = HookForImport(*rule);
    hook.target = standIn != nullptr ? standIn : *entry;
    DWORD protection = 0;
    VirtualProtect(entry, sizeof *entry, PAGE_READWRITE, &protection);
    *entry = GateOf(hook);
    VirtualProtect(entry, sizeof *entry, protection, &protection);
}

}  // namespace ravlo::faults
