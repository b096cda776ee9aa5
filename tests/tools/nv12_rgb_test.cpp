#include "rvhost/nv12_rgb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <random>
#include <stdexcept>
#include <vector>

namespace ravlo::test {
namespace {

using Pixel = std::array<int, 3>;

FrameGeometry Geometry(std::uint32_t width, std::uint32_t height) {
    return {width, height, 30, 1};
}

/// The definition of limited-range BT.709, before rounding: red, green, blue.
std::array<double, 3> Exact(int luma, int cb, int cr) {
    const double kr = 0.2126;
    const double kb = 0.0722;
    const double y = (luma - 16) / 219.0;
    const double pb = (cb - 128) / 224.0;
    const double pr = (cr - 128) / 224.0;
    const double red = y + 2 * (1 - kr) * pr;
    const double blue = y + 2 * (1 - kb) * pb;
    const double green = (y - kr * red - kb * blue) / (1 - kr - kb);
    return {std::clamp(red * 255, 0.0, 255.0), std::clamp(green * 255, 0.0, 255.0), std::clamp(blue * 255, 0.0, 255.0)};
}

/// A frame whose every 2x2 block has one chroma pair and four neighbouring lumas.
struct Sweep {
    FrameGeometry geometry;
    std::vector<std::uint8_t> nv12;

