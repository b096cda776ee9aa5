#include "rvhost/nv12_rgb.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace ravlo {
namespace {

// Kr = 0.2126, Kb = 0.0722; luma spans 219 steps from 16, chroma 224 steps around 128. In units of 1 / 65536, so that
// the rounding of the factors moves no result by more than 1 / 256 of a step.
constexpr int kShift = 16;
constexpr int kLuma = 76309;        // 255 / 219
constexpr int kCrToRed = 117489;    // 1.5748 * 255 / 224
constexpr int kCbToGreen = -13975;  // -0.187324 * 255 / 224
constexpr int kCrToGreen = -34925;  // -0.468124 * 255 / 224
constexpr int kCbToBlue = 138438;   // 1.8556 * 255 / 224
constexpr int kHalf = 1 << (kShift - 1);

/// What a chroma sample adds to each component, the black level of luma and the rounding included.
struct ChromaPart {
    int red;
    int green;
    int blue;
};

ChromaPart PartOf(int cb, int cr) noexcept {
    const int u = cb - 128;
    const int v = cr - 128;
    constexpr int base = kHalf - 16 * kLuma;
    return {base + kCrToRed * v, base + kCbToGreen * u + kCrToGreen * v, base + kCbToBlue * u};
}

std::uint32_t ToByte(int value) noexcept {
    return static_cast<std::uint32_t>(std::clamp(value >> kShift, 0, 255));
}

struct RgbWriter {
    static constexpr std::size_t kPixelBytes = 3;

    static void Write(std::uint8_t* pixel, int luma, const ChromaPart& part) noexcept {
        pixel[0] = static_cast<std::uint8_t>(ToByte(luma + part.red));
        pixel[1] = static_cast<std::uint8_t>(ToByte(luma + part.green));
        pixel[2] = static_cast<std::uint8_t>(ToByte(luma + part.blue));
    }
};

struct BgrxWriter {
    static constexpr std::size_t kPixelBytes = 4;

    static void Write(std::uint8_t* pixel, int luma, const ChromaPart& part) noexcept {
        static_assert(std::endian::native == std::endian::little);
        const std::uint32_t value =
            ToByte(luma + part.blue) | ToByte(luma + part.green) << 8 | ToByte(luma + part.red) << 16;
        std::memcpy(pixel, &value, sizeof(value));
    }
};

template <class Writer>
void Convert(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry, std::span<std::uint8_t> target) {
    constexpr std::size_t pixelBytes = Writer::kPixelBytes;
    const std::size_t width = geometry.width;
    const std::size_t height = geometry.height;
    if (!IsValidGeometry(geometry) || nv12.size() != FrameBytes(geometry) ||
        target.size() != width * height * pixelBytes) {
        throw std::invalid_argument("a buffer has not the size of the picture that is to be converted");
    }
    const std::uint8_t* chroma = nv12.data() + LumaBytes(geometry);
    for (std::size_t y = 0; y < height; y += 2) {
        const std::uint8_t* const upper = nv12.data() + y * width;
        const std::uint8_t* const lower = upper + width;
        std::uint8_t* const upperOut = target.data() + y * width * pixelBytes;
        std::uint8_t* const lowerOut = upperOut + width * pixelBytes;
        for (std::size_t x = 0; x < width; x += 2) {
            const ChromaPart part = PartOf(chroma[x], chroma[x + 1]);
            Writer::Write(upperOut + x * pixelBytes, upper[x] * kLuma, part);
            Writer::Write(upperOut + (x + 1) * pixelBytes, upper[x + 1] * kLuma, part);
            Writer::Write(lowerOut + x * pixelBytes, lower[x] * kLuma, part);
            Writer::Write(lowerOut + (x + 1) * pixelBytes, lower[x + 1] * kLuma, part);
        }
        chroma += width;
    }
}

}  // namespace

void ConvertNv12ToRgb(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry, std::span<std::uint8_t> rgb) {
    Convert<RgbWriter>(nv12, geometry, rgb);
}

RgbImage ConvertNv12ToRgb(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry) {
    RgbImage image{geometry.width, geometry.height, {}};
    image.pixels.resize(std::size_t{image.width} * image.height * 3);
    ConvertNv12ToRgb(nv12, geometry, image.pixels);
    return image;
}

void ConvertNv12ToBgrx(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry,
                       std::span<std::uint8_t> bgrx) {
    Convert<BgrxWriter>(nv12, geometry, bgrx);
}

}  // namespace ravlo
