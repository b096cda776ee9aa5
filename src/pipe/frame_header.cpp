#include "pipe/frame_header.h"

#include <bit>
#include <cstddef>
#include <iterator>

namespace ravlo {

// The header is read from the wire straight into its struct.
static_assert(std::endian::native == std::endian::little);

namespace {

bool IsWireGeometryValid(std::uint32_t width, std::uint32_t height) noexcept {
    return width != 0 && height != 0 && width % 2 == 0 && height % 2 == 0 && width <= kMaxFrameDimension &&
           height <= kMaxFrameDimension;
}

}  // namespace

std::uint64_t WireFrameBytes(std::uint32_t width, std::uint32_t height) noexcept {
    if (width > kMaxFrameDimension || height > kMaxFrameDimension) {
        return 0;
    }
    return std::uint64_t{width} * height + std::uint64_t{width} * (height / 2);
}

HeaderVerdict ValidateFrameHeader(const FrameHeader& header) noexcept {
    if (header.magic != kFrameMagic) {
        return HeaderVerdict::Magic;
    }
    if (header.version != kFrameVersion) {
        return HeaderVerdict::Version;
    }
    // Before the geometry, so that a producer of another pixel format is told so and not sent looking at its sizes.
    if (header.format != kFourccNv12) {
        return HeaderVerdict::PixelFormat;
    }
    if (!IsWireGeometryValid(header.width, header.height)) {
        return HeaderVerdict::Geometry;
    }
    const std::uint64_t expected = WireFrameBytes(header.width, header.height);
    // The largest geometry needs 402,653,184 bytes, far below this bound; kept for the day that a dimension grows.
    if (expected > 0xFFFFFFFF) {
        return HeaderVerdict::ByteCount;
    }
    return header.bytes == static_cast<std::uint32_t>(expected) ? HeaderVerdict::Ok : HeaderVerdict::ByteCount;
}

bool IsFrameHeaderValid(const FrameHeader& header) noexcept {
    return ValidateFrameHeader(header) == HeaderVerdict::Ok;
}

const char* HeaderVerdictWord(HeaderVerdict verdict) noexcept {
    static constexpr const char* kWords[] = {"OK", "MAGIC", "VERSION", "PIXEL_FORMAT", "GEOMETRY", "BYTE_COUNT"};
    const auto index = static_cast<std::size_t>(verdict);
    return index < std::size(kWords) ? kWords[index] : "UNKNOWN";
}

FrameHeader MakeFrameHeader(std::uint32_t width, std::uint32_t height, std::uint64_t seq) noexcept {
    return {kFrameMagic, kFrameVersion, width, height, static_cast<std::uint32_t>(WireFrameBytes(width, height)),
            kFourccNv12, seq,           {}};
}

}  // namespace ravlo
