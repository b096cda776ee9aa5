#include "stream/geometry.h"

#include <gtest/gtest.h>

namespace ravlo {
namespace {

TEST(Geometry, SmallestAndLargestAreValid) {
    EXPECT_TRUE(IsValidGeometry({2, 2, 1, 1}));
    EXPECT_TRUE(IsValidGeometry({16384, 16384, 60, 1}));
    EXPECT_TRUE(IsValidGeometry({1920, 1080, 60, 1}));
    EXPECT_TRUE(IsValidGeometry({1920, 1080, 0xFFFFFFFF, 0xFFFFFFFF}));
}

TEST(Geometry, AZeroAnOddOrATooLargeDimensionIsNotValid) {
    EXPECT_FALSE(IsValidGeometry({0, 1080, 60, 1}));
    EXPECT_FALSE(IsValidGeometry({1920, 0, 60, 1}));
    EXPECT_FALSE(IsValidGeometry({1919, 1080, 60, 1}));
    EXPECT_FALSE(IsValidGeometry({1920, 1081, 60, 1}));
    EXPECT_FALSE(IsValidGeometry({16386, 2, 60, 1}));
    EXPECT_FALSE(IsValidGeometry({2, 16386, 60, 1}));
    EXPECT_FALSE(IsValidGeometry({0xFFFFFFFE, 2, 60, 1}));
}

TEST(Geometry, AZeroInTheRateIsNotValid) {
    EXPECT_FALSE(IsValidGeometry({1920, 1080, 0, 1}));
    EXPECT_FALSE(IsValidGeometry({1920, 1080, 60, 0}));
}

TEST(Geometry, FullHighDefinitionHasTheseSizes) {
    constexpr FrameGeometry kFullHd{1920, 1080, 60, 1};
    EXPECT_EQ(LumaBytes(kFullHd), 2'073'600U);
    EXPECT_EQ(ChromaBytes(kFullHd), 1'036'800U);
    EXPECT_EQ(FrameBytes(kFullHd), 3'110'400U);
    EXPECT_EQ(DefaultStride(kFullHd), 1920U);
}

TEST(Geometry, TheLargestFrameAndTheSmallestHaveTheseSizes) {
    EXPECT_EQ(FrameBytes(kLargestGeometry), 12'441'600U);
    EXPECT_EQ(FrameBytes({2, 2, 1, 1}), 6U);
    EXPECT_EQ(FrameBytes({16384, 16384, 1, 1}), 402'653'184U);
}

TEST(Geometry, SizesOfInvalidGeometriesDoNotWrapAround) {
    EXPECT_EQ(LumaBytes({0xFFFFFFFF, 0xFFFFFFFF, 1, 1}), 0xFFFFFFFE00000001U);
}

TEST(Geometry, DurationIsTheTruncatedPeriod) {
    EXPECT_EQ(SampleDuration({2, 2, 60, 1}), 166'666);
    EXPECT_EQ(SampleDuration({2, 2, 30, 1}), 333'333);
    EXPECT_EQ(SampleDuration({2, 2, 30'000, 1001}), 333'666);
    EXPECT_EQ(SampleDuration({2, 2, 1, 1}), 10'000'000);
    EXPECT_EQ(SampleDuration({2, 2, 1000, 1}), 10'000);
    EXPECT_EQ(SampleDuration({2, 2, 20'000'000, 1}), 0);
}

TEST(Geometry, DurationOfARateOfZeroIsThatOfThirtyHertz) {
    EXPECT_EQ(SampleDuration({2, 2, 0, 1}), 333'333);
}

TEST(Geometry, TheDefaultIsFullHighDefinitionAtSixtyHertz) {
    EXPECT_EQ(kDefaultGeometry, (FrameGeometry{1920, 1080, 60, 1}));
    EXPECT_EQ(kLargestGeometry, (FrameGeometry{3840, 2160, 60, 1}));
}

}  // namespace
}  // namespace ravlo
