#include "rvhost/thumbnail.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace ravlo {
namespace {

std::uint8_t ToByte(double value) noexcept {
    return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

/// The source columns or rows [begin, end) that one target pixel covers; never empty.
struct Extent {
    std::size_t begin;
    std::size_t end;
};

Extent Covered(std::size_t index, std::size_t target, std::size_t source) noexcept {
    const std::size_t begin = index * source / target;
    return {begin, std::max(begin + 1, (index + 1) * source / target)};
}

/// Mean of one component over an area of a plane with `stride` bytes a row and `step` bytes from sample to sample.
double Mean(const std::uint8_t* plane, std::size_t stride, std::size_t step, Extent columns, Extent rows) noexcept {
    std::uint64_t sum = 0;
    for (std::size_t y = rows.begin; y < rows.end; ++y) {
        for (std::size_t x = columns.begin; x < columns.end; ++x) {
            sum += plane[y * stride + x * step];
        }
    }
    return static_cast<double>(sum) / static_cast<double>((rows.end - rows.begin) * (columns.end - columns.begin));
}

}  // namespace

Rgb ConvertBt709(double luma, double cb, double cr) noexcept {
    // Kr = 0.2126, Kb = 0.0722; luma spans 219 steps from 16, chroma 224 steps around 128.
    const double y = (luma - 16.0) * (255.0 / 219.0);
    const double u = (cb - 128.0) * (255.0 / 224.0);
    const double v = (cr - 128.0) * (255.0 / 224.0);
    return {ToByte(y + 1.5748 * v), ToByte(y - 0.187324 * u - 0.468124 * v), ToByte(y + 1.8556 * u)};
}

RgbImage MakeThumbnail(std::span<const std::uint8_t> nv12, const FrameGeometry& geometry, std::uint32_t width) {
    RgbImage image;
    image.width = std::clamp<std::uint32_t>(width, 1, geometry.width);
    image.height = static_cast<std::uint32_t>(
        std::max<std::uint64_t>(1, std::uint64_t{geometry.height} * image.width / geometry.width));
    image.pixels.resize(std::size_t{image.width} * image.height * 3);
    const std::uint8_t* const luma = nv12.data();
    const std::uint8_t* const chroma = luma + LumaBytes(geometry);
    const std::size_t stride = DefaultStride(geometry);
    std::uint8_t* out = image.pixels.data();
    for (std::size_t y = 0; y < image.height; ++y) {
        const Extent lumaRows = Covered(y, image.height, geometry.height);
        const Extent chromaRows = Covered(y, image.height, geometry.height / 2);
        for (std::size_t x = 0; x < image.width; ++x) {
            const Extent chromaColumns = Covered(x, image.width, geometry.width / 2);
            const Rgb colour = ConvertBt709(Mean(luma, stride, 1, Covered(x, image.width, geometry.width), lumaRows),
                                            Mean(chroma, stride, 2, chromaColumns, chromaRows),
                                            Mean(chroma + 1, stride, 2, chromaColumns, chromaRows));
            *out++ = colour.red;
            *out++ = colour.green;
            *out++ = colour.blue;
        }
    }
    return image;
}

}  // namespace ravlo
