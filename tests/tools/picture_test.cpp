#include "rvhost/contact_sheet.h"
#include "rvhost/picture_kind.h"
#include "rvhost/thumbnail.h"

#include <gtest/gtest.h>

#include "stream/test_pattern.h"

namespace ravlo::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Pattern(std::uint32_t index, const FrameGeometry& geometry) {
    Bytes bytes(FrameBytes(geometry));
    EXPECT_EQ(PaintTestPattern(index, bytes.data(), bytes.size(), static_cast<std::int32_t>(geometry.width), geometry),
              PatternResult::Painted);
    return bytes;
}

/// One colour all over.
Bytes Plain(const FrameGeometry& geometry, std::uint8_t luma, std::uint8_t cb, std::uint8_t cr) {
    Bytes bytes(FrameBytes(geometry), luma);
    for (std::size_t i = LumaBytes(geometry); i < bytes.size(); i += 2) {
        bytes[i] = cb;
        bytes[i + 1] = cr;
    }
    return bytes;
}

TEST(PictureKind, TheCamerasPatternIsRecognisedAtEveryStepOfItsMovement) {
    for (const FrameGeometry geometry : {FrameGeometry{1280, 720, 30, 1}, FrameGeometry{642, 10, 30, 1},
                                         FrameGeometry{8, 2, 30, 1}, FrameGeometry{14, 4, 30, 1}}) {
        for (std::uint32_t step = 0; step < 8; ++step) {
            EXPECT_EQ(FindPatternShift(Pattern(step * 8, geometry), geometry), step) << geometry.width;
        }
        EXPECT_EQ(FindPatternShift(Pattern(7, geometry), geometry), 0U);
        EXPECT_EQ(FindPatternShift(Pattern(64, geometry), geometry), 0U);
    }
}

TEST(PictureKind, OneOtherByteAnywhereMakesItLive) {
    const FrameGeometry geometry{42, 6, 30, 1};
    const Bytes pattern = Pattern(16, geometry);
    EXPECT_EQ(JudgePicture(pattern, geometry), PictureKind::Pattern);
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        Bytes changed = pattern;
        changed[at] = static_cast<std::uint8_t>(changed[at] + 1);
        EXPECT_EQ(JudgePicture(changed, geometry), PictureKind::Live) << at;
    }
}

TEST(PictureKind, GreyPicturesAndShortBuffersAreNotThePattern) {
    const FrameGeometry geometry{16, 4, 30, 1};
    EXPECT_EQ(JudgePicture(Plain(geometry, 16, 128, 128), geometry), PictureKind::Live);
    Bytes pattern = Pattern(0, geometry);
    pattern.pop_back();
    EXPECT_EQ(JudgePicture(pattern, geometry), PictureKind::Live);
    EXPECT_STREQ(PictureKindWord(PictureKind::Live), "live");
    EXPECT_STREQ(PictureKindWord(PictureKind::Pattern), "pattern");
}

TEST(Bt709, LimitedRangeColoursBecomeTheRgbTheyStandFor) {
    EXPECT_EQ(ConvertBt709(16, 128, 128), (Rgb{0, 0, 0}));
    EXPECT_EQ(ConvertBt709(235, 128, 128), (Rgb{255, 255, 255}));
    EXPECT_EQ(ConvertBt709(126, 128, 128), (Rgb{128, 128, 128}));
    // The 8-bit codes of the full-strength bars, each within one step of what they were made from.
    EXPECT_EQ(ConvertBt709(63, 102, 240), (Rgb{255, 1, 0}));
    EXPECT_EQ(ConvertBt709(173, 42, 26), (Rgb{0, 255, 1}));
    EXPECT_EQ(ConvertBt709(32, 240, 118), (Rgb{1, 0, 255}));
}

TEST(Bt709, ColoursOutsideTheRangeAreHeldAtItsEnds) {
    EXPECT_EQ(ConvertBt709(0, 128, 128), (Rgb{0, 0, 0}));
    EXPECT_EQ(ConvertBt709(255, 128, 128), (Rgb{255, 255, 255}));
    EXPECT_EQ(ConvertBt709(255, 255, 255).red, 255);
    EXPECT_EQ(ConvertBt709(0, 0, 0).blue, 0);
}

