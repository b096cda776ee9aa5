#pragma once

#include <cstddef>
#include <cstdint>

/// What a producer and the camera say to each other on the two pipes. All integers are little-endian.
namespace ravlo {

/// Bytes "RVLO" in wire order: the first field of every frame header.
inline constexpr std::uint32_t kFrameMagic = 0x4F4C5652;
inline constexpr std::uint32_t kFrameVersion = 2;
/// FOURCC "NV12" in wire order, the only pixel format the camera takes.
inline constexpr std::uint32_t kFourccNv12 = 0x3231564E;
/// Largest width or height of a picture, in pixels.
inline constexpr std::uint32_t kMaxFrameDimension = 16384;

/// The 40 bytes in front of every frame on the frame pipe; the payload follows without a gap.
struct FrameHeader {
    std::uint32_t magic;
    std::uint32_t version;
    std::uint32_t width;   ///< pixels, even, 1..16384
    std::uint32_t height;  ///< pixels, even, 1..16384
    std::uint32_t bytes;   ///< payload length: the NV12 size of width x height
    std::uint32_t format;  ///< FOURCC
    std::uint64_t seq;     ///< the producer's own frame number; shown in the log, never judged
    std::uint8_t reserved[8];
};
static_assert(sizeof(FrameHeader) == 40);
static_assert(offsetof(FrameHeader, magic) == 0);
static_assert(offsetof(FrameHeader, version) == 4);
static_assert(offsetof(FrameHeader, width) == 8);
static_assert(offsetof(FrameHeader, height) == 12);
static_assert(offsetof(FrameHeader, bytes) == 16);
static_assert(offsetof(FrameHeader, format) == 20);
static_assert(offsetof(FrameHeader, seq) == 24);
static_assert(offsetof(FrameHeader, reserved) == 32);

inline constexpr std::size_t kFrameHeaderBytes = sizeof(FrameHeader);

/// Bytes "GATE" in wire order: the first field of every demand record.
inline constexpr std::uint32_t kDemandMagic = 0x45544147;
inline constexpr std::uint32_t kDemandVersion = 1;
inline constexpr std::size_t kDemandRecordBytes = 32;
/// One hour in ms. Stands for "nobody asks for samples"; the idle time never exceeds it.
inline constexpr std::uint64_t kDemandIdleLimitMs = 3'600'000;
/// A running camera looks this often (ms) whether a record is due. The system's tick is coarse, so a look may come a
/// tick early and leave the record to the next one: a producer should give a lease at least three periods before it
/// lapses.
inline constexpr std::uint64_t kDemandPeriodMs = 500;

}  // namespace ravlo
