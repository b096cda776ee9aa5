#include "rvfeeder/y4m_reader.h"

#include <cctype>
#include <cmath>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "fuzz/fuzz_support.h"

// Input: one byte for the lengths of the pieces in which the source delivers, then the stream itself.

namespace ravlo::fuzz {
namespace {

constexpr std::size_t kLongestLine = 4096;
constexpr std::size_t kLargestPicture = 12441600;

/// The stream as a pipe delivers it. Counts what is taken.
class Pieces final : public ByteSource {
public:
    Pieces(const std::string& bytes, unsigned pieces, std::size_t& taken)
        : m_bytes(bytes), m_pieces(pieces), m_taken(taken) {}

    std::size_t Read(std::uint8_t* buffer, std::size_t length) override {
        Require(length > 0, "a read asks for something");
        m_pieces = m_pieces * 1103515245U + 12345U;
        const std::size_t most = 1 + (m_pieces >> 18) % 40;
        const std::size_t got = std::min({length, most, m_bytes.size() - m_taken});
        std::memcpy(buffer, m_bytes.data() + m_taken, got);
        m_taken += got;
        return got;
    }

private:
    const std::string& m_bytes;
    std::uint32_t m_pieces;
    std::size_t& m_taken;
};

/// The stream read a second time: all of it at once, with the parts of its header found by splitting.
class Reference {
public:
    explicit Reference(const std::string& bytes) {
        const std::size_t feed = bytes.find('\n');
        if (feed < kLongestLine) {
            isHeader = ReadHeader(bytes.substr(0, feed));
            m_at = feed + 1;
        }
    }

    enum class Next { Picture, End, Damage };

    /// Steps over one picture of `bytes`; `pixels` is then where its luma begins.
    Next Step(const std::string& bytes) {
        if (m_at == bytes.size()) {
            return Next::End;
        }
        if (bytes.compare(m_at, 5, "FRAME") != 0) {
            return Next::Damage;
        }
        const std::size_t feed = bytes.find('\n', m_at + 5);
        const bool isMarker =
            feed != std::string::npos && feed - m_at - 5 < kLongestLine && (feed == m_at + 5 || bytes[m_at + 5] == ' ');
        if (!isMarker || bytes.size() - feed - 1 < PictureBytes()) {
            return Next::Damage;
        }
        pixels = feed + 1;
        m_at = pixels + PictureBytes();
        return Next::Picture;
    }

    std::size_t At() const { return m_at; }
    std::size_t PictureBytes() const { return std::size_t{geometry.width} * geometry.height * 3 / 2; }

    bool isHeader = false;
    FrameGeometry geometry{};
    bool fullRange = false;
    std::size_t pixels = 0;

private:
    static std::optional<std::uint32_t> Number(const std::string& text) {
        if (!IsAllDigits(text) || text.size() > 9) {
            return std::nullopt;
        }
        return static_cast<std::uint32_t>(std::stoul(text));
    }

    bool ReadWord(const std::string& word, std::optional<std::string>& layout) {
        const std::string value = word.substr(1);
        const std::vector<std::string> pair = Split(value, ':');
        const auto number = Number(value);
        switch (word[0]) {
            case 'W':
                geometry.width = number.value_or(0);
                return number.has_value();
            case 'H':
                geometry.height = number.value_or(0);
                return number.has_value();
            case 'F':
                geometry.rateNumerator = pair.size() == 2 ? Number(pair[0]).value_or(0) : 0;
                geometry.rateDenominator = pair.size() == 2 ? Number(pair[1]).value_or(0) : 0;
                return geometry.rateNumerator != 0 && geometry.rateDenominator != 0;
            case 'I':
                return value == "p" || value == "?";
            case 'C':
                layout = value;
                return true;
            default:
                ReadExtension(word);
                return true;
        }
    }

    void ReadExtension(const std::string& word) {
        if (word.compare(0, 12, "XCOLORRANGE=") == 0) {
            fullRange = word == "XCOLORRANGE=FULL";
        }
        if (word.compare(0, 7, "XYSCSS=") == 0) {
            m_extensionLayout.clear();
            for (const char c : word.substr(7)) {
                m_extensionLayout += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            }
        }
    }

    bool ReadHeader(const std::string& line) {
        const std::vector<std::string> words = Split(line, ' ');
        std::optional<std::string> named;
        for (std::size_t i = 0; i < words.size(); ++i) {
            if (i == 0 ? words[0] != "YUV4MPEG2" : !words[i].empty() && !ReadWord(words[i], named)) {
                return false;
            }
        }
        const std::string layout = named.value_or(m_extensionLayout);
        const auto isSize = [](std::uint32_t value) { return value >= 2 && value <= 16384 && value % 2 == 0; };
        return (layout == "420" || layout == "420jpeg" || layout == "420mpeg2" || layout == "420paldv") &&
               isSize(geometry.width) && isSize(geometry.height) && PictureBytes() <= kLargestPicture &&
               geometry.rateNumerator != 0 && geometry.rateNumerator <= std::uint64_t{geometry.rateDenominator} * 1000;
    }

