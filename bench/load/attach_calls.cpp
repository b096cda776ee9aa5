#include "load/attach_calls.h"

#include <windows.h>

#include <aclapi.h>

#include <stdexcept>

#include "support/import_hooks.h"

namespace ravlo::bench {
namespace {

[[noreturn]] void ThrowFor(const std::string& what) {
    throw std::runtime_error(what + ", error " + std::to_string(GetLastError()));
}

template <class T>
const T* At(HMODULE module, DWORD offset) {
    return reinterpret_cast<const T*>(reinterpret_cast<const BYTE*>(module) + offset);
}

}  // namespace

std::string AttachCalls::Text() const {
    return std::to_string(opens) + " opens, " + std::to_string(writes) + " writes, " + std::to_string(closes) +
           " closes, " + std::to_string(queries) + " queries";
}

AttachCalls CountCalls(const std::wstring& fileName, const std::function<void()>& loadAndUnload) {
    test::LoadHooks loading(fileName);
    RAVLO_HOOK(CreateFileW) opens(loading);
    RAVLO_HOOK(WriteFile) writes(loading);
    RAVLO_HOOK(CloseHandle) closes(loading);
    RAVLO_HOOK(GetFileInformationByHandleEx) attributes(loading);
    RAVLO_HOOK(GetSecurityInfo) owners(loading);
    RAVLO_HOOK(RegGetValueW) values(loading);
    loadAndUnload();
    if (loading.Loads() != 1 || !loading.Missing().empty()) {
        throw std::runtime_error("the calls of a DLL cannot be counted: loaded " + std::to_string(loading.Loads()) +
                                 " times, missing " + loading.Missing());
    }
    return {.opens = static_cast<int>(opens.Count()),
            .writes = static_cast<int>(writes.Count()),
            .closes = static_cast<int>(closes.Count()),
            .queries = static_cast<int>(attributes.Count() + owners.Count() + values.Count())};
}

void KeepImportsLoaded(const std::wstring& path) {
    const HMODULE module = LoadLibraryW(path.c_str());
    if (module == nullptr) {
        ThrowFor("the module cannot be loaded");
    }
    const auto* const dos = At<IMAGE_DOS_HEADER>(module, 0);
    const auto* const headers = At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
    const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    for (const auto* entry = At<IMAGE_IMPORT_DESCRIPTOR>(module, imports); entry->Name != 0; ++entry) {
        if (LoadLibraryA(At<char>(module, entry->Name)) == nullptr) {
            ThrowFor("what the module imports cannot be loaded");
        }
    }
    FreeLibrary(module);
}

}  // namespace ravlo::bench
