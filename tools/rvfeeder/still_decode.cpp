#include "rvfeeder/still_decode.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "rvfeeder/byte_source.h"
#include "rvfeeder/camera_limits.h"
#include "rvfeeder/input_kind.h"
#include "rvfeeder/jpeg_check.h"

namespace {

/// A small file can unpack to gigabytes. The largest block for a picture within the limits has 16 bits for each of four
/// components.
constexpr std::size_t kLargestBlock = std::size_t{96} << 20;

}  // namespace

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STBI_ONLY_PNG
#define STBI_ONLY_JPEG
#define STBI_NO_STDIO
#define STBI_ASSERT(condition) static_cast<void>(0)
// Cleared, because the decoder reads tables that a damaged file has never filled.
#define STBI_MALLOC(bytes) ((bytes) > kLargestBlock ? nullptr : std::calloc(1, bytes))
#define STBI_REALLOC(block, bytes) ((bytes) > kLargestBlock ? nullptr : std::realloc(block, bytes))
#define STBI_FREE(block) std::free(block)
#include <stb/stb_image.h>

namespace ravlo {
namespace {

constexpr int kComponents = 4;

[[noreturn]] void RefuseDamage(const char* format, const char* reason) {
    throw InputError(std::string("the ") + format +
                     " picture cannot be decoded: it is damaged, cut short or of a rare kind (" +
                     (reason == nullptr ? "no reason given" : reason) + "); save it again as 8-bit PNG");
}

std::uint32_t BigEndian32(const std::uint8_t* bytes) noexcept {
    return std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 | std::uint32_t{bytes[2]} << 8 | bytes[3];
}

void RequireSizeForCamera(std::uint32_t width, std::uint32_t height) {
    if (const auto unfit = WhyNoPictureSize(width, height)) {
        throw InputError(*unfit);
    }
    if (const auto beyond = WhyBeyondCamera({width, height, 1, 1})) {
        throw InputError(*beyond);
    }
}

/// Some versions of the decoder refuse a large PNG before they tell its size, which is what the user should hear.
void RequirePngSizeForCamera(std::span<const std::uint8_t> file) {
    // Eight bytes of signature; length and type of the first chunk; width and height.
    constexpr std::size_t kTypeAt = 12;
    constexpr std::size_t kSizeAt = 16;
    constexpr std::string_view kHeaderType = "IHDR";
    if (file.size() >= kSizeAt + 8 && std::equal(kHeaderType.begin(), kHeaderType.end(), file.begin() + kTypeAt)) {
        RequireSizeForCamera(BigEndian32(file.data() + kSizeAt), BigEndian32(file.data() + kSizeAt + 4));
    }
}

/// Drops the alpha component after weighing the others with it.
std::vector<std::uint8_t> OverBlack(std::span<const std::uint8_t> rgba) {
    std::vector<std::uint8_t> rgb(rgba.size() / kComponents * 3);
    std::uint8_t* out = rgb.data();
    for (std::size_t i = 0; i + kComponents <= rgba.size(); i += kComponents) {
        const unsigned alpha = rgba[i + 3];
        for (std::size_t component = 0; component < 3; ++component) {
            *out++ = static_cast<std::uint8_t>((rgba[i + component] * alpha + 127) / 255);
        }
    }
    return rgb;
}

}  // namespace

StillImage DecodeStill(std::span<const std::uint8_t> file) {
    // The decoder is more generous about how a file may begin, but nothing gets to it that has not been looked over.
    const InputKind kind = RecogniseInput(file);
    if (kind != InputKind::Png && kind != InputKind::Jpeg) {
        throw InputError(WhyNotShown(file));
    }
    const char* const format = kind == InputKind::Jpeg ? "JPEG" : "PNG";
    const JpegState state = kind == InputKind::Jpeg ? CheckJpeg(file) : JpegState::Whole;
    if (state == JpegState::Damaged) {
        RefuseDamage(format, "bad segments");
    }
    if (kind == InputKind::Png) {
        RequirePngSizeForCamera(file);
    }
    const int length = static_cast<int>(file.size());
    int width = 0;
    int height = 0;
    int components = 0;
    if (stbi_info_from_memory(file.data(), length, &width, &height, &components) == 0) {
        RefuseDamage(format, "unreadable header");
    }
    const FrameGeometry geometry{static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height), 1, 1};
    RequireSizeForCamera(geometry.width, geometry.height);
    if (state == JpegState::CutShort) {
        throw InputError("the JPEG picture is cut short: its end is missing");
    }
    const std::unique_ptr<stbi_uc, decltype(&std::free)> pixels(
        stbi_load_from_memory(file.data(), length, &width, &height, &components, kComponents), &std::free);
    if (!pixels || static_cast<std::uint32_t>(width) != geometry.width ||
        static_cast<std::uint32_t>(height) != geometry.height) {
        RefuseDamage(format, stbi_failure_reason());
    }
    const std::size_t bytes = std::size_t{geometry.width} * geometry.height * kComponents;
    const bool isTurned = kind == InputKind::Jpeg && JpegOrientation(file) != 1;
    return {geometry.width, geometry.height, isTurned, OverBlack({pixels.get(), bytes})};
}

}  // namespace ravlo
