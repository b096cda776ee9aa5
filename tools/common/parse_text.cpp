#include "common/parse_text.h"

#include <cstddef>

namespace ravlo {
namespace {

constexpr std::size_t kMostDigits = 9;  // the largest such number still fits 32 bits

std::optional<NumberPair> ParsePair(std::string_view text, char separator) noexcept {
    const std::size_t at = text.find(separator);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const auto first = ParseNumber(text.substr(0, at));
    const auto second = ParseNumber(text.substr(at + 1));
    if (!first || !second) {
        return std::nullopt;
    }
    return NumberPair{*first, *second};
}

}  // namespace

std::optional<std::uint32_t> ParseNumber(std::string_view text) noexcept {
    if (text.empty() || text.size() > kMostDigits) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') {
            return std::nullopt;
        }
        value = value * 10 + static_cast<std::uint32_t>(digit - '0');
    }
    return value;
}

std::optional<NumberPair> ParseSize(std::string_view text) noexcept {
    return ParsePair(text, 'x');
}

std::optional<NumberPair> ParseRate(std::string_view text) noexcept {
    if (const auto whole = ParseNumber(text)) {
        return NumberPair{*whole, 1};
    }
    return ParsePair(text, '/');
}

std::optional<FrameGeometry> ParseGeometry(std::string_view text) noexcept {
    const std::size_t at = text.find('@');
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    const auto size = ParseSize(text.substr(0, at));
    const auto rate = ParseRate(text.substr(at + 1));
    if (!size || !rate) {
        return std::nullopt;
    }
    const FrameGeometry geometry{size->first, size->second, rate->first, rate->second};
    if (!IsValidGeometry(geometry)) {
        return std::nullopt;
    }
    return geometry;
}

std::string SizeText(const FrameGeometry& geometry) {
    return std::to_string(geometry.width) + "x" + std::to_string(geometry.height);
}

std::string GeometryText(const FrameGeometry& geometry) {
    return SizeText(geometry) + "@" + std::to_string(geometry.rateNumerator) + "/" +
           std::to_string(geometry.rateDenominator);
}

std::optional<PipeName> ParsePipeName(std::string_view text) noexcept {
    if (text.empty()) {
        return PipeNameForPid(0);
    }
    PipeName name;
    if (text.size() >= kPipeNameCapacity) {
        return std::nullopt;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        name.text[i] = static_cast<unsigned char>(text[i]);
    }
    return RvIsRavloPipeName(name.text) ? std::optional(name) : std::nullopt;
}

std::string WhyNoPipeName(std::string_view text) {
    return "\"" + std::string(text) + "\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number";
}

}  // namespace ravlo
