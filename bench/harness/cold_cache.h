#pragma once

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace ravlo::bench {

/// Takes these bytes out of every cache of the processor, so that the next pass over them meets main memory.
inline void MakeCold(const void* bytes, std::size_t count) noexcept {
    constexpr std::size_t kCacheLine = 64;
    const auto* const first = static_cast<const std::uint8_t*>(bytes);
    for (std::size_t offset = 0; offset < count; offset += kCacheLine) {
        _mm_clflush(first + offset);
    }
    _mm_mfence();
}

}  // namespace ravlo::bench
