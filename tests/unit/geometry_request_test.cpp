#include "source/geometry_request.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "unit/wide_text.h"

namespace ravlo {
namespace {

constexpr FrameGeometry kUntouched{11, 22, 33, 44};

/// Parses a copy that ends with its terminator, so that a checked build notices a step too far.
bool Parse(const std::string& ascii, FrameGeometry& geometry) {
    const WideText text = Wide(ascii);
    const auto copy = std::make_unique<WideChar[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    return ParseGeometryRequest(copy.get(), geometry);
}

/// The geometry that an activation gets for a request: the requested one, or the default.
FrameGeometry Selected(const std::string& ascii) {
    FrameGeometry geometry{};
    return Parse(ascii, geometry) && IsAcceptableGeometry(geometry) ? geometry : FrameGeometry{1920, 1080, 60, 1};
}

void ExpectRefused(const std::string& ascii) {
    FrameGeometry geometry = kUntouched;
    EXPECT_FALSE(Parse(ascii, geometry)) << ascii;
    EXPECT_EQ(geometry, kUntouched) << ascii;
}

void ExpectParsed(const std::string& ascii, const FrameGeometry& expected) {
    FrameGeometry geometry = kUntouched;
    EXPECT_TRUE(Parse(ascii, geometry)) << ascii;
    EXPECT_EQ(geometry, expected) << ascii;
}

TEST(GeometryRequest, NamesSizeAndRate) {
    ExpectParsed("1280x720@30/1", {1280, 720, 30, 1});
    ExpectParsed("1920x1080@30000/1001", {1920, 1080, 30000, 1001});
    ExpectParsed("2x2@1/1", {2, 2, 1, 1});
}

TEST(GeometryRequest, OtherSeparatorsAreRefused) {
    for (const char* text : {"1280X720@30/1", "1280*720@30/1", "1280x720-30/1", "1280x720@30:1", "1280x720/30@1",
                             "1280@720x30/1", "1280,720,30,1", "1280xx720@30/1", "1280x720@@30/1", "1280x720@30//1"}) {
        ExpectRefused(text);
    }
}

TEST(GeometryRequest, MissingPartsAreRefused) {
    for (const char* text : {"", "1280", "1280x", "1280x720", "1280x720@", "1280x720@30", "1280x720@30/", "x720@30/1",
                             "1280x@30/1", "1280x720@/1", "x@/", "@30/1", "/"}) {
        ExpectRefused(text);
    }
    FrameGeometry geometry = kUntouched;
    EXPECT_FALSE(ParseGeometryRequest(nullptr, geometry));
    EXPECT_EQ(geometry, kUntouched);
}

TEST(GeometryRequest, WhiteSpaceSignsAndTrailingCharactersAreRefused) {
    for (const char* text : {"1280x720@30/1 ", " 1280x720@30/1", "1280 x720@30/1", "1280x 720@30/1", "1280x720@30/1x",
                             "1280x720@30/1/1", "1280x720@30/1\n", "1280x720@30/1.0", "+1280x720@30/1",
                             "1280x-720@30/1", "1280x720@+30/1", "1280x720@30/-1", "0x500x720@30/1"}) {
        ExpectRefused(text);
    }
}

TEST(GeometryRequest, LeadingZerosAreRefusedInEveryNumber) {
    for (const char* text : {"01280x720@30/1", "1280x0720@30/1", "1280x720@030/1", "1280x720@30/01", "00x720@30/1",
                             "1280x720@30/00", "1280x720@30/000001"}) {
        ExpectRefused(text);
    }
}

TEST(GeometryRequest, ALoneZeroIsRefusedInEveryNumber) {
    for (const char* text : {"0x720@30/1", "1280x0@30/1", "1280x720@0/1", "1280x720@30/0", "0x0@0/0"}) {
        ExpectRefused(text);
    }
}

TEST(GeometryRequest, SixDigitsAreReadAndASeventhIsRefused) {
    ExpectParsed("1280x720@999999/999999", {1280, 720, 999999, 999999});
    ExpectParsed("1280x720@100000/100", {1280, 720, 100000, 100});
    ExpectParsed("1280x720@1/999999", {1280, 720, 1, 999999});
    for (const char* text : {"1280x720@1000000/999999", "1280x720@30/1000000", "1280000x720@30/1", "1280x7200000@30/1",
                             "0000002x720@30/1", "1280x720@30/0000001", "4294967298x2@30/1", "2x4294967298@30/1",
                             "1280x720@4294967326/1", "1280x720@30/4294967297", "18446744073709551618x2@30/1"}) {
        ExpectRefused(text);
    }
}

TEST(GeometryRequest, OddAndTooLargeSizesAreRefused) {
    for (const char* text : {"1281x720@30/1", "1280x721@30/1", "1x1@30/1", "16386x2@30/1", "2x16386@30/1",
                             "16385x2@30/1", "999998x2@30/1", "2x999998@30/1"}) {
        ExpectRefused(text);
    }
    ExpectParsed("16384x16@30/1", {16384, 16, 30, 1});
    ExpectParsed("16x16384@30/1", {16, 16384, 30, 1});
}

TEST(GeometryRequest, AtMost1000FramesASecondAreAccepted) {
    ExpectParsed("1280x720@1000/1", {1280, 720, 1000, 1});
    ExpectParsed("1280x720@30000/30", {1280, 720, 30000, 30});
    ExpectParsed("1280x720@999999/1000", {1280, 720, 999999, 1000});
    for (const char* text : {"1280x720@1001/1", "1280x720@30001/30", "1280x720@999999/999", "1280x720@2001/2"}) {
        ExpectRefused(text);
    }
}

TEST(GeometryRequest, UnitsThatOnlyLookLikeAsciiInTheirLowByteAreRefused) {
    for (const std::size_t position : {0U, 4U, 5U, 8U, 11U}) {
        WideText text = Wide("1280x720@30/1");
        text[position] = static_cast<WideChar>(text[position] + 0x100);
        FrameGeometry geometry = kUntouched;
        EXPECT_FALSE(ParseGeometryRequest(text.c_str(), geometry)) << position;
        EXPECT_EQ(geometry, kUntouched) << position;
    }
}

TEST(GeometryRequest, ATextThatFillsTheBufferIsRefused) {
    ExpectRefused("1280x720@30/1" + std::string(18, ' '));
    ExpectRefused("1280x720@30/1" + std::string(18, '0'));
    ExpectRefused(std::string(31, '1'));
}

TEST(GeometryRequest, AFrameMayNeedAsManyBytesAsTheLargestGeometryAndNoMore) {
    EXPECT_TRUE(IsAcceptableGeometry({3840, 2160, 60, 1}));
    EXPECT_TRUE(IsAcceptableGeometry({2160, 3840, 60, 1}));
    EXPECT_TRUE(IsAcceptableGeometry({7680, 1080, 30, 1})) << "bytes count, not sides";
    EXPECT_TRUE(IsAcceptableGeometry({16384, 506, 30, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({16384, 508, 30, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({4096, 2160, 30, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({3840, 2162, 60, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({3842, 2160, 60, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({16384, 16384, 60, 1}));
}

TEST(GeometryRequest, AGeometryThatIsNotValidIsNotAcceptable) {
    EXPECT_FALSE(IsAcceptableGeometry({0, 2, 60, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({2, 0, 60, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({3, 2, 60, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({2, 3, 60, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({16386, 2, 60, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({2, 2, 0, 1}));
    EXPECT_FALSE(IsAcceptableGeometry({2, 2, 60, 0}));
}

TEST(GeometryRequest, WhatIsNotAcceptedGivesTheDefault) {
    constexpr FrameGeometry kFullHd60{1920, 1080, 60, 1};
    for (const char* text :
         {"1280X720@30/1", "1280x720@30", "1280x720@30/1 ", "01280x720@30/1", "1281x720@30/1", "1280x720@0/1",
          "1280x720@30001/30", "1280x720@1001/1", "16386x2@30/1", "4096x2160@30/1"}) {
        EXPECT_EQ(Selected(text), kFullHd60) << text;
    }
    EXPECT_EQ(kDefaultGeometry, kFullHd60);
}

TEST(GeometryRequest, WhatIsAcceptedIsServedAsRequested) {
    EXPECT_EQ(Selected("1280x720@30/1"), (FrameGeometry{1280, 720, 30, 1}));
    EXPECT_EQ(Selected("1280x720@1000/1"), (FrameGeometry{1280, 720, 1000, 1}));
    EXPECT_EQ(Selected("16384x16@30/1"), (FrameGeometry{16384, 16, 30, 1}));
    EXPECT_EQ(Selected("7680x1080@30/1"), (FrameGeometry{7680, 1080, 30, 1}));
    EXPECT_EQ(Selected("3840x2160@60/1"), (FrameGeometry{3840, 2160, 60, 1}));
}

}  // namespace
}  // namespace ravlo
