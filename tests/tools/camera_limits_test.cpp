#include "rvfeeder/camera_limits.h"

#include <gtest/gtest.h>

namespace ravlo::test {
namespace {

TEST(CameraLimits, APictureMayHaveAsManyBytesAsTheLargestWhateverItsShape) {
    EXPECT_EQ(WhyBeyondCamera({3840, 2160, 60, 1}), std::nullopt);
    EXPECT_EQ(WhyBeyondCamera({16384, 506, 60, 1}), std::nullopt);
    EXPECT_EQ(WhyBeyondCamera({16384, 508, 60, 1}),
              "the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 16384x508");
    EXPECT_EQ(WhyBeyondCamera({16384, 16384, 25, 1}),
              "the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 16384x16384");
}

TEST(CameraLimits, AThousandFramesASecondAreTheMost) {
    EXPECT_EQ(WhyBeyondCamera({4, 2, 1000, 1}), std::nullopt);
    EXPECT_EQ(WhyBeyondCamera({4, 2, 999'999'999, 1'000'000}), std::nullopt);
    EXPECT_EQ(WhyBeyondCamera({4, 2, 1001, 1}),
              "the camera takes up to 1000 frames a second, but this input has 1001/1");
    EXPECT_NE(WhyBeyondCamera({4, 2, 999'999'999, 999'999}), std::nullopt);
}

TEST(CameraLimits, ASizeThatNv12CannotHaveComesWithTheNearestThatItCan) {
    EXPECT_EQ(WhyNoPictureSize(640, 480), std::nullopt);
    EXPECT_EQ(WhyNoPictureSize(2, 16384), std::nullopt);
    const std::string beginning = "the camera takes even sizes from 2x2 to 16384x16384, but this input is ";
    const std::string middle = "; crop or scale it first, for example with ffmpeg -vf scale=";
    EXPECT_EQ(WhyNoPictureSize(641, 480), beginning + "641x480" + middle + "640:480");
    EXPECT_EQ(WhyNoPictureSize(1, 1), beginning + "1x1" + middle + "2:2");
    EXPECT_EQ(WhyNoPictureSize(20'000, 33), beginning + "20000x33" + middle + "16384:32");
    EXPECT_EQ(WhyNoPictureSize(20'000, 20'000), beginning + "20000x20000" + middle + "2048:2048");
    EXPECT_EQ(WhyNoPictureSize(16'383, 4001), beginning + "16383x4001" + middle + "4094:1000");
    EXPECT_EQ(WhyNoPictureSize(3841, 2160), beginning + "3841x2160" + middle + "3840:2160");
}

TEST(CameraLimits, AnExpectedSizeIsMetByNoOther) {
    EXPECT_EQ(WhyUnexpected({1280, 720, 30, 1}, {1280, 720}), std::nullopt);
    EXPECT_EQ(WhyUnexpected({720, 1280, 30, 1}, {1280, 720}),
              "the input is 720x1280, but --expect says 1280x720; scale it first, for example with ffmpeg -vf "
              "scale=1280:720");
}

}  // namespace
}  // namespace ravlo::test
