#include "rvsetup/doctor/system_facts.h"

#include <windows.h>

#include <tlhelp32.h>

#include "common/wide_text.h"
#include "platform/unique_handle.h"

namespace ravlo {

WindowsFacts ReadWindowsFacts() noexcept {
    using RtlGetVersionFunction = LONG(WINAPI*)(OSVERSIONINFOW*);
    WindowsFacts facts;
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    const auto getVersion =
        ntdll != nullptr
            ? reinterpret_cast<RtlGetVersionFunction>(reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion")))
            : nullptr;
    OSVERSIONINFOW version{};
    version.dwOSVersionInfoSize = sizeof version;
    if (getVersion != nullptr && getVersion(&version) == 0) {
        facts = {version.dwMajorVersion, version.dwMinorVersion, version.dwBuildNumber};
    }
    return facts;
}

std::optional<std::vector<ProcessFacts>> ListProcesses() {
    std::vector<ProcessFacts> processes;
    const UniqueFile snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    if (!snapshot || !Process32FirstW(snapshot.Get(), &entry)) {
        return std::nullopt;
    }
    do {
        processes.push_back({entry.th32ProcessID, ToUtf8(entry.szExeFile)});
    } while (Process32NextW(snapshot.Get(), &entry));
    return processes;
}

}  // namespace ravlo
