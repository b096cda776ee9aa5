#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "rvhost/preview_layout.h"
#include "rvhost/preview_overlay.h"
#include "rvhost/preview_slot.h"
#include "rvhost/text_boxes.h"

namespace ravlo::test {
namespace {

constexpr FrameGeometry kHd{1280, 720, 30, 1};
/// The strip of a picture 720 high is 17 units of 2 pixels.
constexpr std::size_t kHdStripTop = 720 - 17 * 2;

std::vector<std::uint8_t> White(const FrameGeometry& geometry) {
    return std::vector<std::uint8_t>(LumaBytes(geometry) * 4, 255);
}

/// Red, green and blue of one pixel as a number.
std::uint32_t At(const std::vector<std::uint8_t>& bgrx, const FrameGeometry& geometry, std::size_t x, std::size_t y) {
    const std::uint8_t* const pixel = bgrx.data() + (y * geometry.width + x) * 4;
    return std::uint32_t{pixel[2]} << 16 | std::uint32_t{pixel[1]} << 8 | pixel[0];
}

/// The rightmost pure white pixel of the strip, which is where its text ends.
std::size_t TextEnd(const std::vector<std::uint8_t>& bgrx, const FrameGeometry& geometry, std::size_t top) {
    std::size_t end = 0;
    for (std::size_t y = top; y < geometry.height; ++y) {
        for (std::size_t x = 0; x < geometry.width; ++x) {
            if (x > end && At(bgrx, geometry, x, y) == 0xFFFFFF) {
                end = x;
            }
        }
    }
    return end;
}

TEST(TextBoxes, LineIsAsHighAsDeclaredAndAsWideAsMeasured) {
    std::uint32_t bottom = 0;
    std::uint32_t right = 0;
    for (const TextBox& box : LayOutText("PATTERN gjpqy 0123456789.")) {
        bottom = std::max(bottom, box.y + box.height);
        right = std::max(right, box.x + box.width);
    }
    EXPECT_EQ(bottom, 9U);
    EXPECT_EQ(right + 2, TextWidth("PATTERN gjpqy 0123456789."));
    EXPECT_TRUE(LayOutText("").empty());
}

TEST(PreviewOverlay, SaysRateLatenessLatencyAndSamples) {
    const PreviewFacts facts{PictureKind::Live, 29.97, 12'345, 1234, 345'678};
    const std::array<std::string, 4> expected{"30.0 fps", "late 1.2 ms", "latency 35 ms", "1234 samples"};
    EXPECT_EQ(PreviewTexts(facts), expected);
}

TEST(PreviewOverlay, LeavesOutALatencyThatIsNotKnown) {
    const PreviewFacts facts{PictureKind::Pattern, 60, -5'000, 1, std::nullopt};
    const std::array<std::string, 4> expected{"60.0 fps", "late -0.5 ms", "", "1 sample"};
    EXPECT_EQ(PreviewTexts(facts), expected);
}

TEST(PreviewOverlay, DarkensTheStripAndNothingAboveIt) {
    std::vector<std::uint8_t> picture = White(kHd);
    DrawPreviewOverlay(picture, kHd, {PictureKind::Live, 30, 0, 100, std::nullopt});
    std::size_t touched = 0;
    for (std::size_t i = 0; i < kHdStripTop * 1280 * 4; ++i) {
        touched += picture[i] != 255;
    }
    EXPECT_EQ(touched, 0U);
    EXPECT_EQ(At(picture, kHd, 1279, kHdStripTop), 0x6D6D6DU);
    EXPECT_EQ(At(picture, kHd, 1279, 719), 0x6D6D6DU);
}

TEST(PreviewOverlay, BadgeIsGreenForLiveAndAmberForThePattern) {
    std::vector<std::uint8_t> live = White(kHd);
    std::vector<std::uint8_t> pattern = White(kHd);
    DrawPreviewOverlay(live, kHd, {PictureKind::Live, 30, 0, 100, std::nullopt});
    DrawPreviewOverlay(pattern, kHd, {PictureKind::Pattern, 30, 0, 100, std::nullopt});
    EXPECT_EQ(At(live, kHd, 0, kHdStripTop), 0x168039U);
    EXPECT_EQ(At(pattern, kHd, 0, kHdStripTop), 0xBE5C00U);
}

TEST(PreviewOverlay, KnownLatencyMakesTheTextLonger) {
    std::vector<std::uint8_t> without = White(kHd);
    std::vector<std::uint8_t> with = White(kHd);
    DrawPreviewOverlay(without, kHd, {PictureKind::Live, 30, 0, 100, std::nullopt});
    DrawPreviewOverlay(with, kHd, {PictureKind::Live, 30, 0, 100, 350'000});
    EXPECT_GT(TextEnd(with, kHd, kHdStripTop), TextEnd(without, kHd, kHdStripTop));
}

TEST(PreviewOverlay, NarrowPictureGetsSmallerTextAndThenFewerFields) {
    const FrameGeometry narrow{320, 720, 30, 1};
    std::vector<std::uint8_t> picture = White(narrow);
    DrawPreviewOverlay(picture, narrow, {PictureKind::Pattern, 30, 0, 100, 350'000});
    EXPECT_EQ(At(picture, narrow, 319, 720 - 17), 0x6D6D6DU);
    EXPECT_EQ(At(picture, narrow, 319, 720 - 18), 0xFFFFFFU);

    const FrameGeometry tiny{64, 64, 30, 1};
    picture = White(tiny);
    DrawPreviewOverlay(picture, tiny, {PictureKind::Pattern, 30, 0, 100, 350'000});
    EXPECT_EQ(At(picture, tiny, 0, 64 - 17), 0xBE5C00U);
    EXPECT_LT(TextEnd(picture, tiny, 64 - 17), 52U) << "only the badge has room";
}

TEST(PreviewOverlay, PictureTooSmallForTextStaysAsItIs) {
    for (const FrameGeometry& small : {FrameGeometry{2, 2, 30, 1}, FrameGeometry{50, 720, 30, 1}}) {
        std::vector<std::uint8_t> picture = White(small);
        DrawPreviewOverlay(picture, small, {});
        EXPECT_EQ(picture, White(small));
    }
}

TEST(PreviewOverlay, BufferOfAnotherSizeIsRefused) {
    std::vector<std::uint8_t> picture(100);
    EXPECT_THROW(DrawPreviewOverlay(picture, kHd, {}), std::invalid_argument);
}

TEST(PreviewLayout, PictureFillsAnAreaOfItsProportions) {
    EXPECT_EQ(FitPicture(1280, 720, 1280, 720), (PreviewRectangle{0, 0, 1280, 720}));
    EXPECT_EQ(FitPicture(1280, 720, 640, 360), (PreviewRectangle{0, 0, 640, 360}));
    EXPECT_EQ(FitPicture(640, 360, 1920, 1080), (PreviewRectangle{0, 0, 1920, 1080}));
}

TEST(PreviewLayout, OtherAreasGetBarsOnTwoSides) {
    EXPECT_EQ(FitPicture(1280, 720, 1280, 1024), (PreviewRectangle{0, 152, 1280, 720}));
    EXPECT_EQ(FitPicture(640, 480, 1280, 720), (PreviewRectangle{160, 0, 960, 720}));
}

TEST(PreviewLayout, NothingIsEverEmptyButAnEmptyArea) {
    EXPECT_EQ(FitPicture(16384, 2, 100, 100), (PreviewRectangle{0, 49, 100, 1}));
    EXPECT_EQ(FitPicture(2, 16384, 1, 1), (PreviewRectangle{0, 0, 1, 1}));
    EXPECT_EQ(FitPicture(1280, 720, 0, 100), (PreviewRectangle{0, 0, 0, 0}));
    EXPECT_EQ(FitPicture(1280, 720, 100, -1), (PreviewRectangle{0, 0, 0, 0}));
}

TEST(PreviewSlot, NewestPictureWinsAndIsTakenOnce) {
    PreviewSlot slot(3);
    PreviewPicture taken;
    EXPECT_FALSE(slot.Take(taken));
    slot.Put(std::vector<std::uint8_t>{1, 2, 3}, {PictureKind::Live, 30, 0, 1, std::nullopt});
    slot.Put(std::vector<std::uint8_t>{4, 5, 6}, {PictureKind::Live, 30, 0, 2, std::nullopt});
    ASSERT_TRUE(slot.Take(taken));
    EXPECT_EQ(taken.nv12, (std::vector<std::uint8_t>{4, 5, 6}));
    EXPECT_EQ(taken.facts.samples, 2U);
    EXPECT_FALSE(slot.Take(taken));
    EXPECT_EQ(taken.nv12, (std::vector<std::uint8_t>{4, 5, 6}));
}

}  // namespace
}  // namespace ravlo::test
