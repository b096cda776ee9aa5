#include "common/test_card_stamp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>
#include <vector>

namespace ravlo::test {
namespace {

using Frame = std::vector<std::uint8_t>;

constexpr TestCardStamp kStamp{123'456, 0x0123'4567'89AB'CDEF};

Frame Grey(const FrameGeometry& geometry, std::uint8_t value = 100) {
    return Frame(FrameBytes(geometry), value);
}

Frame Stamped(const FrameGeometry& geometry, const TestCardStamp& stamp = kStamp) {
    Frame frame = Grey(geometry);
    EXPECT_TRUE(DrawTestCardStamp(frame, geometry, stamp));
    return frame;
}

TEST(TestCardStamp, WhatIsDrawnIsReadAtEverySize) {
    for (const FrameGeometry& geometry : {
             FrameGeometry{64, 8, 30, 1},
             FrameGeometry{66, 10, 30, 1},
             FrameGeometry{160, 90, 30, 1},
             FrameGeometry{320, 180, 30, 1},
             FrameGeometry{640, 480, 30, 1},
             FrameGeometry{642, 360, 30, 1},
             FrameGeometry{1280, 720, 30, 1},
             FrameGeometry{1366, 768, 30, 1},
             FrameGeometry{1918, 1078, 30, 1},
             FrameGeometry{1920, 1080, 60, 1},
             FrameGeometry{720, 1280, 30, 1},
             FrameGeometry{3840, 2160, 60, 1},
             FrameGeometry{16384, 8, 60, 1},
         }) {
        EXPECT_EQ(ReadTestCardStamp(Stamped(geometry), geometry), kStamp) << geometry.width << "x" << geometry.height;
    }
}

TEST(TestCardStamp, EveryNumberSurvives) {
    const FrameGeometry geometry{320, 180, 30, 1};
    constexpr std::int64_t kEarliest = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t kLatest = std::numeric_limits<std::int64_t>::max();
    for (const TestCardStamp& stamp : {TestCardStamp{0, 0}, TestCardStamp{1, 1}, TestCardStamp{4'294'967'295U, -1},
                                       TestCardStamp{2, kEarliest}, TestCardStamp{3, kLatest}}) {
        EXPECT_EQ(ReadTestCardStamp(Stamped(geometry, stamp), geometry), stamp) << stamp.frame;
    }
}

TEST(TestCardStamp, ANewStampReplacesTheOldOne) {
    const FrameGeometry geometry{320, 180, 30, 1};
    Frame frame = Stamped(geometry);
    ASSERT_TRUE(DrawTestCardStamp(frame, geometry, {7, 8}));
    EXPECT_EQ(ReadTestCardStamp(frame, geometry), (TestCardStamp{7, 8}));
}

TEST(TestCardStamp, CellsGrowWithThePictureAndStayEven) {
    EXPECT_EQ(TestCardStampCell({64, 8, 30, 1}), 2U);
    EXPECT_EQ(TestCardStampCell({320, 180, 30, 1}), 2U);
    EXPECT_EQ(TestCardStampCell({640, 360, 30, 1}), 4U);
    EXPECT_EQ(TestCardStampCell({1280, 720, 30, 1}), 10U);
    EXPECT_EQ(TestCardStampCell({1366, 768, 30, 1}), 10U);
    EXPECT_EQ(TestCardStampCell({1920, 1080, 30, 1}), 14U);
    EXPECT_EQ(TestCardStampCell({3840, 2160, 30, 1}), 30U);
    EXPECT_EQ(TestCardStampCell({1920, 40, 30, 1}), 4U) << "no more than half of the height";
}

TEST(TestCardStamp, TheLayoutIsTheDocumentedOne) {
    const FrameGeometry geometry{64, 8, 30, 1};
    const Frame frame = Stamped(geometry, {0x8000'0001, 5});
    std::string bits;
    for (std::size_t cell = 0; cell < 128; ++cell) {
        const std::uint8_t luma = frame[cell / 32 * 2 * 64 + cell % 32 * 2];
        ASSERT_TRUE(luma == 16 || luma == 235) << cell;
        bits += luma == 235 ? '1' : '0';
    }
    EXPECT_EQ(bits.substr(0, 16), "0101001001010110");
    EXPECT_EQ(bits.substr(16, 32), "10000000000000000000000000000001");
    EXPECT_EQ(bits.substr(48, 64),
              "00000000000000000000000000000000"
              "00000000000000000000000000000101");
    EXPECT_EQ(bits.substr(112), "0110000011001000");  // crc-16/ccitt-false of 52 56 80 00 00 01 00 00 00 00 00 00 00 05
    for (std::size_t i = LumaBytes(geometry); i < frame.size(); ++i) {
        ASSERT_EQ(frame[i], 128) << i;
    }
}

TEST(TestCardStamp, NothingOutsideItsCellsIsTouched) {
    const FrameGeometry geometry{640, 360, 30, 1};
    const Frame frame = Stamped(geometry);
    for (std::size_t y = 0; y < 360; ++y) {
        for (std::size_t x = y < 16 ? 128 : 0; x < 640; ++x) {
            ASSERT_EQ(frame[y * 640 + x], 100) << x << "," << y;
        }
    }
    for (std::size_t y = 0; y < 180; ++y) {
        for (std::size_t x = 0; x < 640; ++x) {
            ASSERT_EQ(frame[(360 + y) * 640 + x], y < 8 && x < 128 ? 128 : 100) << x << "," << y;
        }
    }
}

TEST(TestCardStamp, NoiseOfFortyStepsChangesNothing) {
    std::mt19937 random(42);
    for (const FrameGeometry& geometry : {FrameGeometry{64, 8, 30, 1}, FrameGeometry{1280, 720, 30, 1}}) {
        Frame frame = Stamped(geometry);
        for (std::uint8_t& value : frame) {
            const int noise = static_cast<int>(random() % 81) - 40;
            value = static_cast<std::uint8_t>(std::clamp(value + noise, 0, 255));
        }
        EXPECT_EQ(ReadTestCardStamp(frame, geometry), kStamp);
    }
}

TEST(TestCardStamp, AnySingleWrongCellIsNoticed) {
    const FrameGeometry geometry{642, 360, 30, 1};
    const std::size_t edge = 4;
    const Frame whole = Stamped(geometry);
    for (std::size_t cell = 0; cell < 128; ++cell) {
        Frame frame = whole;
        for (std::size_t y = 0; y < edge; ++y) {
            for (std::size_t x = 0; x < edge; ++x) {
                std::uint8_t& luma = frame[(cell / 32 * edge + y) * 642 + cell % 32 * edge + x];
                luma = luma == 16 ? 235 : 16;
            }
        }
        EXPECT_EQ(ReadTestCardStamp(frame, geometry), std::nullopt) << cell;
    }
}

TEST(TestCardStamp, TooSmallPicturesAreLeftAsTheyAre) {
    for (const FrameGeometry& geometry :
         {FrameGeometry{62, 8, 30, 1}, FrameGeometry{64, 6, 30, 1}, FrameGeometry{2, 2, 30, 1}}) {
        Frame frame = Grey(geometry);
        EXPECT_FALSE(DrawTestCardStamp(frame, geometry, kStamp));
        EXPECT_EQ(frame, Grey(geometry));
        EXPECT_EQ(ReadTestCardStamp(frame, geometry), std::nullopt);
        EXPECT_EQ(TestCardStampCell(geometry), 0U);
    }
}

TEST(TestCardStamp, ABufferThatIsNotTheWholePictureIsRefused) {
    const FrameGeometry geometry{64, 8, 30, 1};
    Frame frame = Stamped(geometry);
    frame.pop_back();
    EXPECT_FALSE(DrawTestCardStamp(frame, geometry, kStamp));
    EXPECT_EQ(ReadTestCardStamp(frame, geometry), std::nullopt);
    EXPECT_EQ(ReadTestCardStamp({}, geometry), std::nullopt);
    EXPECT_EQ(ReadTestCardStamp(frame, {65, 8, 30, 1}), std::nullopt);
}

TEST(TestCardStamp, OtherPicturesCarryNone) {
    const FrameGeometry geometry{320, 180, 30, 1};
    for (const int value : {0, 16, 128, 235, 255}) {
        EXPECT_EQ(ReadTestCardStamp(Grey(geometry, static_cast<std::uint8_t>(value)), geometry), std::nullopt) << value;
    }
    Frame moving = Grey(geometry);
    for (std::size_t i = 0; i < moving.size(); ++i) {
        moving[i] = static_cast<std::uint8_t>(i % 320 + i / 320);
    }
    EXPECT_EQ(ReadTestCardStamp(moving, geometry), std::nullopt);
    std::mt19937 random(7);
    for (int picture = 0; picture < 50; ++picture) {
        std::generate(moving.begin(), moving.end(), [&random] { return static_cast<std::uint8_t>(random()); });
        EXPECT_EQ(ReadTestCardStamp(moving, geometry), std::nullopt) << picture;
    }
}

TEST(TestCardStamp, AStampOfAnotherSizeOfPictureIsNotTakenForOne) {
    const FrameGeometry geometry{640, 360, 30, 1};
    const Frame frame = Stamped(geometry);
    EXPECT_EQ(ReadTestCardStamp(frame, {360, 640, 30, 1}), std::nullopt);
}

}  // namespace
}  // namespace ravlo::test
