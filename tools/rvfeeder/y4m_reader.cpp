#include "rvfeeder/y4m_reader.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>

#include "common/parse_text.h"
#include "rvfeeder/camera_limits.h"
#include "rvfeeder/nv12_convert.h"

namespace ravlo {
namespace {

constexpr std::string_view kStreamMagic = "YUV4MPEG2";
constexpr std::string_view kPictureMagic = "FRAME";
/// Longer header lines do not occur; without a bound, a file without line feeds would be read whole.
constexpr std::size_t kMaxLineBytes = 4096;
/// The 4:2:0 layouts differ only in where the chroma samples sit, which a camera picture does not tell apart.
constexpr std::array<std::string_view, 4> kAcceptedLayouts{"420", "420jpeg", "420mpeg2", "420paldv"};

/// Bytes from the input for a message: it goes to a terminal, which obeys what is no plain text.
std::string Shown(std::string_view text) {
    constexpr std::size_t kMostShown = 60;
    std::string shown(text.substr(0, kMostShown));
    const auto isOdd = [](char character) { return character < ' ' || character > '~'; };
    std::replace_if(shown.begin(), shown.end(), isOdd, '?');
    return text.size() > kMostShown ? shown + "..." : shown;
}

std::uint32_t ParseDimension(std::string_view value, const char* what) {
    const auto number = ParseNumber(value);
    if (!number) {
        throw InputError(std::string("the Y4M header has a ") + what + " that is no number: \"" + Shown(value) + "\"");
    }
    return *number;
}

NumberPair ParseFrameRate(std::string_view value) {
    const std::size_t colon = value.find(':');
    const auto numerator = ParseNumber(value.substr(0, colon));
    const auto denominator =
        colon == std::string_view::npos ? std::optional<std::uint32_t>{} : ParseNumber(value.substr(colon + 1));
    if (!numerator || !denominator || *numerator == 0 || *denominator == 0) {
        throw InputError("the Y4M header has no usable frame rate: \"F" + Shown(value) + "\"");
    }
    return {*numerator, *denominator};
}

void CheckLayout(std::string_view layout) {
    if (std::find(kAcceptedLayouts.begin(), kAcceptedLayouts.end(), layout) == kAcceptedLayouts.end()) {
        throw InputError("the camera takes 8-bit 4:2:0 pictures, but this Y4M stream is C" + Shown(layout) +
                         "; convert it first, for example with ffmpeg -pix_fmt yuv420p");
    }
}

void CheckScan(std::string_view scan) {
    if (scan != "p" && scan != "?") {
        throw InputError("the camera takes progressive pictures, but this Y4M stream is interlaced (I" + Shown(scan) +
                         "); deinterlace it first");
    }
}

void CheckSize(std::uint32_t width, std::uint32_t height) {
    if (width == 0 || height == 0) {
        throw InputError(std::string("the Y4M header names no ") + (width == 0 ? "width" : "height"));
    }
    if (const auto unfit = WhyNoPictureSize(width, height)) {
        throw InputError(*unfit);
    }
}

/// Square unless the header says otherwise and means it: 0:0 stands for unknown.
NumberPair ParsePixelAspect(std::string_view value) {
    constexpr NumberPair kSquare{1, 1};
    const std::size_t colon = std::min(value.find(':'), value.size());
    const auto across = ParseNumber(value.substr(0, colon));
    const auto down = ParseNumber(value.substr(std::min(colon + 1, value.size())));
    return across && down && *across != 0 && *down != 0 ? NumberPair{*across, *down} : kSquare;
}

/// The layout as some writers repeat it in capitals, and others give it there alone.
std::string LayoutFromExtension(std::string_view value) {
    std::string layout(value);
    std::transform(layout.begin(), layout.end(), layout.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
    });
    return layout;
}

}  // namespace

Y4mHeader ParseY4mHeader(std::string_view line) {
    if (line.substr(0, kStreamMagic.size()) != kStreamMagic ||
        (line.size() > kStreamMagic.size() && line[kStreamMagic.size()] != ' ')) {
        throw InputError(
            "the input is no Y4M stream: it does not begin with YUV4MPEG2 "
            "(for raw NV12 give --size and --rate)");
    }
    line.remove_prefix(kStreamMagic.size());
    constexpr std::string_view kRangeExtension = "COLORRANGE=";
    constexpr std::string_view kLayoutExtension = "YSCSS=";
    Y4mHeader header{{}, false, {1, 1}};
    std::optional<std::string> layout;
    std::string extensionLayout = "420";
    while (!line.empty()) {
        const std::size_t end = std::min(line.find(' '), line.size());
        const std::string_view word = line.substr(0, end);
        line.remove_prefix(std::min(end + 1, line.size()));
        if (word.empty()) {
            continue;
        }
        const std::string_view value = word.substr(1);
        switch (word.front()) {
            case 'W':
                header.geometry.width = ParseDimension(value, "width");
                break;
            case 'H':
                header.geometry.height = ParseDimension(value, "height");
                break;
            case 'F': {
                const NumberPair rate = ParseFrameRate(value);
                header.geometry.rateNumerator = rate.first;
                header.geometry.rateDenominator = rate.second;
                break;
            }
            case 'I':
                CheckScan(value);
                break;
            case 'C':
                layout = value;
                break;
            case 'A':
                header.pixelAspect = ParsePixelAspect(value);
                break;
            case 'X':
                if (value.starts_with(kRangeExtension)) {
                    header.fullRange = value.substr(kRangeExtension.size()) == "FULL";
                } else if (value.starts_with(kLayoutExtension)) {
                    extensionLayout = LayoutFromExtension(value.substr(kLayoutExtension.size()));
                }
                break;
            default:
                break;  // comments change nothing for the camera
        }
    }
    CheckLayout(layout.value_or(extensionLayout));
    CheckSize(header.geometry.width, header.geometry.height);
    if (header.geometry.rateNumerator == 0) {
        throw InputError("the Y4M header names no frame rate");
    }
    if (const auto beyond = WhyBeyondCamera(header.geometry)) {
        throw InputError(*beyond);
    }
    return header;
}

