#include "rvfeeder/y4m_reader.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "rvfeeder/raw_reader.h"
#include "tools/memory_source.h"

namespace ravlo::test {
namespace {

using namespace std::string_literals;

std::string HeaderError(const char* line) {
    return InputErrorOf([line] { ParseY4mHeader(line); });
}

Y4mReader Reader(std::string bytes, std::size_t chunk = 1000) {
    return Y4mReader(std::make_unique<MemorySource>(std::move(bytes), chunk));
}

/// A file: its length is known from the start.
class FileLikeSource final : public ByteSource {
public:
    FileLikeSource(std::string bytes, std::uint64_t total) : m_memory(std::move(bytes)), m_total(total) {}
    std::size_t Read(std::uint8_t* buffer, std::size_t length) override { return m_memory.Read(buffer, length); }
    std::optional<std::uint64_t> TotalBytes() const noexcept override { return m_total; }

private:
    MemorySource m_memory;
    std::uint64_t m_total;
};

using Picture = std::vector<std::uint8_t>;

TEST(Y4mHeader, SizeAndRateAreTakenFromTheLine) {
    const Y4mHeader header = ParseY4mHeader("YUV4MPEG2 W1280 H720 F30000:1001 Ip A1:1 C420jpeg XYSCSS=420JPEG");
    EXPECT_EQ(header.geometry, (FrameGeometry{1280, 720, 30000, 1001}));
    EXPECT_FALSE(header.fullRange);
    EXPECT_EQ(header.pixelAspect, (NumberPair{1, 1}));
}

TEST(Y4mHeader, EveryEightBit420LayoutAndAMissingOneAreAccepted) {
    for (const char* layout : {"", " C420", " C420jpeg", " C420mpeg2", " C420paldv"}) {
        EXPECT_EQ(HeaderError((std::string("YUV4MPEG2 W4 H2 F25:1") + layout).c_str()), "") << layout;
    }
}

TEST(Y4mHeader, OtherColourLayoutsAreRefusedWithAWayOut) {
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25:1 C422"),
              "the camera takes 8-bit 4:2:0 pictures, but this Y4M stream is C422; convert it first, for example with "
              "ffmpeg -pix_fmt yuv420p");
    for (const char* layout : {"C444", "C420p10", "Cmono", "C420x", "C"}) {
        EXPECT_NE(HeaderError((std::string("YUV4MPEG2 W4 H2 F25:1 ") + layout).c_str()), "") << layout;
    }
}

TEST(Y4mHeader, ALayoutThatOnlyTheExtensionNamesCounts) {
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25:1 XYSCSS=420MPEG2"), "");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25:1 XYSCSS=422"),
              "the camera takes 8-bit 4:2:0 pictures, but this Y4M stream is C422; convert it first, for example with "
              "ffmpeg -pix_fmt yuv420p");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25:1 XYSCSS=422 C420jpeg"), "");
}

TEST(Y4mHeader, SizesThatNv12CannotHaveAreRefused) {
    EXPECT_EQ(HeaderError("YUV4MPEG2 W641 H480 F25:1"),
              "the camera takes even sizes from 2x2 to 16384x16384, but this input is 641x480; crop or scale it first, "
              "for example with ffmpeg -vf scale=640:480");
    EXPECT_NE(HeaderError("YUV4MPEG2 W640 H481 F25:1"), "");
    EXPECT_NE(HeaderError("YUV4MPEG2 W16386 H480 F25:1"), "");
    EXPECT_EQ(HeaderError("YUV4MPEG2 H480 F25:1"), "the Y4M header names no width");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W640 H0 F25:1"), "the Y4M header names no height");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W12x H480 F25:1"), "the Y4M header has a width that is no number: \"12x\"");
    EXPECT_NE(HeaderError("YUV4MPEG2 W H480 F25:1"), "");
    EXPECT_NE(HeaderError("YUV4MPEG2 W99999999999 H480 F25:1"), "");
}

TEST(Y4mHeader, ARateIsNeeded) {
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2"), "the Y4M header names no frame rate");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F0:0"), "the Y4M header has no usable frame rate: \"F0:0\"");
    EXPECT_NE(HeaderError("YUV4MPEG2 W4 H2 F25"), "");
    EXPECT_NE(HeaderError("YUV4MPEG2 W4 H2 F25:0"), "");
    EXPECT_NE(HeaderError("YUV4MPEG2 W4 H2 F-25:1"), "");
}

TEST(Y4mHeader, WhatIsBeyondTheCameraIsRefusedBeforeAnyMemoryIsTaken) {
    EXPECT_EQ(HeaderError("YUV4MPEG2 W16384 H16384 F25:1"),
              "the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 16384x16384");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F20000000:1"),
              "the camera takes up to 1000 frames a second, but this input has 20000000/1");
}