TEST(Thumbnail, IsAsWideAsAskedAndKeepsTheShape) {
    const FrameGeometry geometry{1280, 720, 30, 1};
    const RgbImage image = MakeThumbnail(Plain(geometry, 63, 102, 240), geometry, 320);
    EXPECT_EQ(image.width, 320U);
    EXPECT_EQ(image.height, 180U);
    ASSERT_EQ(image.pixels.size(), 172'800U);
    for (std::size_t i = 0; i < image.pixels.size(); i += 3) {
        ASSERT_EQ((Rgb{image.pixels[i], image.pixels[i + 1], image.pixels[i + 2]}), (Rgb{255, 1, 0})) << i;
    }
}

TEST(Thumbnail, APixelIsTheMeanOfWhatItCovers) {
    const FrameGeometry geometry{4, 2, 30, 1};
    Bytes bytes = Plain(geometry, 16, 128, 128);
    bytes[0] = bytes[1] = 235;  // two of the four pixels of the left half
    const RgbImage image = MakeThumbnail(bytes, geometry, 2);
    EXPECT_EQ(image.pixels, (Bytes{128, 128, 128, 0, 0, 0}));
}

TEST(Thumbnail, IsNeverLargerThanThePictureAndNeverEmpty) {
    const FrameGeometry small{4, 2, 30, 1};
    EXPECT_EQ(MakeThumbnail(Plain(small, 16, 128, 128), small, 320).width, 4U);
    const FrameGeometry wide{1000, 2, 30, 1};
    const RgbImage flat = MakeThumbnail(Plain(wide, 16, 128, 128), wide, 100);
    EXPECT_EQ(flat.height, 1U);
    EXPECT_EQ(flat.pixels.size(), 300U);
}

TEST(ContactSheet, PicturesStandInOrderInColouredFrames) {
    constexpr Rgb kGreen{0, 200, 0};
    constexpr Rgb kRed{200, 0, 0};
    ContactSheet sheet;
    EXPECT_TRUE(sheet.IsEmpty());
    for (int i = 0; i < 3; ++i) {
        RgbImage picture{20, 10, Bytes(600, static_cast<std::uint8_t>(10 * (i + 1)))};
        ASSERT_TRUE(sheet.Add(std::move(picture), "x", i == 1 ? kRed : kGreen));
    }
    const RgbImage drawn = sheet.Draw(2, "title");
    // Two cells of 28 x 44 a row, 6 pixels between them, 32 above the first row.
    ASSERT_EQ(drawn.width, 74U);
    ASSERT_EQ(drawn.height, 132U);
    const auto at = [&drawn](std::size_t x, std::size_t y) {
        const std::uint8_t* pixel = drawn.pixels.data() + (y * drawn.width + x) * 3;
        return Rgb{pixel[0], pixel[1], pixel[2]};
    };
    EXPECT_EQ(at(6, 32), kGreen);
    EXPECT_EQ(at(10, 36), (Rgb{10, 10, 10}));
    EXPECT_EQ(at(40, 32), kRed);
    EXPECT_EQ(at(44, 36), (Rgb{20, 20, 20}));
    EXPECT_EQ(at(6, 82), kGreen);
    EXPECT_EQ(at(29, 95), (Rgb{30, 30, 30}));
    std::size_t white = 0;
    for (std::size_t i = 0; i < drawn.pixels.size(); i += 3) {
        white += drawn.pixels[i] == 255 && drawn.pixels[i + 1] == 255 && drawn.pixels[i + 2] == 255 ? 1U : 0U;
    }
    EXPECT_GT(white, 20U) << "the labels";
}

TEST(ContactSheet, IsFullAfterSixHundredPictures) {
    ContactSheet sheet;
    for (int i = 0; i < 600; ++i) {
        ASSERT_TRUE(sheet.Add({2, 2, Bytes(12)}, "x", {})) << i;
    }
    EXPECT_FALSE(sheet.Add({2, 2, Bytes(12)}, "x", {}));
    EXPECT_EQ(sheet.Pictures(), 600U);
}

TEST(ContactSheet, IsFullBeforeLargePicturesTakeAllMemory) {
    constexpr std::size_t kPictureBytes = std::size_t{2048} * 2048 * 3;
    ContactSheet sheet;
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(sheet.Add({2048, 2048, Bytes(kPictureBytes)}, "x", {})) << i;
    }
    EXPECT_FALSE(sheet.Add({2048, 2048, Bytes(kPictureBytes)}, "x", {})) << "12 MiB more than 120 of 128";
    EXPECT_EQ(sheet.Pictures(), 10U);
}

TEST(ContactSheet, AnEmptySheetIsNoPicture) {
    EXPECT_TRUE(ContactSheet().Draw(6, "title").pixels.empty());
}

}  // namespace
}  // namespace ravlo::test
