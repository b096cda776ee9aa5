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
