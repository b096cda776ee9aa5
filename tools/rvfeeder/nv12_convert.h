#pragma once

#include <cstdint>
#include <span>

namespace ravlo {

/// Interleaves two chroma planes into the one that NV12 has: Cb Cr Cb Cr. Both planes have the same length and
/// `nv12Chroma` twice that. The spans do not overlap.
void InterleaveChroma(std::span<const std::uint8_t> cb, std::span<const std::uint8_t> cr,
                      std::span<std::uint8_t> nv12Chroma) noexcept;

}  // namespace ravlo
