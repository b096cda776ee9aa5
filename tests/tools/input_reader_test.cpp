#include "rvfeeder/input_reader.h"

#include <gtest/gtest.h>

#include <random>

#include "rvfeeder/byte_source_peek.h"
#include "rvfeeder/input_kind.h"
#include "rvfeeder/jpeg_check.h"
#include "tools/exif_notes.h"
#include "tools/memory_source.h"
#include "tools/red_png.h"

namespace ravlo::test {
namespace {

using namespace std::string_literals;

const std::string kFilm = "YUV4MPEG2 W4 H2 F25:1\nFRAME\nabcdefghUVXY";

struct Opened {
    std::unique_ptr<PictureReader> reader;
    std::string error;
    std::vector<std::string> notes;
};

Opened Open(const std::string& bytes, const InputOptions& options = {}, std::size_t chunk = 3) {
    Opened opened;
    opened.error = InputErrorOf([&] {
        opened.reader = MakeInputReader(std::make_unique<MemorySource>(bytes, chunk), options,
                                        [&opened](const std::string& note) { opened.notes.push_back(note); });
    });
    return opened;
}

std::string FirstPicture(PictureReader& reader) {
    std::string picture(FrameBytes(reader.Geometry()), '\0');
    const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(picture.data()), picture.size());
    return reader.ReadPicture(bytes) ? picture : "END";
}

unsigned OrientationOf(const std::string& jpeg) {
    return JpegOrientation({reinterpret_cast<const std::uint8_t*>(jpeg.data()), jpeg.size()});
}

InputOptions Raw(const FrameGeometry& geometry) {
    InputOptions options;
    options.rawGeometry = geometry;
    return options;
}

TEST(InputReader, Y4mIsRecognisedByItsFirstBytesAndReadFromThem) {
    const Opened opened = Open(kFilm);
    ASSERT_EQ(opened.error, "");
    EXPECT_EQ(opened.reader->Geometry(), (FrameGeometry{4, 2, 25, 1}));
    EXPECT_EQ(FirstPicture(*opened.reader), "abcdefghUXVY");
    EXPECT_TRUE(opened.notes.empty());
}

TEST(InputReader, AStillPictureIsRecognisedAndRunsAtThirtyUnlessToldOtherwise) {
    const Opened opened = Open(kRedPng);
    ASSERT_EQ(opened.error, "");
    EXPECT_EQ(opened.reader->Geometry(), (FrameGeometry{2, 2, 30, 1}));
    EXPECT_EQ(FirstPicture(*opened.reader), kRedNv12);
    InputOptions options;
    options.rate = NumberPair{5, 2};
    EXPECT_EQ(Open(kRedPng, options).reader->Geometry(), (FrameGeometry{2, 2, 5, 2}));
}

TEST(InputReader, RawBytesAreTakenAsTheyCome) {
    const Opened opened = Open("abcdefABCDEF", Raw({2, 2, 30, 1}));
    ASSERT_EQ(opened.error, "");
    EXPECT_EQ(FirstPicture(*opened.reader), "abcdef");
    EXPECT_EQ(FirstPicture(*opened.reader), "ABCDEF");
    EXPECT_EQ(FirstPicture(*opened.reader), "END");
    EXPECT_EQ(FirstPicture(*Open("\xff\xd8\xff"s + "abc", Raw({2, 2, 30, 1})).reader), "\xff\xd8\xff"s + "abc")
        << "three bytes that pixels may well have";
}

TEST(InputReader, AFormatThatNamesItselfIsNotShownAsNoise) {
    EXPECT_EQ(Open(kFilm, Raw({4, 2, 30, 1})).error,
              "the input is no raw NV12 but Y4M, which says its own size and rate; leave out --size and --rate");
    EXPECT_EQ(Open(kRedPng, Raw({4, 2, 30, 1})).error,
              "the input is no raw NV12 but a PNG picture, which says its own size; leave out --size");
    InputOptions options;
    options.rate = NumberPair{5, 1};
    EXPECT_EQ(Open(kFilm, options).error, "a Y4M input says its own rate; leave out --rate");
}

TEST(InputReader, WhatCannotBeShownIsNamedWithAWayOut) {
    const std::string decode =
        "; decode it first, for example with ffmpeg -i FILE -pix_fmt yuv420p -f yuv4mpegpipe - | rvfeeder -";
    EXPECT_EQ(Open("").error, "the input is empty");
    EXPECT_EQ(Open("RIFF").error,
              "the input is neither Y4M nor PNG nor JPEG, it begins with 52 49 46 46; for raw NV12 give --size and "
              "--rate");
    EXPECT_EQ(Open("YUV4MPEG22 W4 H2").error,
              "the input is neither Y4M nor PNG nor JPEG, it begins with 59 55 56 34 4d 50 45 47; for raw NV12 give "
              "--size and --rate");
    EXPECT_EQ(Open("\0\0\0\x20"s + "ftypisom").error, "the input is an MP4 or QuickTime film" + decode);
    EXPECT_EQ(Open("\x1a\x45\xdf\xa3 and more").error, "the input is a Matroska or WebM film" + decode);
    EXPECT_EQ(Open("RIFF1234AVI LIST").error, "the input is an AVI film" + decode);
    EXPECT_EQ(Open("RIFF1234WEBPVP8 ").error, "the input is a WebP picture; save it as PNG or JPEG first");
    EXPECT_EQ(Open("GIF89a").error, "the input is a GIF picture; save it as PNG or JPEG first");
    EXPECT_EQ(Open("BM6").error, "the input is a BMP picture; save it as PNG or JPEG first");
    EXPECT_EQ(Open("II*\0abc"s).error, "the input is a TIFF picture; save it as PNG or JPEG first");
}

TEST(InputReader, AnotherSizeThanExpectedIsRefusedWhateverTheInputIs) {
    InputOptions options;
    options.expect = NumberPair{1280, 720};
    EXPECT_EQ(
        Open(kFilm, options).error,
        "the input is 4x2, but --expect says 1280x720; scale it first, for example with ffmpeg -vf scale=1280:720");
    EXPECT_EQ(
        Open(kRedPng, options).error,
        "the input is 2x2, but --expect says 1280x720; scale it first, for example with ffmpeg -vf scale=1280:720");
    options.expect = NumberPair{4, 2};
    EXPECT_EQ(Open(kFilm, options).error, "");
}

TEST(InputReader, WhatTheCameraShowsOtherwiseIsNoted) {
    EXPECT_EQ(
        Open("YUV4MPEG2 W4 H2 F25:1 A1:1 XCOLORRANGE=FULL\n").notes,
        (std::vector<std::string>{
            "the input is full range; its pictures are converted to the limited range that the camera announces"}));
    EXPECT_EQ(
        Open("YUV4MPEG2 W4 H2 F25:1 A64:45\n").notes,
        (std::vector<std::string>{
            "the pixels of the input are 64:45, the camera shows them square; its picture will look too narrow"}));
    EXPECT_EQ(Open("YUV4MPEG2 W4 H2 F25:1 A8:9\n").notes,
              (std::vector<std::string>{
                  "the pixels of the input are 8:9, the camera shows them square; its picture will look too wide"}));
    EXPECT_TRUE(Open("YUV4MPEG2 W4 H2 F25:1 A0:0\n").notes.empty());
}

TEST(JpegOrientation, IsReadInBothByteOrdersAndBehindOtherSegments) {
    const std::string begin = "\xff\xd8"s;
    const std::string other = "\xff\xe0\x00\x04zz"s;
    EXPECT_EQ(OrientationOf(begin + kTurnedNotes), 6U);
    EXPECT_EQ(OrientationOf(begin + other + kTurnedNotes), 6U);
    EXPECT_EQ(OrientationOf(begin + kTurnedNotesOfMotorola), 8U);
}

TEST(JpegOrientation, IsUprightWhereNothingCanBeUnderstood) {
    const std::string begin = "\xff\xd8"s;
    EXPECT_EQ(OrientationOf(""), 1U);
    EXPECT_EQ(OrientationOf(begin), 1U);
    EXPECT_EQ(OrientationOf(begin + "\xff\xda\x00\x02" + kTurnedNotes), 1U) << "behind the picture";
    for (std::size_t length = 0; length + 4 < kTurnedNotes.size(); ++length) {
        EXPECT_EQ(OrientationOf(begin + kTurnedNotes.substr(0, length)), 1U) << length;
    }
    for (const std::size_t place : {4U, 10U, 12U, 14U, 32U, 40U, 41U}) {
        std::string notes = kTurnedNotes;
        notes[place] = '\xff';
        EXPECT_EQ(OrientationOf(begin + notes), 1U) << place;
    }
}

TEST(InputReader, EveryBeginningOfAnInputIsRefusedOrReadAndNeverShownHalf) {
    for (const std::string& whole : {kFilm, kRedPng}) {
        for (std::size_t length = 0; length < whole.size() - 8; ++length) {
            Opened opened = Open(whole.substr(0, length));
            std::string error = opened.error;
            if (opened.reader) {
                error = InputErrorOf([&opened] { FirstPicture(*opened.reader); });
            }
            EXPECT_NE(error, "") << length;
        }
    }
}

TEST(InputReader, NoiseIsRefused) {
    std::mt19937 random(1);
    for (int round = 0; round < 500; ++round) {
        std::string bytes = round % 2 == 0 ? "YUV4MPEG2 W4 H2 F25:1 " : "";
        for (int i = 0; i < 300; ++i) {
            bytes += static_cast<char>(random());
        }
        Opened opened = Open(bytes);
        const std::string error =
            opened.reader ? InputErrorOf([&opened] { FirstPicture(*opened.reader); }) : opened.error;
        EXPECT_NE(error, "") << round;
    }
}

TEST(PeekedSource, FirstBytesAreSeenAndThenReadOnce) {
    PeekedSource source(std::make_unique<MemorySource>("0123456789abcdefghij", 3));
    EXPECT_EQ(std::string(source.FirstBytes().begin(), source.FirstBytes().end()), "0123456789abcdef");
    EXPECT_EQ(source.TotalBytes(), std::nullopt);
    std::string all(30, ' ');
    EXPECT_EQ(source.ReadFully(reinterpret_cast<std::uint8_t*>(all.data()), 30), 20U);
    EXPECT_EQ(all.substr(0, 20), "0123456789abcdefghij");
}

TEST(PeekedSource, AShortInputIsSeenWhole) {
    PeekedSource source(std::make_unique<MemorySource>("abc", 1));
    EXPECT_EQ(source.FirstBytes().size(), 3U);
    std::uint8_t byte = 0;
    EXPECT_EQ(source.ReadFully(&byte, 1), 1U);
    EXPECT_EQ(byte, 'a');
}

}  // namespace
}  // namespace ravlo::test
