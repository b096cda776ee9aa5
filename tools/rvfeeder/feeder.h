#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "common/exit_codes.h"
#include "common/interrupt.h"
#include "common/parse_text.h"

namespace ravlo {

/// What the user asked of the producer.
struct FeederOptions {
    std::string input;                      ///< UTF-8 path, or "-" for standard input
    std::optional<FrameGeometry> rawInput;  ///< set when the input is headerless NV12 of this geometry
    std::wstring pipeName;
    std::optional<std::int64_t> absenceLimit;  ///< 100 ns without a camera after which to give up
    DWORD writeTimeoutMs;
    bool loop;
};

/// Sends the input to the camera, frame by frame at the input's own pace, until the input ends, the user interrupts or
/// the camera stays away too long. Says what happened and ends with a summary, all on standard error.
ExitCode Feed(const FeederOptions& options, const Interrupt& interrupt);

}  // namespace ravlo
