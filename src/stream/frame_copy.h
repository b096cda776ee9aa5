#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ravlo/wire.h"
#include "stream/string_move.h"

namespace ravlo {

/// The plain copy inside a frame slot, in either direction. A reader may copy bytes that the writer is overwriting; the
/// sequence number tells it so afterwards and the bytes are thrown away. A race detector cannot see that, and it
/// intercepts memcpy, so under one the copy is a loop of its own that is not instrumented.
#if defined(__SANITIZE_THREAD__)
__attribute__((noinline, no_sanitize("thread"))) inline void CopyFrameBytes(void* destination, const void* source,
                                                                            std::size_t count) noexcept {
    // Volatile keeps the compiler from recognising the loop and calling memcpy after all.
    auto* to = static_cast<volatile std::uint8_t*>(destination);
    const auto* from = static_cast<const volatile std::uint8_t*>(source);
    for (std::size_t i = 0; i < count; ++i) {
        to[i] = from[i];
    }
}
#else
inline void CopyFrameBytes(void* destination, const void* source, std::size_t count) noexcept {
    // A plane of a camera's picture is that large, a row of a padded one never.
    constexpr std::size_t kStringMoveFrom = 32768;
    static_assert(kStringMoveFrom > kMaxFrameDimension);
    if (count >= kStringMoveFrom) {
        StringMove(destination, source, count);
    } else {
        std::memcpy(destination, source, count);
    }
}
#endif

}  // namespace ravlo
