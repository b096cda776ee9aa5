// NV12 frames that can be recognised byte by byte when they come out of the camera again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ravlo::test {

/// Bytes of an NV12 picture with a stride equal to its width.
std::size_t Nv12Size(std::uint32_t width, std::uint32_t height);

/// A frame whose every byte follows from the signature and its own place, so that a mixture of two frames, a
/// shifted one or one with a wrong stride is no frame of any signature. It is never a test pattern. At least
/// 4 luma bytes.
std::vector<std::uint8_t> MakeFrame(std::uint32_t width, std::uint32_t height, std::uint32_t signature);

/// The signature of the frame that these bytes are, whole and intact; nothing for anything else.
std::optional<std::uint32_t> SignatureOf(std::span<const std::uint8_t> bytes, std::uint32_t width,
                                         std::uint32_t height);

}  // namespace ravlo::test
