#include "source/geometry_request.h"

#include <optional>

#include "common/parse_text.h"
#include "fuzz/fuzz_support.h"

// Input: the text of a request, as units (see Input::WideRest).

namespace ravlo::fuzz {
namespace {

constexpr FrameGeometry kUntouched{11, 22, 33, 44};

/// One to six digits, no zero in front of others.
std::optional<std::uint64_t> ReferenceNumber(const WideText& text) {
    if (!IsAllDigits(text) || text.size() > 6 || (text.size() > 1 && text[0] == u'0')) {
        return std::nullopt;
    }
    return std::stoull(std::string(text.begin(), text.end()));
}

/// The same grammar from the outside in: first where the separators are, then what stands between them.
std::optional<FrameGeometry> ReferenceParse(const WideText& text) {
    const std::vector<WideText> halves = Split(text, u'@');
    if (halves.size() != 2) {
        return std::nullopt;
    }
    const std::vector<WideText> size = Split(halves[0], u'x');
    const std::vector<WideText> rate = Split(halves[1], u'/');
    if (size.size() != 2 || rate.size() != 2) {
        return std::nullopt;
    }
    const auto width = ReferenceNumber(size[0]);
    const auto height = ReferenceNumber(size[1]);
    const auto numerator = ReferenceNumber(rate[0]);
    const auto denominator = ReferenceNumber(rate[1]);
    if (!width || !height || !numerator || !denominator) {
        return std::nullopt;
    }
    const bool fits = *width >= 2 && *height >= 2 && *width % 2 + *height % 2 == 0 && *width < 16386 &&
                      *height < 16386 && *numerator >= 1 && *denominator >= 1 && *numerator <= *denominator * 1000;
    if (!fits) {
        return std::nullopt;
    }
    return FrameGeometry{static_cast<std::uint32_t>(*width), static_cast<std::uint32_t>(*height),
                         static_cast<std::uint32_t>(*numerator), static_cast<std::uint32_t>(*denominator)};
}

void RequireInRange(const FrameGeometry& geometry) {
    Require(geometry.width >= 2 && geometry.width <= 16384 && geometry.width % 2 == 0, "a parsed width is in range");
    Require(geometry.height >= 2 && geometry.height <= 16384 && geometry.height % 2 == 0,
            "a parsed height is in range");
    Require(geometry.rateNumerator >= 1 && geometry.rateNumerator <= 999999, "a parsed numerator is in range");
    Require(geometry.rateDenominator >= 1 && geometry.rateDenominator <= 999999, "a parsed denominator is in range");
    Require(std::uint64_t{geometry.rateNumerator} <= std::uint64_t{geometry.rateDenominator} * 1000,
            "a parsed rate is at most 1000 frames a second");
    Require(SampleDuration(geometry) >= 10'000, "a sample of a parsed rate lasts at least a millisecond");
    Require(LumaBytes(geometry) + ChromaBytes(geometry) == FrameBytes(geometry) &&
                2 * ChromaBytes(geometry) == LumaBytes(geometry),
            "two planes make a frame, and chroma has half the luma's bytes");
}

void Parse(Input input) {
    const WideText text = UpToTerminator(input.WideRest());
    FrameGeometry geometry = kUntouched;
    const bool parsed = ParseGeometryRequest(Terminated(text).data(), geometry);
    const std::optional<FrameGeometry> reference = ReferenceParse(text);

    Require(parsed == reference.has_value(), "the grammar accepts exactly what it should");
    if (!parsed) {
        Require(geometry == kUntouched, "a refused request leaves the geometry alone");
        return;
    }
    Require(geometry == *reference, "the numbers are the ones that were written");
    RequireInRange(geometry);
    Require(text.size() < kGeometryRequestCapacity, "a well-formed request fits the buffer it is read into");
    const std::uint64_t frame = std::uint64_t{geometry.width} * geometry.height * 3 / 2;
    Require(IsAcceptableGeometry(geometry) == (frame <= 12441600),
            "acceptable is what needs no more bytes than 3840x2160");
    Require(ParseGeometry(std::string(text.begin(), text.end())) == geometry,
            "the programs understand every request that a camera does");
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Parse(ravlo::fuzz::Input(data, size));
    return 0;
}
