#include "stream/test_pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace ravlo {
namespace {

using Picture = std::vector<std::uint8_t>;

constexpr FrameGeometry kTiny{16, 4, 30, 1};

Picture Paint(std::uint32_t index, const FrameGeometry& geometry) {
    Picture picture(FrameBytes(geometry), 0xEE);
    EXPECT_EQ(
        PaintTestPattern(index, picture.data(), picture.size(), static_cast<std::int32_t>(geometry.width), geometry),
        PatternResult::Painted);
    return picture;
}

TEST(TestPattern, TheFirstPictureIsARampOfEightBarsOnGreyChroma) {
    const Picture picture = Paint(0, kTiny);
    const std::array<std::uint8_t, 16> row = {16, 16, 47, 47, 78, 78, 109, 109, 140, 140, 171, 171, 202, 202, 235, 235};
    for (std::size_t y = 0; y < 4; ++y) {
        EXPECT_TRUE(std::equal(row.begin(), row.end(), picture.begin() + static_cast<std::ptrdiff_t>(y * 16))) << y;
    }
    EXPECT_TRUE(std::all_of(picture.begin() + 64, picture.end(), [](std::uint8_t value) { return value == 128; }));
}

TEST(TestPattern, TheRampStepsOneBarToTheLeftEveryEightSamples) {
    EXPECT_EQ(Paint(7, kTiny), Paint(0, kTiny));
    const Picture stepped = Paint(8, kTiny);
    const std::array<std::uint8_t, 16> row = {47, 47, 78, 78, 109, 109, 140, 140, 171, 171, 202, 202, 235, 235, 16, 16};
    EXPECT_TRUE(std::equal(row.begin(), row.end(), stepped.begin()));
    EXPECT_EQ(Paint(15, kTiny), stepped);
    EXPECT_NE(Paint(16, kTiny), stepped);
}

TEST(TestPattern, TheRampIsBackAfterSixtyFourSamplesAndAtTheEndOfTheCount) {
    EXPECT_EQ(Paint(64, kTiny), Paint(0, kTiny));
    EXPECT_EQ(Paint(0xFFFFFFFF, kTiny), Paint(63, kTiny));
}

TEST(TestPattern, AtFullHighDefinitionABarIs240PixelsWide) {
    const Picture picture = Paint(0, {1920, 2, 60, 1});
    EXPECT_EQ(picture[239], 16);
    EXPECT_EQ(picture[240], 47);
    EXPECT_EQ(picture[1679], 202);
    EXPECT_EQ(picture[1680], 235);
}

TEST(TestPattern, ColumnsBehindTheEighthBarHaveTheLastBarsLevel) {
    const Picture first = Paint(0, {1922, 2, 60, 1});
    EXPECT_EQ(first[1919], 235);
    EXPECT_EQ(first[1920], 235);
    EXPECT_EQ(first[1921], 235);
    const Picture stepped = Paint(8, {1922, 2, 60, 1});
    EXPECT_EQ(stepped[1919], 16);
    EXPECT_EQ(stepped[1920], 16);
    EXPECT_EQ(stepped[1921], 16);
}

/// Rows without padding are painted in blocks, others one by one; a viewer must not be able to tell.
TEST(TestPattern, PackedAndPaddedRowsShowTheSamePicture) {
    constexpr FrameGeometry kGeometries[] = {{8, 4, 30, 1},      {10, 6, 30, 1},    {854, 480, 30, 1},
                                             {1366, 768, 30, 1}, {1920, 18, 30, 1}, {1920, 34, 30, 1},
                                             {1920, 36, 30, 1},  {1922, 70, 30, 1}, {16384, 2, 30, 1},
                                             {16384, 4, 30, 1},  {16384, 6, 30, 1}};
    for (const FrameGeometry& geometry : kGeometries) {
        // Not at the alignment that a heap gives, and with a byte behind that is not the picture's.
        const std::size_t size = FrameBytes(geometry);
        Picture packed(size + 2, 0xEE);
        ASSERT_EQ(PaintTestPattern(8, packed.data() + 1, size, static_cast<std::int32_t>(geometry.width), geometry),
                  PatternResult::Painted);
        const std::size_t stride = geometry.width + 32;
        Picture padded(stride * geometry.height * 3 / 2, 0xEE);
        ASSERT_EQ(PaintTestPattern(8, padded.data(), padded.size(), static_cast<std::int32_t>(stride), geometry),
                  PatternResult::Painted);

        Picture expected(1, 0xEE);
        for (std::size_t row = 0; row < geometry.height * 3 / 2; ++row) {
            const auto begin = padded.begin() + static_cast<std::ptrdiff_t>(row * stride);
            expected.insert(expected.end(), begin, begin + static_cast<std::ptrdiff_t>(geometry.width));
        }
        expected.push_back(0xEE);
        EXPECT_EQ(packed, expected) << geometry.width << "x" << geometry.height;
    }
}

TEST(TestPattern, RowPaddingIsLeftAlone) {
    constexpr std::int32_t kStride = 20;
    Picture picture(20 * 6, 0xEE);
    ASSERT_EQ(PaintTestPattern(0, picture.data(), picture.size(), kStride, kTiny), PatternResult::Painted);
    for (std::size_t row = 0; row < 6; ++row) {
        for (std::size_t x = 16; x < 20; ++x) {
            EXPECT_EQ(picture[row * 20 + x], 0xEE) << row << "," << x;
        }
        EXPECT_NE(picture[row * 20 + 15], 0xEE) << row;
    }
}

TEST(TestPattern, NothingBehindTheFrameIsWritten) {
    Picture picture(FrameBytes(kTiny) + 1, 0xEE);
    ASSERT_EQ(PaintTestPattern(0, picture.data(), picture.size(), 16, kTiny), PatternResult::Painted);
    EXPECT_EQ(picture.back(), 0xEE);
}

TEST(TestPattern, ANullBufferIsToldBeforeAnythingElse) {
    EXPECT_EQ(PaintTestPattern(0, nullptr, 0, 0, {0, 0, 0, 0}), PatternResult::NullBuffer);
}

TEST(TestPattern, BadArgumentsPaintNothing) {
    const std::uint64_t size = FrameBytes(kTiny);
    Picture picture(size, 0xEE);
    EXPECT_EQ(PaintTestPattern(0, picture.data(), size, 16, {15, 4, 30, 1}), PatternResult::BadArgument);
    EXPECT_EQ(PaintTestPattern(0, picture.data(), size, 15, kTiny), PatternResult::BadArgument) << "stride below width";
    EXPECT_EQ(PaintTestPattern(0, picture.data(), size, -16, kTiny), PatternResult::BadArgument);
    EXPECT_EQ(PaintTestPattern(0, picture.data(), size - 1, 16, kTiny), PatternResult::BadArgument) << "a byte short";
    EXPECT_EQ(PaintTestPattern(0, picture.data(), size, 17, kTiny), PatternResult::BadArgument) << "stride too large";
    EXPECT_EQ(PaintTestPattern(0, picture.data(), size, 6, {6, 4, 30, 1}), PatternResult::BadArgument)
        << "below 8 wide";
    EXPECT_EQ(picture, Picture(size, 0xEE));
}

TEST(TestPattern, EightPixelsWideIsEnough) {
    const Picture picture = Paint(0, {8, 2, 30, 1});
    EXPECT_EQ(picture, (Picture{16,  47,  78,  109, 140, 171, 202, 235, 16,  47,  78,  109,
                                140, 171, 202, 235, 128, 128, 128, 128, 128, 128, 128, 128}));
}

}  // namespace
}  // namespace ravlo