TEST(Y4mHeader, BytesThatATerminalWouldObeyAreNotRepeated) {
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4\x1b[2J H2 F25:1"), "the Y4M header has a width that is no number: \"4?[2J\"");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25\r"), "the Y4M header has no usable frame rate: \"F25?\"");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25:1 I\xC2\x9B"),
              "the camera takes progressive pictures, but this Y4M stream is interlaced (I\?\?); deinterlace it first");
    EXPECT_EQ(HeaderError(("YUV4MPEG2 W4 H2 F25:1 C\x7F" + std::string(4000, 'x')).c_str()),
              "the camera takes 8-bit 4:2:0 pictures, but this Y4M stream is C?" + std::string(59, 'x') +
                  "...; convert it first, for example with ffmpeg -pix_fmt yuv420p");
}

TEST(Y4mHeader, InterlacedPicturesAreRefused) {
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25:1 It"),
              "the camera takes progressive pictures, but this Y4M stream is interlaced (It); deinterlace it first");
    EXPECT_EQ(HeaderError("YUV4MPEG2 W4 H2 F25:1 I?"), "");
}

TEST(Y4mHeader, FullRangeIsNoticed) {
    EXPECT_TRUE(ParseY4mHeader("YUV4MPEG2 W4 H2 F25:1 XCOLORRANGE=FULL").fullRange);
    EXPECT_FALSE(ParseY4mHeader("YUV4MPEG2 W4 H2 F25:1 XCOLORRANGE=LIMITED").fullRange);
}

TEST(Y4mHeader, ThePixelAspectIsTakenAndAnUnknownOneCountsAsSquare) {
    EXPECT_EQ(ParseY4mHeader("YUV4MPEG2 W4 H2 F25:1 A64:45").pixelAspect, (NumberPair{64, 45}));
    for (const char* aspect : {"A0:0", "A", "A1", "A:", "Ax:y", "A1:0"}) {
        const std::string line = std::string("YUV4MPEG2 W4 H2 F25:1 ") + aspect;
        EXPECT_EQ(ParseY4mHeader(line).pixelAspect, (NumberPair{1, 1})) << aspect;
    }
}

TEST(Y4mHeader, SomethingElseIsNoY4m) {
    const char* const sentence =
        "the input is no Y4M stream: it does not begin with YUV4MPEG2 (for raw NV12 give --size and --rate)";
    EXPECT_EQ(HeaderError("RIFF"), sentence);
    EXPECT_EQ(HeaderError(""), sentence);
    EXPECT_EQ(HeaderError("YUV4MPEG22 W4 H2 F25:1"), sentence);
}

TEST(Y4mReader, PlanarPicturesBecomeNv12AndTheStreamEnds) {
    Y4mReader reader = Reader("YUV4MPEG2 W4 H2 F25:1\nFRAME\nabcdefghUVXYFRAME Ip\nABCDEFGHuvxy", 3);
    EXPECT_EQ(reader.Geometry(), (FrameGeometry{4, 2, 25, 1}));
    Picture picture(12);
    ASSERT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(std::string(picture.begin(), picture.end()), "abcdefghUXVY");
    ASSERT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(std::string(picture.begin(), picture.end()), "ABCDEFGHuxvy");
    EXPECT_FALSE(reader.ReadPicture(picture));
}

TEST(Y4mReader, FullRangePicturesBecomeLimited) {
    Y4mReader reader = Reader("YUV4MPEG2 W4 H2 F25:1 XCOLORRANGE=FULL\nFRAME\n" + std::string("\0\x40\x80\xff", 4) +
                              std::string("\1\x7f\xc0\xfe", 4) + std::string("\0\x80\x7f\xff", 4));
    Picture picture(12);
    ASSERT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(picture, (Picture{16, 71, 126, 235, 17, 125, 181, 234, 16, 127, 128, 240}));
}

TEST(Y4mReader, AStreamWithoutPicturesSaysSo) {
    Y4mReader reader = Reader("YUV4MPEG2 W4 H2 F25:1\n");
    Picture picture(12);
    EXPECT_EQ(InputErrorOf([&] { reader.ReadPicture(picture); }),
              "the Y4M stream holds no picture: nothing follows its header");
}

TEST(Y4mReader, AFileWithoutOneWholePictureIsRefusedBeforeAnythingIsShown) {
    const std::string whole = "YUV4MPEG2 W4 H2 F25:1\nFRAME\nabcdefghUVXY";
    const auto errorOf = [&whole](std::size_t length) {
        const std::string bytes = whole.substr(0, length);
        return InputErrorOf([&bytes] { Y4mReader reader(std::make_unique<FileLikeSource>(bytes, bytes.size())); });
    };
    EXPECT_EQ(errorOf(22), "the Y4M stream holds no picture: nothing follows its header");
    EXPECT_EQ(errorOf(23), "the Y4M stream ends inside picture 1");
    EXPECT_EQ(errorOf(39), "the Y4M stream ends inside picture 1");
    EXPECT_EQ(errorOf(40), "");
}

