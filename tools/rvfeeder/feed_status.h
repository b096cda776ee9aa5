#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "rvfeeder/demand_policy.h"
#include "stream/geometry.h"

namespace ravlo {

/// What the program is doing at the moment.
enum class FeedState : std::uint8_t {
    Opening,         ///< the input has not said yet what it holds
    Waiting,         ///< no camera, or another producer is connected
    AccessDenied,    ///< the camera's pipe does not admit this account
    UntrustedOwner,  ///< the pipe belongs to somebody who may not own it
    Live,            ///< connected, and pictures are wanted
    Idle,            ///< nobody watches the camera
    Ended,
};

/// The state as programs read it, such as "access_denied".
const char* FeedStateWord(FeedState state) noexcept;

/// What is known about the demand.
struct DemandStatus {
    CameraDemand record;
    double requestsPerSecond;
};

/// Everything that the user may be told about a run, at one moment.
struct FeedStatus {
    FeedState state = FeedState::Opening;
    double seconds = 0;  ///< since the program began
    bool connected = false;
    std::uint64_t sent = 0;
    std::uint64_t droppedLate = 0;    ///< their moment had passed
    std::uint64_t droppedUnseen = 0;  ///< no camera took them
    std::uint64_t drained = 0;        ///< of a live input, while nobody watched
    double fps = 0;                   ///< sent, over the last two seconds
    double writeMsP50 = 0;            ///< over the last five seconds, as the next two
    double writeMsP99 = 0;
    double writeMsMax = 0;  ///< of the whole run
    std::uint64_t reconnects = 0;
    std::uint64_t clockRestarts = 0;
    std::uint64_t commandStarts = 0;
    std::optional<DemandStatus> demand;
    std::optional<FrameGeometry> input;
};

/// How a run ended.
struct FeedEnd {
    std::string reason;  ///< a sentence part
    int exitCode;
};

/// One line for a person, without a line feed.
std::string StatusLine(const FeedStatus& status);

/// The last words of a run, for a person.
std::string SummaryLine(const FeedStatus& status);

/// One JSON object and a line feed; the keys are always the same ones, apart from those of `end`.
std::string StatusJson(const FeedStatus& status, const std::string& pipe, const std::optional<FeedEnd>& end);

}  // namespace ravlo
