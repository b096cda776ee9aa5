#include "pipe/frame_header.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>

namespace ravlo {
namespace {

FrameHeader Header(std::uint32_t width, std::uint32_t height, std::uint32_t bytes) {
    return {0x4F4C5652, 2, width, height, bytes, 0x3231564E, 0, {}};
}

FrameHeader HeaderOfWireBytes(const std::array<std::uint8_t, 40>& bytes) {
    FrameHeader header{};
    std::memcpy(&header, bytes.data(), bytes.size());
    return header;
}

TEST(FrameHeader, EveryFieldIsReadFromItsPlaceOnTheWire) {
    const FrameHeader header =
        HeaderOfWireBytes({'R',  'V',  'L',  'O',  2,    0,    0,    0,    0x80, 0x07, 0,    0,    0x38, 0x04,
                           0,    0,    0x00, 0x76, 0x2F, 0x00, 'N',  'V',  '1',  '2',  0x88, 0x77, 0x66, 0x55,
                           0x44, 0x33, 0x22, 0x11, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7});
    EXPECT_EQ(header.magic, 0x4F4C5652U);
    EXPECT_EQ(header.version, 2U);
    EXPECT_EQ(header.width, 1920U);
    EXPECT_EQ(header.height, 1080U);
    EXPECT_EQ(header.bytes, 3110400U);
    EXPECT_EQ(header.format, 0x3231564EU);
    EXPECT_EQ(header.seq, 0x1122334455667788U);
    EXPECT_EQ(header.reserved[0], 0xA0);
    EXPECT_EQ(header.reserved[7], 0xA7);
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Ok);
}

TEST(FrameHeader, AMadeHeaderHasTheseBytes) {
    const FrameHeader header = MakeFrameHeader(640, 480, 0x0102030405060708);
    const std::array<std::uint8_t, 40> expected = {
        'R', 'V', 'L', 'O', 2,    0,    0,    0,    0x80, 0x02, 0,    0,    0xE0, 0x01, 0, 0, 0x00, 0x08, 0x07, 0x00,
        'N', 'V', '1', '2', 0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01, 0,    0,    0, 0, 0,    0,    0,    0};
    EXPECT_EQ(std::memcmp(&header, expected.data(), expected.size()), 0);
    EXPECT_TRUE(IsFrameHeaderValid(header));
}

TEST(FrameHeader, FortyZeroBytesHaveNoMagic) {
    const FrameHeader header = HeaderOfWireBytes({});
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Magic);
    EXPECT_FALSE(IsFrameHeaderValid(header));
}

TEST(FrameHeader, AnotherMagicIsRefused) {
    FrameHeader header = Header(1920, 1080, 3110400);
    header.magic = 0x4F4C5653;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Magic);
    header.magic = 0x52564C4F;  // the same letters the other way round
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Magic);
}

TEST(FrameHeader, OnlyVersionTwoIsAccepted) {
    FrameHeader header = Header(1920, 1080, 3110400);
    for (const std::uint32_t version : {0U, 1U, 3U, 0x00020000U, 0xFFFFFFFFU}) {
        header.version = version;
        EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Version) << version;
    }
}

TEST(FrameHeader, AnotherPixelFormatIsRefused) {
    FrameHeader header = Header(1920, 1080, 3110400);
    header.format = 0x32595559;  // YUY2
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::PixelFormat);
    header.format = 0;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::PixelFormat);
}

TEST(FrameHeader, TheFirstFailingCheckDecides) {
    FrameHeader header{0, 0, 0, 0, 7, 0, 0, {}};
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Magic);
    header.magic = 0x4F4C5652;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Version);
    header.version = 2;
    header.format = 0x32595559;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::PixelFormat) << "not GEOMETRY, although width is 0";
    header.format = 0x3231564E;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Geometry);
    header.width = 2;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Geometry);
    header.height = 2;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::ByteCount);
    header.bytes = 6;
    EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Ok);
}

TEST(FrameHeader, ZeroOddAndTooLargeDimensionsAreRefusedWhateverTheByteCount) {
    struct Case {
        std::uint32_t width, height, bytes;
    };
    for (const Case& c :
         {Case{0, 480, 0}, Case{640, 0, 0}, Case{0, 0, 0}, Case{641, 480, 461520}, Case{641, 480, 461521},
          Case{641, 480, 0}, Case{640, 481, 461440}, Case{1, 1, 1}, Case{16386, 2, 49158}, Case{16386, 2, 0},
          Case{2, 16386, 49158}, Case{2, 16386, 0}, Case{16385, 16384, 0}, Case{0xFFFFFFFE, 2, 0},
          Case{2, 0xFFFFFFFE, 0}, Case{0x80000000, 0x80000000, 0}}) {
        EXPECT_EQ(ValidateFrameHeader(Header(c.width, c.height, c.bytes)), HeaderVerdict::Geometry)
            << c.width << "x" << c.height << " bytes " << c.bytes;
    }
}

