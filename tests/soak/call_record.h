// One recorded call. Stamps come from one counter that all threads share, so two calls overlapped exactly when neither
// ended before the other began.
#pragma once

#include "soak/state_table.h"

#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>

namespace ravlo::test {

using Stamp = std::uint64_t;
inline constexpr Stamp kNever = std::numeric_limits<Stamp>::max();

/// `begin` was taken before the call and is its name as well: it travels in the start position, the token or the event
/// that the call brings into a queue. No stamp is given twice; 0 is given to nobody.
struct Call {
    Op op{};
    Answer answer = kOk;
    Stamp begin = 0;
    Stamp end = 0;
    unsigned thread = 0;
};

inline bool EndedBefore(const Call& first, const Call& second) {
    return first.end < second.begin;
}
inline bool Overlap(const Call& one, const Call& other) {
    return !EndedBefore(one, other) && !EndedBefore(other, one);
}

inline std::string HexText(Answer answer) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(answer));
    return text;
}

/// "SRC.Start of thread 3 [120,131] = 0x00000000".
inline std::string Describe(const Call& call) {
    return std::string(RowOf(call.op).name) + " of thread " + std::to_string(call.thread) + " [" +
           std::to_string(call.begin) + "," + std::to_string(call.end) + "] = " + HexText(call.answer);
}

}  // namespace ravlo::test
