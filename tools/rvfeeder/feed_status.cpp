#include "rvfeeder/feed_status.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace ravlo {
namespace {

using Number = unsigned long long;

const char* StateText(FeedState state) noexcept {
    static constexpr const char* kTexts[] = {
        "opening the input", "waiting for the camera", "access denied", "stranger's pipe", "live", "idle", "ended"};
    return kTexts[static_cast<std::size_t>(state)];
}

std::string DemandText(const std::optional<DemandStatus>& demand) {
    if (!demand) {
        return "demand unknown";
    }
    std::array<char, 80> text{};
    if (demand->record.idleMs < 10'000) {
        std::snprintf(text.data(), text.size(), "demand %.1f/s, camera idle %llu ms", demand->requestsPerSecond,
                      static_cast<Number>(demand->record.idleMs));
    } else if (demand->record.idleMs < kDemandIdleLimitMs) {
        std::snprintf(text.data(), text.size(), "demand %.1f/s, camera idle %llu s", demand->requestsPerSecond,
                      static_cast<Number>(demand->record.idleMs / 1000));
    } else {
        return demand->record.requests == 0 ? "no demand yet" : "camera idle for an hour or more";
    }
    return text.data();
}

}  // namespace

const char* FeedStateWord(FeedState state) noexcept {
    static constexpr const char* kWords[] = {"opening", "waiting", "access_denied", "untrusted_owner",
                                             "live",    "idle",    "ended"};
    return kWords[static_cast<std::size_t>(state)];
}

std::string StatusLine(const FeedStatus& status) {
    std::array<char, 200> text{};
    std::snprintf(text.data(), text.size(), "%s | %.1f fps | sent %llu, dropped %llu | write p50 %.1f p99 %.1f ms | ",
                  StateText(status.state), status.fps, static_cast<Number>(status.sent),
                  static_cast<Number>(status.droppedLate + status.droppedUnseen + status.drained), status.writeMsP50,
                  status.writeMsP99);
    return text.data() + DemandText(status.demand);
}

std::string SummaryLine(const FeedStatus& status) {
    std::array<char, 300> text{};
    std::snprintf(text.data(), text.size(),
                  "%llu frames sent, %llu dropped (%llu late, %llu while no camera took them, %llu while nobody "
                  "watched), %llu reconnects, %llu clock restarts, longest write %.1f ms",
                  static_cast<Number>(status.sent),
                  static_cast<Number>(status.droppedLate + status.droppedUnseen + status.drained),
                  static_cast<Number>(status.droppedLate), static_cast<Number>(status.droppedUnseen),
                  static_cast<Number>(status.drained), static_cast<Number>(status.reconnects),
                  static_cast<Number>(status.clockRestarts), status.writeMsMax);
    return text.data();
}

}  // namespace ravlo
