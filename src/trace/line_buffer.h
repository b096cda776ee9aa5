#pragma once

#include <cstdint>

namespace ravlo {

/// A fixed run of 8-bit characters that is filled from the left and always NUL-terminated. What does not fit is
/// dropped.
struct RvLineBuffer {
    char* text;
    std::uint32_t capacity;  ///< bytes at `text`, the terminator included
    std::int32_t length;     ///< characters so far

    /// An empty buffer over `size` bytes at `storage`, which must outlive it.
    RvLineBuffer(char* storage, std::uint32_t size) noexcept : text(storage), capacity(size), length(0) {
        if (capacity > 0) {
            text[0] = '\0';
        }
    }

    /// True when nothing more will fit: whoever copies a long string can stop.
    bool IsFull() const noexcept { return static_cast<std::uint32_t>(length) + 1 >= capacity; }

    void Append(char character) noexcept {
        if (!IsFull()) {
            text[length++] = character;
            text[length] = '\0';
        }
    }

    void Append(const char* string) noexcept {
        for (; *string != '\0' && !IsFull(); ++string) {
            Append(*string);
        }
    }
};

}  // namespace ravlo
