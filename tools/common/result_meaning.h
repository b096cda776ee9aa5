#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "common/exit_codes.h"

namespace ravlo {

/// What a result of the camera functions means to a user.
struct ResultMeaning {
    std::string_view words;  ///< empty when nothing is known about this result
    ExitCode code = ExitCode::Failure;
};

ResultMeaning MeaningOf(std::uint32_t result) noexcept;

/// "0x80070005".
std::string ResultNumber(std::uint32_t result);

}  // namespace ravlo
