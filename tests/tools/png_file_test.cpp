#include "rvhost/png_file.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <vector>

#include "tools/png_pixels.h"

namespace ravlo::test {
namespace {

/// Every byte differs from its neighbours, so that a wrong row length or a lost byte shows.
RgbImage Noise(std::uint32_t width, std::uint32_t height) {
    RgbImage image{width, height, std::vector<std::uint8_t>(std::size_t{width} * height * 3)};
    std::uint32_t state = 1;
    for (std::uint8_t& byte : image.pixels) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return image;
}

std::string AsText(const std::vector<std::uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

TEST(PlainPng, HasTheBytesThatTheFormatDemands) {
    const RgbImage pixel{1, 1, {0x10, 0x20, 0x30}};
    const std::vector<std::uint8_t> expected{
        0x89, 0x50, 0x4E, 0x47, 0x0D, 0x0A, 0x1A, 0x0A,              // signature
        0x00, 0x00, 0x00, 0x0D, 0x49, 0x48, 0x44, 0x52,              // IHDR of 13 bytes
        0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x02,  // 1 x 1, 8 bits, RGB
        0x00, 0x00, 0x00, 0x90, 0x77, 0x53, 0xDE,                    // and its check sum
        0x00, 0x00, 0x00, 0x0F, 0x49, 0x44, 0x41, 0x54,              // IDAT of 15 bytes
        0x78, 0x01, 0x01, 0x04, 0x00, 0xFB, 0xFF,                    // zlib, one stored block of four bytes
        0x00, 0x10, 0x20, 0x30, 0x00, 0xA4, 0x00, 0x61,              // row and Adler-32
    };
    const std::vector<std::uint8_t> file = PlainPng(pixel);
    ASSERT_GE(file.size(), expected.size() + 4 + 12);
    EXPECT_EQ(std::vector<std::uint8_t>(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(expected.size())),
              expected);
    const std::vector<std::uint8_t> end{0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4E, 0x44, 0xAE, 0x42, 0x60, 0x82};
    EXPECT_EQ(std::vector<std::uint8_t>(file.end() - 12, file.end()), end);
}

TEST(PlainPng, IsReadBackWhateverItsSize) {
    // Below, at and above what one stored block holds: a row is one byte longer than its pixels.
    for (const auto& [width, height] :
         {std::pair{1U, 1U}, {7U, 3U}, {1285U, 17U}, {21844U, 1U}, {21845U, 1U}, {640U, 360U}}) {
        const RgbImage image = Noise(width, height);
        const RgbImage read = DecodePng(AsText(PlainPng(image)));
        EXPECT_EQ(read.width, width);
        EXPECT_EQ(read.height, height);
        EXPECT_TRUE(read.pixels == image.pixels) << width << "x" << height;
    }
}

TEST(PngFile, BothKindsHoldTheSamePicture) {
    const std::filesystem::path path = std::filesystem::temp_directory_path() / "ravlo-png-file-test.png";
    const RgbImage image = Noise(64, 40);
    for (const PngEffort effort : {PngEffort::Small, PngEffort::Quick}) {
        ASSERT_TRUE(WritePng(path.string(), image, effort));
        std::ifstream file(path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        EXPECT_TRUE(DecodePng(bytes).pixels == image.pixels) << static_cast<int>(effort);
    }
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    for (const PngEffort effort : {PngEffort::Small, PngEffort::Quick}) {
        EXPECT_FALSE(WritePng((path / "x" / "y.png").string(), image, effort));
    }
}

}  // namespace
}  // namespace ravlo::test
