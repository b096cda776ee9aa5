#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "pipe/pipe_name.h"
#include "stream/geometry.h"

namespace ravlo {

/// Two numbers that belong together: a picture's width and height, or a rate's numerator and denominator.
struct NumberPair {
    std::uint32_t first;
    std::uint32_t second;

    friend constexpr bool operator==(const NumberPair&, const NumberPair&) = default;
};

/// Decimal digits only, 1..9 of them, the whole text. Nothing else: no sign, no blank.
std::optional<std::uint32_t> ParseNumber(std::string_view text) noexcept;

/// "1280x720". Both numbers are as written; whether a picture of that size can exist is the caller's question.
std::optional<NumberPair> ParseSize(std::string_view text) noexcept;

/// "30000/1001", or "30" for 30/1.
std::optional<NumberPair> ParseRate(std::string_view text) noexcept;

/// "1280x720@30/1" or "1280x720@30". Nothing when the text has another form or no NV12 stream can have that geometry.
std::optional<FrameGeometry> ParseGeometry(std::string_view text) noexcept;

/// "1280x720".
std::string SizeText(const FrameGeometry& geometry);

/// "1280x720@30/1", as ParseGeometry and cameras take it.
std::string GeometryText(const FrameGeometry& geometry);

/// A frame-pipe name as the user types it, such as \\.\pipe\Ravlo.7; empty text is the default name. Nothing for a name
/// that no camera ever serves.
std::optional<PipeName> ParsePipeName(std::string_view text) noexcept;

/// What is wrong with a name that ParsePipeName does not take, as a sentence.
std::string WhyNoPipeName(std::string_view text);

}  // namespace ravlo
