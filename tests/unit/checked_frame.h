#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "stream/geometry.h"

namespace ravlo {

/// Frames that tell of themselves which one they are and whether they are whole: every eight bytes derive from the
/// frame's number and from where they lie. The first eight bytes, undone, are the number.
class CheckedFrame {
public:
    static void Fill(std::uint8_t* frame, std::size_t bytes, std::uint64_t number) {
        for (std::size_t at = 0; at + kStep <= bytes; at += kStep) {
            const std::uint64_t value = ValueAt(number, at);
            std::memcpy(frame + at, &value, kStep);
        }
    }

    static std::uint64_t NumberOf(const std::uint8_t* picture) { return Read(picture) ^ kBegin; }

    /// Whether all of `picture`, with rows `stride` bytes apart, is frame `number`, and all bytes between the rows are
    /// still `padding`. The width must be a multiple of eight.
    static bool IsWhole(const std::uint8_t* picture, const FrameGeometry& geometry, std::size_t stride,
                        std::uint8_t padding, std::uint64_t number) {
        const std::size_t rows = geometry.height + geometry.height / 2;
        for (std::size_t row = 0; row < rows; ++row) {
            const std::uint8_t* const begin = picture + row * stride;
            for (std::size_t x = 0; x < geometry.width; x += kStep) {
                if (Read(begin + x) != ValueAt(number, row * geometry.width + x)) {
                    return false;
                }
            }
            for (std::size_t x = geometry.width; x < stride; ++x) {
                if (begin[x] != padding) {
                    return false;
                }
            }
        }
        return true;
    }

private:
    static constexpr std::size_t kStep = 8;
    static constexpr std::uint64_t kBegin = 0x5EED'0FF0'0DCA'FE01;
    static constexpr std::uint64_t kOdd = 0x9E37'79B9'7F4A'7C15;

    static std::uint64_t ValueAt(std::uint64_t number, std::size_t at) { return number ^ (kBegin + at * kOdd); }

    static std::uint64_t Read(const std::uint8_t* from) {
        std::uint64_t value = 0;
        std::memcpy(&value, from, kStep);
        return value;
    }
};

}  // namespace ravlo
