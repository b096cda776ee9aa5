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

}  // namespace
}  // namespace ravlo::test