    int Luma(std::size_t x, std::size_t y) const { return nv12[y * geometry.width + x]; }
    int Cb(std::size_t x, std::size_t y) const { return Chroma(x, y)[0]; }
    int Cr(std::size_t x, std::size_t y) const { return Chroma(x, y)[1]; }

private:
    const std::uint8_t* Chroma(std::size_t x, std::size_t y) const {
        return nv12.data() + LumaBytes(geometry) + y / 2 * geometry.width + x / 2 * 2;
    }
};

Sweep Random(std::uint32_t width, std::uint32_t height, unsigned seed) {
    Sweep sweep{Geometry(width, height), {}};
    std::mt19937 generator(seed);
    sweep.nv12.resize(FrameBytes(sweep.geometry));
    std::generate(sweep.nv12.begin(), sweep.nv12.end(), [&] { return static_cast<std::uint8_t>(generator() >> 24); });
    return sweep;
}

/// All 256 lumas against every seventeenth chroma value either way, which includes 0, 255 and the middle's neighbours.
Sweep Grid() {
    constexpr std::uint32_t steps = 16;
    Sweep sweep{Geometry(2 * 64, 2 * steps * steps), {}};
    sweep.nv12.resize(FrameBytes(sweep.geometry));
    std::uint8_t* chroma = sweep.nv12.data() + LumaBytes(sweep.geometry);
    for (std::size_t y = 0; y < sweep.geometry.height; ++y) {
        for (std::size_t x = 0; x < sweep.geometry.width; ++x) {
            sweep.nv12[y * sweep.geometry.width + x] = static_cast<std::uint8_t>(x / 2 * 4 + x % 2 * 2 + y % 2);
        }
    }
    for (std::size_t block = 0; block < std::size_t{steps} * steps; ++block) {
        for (std::size_t x = 0; x < 64; ++x) {
            *chroma++ = static_cast<std::uint8_t>(block / steps * 17);
            *chroma++ = static_cast<std::uint8_t>(block % steps * 17);
        }
    }
    return sweep;
}

/// The largest distance of any component from the exact value.
double WorstDistance(const Sweep& sweep) {
    const std::size_t width = sweep.geometry.width;
    std::vector<std::uint8_t> rgb(width * sweep.geometry.height * 3);
    ConvertNv12ToRgb(sweep.nv12, sweep.geometry, rgb);
    double worst = 0;
    for (std::size_t y = 0; y < sweep.geometry.height; ++y) {
        for (std::size_t x = 0; x < width; ++x) {
            const auto exact = Exact(sweep.Luma(x, y), sweep.Cb(x, y), sweep.Cr(x, y));
            for (std::size_t i = 0; i < 3; ++i) {
                worst = std::max(worst, std::abs(rgb[(y * width + x) * 3 + i] - exact[i]));
            }
        }
    }
    return worst;
}

Pixel ConvertOne(std::uint8_t luma, std::uint8_t cb, std::uint8_t cr) {
    const std::vector<std::uint8_t> nv12{luma, luma, luma, luma, cb, cr};
    std::vector<std::uint8_t> rgb(12);
    ConvertNv12ToRgb(nv12, Geometry(2, 2), rgb);
    return {rgb[0], rgb[1], rgb[2]};
}

TEST(Nv12Rgb, StudioLevelsOfTheBarsBecomeTheirColours) {
    EXPECT_EQ(ConvertOne(16, 128, 128), (Pixel{0, 0, 0}));
    EXPECT_EQ(ConvertOne(235, 128, 128), (Pixel{255, 255, 255}));
    EXPECT_EQ(ConvertOne(126, 128, 128), (Pixel{128, 128, 128}));
    EXPECT_EQ(ConvertOne(63, 102, 240), (Pixel{255, 1, 0}));
    EXPECT_EQ(ConvertOne(173, 42, 26), (Pixel{0, 255, 1}));
    EXPECT_EQ(ConvertOne(32, 240, 118), (Pixel{1, 0, 255}));
}

TEST(Nv12Rgb, LevelsBeyondTheStudioRangeAreHeldAtTheEnds) {
    EXPECT_EQ(ConvertOne(0, 128, 128), (Pixel{0, 0, 0}));
    EXPECT_EQ(ConvertOne(255, 128, 128), (Pixel{255, 255, 255}));
    EXPECT_EQ(ConvertOne(255, 255, 255), (Pixel{255, 184, 255}));
    EXPECT_EQ(ConvertOne(0, 0, 0), (Pixel{0, 77, 0}));
}

TEST(Nv12Rgb, EveryLumaOnAGridOfChromaStaysWithinOneStep) {
    EXPECT_LT(WorstDistance(Grid()), 0.51);
}

TEST(Nv12Rgb, RandomColoursStayWithinOneStep) {
    EXPECT_LT(WorstDistance(Random(640, 360, 20261120)), 0.51);
}

TEST(Nv12Rgb, FourPixelsShareTheirChromaUnchanged) {
    const std::vector<std::uint8_t> nv12{16, 235, 126, 16, 235, 16, 16, 126, 102, 240, 128, 128};
    std::vector<std::uint8_t> rgb(24);
    ConvertNv12ToRgb(nv12, Geometry(4, 2), rgb);
    // The left block is red at four lumas, the right one grey; nothing bleeds over the border.
    const std::vector<std::uint8_t> expected{201, 0,   0,   255, 201, 200, 128, 128, 128, 0,   0,   0,
                                             255, 201, 200, 201, 0,   0,   0,   0,   0,   128, 128, 128};
    EXPECT_EQ(rgb, expected);
}

TEST(Nv12Rgb, BitmapPixelsAreTheSameColoursReversedWithAZeroByte) {
    const Sweep sweep = Random(66, 34, 7);
    const std::size_t pixels = 66 * 34;
    std::vector<std::uint8_t> rgb(pixels * 3);
    std::vector<std::uint8_t> bgrx(pixels * 4, 0xEE);
    ConvertNv12ToRgb(sweep.nv12, sweep.geometry, rgb);
    ConvertNv12ToBgrx(sweep.nv12, sweep.geometry, bgrx);
    std::size_t differences = 0;
    for (std::size_t i = 0; i < pixels; ++i) {
        differences += bgrx[4 * i] != rgb[3 * i + 2] || bgrx[4 * i + 1] != rgb[3 * i + 1] ||
                       bgrx[4 * i + 2] != rgb[3 * i] || bgrx[4 * i + 3] != 0;
    }
    EXPECT_EQ(differences, 0U);
}

TEST(Nv12Rgb, BuffersOfAnotherSizeAreRefused) {
    std::vector<std::uint8_t> nv12(FrameBytes(Geometry(4, 2)));
    std::vector<std::uint8_t> rgb(4 * 2 * 3);
    EXPECT_THROW(ConvertNv12ToRgb(nv12, Geometry(4, 4), rgb), std::invalid_argument);
    EXPECT_THROW(ConvertNv12ToRgb(nv12, Geometry(3, 2), rgb), std::invalid_argument);
    EXPECT_THROW(ConvertNv12ToBgrx(nv12, Geometry(4, 2), rgb), std::invalid_argument);
}

}  // namespace
}  // namespace ravlo::test
