#include "rvfeeder/test_card.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "common/test_card_stamp.h"
#include "rvfeeder/test_card_reader.h"

namespace ravlo::test {
namespace {

using Frame = std::vector<std::uint8_t>;

Frame Drawn(const FrameGeometry& geometry, std::uint32_t number) {
    Frame frame(FrameBytes(geometry), 77);
    TestCard(geometry).Draw(frame, number);
    return frame;
}

std::array<int, 3> ColourAt(const Frame& frame, const FrameGeometry& geometry, std::size_t x, std::size_t y) {
    const std::size_t chroma = LumaBytes(geometry) + y / 2 * geometry.width + x / 2 * 2;
    return {frame[y * geometry.width + x], frame[chroma], frame[chroma + 1]};
}

constexpr FrameGeometry kHd{1280, 720, 30, 1};

TEST(TestCard, TheBarsHaveTheCodeValuesOf75PercentBt709) {
    const Frame frame = Drawn(kHd, 1);
    const std::array<int, 3> expected[] = {{180, 128, 128}, {168, 44, 136}, {145, 147, 44}, {133, 63, 52},
                                           {63, 193, 204},  {51, 109, 212}, {28, 212, 120}, {16, 128, 128}};
    for (std::size_t bar = 0; bar < 8; ++bar) {
        for (const std::size_t x : {bar * 160, bar * 160 + 80, bar * 160 + 159}) {
            EXPECT_EQ(ColourAt(frame, kHd, x, 80), expected[bar]) << x;
            EXPECT_EQ(ColourAt(frame, kHd, x, 401), expected[bar]) << x;
        }
    }
}

TEST(TestCard, TheRampRunsFromBlackToWhiteWithoutAStepBack) {
    const Frame frame = Drawn(kHd, 1);
    const std::size_t y = 490;
    EXPECT_EQ(ColourAt(frame, kHd, 0, y), (std::array<int, 3>{16, 128, 128}));
    EXPECT_EQ(ColourAt(frame, kHd, 640, y), (std::array<int, 3>{126, 128, 128}));
    EXPECT_EQ(ColourAt(frame, kHd, 1279, y), (std::array<int, 3>{235, 128, 128}));
    EXPECT_TRUE(std::is_sorted(frame.begin() + y * 1280, frame.begin() + (y + 1) * 1280));
}

TEST(TestCard, EveryValueLiesInLimitedRange) {
    for (const FrameGeometry& geometry : {kHd, FrameGeometry{322, 182, 30, 1}, FrameGeometry{46, 20, 30, 1}}) {
        const Frame frame = Drawn(geometry, 12);
        for (std::size_t i = 0; i < frame.size(); ++i) {
            ASSERT_GE(frame[i], 16) << i;
            ASSERT_LE(frame[i], i < LumaBytes(geometry) ? 235 : 240) << i;
        }
    }
}

TEST(TestCard, TheDiscMovesByTenPixelsAFrameAndComesBackOnTheOtherSide) {
    const auto firstWhite = [](std::uint32_t number) {
        const Frame frame = Drawn(kHd, number);
        const auto row = frame.begin() + 430 * 1280;
        return std::find(row, row + 1280, 235) - row;
    };
    EXPECT_EQ(firstWhite(1), 10);
    EXPECT_EQ(firstWhite(2), 20);
    EXPECT_EQ(firstWhite(122), 1220);
    EXPECT_EQ(firstWhite(123), 0) << "its right edge is on the left already";
    EXPECT_EQ(firstWhite(128), 0);
    EXPECT_EQ(firstWhite(129), 10);
}

TEST(TestCard, EveryFrameDiffersFromTheOneBeforeAtEverySize) {
    for (const FrameGeometry& geometry :
         {FrameGeometry{2, 2, 30, 1}, FrameGeometry{4, 2, 30, 1}, FrameGeometry{2, 8, 30, 1},
          FrameGeometry{62, 6, 30, 1}, FrameGeometry{64, 36, 30, 1}, FrameGeometry{158, 90, 30, 1},
          FrameGeometry{160, 90, 30, 1}, FrameGeometry{16384, 90, 30, 1}, FrameGeometry{160, 16384, 30, 1},
          FrameGeometry{642, 360, 30, 1}}) {
        for (std::uint32_t number = 1; number < 9; ++number) {
            EXPECT_NE(Drawn(geometry, number), Drawn(geometry, number + 1))
                << geometry.width << "x" << geometry.height << " " << number;
        }
    }
}

TEST(TestCard, TheSameNumberGivesTheSamePictureWhateverTheBufferHeld) {
    const TestCard card(kHd);
    Frame first(FrameBytes(kHd), 0);
    Frame second(FrameBytes(kHd), 255);
    card.Draw(first, 4'294'967'295U);
    card.Draw(second, 5);
    card.Draw(second, 4'294'967'295U);
    EXPECT_EQ(first, second);
}

TEST(TestCard, ThePlaceOfTheStampIsBlackAndNothingMovesThere) {
    for (const FrameGeometry& geometry :
         {kHd, FrameGeometry{160, 90, 30, 1}, FrameGeometry{642, 360, 30, 1}, FrameGeometry{1366, 768, 30, 1},
          FrameGeometry{2160, 3840, 30, 1}, FrameGeometry{4096, 2160, 30, 1}, FrameGeometry{4096, 100, 30, 1}}) {
        const Frame frame = Drawn(geometry, 99);
        const std::size_t cell = TestCardStampCell(geometry);
        for (std::size_t y = 0; y < 4 * cell; ++y) {
            for (std::size_t x = 0; x < 32 * cell; ++x) {
                ASSERT_EQ(ColourAt(frame, geometry, x, y), (std::array<int, 3>{16, 128, 128}))
                    << geometry.width << "x" << geometry.height << " " << x << "," << y;
            }
        }
    }
}

/// One line of dots per letter row, read from where the text begins: its leftmost and topmost white pixel.
std::vector<std::string> Dots(const Frame& frame, const FrameGeometry& geometry, std::size_t x, std::size_t y,
                              std::size_t dot, std::size_t columns) {
    std::vector<std::string> lines;
    for (std::size_t row = 0; row < 7; ++row) {
        std::string& line = lines.emplace_back();
        for (std::size_t column = 0; column < columns; ++column) {
            line += frame[(y + row * dot) * geometry.width + x + column * dot] == 235 ? '#' : '.';
        }
    }
    return lines;
}

TEST(TestCard, NumberTimeAndGeometryAreWrittenInDotsOfEightPixels) {
    const Frame frame = Drawn(kHd, 123);
    const std::size_t lastLetters = 356 + 10 * 48;
    EXPECT_EQ(Dots(frame, kHd, lastLetters, 551, 8, 11), (std::vector<std::string>{
                                                             ".###...###.",
                                                             "#...#.#...#",
                                                             "....#.....#",
                                                             "..##....##.",
                                                             ".#........#",
                                                             "#.....#...#",
                                                             "#####..###.",
                                                         }))
        << "the 23 of frame 000123";
    EXPECT_EQ(Dots(frame, kHd, lastLetters, 631, 8, 11), (std::vector<std::string>{
                                                             ".###...###.",
                                                             "#...#.#...#",
                                                             "#..##.#..##",
                                                             "#.#.#.#.#.#",
                                                             "##..#.##..#",
                                                             "#...#.#...#",
                                                             ".###...###.",
                                                         }))
        << "the last 00 of 00:00:04.100";
    EXPECT_EQ(Dots(frame, kHd, 444 + 3 * 48, 12, 8, 11), (std::vector<std::string>{
                                                             ".###.......",
                                                             "#...#......",
                                                             "#..##.#...#",
                                                             "#.#.#..#.#.",
                                                             "##..#...#..",
                                                             "#...#..#.#.",
                                                             ".###..#...#",
                                                         }))
        << "the 0x of 1280x720";
}

TEST(TestCard, ATitleThatIsTooLongLosesItsMarginsAndThenItsRate) {
    /// How many columns of the band at the top, right of the stamp, the white dots span, without the blank one before a 1.
    const auto written = [](const FrameGeometry& geometry) {
        const Frame frame = Drawn(geometry, 1);
        const std::size_t band = std::max<std::size_t>(geometry.height / 9 / 2 * 2, TestCardStampCell(geometry) * 4);
        std::size_t first = geometry.width;
        std::size_t last = 0;
        for (std::size_t i = 0; i < band * geometry.width; ++i) {
            if (frame[i] == 235) {
                first = std::min(first, i % geometry.width);
                last = std::max(last, i % geometry.width);
            }
        }
        return last + 1 - std::min(first, last + 1);
    };
    EXPECT_EQ(written({176, 144, 30, 1}), 82U) << "176x144 30 fps";
    EXPECT_EQ(written({176, 144, 30'000, 1001}), 100U) << "176x144 29.97 fps";
    EXPECT_EQ(written({160, 120, 30'000, 1001}), 40U) << "160x120";
    EXPECT_EQ(written({160, 90, 30'000, 1001}), 94U) << "160x90 29.97 fps";
}

TEST(TestCard, TheTimeIsThatOfTheFrameNumber) {
    EXPECT_EQ(TestCardTime(0, kHd), "00:00:00.000");
    EXPECT_EQ(TestCardTime(1, kHd), "00:00:00.033");
    EXPECT_EQ(TestCardTime(123, kHd), "00:00:04.100");
    EXPECT_EQ(TestCardTime(30 * 3661, kHd), "01:01:01.000");
    EXPECT_EQ(TestCardTime(30, {2, 2, 30'000, 1001}), "00:00:01.001");
    EXPECT_EQ(TestCardTime(4'294'967'295U, {2, 2, 1, 4'294'967'295U}), "38:03:45.000");
    EXPECT_EQ(TestCardTime(360'000, {2, 2, 1, 1}), "00:00:00.000") << "a hundred hours";
}

TEST(TestCard, TheTitleNamesSizeAndRate) {
    EXPECT_EQ(TestCardTitle({1920, 1080, 30, 1}), "1920x1080 30 fps");
    EXPECT_EQ(TestCardTitle({1280, 720, 30'000, 1001}), "1280x720 29.97 fps");
    EXPECT_EQ(TestCardTitle({4, 2, 60, 2}), "4x2 30 fps");
    EXPECT_EQ(TestCardTitle({4, 2, 1, 3}), "4x2 0.33 fps");
    EXPECT_EQ(TestCardTitle({4, 2, 24'000, 1001}), "4x2 23.98 fps");
}

TEST(TestCardReader, PictureNumbersBeginWithOneAndNeverEnd) {
    TestCardReader reader(kHd);
    EXPECT_EQ(reader.Geometry(), kHd);
    Frame frame(FrameBytes(kHd));
    for (std::uint32_t number = 1; number <= 3; ++number) {
        ASSERT_TRUE(reader.ReadPicture(frame));
        EXPECT_EQ(frame, Drawn(kHd, number));
    }
    Frame shorter(FrameBytes(kHd) - 1);
    EXPECT_THROW(reader.ReadPicture(shorter), std::invalid_argument);
}

}  // namespace
}  // namespace ravlo::test
