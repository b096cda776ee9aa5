// What a camera costs when it is not the only one: processor time of the process with the cameras for each of the
// producers' frames that it delivers.
//
// The floor of a value is the cost with one camera, measured right before or after it, with the same program, the same
// kind of producers (one process each) and the same time of measurement. A host process is set up afresh for each, so
// cameras that are not measured cost nothing. What is above 1 is what the cameras take from each other: locks, the log,
// caches, and the one server that all processes of a Wine prefix share.
#include <algorithm>
#include <string>
#include <vector>

#include "cameras/camera_host.h"
#include "harness/bench_main.h"
#include "harness/report.h"

namespace ravlo::bench {
namespace {

constexpr unsigned kCounts[] = {2, 4, 8};
constexpr double kAskedRate = 30;

/// All runs with one count of cameras.
struct Series {
    unsigned cameras = 1;
    std::vector<double> floor;
    std::vector<double> product;
    HostBlock sum;
    std::vector<double> latenessMs;
    bool exact = true;

    void Add(const HostResult& result) {
        for (const HostBlock& block : result.blocks) {
            product.push_back(block.hostUs / block.frames);
            sum.hostUs += block.hostUs;
            sum.serverUs += block.serverUs;
            sum.machineUs += block.machineUs;
            sum.machineCapacityUs += block.machineCapacityUs;
            sum.seconds += block.seconds;
            sum.samples += block.samples;
            sum.patterns += block.patterns;
            sum.frames += block.frames;
        }
        latenessMs.insert(latenessMs.end(), result.latenessMs.begin(), result.latenessMs.end());
        exact = exact && result.exact;
    }
};

double Percentile(std::vector<double> values, double share) {
    if (values.empty()) {
        return 0;
    }
    const auto index = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(index), values.end());
    return values[index];
}

void ReportSeries(const Series& series) {
    const HostBlock& sum = series.sum;
    Measurement measurement{"cameras", std::to_string(series.cameras), "us", series.floor, series.product};
    measurement.context = {
        {"fps_per_camera", sum.frames / sum.seconds / series.cameras},
        {"fps_asked", kAskedRate},
        {"samples", sum.samples},
        {"pattern_samples", sum.patterns},
        {"lateness_p50_ms", Percentile(series.latenessMs, 0.5)},
        {"lateness_p99_ms", Percentile(series.latenessMs, 0.99)},
        {"host_core_percent", 100 * sum.hostUs / (sum.seconds * 1e6)},
        {"server_core_percent", 100 * sum.serverUs / (sum.seconds * 1e6)},
        {"server_us_per_frame", sum.serverUs / sum.frames},
        {"machine_busy_percent", 100 * sum.machineUs / sum.machineCapacityUs},
        {"machine_us_per_frame", sum.machineUs / sum.frames},
        {"exact_clock", series.exact ? 1.0 : 0.0},
    };
    Report(measurement);
}

}  // namespace

void RunBench(const BenchOptions& options) {
    if (!options.Wants("cameras")) {
        return;
    }
    const unsigned rounds = options.quick ? 1 : 10;
    HostOrders orders;
    orders.blocks = options.quick ? 1 : 2;
    orders.blockMs = options.quick ? 300 : 1000;
    Series alone;
    std::vector<Series> together;
    for (const unsigned count : kCounts) {
        together.emplace_back().cameras = count;
    }
    for (unsigned round = 0; round < rounds; ++round) {
        for (Series& series : together) {
            const bool aloneFirst = (round + series.cameras / 2) % 2 == 0;
            HostResult results[2];
            for (int turn = 0; turn < 2; ++turn) {
                const bool isAlone = (turn == 0) == aloneFirst;
                orders.cameras = isAlone ? 1 : series.cameras;
                results[isAlone ? 0 : 1] = RunCameraHost(orders);
            }
            const std::size_t before = alone.product.size();
            alone.Add(results[0]);
            series.floor.insert(series.floor.end(), alone.product.begin() + static_cast<std::ptrdiff_t>(before),
                                alone.product.end());
            series.Add(results[1]);
        }
    }
    ReportSeries(alone);
    for (const Series& series : together) {
        ReportSeries(series);
    }
}

}  // namespace ravlo::bench
