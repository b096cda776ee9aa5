// Reads PNG files back with a decoder that shares nothing with what wrote them. Include it in one file of a program.
#pragma once

#include <memory>
#include <string_view>

#include "rvhost/thumbnail.h"

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_NO_STDIO
#include <stb/stb_image.h>

namespace ravlo::test {

/// The picture of a PNG file; an empty one when the bytes are no such file.
inline RgbImage DecodePng(std::string_view file) {
    int width = 0;
    int height = 0;
    int components = 0;
    const std::unique_ptr<stbi_uc, decltype(&stbi_image_free)> pixels(
        stbi_load_from_memory(reinterpret_cast<const stbi_uc*>(file.data()), static_cast<int>(file.size()), &width,
                              &height, &components, 3),
        &stbi_image_free);
    if (!pixels || components != 3) {
        return {};
    }
    RgbImage image{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), {}};
    image.pixels.assign(pixels.get(), pixels.get() + std::size_t{image.width} * image.height * 3);
    return image;
}

}  // namespace ravlo::test
