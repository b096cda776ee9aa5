// What a camera costs when it is not the only one: processor time of the process with the cameras for each of the
// producers' frames that it delivers.
//
// The floor of a value is the cost with one camera, measured right before or after it, with the same program, the same
// kind of producers (one process each) and the same time of measurement. A host process is set up afresh for each, so
// cameras that are not measured cost nothing. What is above 1 is what the cameras take from each other: locks, the log,
// caches, and the one server that all processes of a Wine prefix share.
#include <string>
#include <vector>

#include "cameras/camera_host.h"
#include "cameras/host_totals.h"
#include "cameras/machine_limit.h"
#include "harness/bench_main.h"
#include "harness/report.h"

namespace ravlo::bench {
namespace {

constexpr unsigned kCounts[] = {2, 4, 8};

/// All runs with one count of cameras.
struct Series {
    unsigned cameras = 1;
    std::vector<double> floor;
    std::vector<double> product;
    HostTotals totals;

    void Add(const HostResult& result) {
        for (const HostBlock& block : result.blocks) {
            product.push_back(block.hostUs / block.frames);
        }
        totals.Add(result);
    }
};

void ReportSeries(const Series& series) {
    Report({"cameras", std::to_string(series.cameras), "us", series.floor, series.product,
            series.totals.Context(series.cameras)});
}

void MeasureCosts(const BenchOptions& options) {
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

}  // namespace

void RunBench(const BenchOptions& options) {
    if (options.Wants("cameras")) {
        MeasureCosts(options);
    }
    if (options.Wants("camera_limit")) {
        MeasureMachineLimit(options);
    }
}

}  // namespace ravlo::bench
