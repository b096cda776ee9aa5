// What the process holds while a long run is between two lives.
#pragma once

#include "soak/process_state.h"
#include "support/handles.h"
#include "support/heap_faults.h"

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace ravlo::test {

/// The number of open handles of this process of every type, "Event 12, File 3" for instance.
inline std::string HandleTypes() {
    using Query = LONG(NTAPI*)(HANDLE, int, void*, ULONG, ULONG*);
    constexpr int kObjectType = 2;
    constexpr int kGap = 256;
    const auto query = reinterpret_cast<Query>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
    std::map<std::wstring, unsigned> types;
    int misses = 0;
    for (ULONG_PTR number = 4; misses < kGap; number += 4) {
        std::vector<ULONG_PTR> information(256);
        const LONG status = query(reinterpret_cast<HANDLE>(number), kObjectType, information.data(),
                                  static_cast<ULONG>(information.size() * sizeof(ULONG_PTR)), nullptr);
        misses = status < 0 ? misses + 1 : 0;
        if (status >= 0) {
            const auto* const name = reinterpret_cast<const UNICODE_STRING*>(information.data());
            ++types[std::wstring(name->Buffer, name->Length / sizeof(wchar_t))];
        }
    }
    std::string text;
    for (const auto& [name, count] : types) {
        text += (text.empty() ? "" : ", ") + std::string(name.begin(), name.end()) + " " + std::to_string(count);
    }
    return text;
}

struct Holdings {
    std::size_t handles = 0;
    long blocks = 0;        ///< of the module's heap
    std::size_t bytes = 0;  ///< committed for the process
    std::string types;      ///< of the handles, for the message
};

/// The least that is seen in a few looks: calls in flight hold a little more for a moment.
inline Holdings LookAtHoldings(const HeapFaults& heap) {
    constexpr int kLooks = 40;
    Holdings least{SettledHandles(), heap.LiveBlocks(), CommittedBytes(), HandleTypes()};
    for (int look = 0; look < kLooks; ++look) {
        Sleep(2);
        least.handles = std::min(least.handles, CountHandles());
        least.blocks = std::min(least.blocks, heap.LiveBlocks());
        least.bytes = std::min(least.bytes, CommittedBytes());
    }
    return least;
}

}  // namespace ravlo::test