Y4mReader::Y4mReader(std::unique_ptr<ByteSource> source) : m_source(std::move(source)) {
    const std::string line = ReadStreamLine();
    m_header = ParseY4mHeader(line);
    if (const auto total = m_source->TotalBytes()) {
        RequireOnePicture(*total - std::min<std::uint64_t>(*total, line.size() + 1));
    }
    m_chroma.resize(ChromaBytes(m_header.geometry));
}

void Y4mReader::RequireOnePicture(std::uint64_t bytesAfterHeader) const {
    if (bytesAfterHeader == 0) {
        throw InputError("the Y4M stream holds no picture: nothing follows its header");
    }
    if (bytesAfterHeader < kPictureMagic.size() + 1 + FrameBytes(m_header.geometry)) {
        RefuseCutPicture();
    }
}

void Y4mReader::RefuseCutPicture() const {
    throw InputError("the Y4M stream ends inside picture " + std::to_string(m_pictures + 1));
}

bool Y4mReader::ReadPicture(std::span<std::uint8_t> nv12) {
    RequireWholePicture(nv12);
    if (!BeginPicture()) {
        return false;
    }
    const std::size_t lumaBytes = LumaBytes(m_header.geometry);
    ReadPlane(nv12.first(lumaBytes));
    ReadPlane(m_chroma);
    const std::span<const std::uint8_t> chroma(m_chroma);
    const std::size_t half = chroma.size() / 2;
    InterleaveChroma(chroma.first(half), chroma.last(half), nv12.subspan(lumaBytes, chroma.size()));
    if (m_header.fullRange) {
        LimitRange(nv12, m_header.geometry);
    }
    ++m_pictures;
    return true;
}

bool Y4mReader::SkipPicture(std::span<std::uint8_t> scratch) {
    RequireWholePicture(scratch);
    if (!BeginPicture()) {
        return false;
    }
    ReadPlane(scratch);  // all three planes, which together have the length of an NV12 picture
    ++m_pictures;
    return true;
}

std::string Y4mReader::ReadStreamLine() {
    std::string line;
    std::uint8_t byte = 0;
    while (line.size() < kMaxLineBytes && m_source->ReadFully(&byte, 1) == 1) {
        if (byte == '\n') {
            return line;
        }
        line.push_back(static_cast<char>(byte));
    }
    if (line.empty()) {
        throw InputError("the input is empty");
    }
    if (line.substr(0, kStreamMagic.size()) == kStreamMagic) {
        throw InputError("the Y4M header has no end: the input breaks off, or it is damaged");
    }
    return line;  // whatever this is, the parser says so
}

bool Y4mReader::BeginPicture() {
    if (ReadPictureMarker()) {
        return true;
    }
    if (m_pictures == 0) {
        RequireOnePicture(0);
    }
    return false;
}

bool Y4mReader::ReadPictureMarker() {
    std::array<std::uint8_t, kPictureMagic.size()> magic{};
    const std::size_t got = m_source->ReadFully(magic.data(), magic.size());
    if (got == 0) {
        return false;
    }
    const auto refuse = [this]() -> void {
        throw InputError("the Y4M stream is damaged: no FRAME marker where picture " + std::to_string(m_pictures + 1) +
                         " should begin");
    };
    if (!std::equal(magic.begin(), magic.begin() + static_cast<std::ptrdiff_t>(got), kPictureMagic.begin())) {
        refuse();
    }
    std::uint8_t byte = 0;
    for (std::size_t i = 0; i < kMaxLineBytes; ++i) {
        if (got < magic.size() || m_source->ReadFully(&byte, 1) == 0) {
            RefuseCutPicture();
        }
        if (byte == '\n') {
            return true;  // parameters of a single picture change nothing for the camera
        }
        if (i == 0 && byte != ' ') {
            refuse();
        }
    }
    refuse();
    return false;
}

void Y4mReader::ReadPlane(std::span<std::uint8_t> plane) {
    if (m_source->ReadFully(plane.data(), plane.size()) != plane.size()) {
        RefuseCutPicture();
    }
}

}  // namespace ravlo
