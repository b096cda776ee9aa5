#include "rvhost/png_file.h"

#include <cstddef>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>

#include "common/binary_file.h"

namespace ravlo {

bool WritePng(const std::string& path, const RgbImage& image, PngEffort effort) {
    if (effort == PngEffort::Quick) {
        const std::vector<std::uint8_t> file = PlainPng(image);
        return WriteWholeFile(path, file.data(), file.size());
    }
    int length = 0;
    unsigned char* const bytes =
        stbi_write_png_to_mem(image.pixels.data(), static_cast<int>(image.width) * 3, static_cast<int>(image.width),
                              static_cast<int>(image.height), 3, &length);
    if (bytes == nullptr) {
        return false;
    }
    const bool written = WriteWholeFile(path, bytes, static_cast<std::size_t>(length));
    STBIW_FREE(bytes);
    return written;
}

}  // namespace ravlo
