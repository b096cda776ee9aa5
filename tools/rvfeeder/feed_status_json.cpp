#include <nlohmann/json.hpp>

#include <cmath>

#include "rvfeeder/feed_status.h"

namespace ravlo {
namespace {

using Json = nlohmann::ordered_json;

/// Three decimals are all that was measured.
double Rounded(double value) {
    return std::round(value * 1000) / 1000;
}

Json DemandJson(const std::optional<DemandStatus>& demand) {
    Json json{{"known", demand.has_value()}};
    const auto put = [&json, known = demand.has_value()](const char* key, auto value) {
        json[key] = known ? Json(value) : Json(nullptr);
    };
    const DemandStatus status = demand.value_or(DemandStatus{});
    put("idle_ms", status.record.idleMs);
    put("requests", status.record.requests);
    put("sequence", status.record.sequence);
    put("requests_per_second", Rounded(status.requestsPerSecond));
    return json;
}

Json InputJson(const std::optional<FrameGeometry>& input) {
    if (!input) {
        return nullptr;
    }
    return {{"width", input->width},
            {"height", input->height},
            {"rate_numerator", input->rateNumerator},
            {"rate_denominator", input->rateDenominator}};
}

}  // namespace

std::string StatusJson(const FeedStatus& status, const std::string& pipe, const std::optional<FeedEnd>& end) {
    Json json{
        {"state", FeedStateWord(status.state)},
        {"seconds", Rounded(status.seconds)},
        {"pipe", pipe},
        {"connected", status.connected},
        {"input", InputJson(status.input)},
        {"sent", status.sent},
        {"dropped_late", status.droppedLate},
        {"dropped_unseen", status.droppedUnseen},
        {"drained", status.drained},
        {"fps", Rounded(status.fps)},
        {"write_ms_p50", Rounded(status.writeMsP50)},
        {"write_ms_p99", Rounded(status.writeMsP99)},
        {"write_ms_max", Rounded(status.writeMsMax)},
        {"demand", DemandJson(status.demand)},
        {"reconnects", status.reconnects},
        {"clock_restarts", status.clockRestarts},
        {"command_starts", status.commandStarts},
        {"final", end.has_value()},
    };
    if (end) {
        json["reason"] = end->reason;
        json["exit_code"] = end->exitCode;
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace ravlo