TEST(FrameHeader, SmallestAndLargestGeometryAreAccepted) {
    EXPECT_EQ(ValidateFrameHeader(Header(2, 2, 6)), HeaderVerdict::Ok);
    EXPECT_EQ(ValidateFrameHeader(Header(16384, 16384, 402653184)), HeaderVerdict::Ok);
    EXPECT_EQ(ValidateFrameHeader(Header(16384, 2, 49152)), HeaderVerdict::Ok);
    EXPECT_EQ(ValidateFrameHeader(Header(2, 16384, 49152)), HeaderVerdict::Ok);
    EXPECT_TRUE(IsFrameHeaderValid(Header(16384, 16384, 402653184)));
}

TEST(FrameHeader, OnlyTheExactByteCountIsAccepted) {
    EXPECT_EQ(ValidateFrameHeader(Header(1920, 1080, 3110400)), HeaderVerdict::Ok);
    for (const std::uint32_t bytes : {0U, 3110399U, 3110401U, 2073600U, 0xFFFFFFFFU}) {
        EXPECT_EQ(ValidateFrameHeader(Header(1920, 1080, bytes)), HeaderVerdict::ByteCount) << bytes;
        EXPECT_FALSE(IsFrameHeaderValid(Header(1920, 1080, bytes))) << bytes;
    }
    EXPECT_EQ(ValidateFrameHeader(Header(16384, 16384, 402653183)), HeaderVerdict::ByteCount);
}

TEST(FrameHeader, SequenceAndReservedBytesAreNotJudged) {
    FrameHeader header = Header(1920, 1080, 3110400);
    for (const std::uint64_t seq : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{0xFFFFFFFFFFFFFFFF}}) {
        header.seq = seq;
        std::memset(header.reserved, static_cast<int>(seq & 0xFF), sizeof(header.reserved));
        EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Ok) << seq;
    }
}

TEST(FrameHeader, WireBytesAreLumaPlusHalfAsMuchChroma) {
    EXPECT_EQ(WireFrameBytes(2, 2), 6U);
    EXPECT_EQ(WireFrameBytes(640, 480), 460800U);
    EXPECT_EQ(WireFrameBytes(1920, 1080), 3110400U);
    EXPECT_EQ(WireFrameBytes(3840, 2160), 12441600U);
    EXPECT_EQ(WireFrameBytes(16384, 16384), 402653184U);
    EXPECT_EQ(WireFrameBytes(0, 1080), 0U);
    EXPECT_EQ(WireFrameBytes(1920, 0), 0U);
}

TEST(FrameHeader, WireBytesHalveAnOddHeightDownwards) {
    EXPECT_EQ(WireFrameBytes(4, 3), 16U);
    EXPECT_EQ(WireFrameBytes(3, 5), 21U);
    EXPECT_EQ(WireFrameBytes(1, 1), 1U);
}

TEST(FrameHeader, WireBytesAreZeroAboveTheLargestDimension) {
    EXPECT_EQ(WireFrameBytes(16385, 2), 0U);
    EXPECT_EQ(WireFrameBytes(2, 16385), 0U);
    EXPECT_EQ(WireFrameBytes(0xFFFFFFFF, 0xFFFFFFFF), 0U);
}

TEST(FrameHeader, EveryVerdictHasItsNumberAndItsWord) {
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(0)), "OK");
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(1)), "MAGIC");
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(2)), "VERSION");
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(3)), "PIXEL_FORMAT");
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(4)), "GEOMETRY");
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(5)), "BYTE_COUNT");
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(6)), "UNKNOWN");
    EXPECT_STREQ(HeaderVerdictWord(static_cast<HeaderVerdict>(0xFFFFFFFF)), "UNKNOWN");
    EXPECT_STREQ(HeaderVerdictWord(HeaderVerdict::Ok), "OK");
    EXPECT_STREQ(HeaderVerdictWord(HeaderVerdict::Magic), "MAGIC");
    EXPECT_STREQ(HeaderVerdictWord(HeaderVerdict::Version), "VERSION");
    EXPECT_STREQ(HeaderVerdictWord(HeaderVerdict::PixelFormat), "PIXEL_FORMAT");
    EXPECT_STREQ(HeaderVerdictWord(HeaderVerdict::Geometry), "GEOMETRY");
    EXPECT_STREQ(HeaderVerdictWord(HeaderVerdict::ByteCount), "BYTE_COUNT");
}

}  // namespace
}  // namespace ravlo
