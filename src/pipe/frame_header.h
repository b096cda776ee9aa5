#pragma once

#include <cstdint>

#include "ravlo/wire.h"

namespace ravlo {

/// What the judgement of a frame header came to.
enum class HeaderVerdict : std::uint32_t {
    Ok = 0,
    Magic = 1,
    Version = 2,
    PixelFormat = 3,
    Geometry = 4,
    ByteCount = 5
};

/// NV12 bytes of a picture as the wire counts them; 0 when a dimension is above 16384.
std::uint64_t WireFrameBytes(std::uint32_t width, std::uint32_t height) noexcept;

/// Judges a header by its 40 bytes alone; the first failing check decides.
HeaderVerdict ValidateFrameHeader(const FrameHeader& header) noexcept;

/// True exactly when the verdict is Ok.
bool IsFrameHeaderValid(const FrameHeader& header) noexcept;

/// The word that the log prints for a verdict, such as "PIXEL_FORMAT"; "UNKNOWN" outside the enumeration.
const char* HeaderVerdictWord(HeaderVerdict verdict) noexcept;

/// The header of one well-formed NV12 frame, as a producer sends it. Reserved bytes are zero.
FrameHeader MakeFrameHeader(std::uint32_t width, std::uint32_t height, std::uint64_t seq) noexcept;

}  // namespace ravlo
