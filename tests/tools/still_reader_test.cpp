#include "rvfeeder/still_reader.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <random>

#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>

#include "rvfeeder/input_reader.h"
#include "rvfeeder/nv12_convert.h"
#include "rvfeeder/still_decode.h"
#include "tools/exif_notes.h"
#include "tools/memory_source.h"

namespace ravlo::test {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Png(int width, int height, int components, const Bytes& pixels) {
    int length = 0;
    unsigned char* const file =
        stbi_write_png_to_mem(pixels.data(), width * components, width, height, components, &length);
    Bytes bytes(file, file + length);
    std::free(file);
    return bytes;
}

Bytes Jpeg(int width, int height, int components, const Bytes& pixels) {
    Bytes bytes;
    const auto append = [](void* context, void* data, int length) {
        const auto* const begin = static_cast<const std::uint8_t*>(data);
        static_cast<Bytes*>(context)->insert(static_cast<Bytes*>(context)->end(), begin, begin + length);
    };
    stbi_write_jpg_to_func(append, &bytes, width, height, components, pixels.data(), 95);
    return bytes;
}

Bytes Plain(std::size_t pixels, std::initializer_list<std::uint8_t> pixel) {
    Bytes bytes;
    for (std::size_t i = 0; i < pixels; ++i) {
        bytes.insert(bytes.end(), pixel);
    }
    return bytes;
}

/// Something to look at for a decoder: no two neighbours alike.
Bytes Colourful(std::size_t bytes) {
    Bytes pixels(bytes);
    for (std::size_t i = 0; i < bytes; ++i) {
        pixels[i] = static_cast<std::uint8_t>(i * 37 + i / 16);
    }
    return pixels;
}

std::string DecodeError(const Bytes& file) {
    return InputErrorOf([&file] { DecodeStill(file); });
}

Bytes Converted(const Bytes& rgb, const FrameGeometry& geometry) {
    Bytes nv12(FrameBytes(geometry));
    RgbToNv12(rgb, geometry, nv12);
    return nv12;
}

/// A PNG header of any size in front of nothing; the decoder does not check sums.
Bytes HugePng(std::uint32_t width, std::uint32_t height) {
    Bytes file{0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    for (const std::uint32_t edge : {width, height}) {
        for (int shift = 24; shift >= 0; shift -= 8) {
            file.push_back(static_cast<std::uint8_t>(edge >> shift));
        }
    }
    file.insert(file.end(), {8, 6, 0, 0, 0, 0, 0, 0, 0});
    return file;
}

TEST(RgbToNv12, EveryColourIsWithinOneStepOfTheExactValue) {
    const FrameGeometry geometry{2, 2, 30, 1};
    for (int red = 0; red <= 255; red += 15) {
        for (int green = 0; green <= 255; green += 15) {
            for (int blue = 0; blue <= 255; blue += 15) {
                const Bytes rgb = Plain(4, {static_cast<std::uint8_t>(red), static_cast<std::uint8_t>(green),
                                            static_cast<std::uint8_t>(blue)});
                const Bytes nv12 = Converted(rgb, geometry);
                const double luma = (0.2126 * red + 0.7152 * green + 0.0722 * blue) / 255;
                ASSERT_LE(std::abs(nv12[0] - (16 + 219 * luma)), 1) << red << "," << green << "," << blue;
                ASSERT_LE(std::abs(nv12[4] - (128 + 224 * (blue / 255.0 - luma) / 1.8556)), 1) << red << "," << green;
                ASSERT_LE(std::abs(nv12[5] - (128 + 224 * (red / 255.0 - luma) / 1.5748)), 1) << red << "," << green;
            }
        }
    }
}

TEST(RgbToNv12, PureColoursHaveTheirKnownCodesAndGreysNoTint) {
    const FrameGeometry geometry{2, 2, 30, 1};
    EXPECT_EQ(Converted(Plain(4, {255, 0, 0}), geometry), (Bytes{63, 63, 63, 63, 102, 240}));
    EXPECT_EQ(Converted(Plain(4, {0, 255, 0}), geometry), (Bytes{173, 173, 173, 173, 42, 26}));
    EXPECT_EQ(Converted(Plain(4, {0, 0, 255}), geometry), (Bytes{32, 32, 32, 32, 240, 118}));
    EXPECT_EQ(Converted(Plain(4, {255, 255, 255}), geometry), (Bytes{235, 235, 235, 235, 128, 128}));
    for (int grey = 0; grey <= 255; ++grey) {
        const auto level = static_cast<std::uint8_t>(grey);
        const Bytes nv12 = Converted(Plain(4, {level, level, level}), geometry);
        ASSERT_EQ(nv12[4], 128) << grey;
        ASSERT_EQ(nv12[5], 128) << grey;
    }
}

TEST(RgbToNv12, ChromaIsThatOfTheMeanOfFourPixelsAndLandsInItsPlace) {
    const FrameGeometry geometry{4, 4, 30, 1};
    Bytes rgb(48, 0);
    for (const std::size_t pixel : {10, 11, 14, 15}) {  // the lower right square is blue
        rgb[pixel * 3 + 2] = 255;
    }
    rgb[0] = 255;  // one red pixel in the upper left square
    EXPECT_EQ(Converted(rgb, geometry),
              (Bytes{63,  16,  16,  16,  16,  16,  16,  16, 16, 16, 32, 32, 16, 16, 32, 32,  //
                     122, 156, 128, 128, 128, 128, 240, 118}));
}

TEST(DecodeStill, APngIsDecodedExactly) {
    const Bytes pixels = Colourful(6 * 4 * 3);
    const StillImage image = DecodeStill(Png(6, 4, 3, pixels));
    EXPECT_EQ(image.width, 6U);
    EXPECT_EQ(image.height, 4U);
    EXPECT_EQ(image.rgb, pixels);
}

TEST(DecodeStill, GreyPicturesHaveThreeEqualComponents) {
    EXPECT_EQ(DecodeStill(Png(2, 2, 1, {0, 80, 160, 255})).rgb,
              (Bytes{0, 0, 0, 80, 80, 80, 160, 160, 160, 255, 255, 255}));
}

TEST(DecodeStill, TransparentPartsStandOverBlack) {
    const Bytes pixels{200, 100, 50, 255, 200, 100, 50, 0, 200, 100, 50, 128, 255, 255, 255, 1};
    EXPECT_EQ(DecodeStill(Png(2, 2, 4, pixels)).rgb, (Bytes{200, 100, 50, 0, 0, 0, 100, 50, 25, 1, 1, 1}));
}

TEST(DecodeStill, SixteenBitsBecomeEight) {
    // 2x2 grey of 16 bits: 0x0000 0x50ff / 0xa000 0xffff, each row behind its filter byte, in a stored deflate block.
    Bytes file{0x89, 'P', 'N', 'G', 13, 10, 26, 10, 0, 0, 0, 13, 'I', 'H', 'D', 'R', 0, 0, 0,
               2,    0,   0,   0,   2,  16, 0,  0,  0, 0, 0, 0,  0,   0,   0,   0,   0, 21};
    file.insert(file.end(), {'I',  'D', 'A',  'T',  0x78, 0x01, 1, 10, 0, 0xF5, 0xFF, 0, 0x00, 0x00, 0x50,
                             0xFF, 0,   0xA0, 0x00, 0xFF, 0xFF, 0, 0,  0, 0,    0,    0, 0,    0});
    file.insert(file.end(), {0, 0, 0, 0, 'I', 'E', 'N', 'D', 0, 0, 0, 0});
    EXPECT_EQ(DecodeStill(file).rgb, (Bytes{0, 0, 0, 0x50, 0x50, 0x50, 0xA0, 0xA0, 0xA0, 255, 255, 255}));
}

TEST(DecodeStill, AJpegComesCloseToWhatItWasMadeOf) {
    const StillImage image = DecodeStill(Jpeg(16, 16, 3, Plain(256, {200, 100, 50})));
    EXPECT_EQ(image.width, 16U);
    EXPECT_EQ(image.height, 16U);
    ASSERT_EQ(image.rgb.size(), 768U);
    for (std::size_t i = 0; i < image.rgb.size(); i += 3) {
        ASSERT_NEAR(image.rgb[i], 200, 3);
        ASSERT_NEAR(image.rgb[i + 1], 100, 3);
        ASSERT_NEAR(image.rgb[i + 2], 50, 3);
    }
}

TEST(DecodeStill, SizesThatNoCameraTakesAreRefusedBeforeTheyAreDecoded) {
    EXPECT_EQ(DecodeError(Png(3, 2, 3, Colourful(18))),
              "the camera takes even sizes from 2x2 to 16384x16384, but this input is 3x2; crop or scale it first, for "
              "example with ffmpeg -vf scale=2:2");
    EXPECT_EQ(
        DecodeError(Jpeg(16, 1, 3, Colourful(48))),
        "the camera takes even sizes from 2x2 to 16384x16384, but this input is 16x1; crop or scale it first, for "
        "example with ffmpeg -vf scale=16:2");
    EXPECT_EQ(DecodeError(HugePng(16384, 16384)),
              "the camera takes pictures of up to 12441600 bytes (3840x2160), but this input is 16384x16384");
    EXPECT_EQ(
        DecodeError(HugePng(20'000, 400)),
        "the camera takes even sizes from 2x2 to 16384x16384, but this input is 20000x400; crop or scale it first, "
        "for example with ffmpeg -vf scale=16384:400");
    EXPECT_EQ(
        DecodeError(HugePng(0xFFFF'FFFF, 2)),
        "the camera takes even sizes from 2x2 to 16384x16384, but this input is 4294967295x2; crop or scale it first, "
        "for example with ffmpeg -vf scale=16384:2");
}

TEST(DecodeStill, APngCutShortAnywhereIsRefused) {
    const Bytes file = Png(8, 8, 3, Colourful(192));
    // The last chunk is empty: its sum, which nobody checks, may miss.
    for (std::size_t length = 8; length < file.size() - 8; ++length) {
        const std::string error = DecodeError(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_EQ(error.substr(0, 79),
                  "the PNG picture cannot be decoded: it is damaged, cut short or of a rare kind (")
            << length;
    }
}

TEST(DecodeStill, AJpegCutShortAnywhereIsRefused) {
    const Bytes file = Jpeg(16, 16, 3, Colourful(768));
    for (std::size_t length = 0; length < file.size(); ++length) {
        EXPECT_NE(DecodeError(Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length))), "") << length;
    }
    Bytes missingEnd(file.begin(), file.end() - 2);
    EXPECT_EQ(DecodeError(missingEnd), "the JPEG picture is cut short: its end is missing");
    Bytes longer = file;
    longer.insert(longer.end(), 100, 0);
    EXPECT_EQ(DecodeError(longer), "") << "what follows the end does no harm";
}

TEST(DecodeStill, DamageNeverDoesWorseThanAWrongPicture) {
    std::mt19937 random(3);
    for (const Bytes& whole : {Png(8, 8, 4, Colourful(256)), Jpeg(16, 16, 3, Colourful(768))}) {
        int refused = 0;
        for (int round = 0; round < 2000; ++round) {
            Bytes file = whole;
            for (unsigned change = random() % 4 + 1; change != 0; --change) {
                file[2 + random() % (file.size() - 2)] = static_cast<std::uint8_t>(random());
            }
            try {
                const StillImage image = DecodeStill(file);
                ASSERT_EQ(image.rgb.size(), std::size_t{image.width} * image.height * 3);
            } catch (const InputError& error) {
                ASSERT_STRNE(error.what(), "");
                ++refused;
            }
        }
        EXPECT_GT(refused, 100);
    }
}

TEST(DecodeStill, NoiseBehindAMagicNumberIsRefused) {
    std::mt19937 random(5);
    const Bytes png{0x89, 'P', 'N', 'G', 13, 10, 26, 10};
    const Bytes jpeg{0xFF, 0xD8, 0xFF};
    for (int round = 0; round < 500; ++round) {
        Bytes file = round % 2 == 0 ? png : jpeg;
        for (int i = 0; i < 200; ++i) {
            file.push_back(static_cast<std::uint8_t>(random()));
        }
        EXPECT_NE(DecodeError(file), "") << round;
    }
}

TEST(DecodeStill, OnlyWhatBeginsAsOneOfTheTwoFormatsReachesTheDecoder) {
    EXPECT_EQ(DecodeError({}), "the input is empty");
    EXPECT_EQ(DecodeError({0xFF, 0xFF, 0xD8, 0xFF}),
              "the input is neither Y4M nor PNG nor JPEG, it begins with ff ff d8 ff; for raw NV12 give --size and "
              "--rate");
}

TEST(DecodeStill, HuffmanTablesWithMoreSymbolsThanThereAreBytesAreRefused) {
    const std::string error =
        "the JPEG picture cannot be decoded: it is damaged, cut short or of a rare kind (bad segments); save it again as "
        "8-bit PNG";
    Bytes file{0xFF, 0xD8, 0xFF, 0xC4, 0x10, 0x00, 0x00};
    file.insert(file.end(), 16, 255);
    file.insert(file.end(), 5000, 0);
    EXPECT_EQ(DecodeError(file), error);
    // The same in the second table of a segment, behind a picture's first scan and behind fill bytes.
    Bytes picture = Jpeg(16, 16, 3, Colourful(768));
    picture.erase(picture.end() - 2, picture.end());
    picture.insert(picture.end(), {0xFF, 0xFF, 0xFF, 0xC4, 0x10, 0x00, 0x00});
    picture.insert(picture.end(), 16, 0);
    picture.push_back(0x10);
    picture.insert(picture.end(), {200, 57});
    picture.insert(picture.end(), 14, 0);
    picture.insert(picture.end(), 5000, 0);
    EXPECT_EQ(DecodeError(picture), error);
}

/// Deflate with the fixed codes, whose bits go into bytes from the lowest on.
class BitWriter {
public:
    explicit BitWriter(Bytes& bytes) : m_bytes(bytes) {}

    /// `bits` as a text of 0 and 1, in the order in which they stand in the stream.
    void Put(const char* bits) {
        for (; *bits != 0; ++bits) {
            if (m_used % 8 == 0) {
                m_bytes.push_back(0);
            }
            m_bytes.back() = static_cast<std::uint8_t>(m_bytes.back() | (*bits - '0') << m_used++ % 8);
        }
    }

private:
    Bytes& m_bytes;
    unsigned m_used = 0;
};

TEST(DecodeStill, AFileThatUnpacksToMuchMoreThanItsPictureIsStopped) {
    Bytes data{0x78, 0x01};
    BitWriter bits(data);
    bits.Put("110");       // the last block, fixed codes
    bits.Put("00110000");  // the byte 0
    for (int i = 0; i < 400'000; ++i) {
        bits.Put("1100010100000");  // 258 times the byte before: 100 MB in all
    }
    Bytes file = HugePng(2, 2);
    for (int shift = 24; shift >= 0; shift -= 8) {
        file.push_back(static_cast<std::uint8_t>(data.size() >> shift));
    }
    file.insert(file.end(), {'I', 'D', 'A', 'T'});
    file.insert(file.end(), data.begin(), data.end());
    file.insert(file.end(), {0, 0, 0, 0, 0, 0, 0, 0, 'I', 'E', 'N', 'D', 0, 0, 0, 0});
    EXPECT_EQ(
        DecodeError(file),
        "the PNG picture cannot be decoded: it is damaged, cut short or of a rare kind (outofmem); save it again as "
        "8-bit PNG");
}

TEST(StillReader, ThePictureRepeatsWithoutEnd) {
    const FrameGeometry geometry{4, 2, 25, 2};
    const Bytes file = Png(4, 2, 3, Plain(8, {255, 0, 0}));
    MemorySource png(std::string(file.begin(), file.end()), 5);
    StillReader reader(png, {25, 2});
    EXPECT_EQ(reader.Geometry(), geometry);
    for (int round = 0; round < 3; ++round) {
        Bytes nv12(12);
        ASSERT_TRUE(reader.ReadPicture(nv12));
        EXPECT_EQ(nv12, (Bytes{63, 63, 63, 63, 63, 63, 63, 63, 102, 240, 102, 240}));
    }
    Bytes shorter(11);
    EXPECT_THROW(reader.ReadPicture(shorter), std::invalid_argument);
}

TEST(StillReader, AJpegThatIsToBeTurnedIsShownAsItIsStoredWithANote) {
    Bytes file = Jpeg(16, 2, 3, Plain(32, {200, 100, 50}));
    file.insert(file.begin() + 2, kTurnedNotes.begin(), kTurnedNotes.end());
    std::string note;
    const auto reader = MakeInputReader(std::make_unique<MemorySource>(std::string(file.begin(), file.end())), {},
                                        [&note](const std::string& text) { note += text; });
    EXPECT_EQ(reader->Geometry(), (FrameGeometry{16, 2, 30, 1}));
    EXPECT_EQ(note, "the picture is stored turned or mirrored, and shown as it is stored; save it upright first");
}

TEST(StillReader, AFileBeyondAllReasonIsNotReadToItsEnd) {
    class Endless final : public ByteSource {
    public:
        std::size_t Read(std::uint8_t*, std::size_t length) override { return length; }
    };
    Endless endless;
    const auto read = [&endless] { StillReader reader(endless, {30, 1}); };
    EXPECT_EQ(InputErrorOf(read),
              "the picture file has more than 64 MiB, more than any picture for a camera needs; save it smaller");
}

}  // namespace
}  // namespace ravlo::test
