#pragma once

#include <cstdint>
#include <cstring>

#include "fuzz/fuzz_support.h"
#include "pipe/frame_header.h"

/// The wire's rules once more, from its bytes and in other words than the module's, for comparison with it.
namespace ravlo::fuzz {

inline std::uint64_t LittleEndian(const std::uint8_t* bytes, unsigned count) noexcept {
    std::uint64_t value = 0;
    while (count-- > 0) {
        value = value * 256 + bytes[count];
    }
    return value;
}

/// A frame header as the document of the frame pipe lays it out.
struct ReferenceHeader {
    explicit ReferenceHeader(const std::uint8_t* wire) noexcept
        : isMagic(std::memcmp(wire, "RVLO", 4) == 0),
          version(LittleEndian(wire + 4, 4)),
          width(LittleEndian(wire + 8, 4)),
          height(LittleEndian(wire + 12, 4)),
          bytes(LittleEndian(wire + 16, 4)),
          isNv12(std::memcmp(wire + 20, "NV12", 4) == 0),
          seq(LittleEndian(wire + 24, 8)) {}

    static bool IsDimension(std::uint64_t value) noexcept { return value >= 2 && value <= 16384 && (value & 1) == 0; }

    HeaderVerdict Verdict() const noexcept {
        if (!isMagic) {
            return HeaderVerdict::Magic;
        }
        if (version != 2) {
            return HeaderVerdict::Version;
        }
        if (!isNv12) {
            return HeaderVerdict::PixelFormat;
        }
        if (!IsDimension(width) || !IsDimension(height)) {
            return HeaderVerdict::Geometry;
        }
        return 2 * bytes == 3 * width * height ? HeaderVerdict::Ok : HeaderVerdict::ByteCount;
    }

    bool isMagic;
    std::uint64_t version;
    std::uint64_t width;
    std::uint64_t height;
    std::uint64_t bytes;
    bool isNv12;
    std::uint64_t seq;
};

/// A header that is good for this size, byte by byte. Dimensions above 16 bits are not its business.
inline Bytes GoodHeader(std::uint32_t width, std::uint32_t height, std::uint64_t seq) {
    Bytes wire{'R', 'V', 'L', 'O', 2, 0, 0, 0};
    const auto put = [&wire](std::uint64_t value, unsigned count) {
        for (unsigned i = 0; i < count; ++i, value >>= 8) {
            wire.push_back(static_cast<std::uint8_t>(value & 0xFF));
        }
    };
    put(width, 4);
    put(height, 4);
    put(std::uint64_t{width} * height * 3 / 2, 4);
    wire.insert(wire.end(), {'N', 'V', '1', '2'});
    put(seq, 8);
    put(0, 8);
    return wire;
}

}  // namespace ravlo::fuzz
