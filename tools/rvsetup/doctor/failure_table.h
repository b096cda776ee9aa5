#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace ravlo {

/// What a line of the log that announces a failure, a refusal or a fallback means to the person in front of the camera.
struct KnownFailure {
    std::string_view pattern;      ///< the message; "*" stands for what varies
    bool isOrdinary;               ///< belongs to a camera that works: not worth a word
    std::string_view explanation;  ///< what happened, in plain words
    std::string_view next;         ///< what to do
    std::string_view recovery;     ///< a later message that fits this takes the failure back; empty: none does
};

/// All of them; where several fit, the first one counts.
std::span<const KnownFailure> KnownFailures() noexcept;

/// The entry for a message; nullptr when it announces none of them.
const KnownFailure* FindFailure(std::string_view message) noexcept;

}  // namespace ravlo