    std::size_t m_at = 0;
    std::string m_extensionLayout = "420";
};

/// What goes to the user's terminal is plain and short, whatever was in the file.
void RequirePlainSentence(const InputError& error) {
    const std::string sentence = error.what();
    Require(!sentence.empty() && sentence.size() < 300, "an error is one sentence");
    Require(std::all_of(sentence.begin(), sentence.end(), [](char c) { return c >= ' ' && c <= '~'; }),
            "an error repeats nothing that a terminal would obey");
}

/// What a sample of the stream becomes: itself, or brought from 0..255 to 16..235, chroma to 16..240; to the step.
bool IsSample(std::uint8_t came, std::uint8_t sent, bool isLuma, bool fullRange) {
    if (!fullRange) {
        return came == sent;
    }
    const double exact = isLuma ? 16 + sent * 219.0 / 255 : 128 + (sent - 128) * 224.0 / 255;
    return std::abs(came - exact) <= 1;
}

/// Luma first, then both chroma planes in turn.
bool IsPicture(const std::uint8_t* nv12, const std::string& bytes, const Reference& reference) {
    const std::size_t luma = std::size_t{reference.geometry.width} * reference.geometry.height;
    const auto* const planes = reinterpret_cast<const std::uint8_t*>(bytes.data()) + reference.pixels;
    if (!reference.fullRange && std::memcmp(nv12, planes, luma) != 0) {
        return false;
    }
    for (std::size_t i = 0; reference.fullRange && i < luma; ++i) {
        if (!IsSample(nv12[i], planes[i], true, true)) {
            return false;
        }
    }
    for (std::size_t i = 0; i < luma / 2; ++i) {
        if (!IsSample(nv12[luma + i], planes[luma + i / 2 + (i % 2) * (luma / 4)], false, reference.fullRange)) {
            return false;
        }
    }
    return true;
}

void ReadPictures(Y4mReader& reader, const std::string& bytes, Reference& reference, const std::size_t& taken) {
    // Kept from run to run, since a picture may be large; the guard behind it shows a write too far.
    static Bytes room(kLargestPicture + 1);
    const std::size_t size = reference.PictureBytes();
    room[size] = 0xA5;
    try {
        reader.ReadPicture(std::span(room).first(size - 1));
        Require(false, "a buffer of another size is refused");
    } catch (const std::invalid_argument&) {
        Require(taken == reference.At(), "nothing is read for a refused buffer");
    }
    for (bool isFirst = true;; isFirst = false) {
        const Reference::Next next = reference.Step(bytes);
        bool came = false;
        try {
            came = reader.ReadPicture(std::span(room).first(size));
        } catch (const InputError& error) {
            RequirePlainSentence(error);
            Require(next == Reference::Next::Damage || (isFirst && next == Reference::Next::End),
                    "only a damaged stream, or one without any picture, is refused");
            return;
        }
        Require(room[size] == 0xA5, "nothing is written behind the picture");
        if (!came) {
            Require(next == Reference::Next::End && !isFirst, "pictures end where the stream ends");
            return;
        }
        Require(next == Reference::Next::Picture, "a picture comes out where one went in");
        Require(taken == reference.At(), "exactly one picture is taken");
        Require(IsPicture(room.data(), bytes, reference), "the picture is the one that was sent, as NV12");
    }
}

void Read(Input input) {
    const unsigned pieces = input.Byte();
    const Bytes rest = input.Rest();
    const std::string bytes(rest.begin(), rest.end());
    Reference reference(bytes);
    std::size_t taken = 0;
    std::optional<Y4mReader> reader;
    try {
        reader.emplace(std::make_unique<Pieces>(bytes, pieces, taken));
    } catch (const InputError& error) {
        RequirePlainSentence(error);
        Require(!reference.isHeader, "only a header that is unusable is refused");
        return;
    }
    Require(reference.isHeader, "an unusable header is refused");
    const FrameGeometry& geometry = reader->Geometry();
    Require(geometry == reference.geometry, "the numbers are the ones in the header");
    Require(IsValidGeometry(geometry) && FrameBytes(geometry) <= kLargestPicture,
            "an accepted size is one for a camera");
    Require(reader->Header().fullRange == reference.fullRange, "the range is the one in the header");
    Require(taken == reference.At(), "the header is taken and nothing behind it");
    ReadPictures(*reader, bytes, reference, taken);
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Read(ravlo::fuzz::Input(data, size));
    return 0;
}
