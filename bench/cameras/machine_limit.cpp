// How many cameras the machine carries, each with a producer process of its own: all samples are there, all of them from
// the producer, and 99 of 100 come less than a period late. Beyond that it is the machine that is measured, not the
// camera; the figure says how far a comparison of costs can go.
#include "cameras/machine_limit.h"

#include <exception>
#include <optional>
#include <string>

#include "cameras/camera_host.h"
#include "cameras/host_totals.h"
#include "harness/report.h"

namespace ravlo::bench {
namespace {

/// Nobody has that many; the search must end on any machine.
constexpr unsigned kMostCameras = 256;
/// The limit is told to within this share of it.
constexpr unsigned kPrecision = 8;
constexpr double kPeriodMs = 1000.0 / kAskedRate;
/// A measurement of two seconds may miss the samples at its ends.
constexpr double kEnoughOfTheRate = 0.98;

/// What the machine did with so many cameras; nothing when they did not even all begin.
std::optional<HostTotals> Try(unsigned cameras, const BenchOptions& options) {
    HostOrders orders;
    orders.cameras = cameras;
    orders.blockMs = options.quick ? 300 : 2000;
    try {
        HostTotals totals;
        totals.Add(RunCameraHost(orders));
        return totals;
    } catch (const std::exception& error) {
        Note(std::to_string(cameras) + " cameras: " + error.what());
        return std::nullopt;
    }
}

bool KeepsUp(const std::optional<HostTotals>& totals, unsigned cameras) {
    return totals && totals->SamplesPerSecond(cameras) >= kEnoughOfTheRate * kAskedRate &&
           totals->PatternSamples() == 0 && totals->LatenessMs(0.99) < kPeriodMs;
}

}  // namespace

void MeasureMachineLimit(const BenchOptions& options) {
    const unsigned most = options.quick ? 2 : kMostCameras;
    unsigned carried = 0;
    unsigned tooMany = most + 1;
    std::optional<HostTotals> best;
    std::optional<HostTotals> beyond;
    // Twice as many until it is too many, then half way between.
    for (unsigned cameras = 1; cameras > carried && cameras < tooMany;) {
        const std::optional<HostTotals> totals = Try(cameras, options);
        if (KeepsUp(totals, cameras)) {
            carried = cameras;
            best = totals;
        } else {
            tooMany = cameras;
            beyond = totals;
        }
        const bool isBeyondKnown = tooMany <= most;
        if (isBeyondKnown && tooMany - carried <= tooMany / kPrecision) {
            break;
        }
        cameras = isBeyondKnown ? carried + (tooMany - carried) / 2 : carried * 2;
    }
    Measurement measurement{"camera_limit", "", "", {}, {static_cast<double>(carried)}};
    if (best) {
        measurement.context = best->Context(carried);
    }
    if (beyond) {
        measurement.context.emplace_back("too_many", tooMany);
        for (const auto& [name, value] : beyond->Context(tooMany)) {
            measurement.context.emplace_back("too_many_" + name, value);
        }
    }
    Report(measurement);
}

}  // namespace ravlo::bench
