#include <cmath>

#include <nlohmann/json.hpp>

#include "rvhost/host_report.h"

namespace ravlo {
namespace {

using Json = nlohmann::ordered_json;

double Rounded(double value, double steps) noexcept {
    return std::round(value * steps) / steps;
}

Json FiguresJson(const DelayFigures& figures) {
    return {{"p50", Ms(figures.p50)}, {"p90", Ms(figures.p90)}, {"p99", Ms(figures.p99)}, {"max", Ms(figures.max)}};
}

Json GeometryJson(const FrameGeometry& geometry) {
    return {{"width", geometry.width},
            {"height", geometry.height},
            {"rate_numerator", geometry.rateNumerator},
            {"rate_denominator", geometry.rateDenominator}};
}

Json HistogramJson(const std::vector<DelayBucket>& buckets) {
    Json list = Json::array();
    for (const auto& [below, count] : buckets) {
        list.push_back({{"below_ms", below == kNoBound ? Json(nullptr) : Json(Ms(below))}, {"count", count}});
    }
    return list;
}

}  // namespace

std::string ReportJson(const HostReport& report, bool isFinal) {
    const StampReport& stamps = report.stamps;
    Json json{{"final", isFinal},
              {"seconds", Rounded(Ms(report.elapsed) / 1000, 1000)},
              {"geometry", GeometryJson(report.geometry)},
              {"samples", report.samples},
              {"live", report.live},
              {"pattern", report.pattern},
              {"grid_errors", report.gridErrors},
              {"skipped_periods", report.skippedPeriods},
              {"fps", Rounded(isFinal ? report.meanRate : report.recentRate, 100)},
              {"lateness_ms", FiguresJson(report.lateness)},
              {"lateness_histogram", HistogramJson(report.latenessBuckets)},
              {"latency_ms", stamps.timed == 0 ? Json(nullptr) : FiguresJson(stamps.latency)},
              {"stamped", stamps.stamped},
              {"repeated", stamps.repeated},
              {"skipped", stamps.skipped},
              {"dropped_pictures", report.droppedPictures},
              {"y4m", nullptr}};
    if (report.y4m) {
        json["y4m"] = {{"frames", report.y4m->frames}, {"dropped", report.y4m->dropped}};
    }
    return json.dump() + "\n";
}

}  // namespace ravlo