TEST(Y4mReader, AStreamThatEndsInsideAPictureSaysWhich) {
    Picture picture(12);
    for (const char* tail : {"F", "FRAM", "FRAME", "FRAME ", "FRAME Ip", "FRAME\n", "FRAME\nabcdefg", "FRAME\nabcdefgh",
                             "FRAME\nabcdefghUVX"}) {
        Y4mReader reader = Reader(std::string("YUV4MPEG2 W4 H2 F25:1\nFRAME\nabcdefghUVXY") + tail);
        ASSERT_TRUE(reader.ReadPicture(picture));
        EXPECT_EQ(InputErrorOf([&] { reader.ReadPicture(picture); }), "the Y4M stream ends inside picture 2") << tail;
    }
}

TEST(Y4mReader, AMissingMarkerIsDamageAndNotAPicture) {
    Picture picture(12);
    const std::string endless = "FRAME " + std::string(5000, ' ');
    for (const std::string& marker : {"x"s, "FRAm"s, "FRAM\n"s, "FRAMF\n"s, "FRAMEx\n"s, "xxxxxxxx"s, endless}) {
        Y4mReader reader = Reader("YUV4MPEG2 W4 H2 F25:1\n" + marker);
        EXPECT_EQ(InputErrorOf([&] { reader.ReadPicture(picture); }),
                  "the Y4M stream is damaged: no FRAME marker where picture 1 should begin")
            << marker;
    }
}

TEST(Y4mReader, AHeaderThatBreaksOffIsRefusedEvenWhereItsRestCouldBeRead) {
    const std::string header = "YUV4MPEG2 W4 H2 F30000:1001";
    for (std::size_t size = std::string("YUV4MPEG2").size(); size <= header.size(); ++size) {
        EXPECT_EQ(InputErrorOf([&] { Reader(header.substr(0, size)); }),
                  "the Y4M header has no end: the input breaks off, or it is damaged")
            << size;
    }
    EXPECT_EQ(InputErrorOf([&] { Reader(header + std::string(5000, ' ') + "\n"); }),
              "the Y4M header has no end: the input breaks off, or it is damaged");
}

TEST(Y4mReader, AnInputWithoutALineFeedIsNotReadForEver) {
    EXPECT_NE(InputErrorOf([] { Reader(std::string(100'000, 'x')); }), "");
    EXPECT_NE(InputErrorOf([] { Reader("YUV4MPEG2 W4 H2 F25:1" + std::string(100'000, ' ')); }), "the input is empty");
    EXPECT_EQ(InputErrorOf([] { Reader(""); }), "the input is empty");
}

TEST(Y4mReader, ABufferOfAnotherSizeIsRefusedAndNothingIsRead) {
    Y4mReader reader = Reader("YUV4MPEG2 W4 H2 F25:1\nFRAME\nabcdefghUVXY");
    Picture shorter(11);
    Picture longer(13);
    EXPECT_THROW(reader.ReadPicture(shorter), std::invalid_argument);
    EXPECT_THROW(reader.ReadPicture(longer), std::invalid_argument);
    Picture picture(12);
    ASSERT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(std::string(picture.begin(), picture.end()), "abcdefghUXVY");
}

TEST(RawReader, ABufferOfAnotherSizeIsRefused) {
    RawReader reader(std::make_unique<MemorySource>("abcdefABCDEF"), {2, 2, 30, 1});
    Picture longer(12);
    EXPECT_THROW(reader.ReadPicture(longer), std::invalid_argument);
}

TEST(RawReader, PicturesFollowEachOtherWithoutMarkers) {
    RawReader reader(std::make_unique<MemorySource>("abcdefABCDEF", 4), {2, 2, 30, 1});
    Picture picture(6);
    ASSERT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(std::string(picture.begin(), picture.end()), "abcdef");
    ASSERT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(std::string(picture.begin(), picture.end()), "ABCDEF");
    EXPECT_FALSE(reader.ReadPicture(picture));
}

TEST(RawReader, APartialPictureAtTheEndIsNotShownAndItsBytesAreCounted) {
    RawReader reader(std::make_unique<MemorySource>("abcdefABCD"), {2, 2, 30, 1});
    Picture picture(6);
    ASSERT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(InputErrorOf([&] { reader.ReadPicture(picture); }),
              "the input ends inside picture 2: 4 bytes are left over, a 2x2 picture has 6; is --size right?");
}

TEST(RawReader, AnEmptyInputSaysSo) {
    RawReader reader(std::make_unique<MemorySource>(""), {2, 2, 30, 1});
    Picture picture(6);
    EXPECT_EQ(InputErrorOf([&] { reader.ReadPicture(picture); }), "the input is empty");
}

TEST(RawReader, AFileWithoutOneWholePictureIsRefusedBeforeAnythingIsRead) {
    const auto errorOf = [](std::uint64_t bytes) {
        return InputErrorOf([bytes] {
            RawReader reader(std::make_unique<FileLikeSource>("", bytes), FrameGeometry{1280, 720, 30, 1});
        });
    };
    EXPECT_EQ(errorOf(0), "the input is empty");
    EXPECT_EQ(errorOf(5),
              "the input has 5 bytes, less than one picture: a 1280x720 picture has 1382400; is --size right?");
    EXPECT_NE(errorOf(1'382'399), "");
    EXPECT_EQ(errorOf(1'382'400), "");
}

}  // namespace
}  // namespace ravlo::test
