// Memory of this process, by a count that all platforms have.
#pragma once

#include <windows.h>

#include <cstddef>
#include <stdexcept>

namespace ravlo::test {

/// Bytes that are committed for this process alone, what Windows counts as its private bytes, added up from the map of
/// its address space: Wine leaves the counter of that name at 0. Pages count from their commitment on, touched or not;
/// and Wine commits the whole reserve of every thread's stack, which Windows does not.
inline std::size_t CommittedBytes() {
    std::size_t sum = 0;
    MEMORY_BASIC_INFORMATION region;
    for (char* address = nullptr; VirtualQuery(address, &region, sizeof region) == sizeof region;
         address = static_cast<char*>(region.BaseAddress) + region.RegionSize) {
        sum += region.State == MEM_COMMIT && region.Type == MEM_PRIVATE ? region.RegionSize : 0;
    }
    if (sum == 0) {
        throw std::runtime_error("the process's memory cannot be looked at");
    }
    return sum;
}

}  // namespace ravlo::test
