#include "rvfeeder/nv12_convert.h"

#include <cstddef>

namespace ravlo {

void InterleaveChroma(std::span<const std::uint8_t> cb, std::span<const std::uint8_t> cr,
                      std::span<std::uint8_t> nv12Chroma) noexcept {
    for (std::size_t i = 0; i < cb.size(); ++i) {
        nv12Chroma[2 * i] = cb[i];
        nv12Chroma[2 * i + 1] = cr[i];
    }
}

}  // namespace ravlo
