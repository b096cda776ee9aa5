#include "support/handles.h"

#include <windows.h>

namespace ravlo::test {

std::size_t CountHandles() {
    constexpr ULONG_PTR kStep = 4;
    constexpr int kGap = 256;  // numbers are given out from the bottom; behind a gap this long nothing follows
    std::size_t count = 0;
    int misses = 0;
    for (ULONG_PTR number = kStep; misses < kGap; number += kStep) {
        DWORD flags = 0;
        const bool open = GetHandleInformation(reinterpret_cast<HANDLE>(number), &flags) != FALSE;
        count += open ? 1 : 0;
        misses = open ? 0 : misses + 1;
    }
    return count;
}

std::size_t SettledHandles() {
    constexpr int kUnchangedLooks = 8;
    constexpr DWORD kLookMs = 5;
    std::size_t count = CountHandles();
    int unchanged = 0;
    WaitUntil(
        [&] {
            const std::size_t now = CountHandles();
            unchanged = now == count ? unchanged + 1 : 0;
            count = now;
            return unchanged >= kUnchangedLooks;
        },
        kPatienceMs, kLookMs);
    return count;
}

bool HandlesSettleAt(std::size_t count, DWORD timeoutMs) {
    return WaitUntil([&] { return CountHandles() <= count; }, timeoutMs);
}

}  // namespace ravlo::test
