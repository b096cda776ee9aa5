#include "support/handles.h"

#include <windows.h>

#include <winternl.h>

#include <stdexcept>
#include <vector>

namespace ravlo::test {
namespace {

constexpr int kSystemExtendedHandleInformation = 64;
constexpr LONG kStatusInfoLengthMismatch = static_cast<LONG>(0xC0000004);

struct HandleEntry {
    void* object;
    ULONG_PTR processId;
    ULONG_PTR handle;
    ULONG access;
    USHORT backTraceIndex;
    USHORT typeIndex;
    ULONG attributes;
    ULONG reserved;
};
struct HandleTable {
    ULONG_PTR count;
    ULONG_PTR reserved;
    HandleEntry entries[1];
};

using QueryFn = LONG(NTAPI*)(int informationClass, void* buffer, ULONG size, ULONG* needed);

}  // namespace

std::size_t CountHandles() {
    const auto query = reinterpret_cast<QueryFn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
    std::vector<ULONG_PTR> buffer(32768);
    LONG status = kStatusInfoLengthMismatch;
    while (status == kStatusInfoLengthMismatch) {
        buffer.resize(buffer.size() * 2);
        status = query(kSystemExtendedHandleInformation, buffer.data(),
                       static_cast<ULONG>(buffer.size() * sizeof buffer[0]), nullptr);
    }
    if (status < 0) {
        throw std::runtime_error("NtQuerySystemInformation failed");
    }
    const auto* const table = reinterpret_cast<const HandleTable*>(buffer.data());
    std::size_t own = 0;
    for (ULONG_PTR i = 0; i < table->count; ++i) {
        if (table->entries[i].processId == GetCurrentProcessId()) {
            ++own;
        }
    }
    return own;
}

bool HandlesSettleAt(std::size_t count, DWORD timeoutMs) {
    return WaitUntil([&] { return CountHandles() <= count; }, timeoutMs);
}

}  // namespace ravlo::test
