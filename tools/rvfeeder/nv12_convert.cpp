#include "rvfeeder/nv12_convert.h"

#include <array>
#include <cstddef>

namespace ravlo {
namespace {

// BT.709: Kr = 0.2126, Kb = 0.0722. All factors are in units of 2^-16 and bring 0..255 to 219 or 224 steps. Those of
// luma add up to 219/255 and those of each chroma to 0, so that greys come out without a tint.
constexpr int kShift = 16;
constexpr std::int32_t kLumaRed = 11966;
constexpr std::int32_t kLumaGreen = 40254;
constexpr std::int32_t kLumaBlue = 4064;
constexpr std::int32_t kCbRed = -6596;
constexpr std::int32_t kCbGreen = -22189;
constexpr std::int32_t kCbBlue = 28785;
constexpr std::int32_t kCrRed = 28785;
constexpr std::int32_t kCrGreen = -26145;
constexpr std::int32_t kCrBlue = -2640;
static_assert(kLumaRed + kLumaGreen + kLumaBlue == (219 * 65536 + 127) / 255);
static_assert(kCbRed + kCbGreen + kCbBlue == 0);
static_assert(kCrRed + kCrGreen + kCrBlue == 0);

constexpr std::int32_t kHalf = 1 << (kShift - 1);

std::uint8_t Luma(const std::uint8_t* pixel) noexcept {
    const std::int32_t sum = kLumaRed * pixel[0] + kLumaGreen * pixel[1] + kLumaBlue * pixel[2];
    return static_cast<std::uint8_t>(16 + ((sum + kHalf) >> kShift));
}

/// One chroma sample of the sum of four pixels. The offset goes in before the shift, which so never sees a negative.
std::uint8_t Chroma(std::int32_t byRed, std::int32_t byGreen, std::int32_t byBlue,
                    const std::array<std::int32_t, 3>& four) noexcept {
    const std::int32_t sum = byRed * four[0] + byGreen * four[1] + byBlue * four[2];
    return static_cast<std::uint8_t>((sum + (128 << (kShift + 2)) + (kHalf << 2)) >> (kShift + 2));
}

}  // namespace

void InterleaveChroma(std::span<const std::uint8_t> cb, std::span<const std::uint8_t> cr,
                      std::span<std::uint8_t> nv12Chroma) noexcept {
    for (std::size_t i = 0; i < cb.size(); ++i) {
        nv12Chroma[2 * i] = cb[i];
        nv12Chroma[2 * i + 1] = cr[i];
    }
}

void LimitRange(std::span<std::uint8_t> nv12, const FrameGeometry& geometry) noexcept {
    const std::size_t lumaBytes = LumaBytes(geometry);
    for (std::uint8_t& luma : nv12.first(lumaBytes)) {
        luma = static_cast<std::uint8_t>(16 + (luma * 219 + 127) / 255);
    }
    for (std::uint8_t& chroma : nv12.subspan(lumaBytes)) {
        chroma = static_cast<std::uint8_t>((chroma * 224 + (128 * 255 - 128 * 224) + 127) / 255);
    }
}

void RgbToNv12(std::span<const std::uint8_t> rgb, const FrameGeometry& geometry,
               std::span<std::uint8_t> nv12) noexcept {
    const std::size_t stride = std::size_t{geometry.width} * 3;
    std::uint8_t* upperLuma = nv12.data();
    std::uint8_t* chroma = nv12.data() + LumaBytes(geometry);
    for (std::size_t y = 0; y < geometry.height; y += 2) {
        const std::uint8_t* upper = rgb.data() + y * stride;
        const std::uint8_t* lower = upper + stride;
        std::uint8_t* lowerLuma = upperLuma + geometry.width;
        for (std::size_t x = 0; x < geometry.width; x += 2, upper += 6, lower += 6) {
            upperLuma[x] = Luma(upper);
            upperLuma[x + 1] = Luma(upper + 3);
            lowerLuma[x] = Luma(lower);
            lowerLuma[x + 1] = Luma(lower + 3);
            const std::array<std::int32_t, 3> four{upper[0] + upper[3] + lower[0] + lower[3],
                                                   upper[1] + upper[4] + lower[1] + lower[4],
                                                   upper[2] + upper[5] + lower[2] + lower[5]};
            *chroma++ = Chroma(kCbRed, kCbGreen, kCbBlue, four);
            *chroma++ = Chroma(kCrRed, kCrGreen, kCrBlue, four);
        }
        upperLuma = lowerLuma + geometry.width;
    }
}

}  // namespace ravlo
