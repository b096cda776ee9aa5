// The way of a frame from another process into the camera's slots, beside the least that this way can cost.
//
// Floor: a loop that reads header and payload with blocking reads from a pipe with the camera's buffer sizes into
// touched, page-aligned memory and copies the payload once. Product: the module's reader thread with its endpoint, its
// publish step and its frame slots. Both stand in this process and are fed by the same writer in another one, which
// gives each a few frames in turn; so both meet the same machine at nearly the same moment, and whichever of them has
// no turn waits in a read that costs nothing.
//
// Blocking reads cannot be stopped by an event, and the camera's must be. What that alone costs shows a third pipe in
// the same rotation: a bare loop that makes every system call of which the camera's way of reading consists, and
// nothing else. The rows ..._stoppable put the product beside that loop.
#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>

#include "harness/bench_main.h"
#include "harness/frame_writer.h"
#include "harness/live_camera.h"
#include "harness/report.h"
#include "pipe/arrivals.h"
#include "pipe/bare_loop.h"
#include "pipe/product_reader.h"
#include "support/camera.h"
#include "support/wait.h"

namespace ravlo::bench {
namespace {

constexpr std::uint32_t kFloor = 0;
constexpr std::uint32_t kProduct = 1;
constexpr std::uint32_t kStoppable = 2;
constexpr std::uint32_t kPipes = 3;
/// For connecting, beside the time that the frames themselves take.
constexpr DWORD kPatienceMs = 60000;

using PerTurn = std::vector<double> (*)(const Arrivals&, const TurnPlan&, std::uint32_t);

double Mean(const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) {
        sum += value;
    }
    return sum / static_cast<double>(values.size());
}

/// Both rows of a figure: the product beside the bare loop, and beside the one that can be stopped.
void MeasurePipes(const std::string& row, const FrameSize& size, const TurnPlan& plan, bool paced, PerTurn perTurn) {
    const std::size_t frames = plan.FramesPerPipe();
    const std::wstring names[kPipes] = {test::UniquePipeName(), test::UniquePipeName(), test::UniquePipeName()};
    BareLoop floor(names[kFloor], size.geometry, BareLoop::Reads::Plain, frames);
    ProductReader product(names[kProduct], size.geometry, frames);
    BareLoop stoppable(names[kStoppable], size.geometry, BareLoop::Reads::Stoppable, frames);
    test::ChildProcess writer = StartWriter({.pipes = {std::begin(names), std::end(names)},
                                             .geometry = size.geometry,
                                             .paced = paced,
                                             .turn = plan.frames,
                                             .frames = plan.FramesInAll()});
    const auto framesMs = static_cast<DWORD>(1000.0 * plan.FramesInAll() / size.geometry.rateNumerator);
    if (writer.Wait(kPatienceMs + framesMs) != DWORD{0}) {
        throw std::runtime_error("the writer did not get rid of its frames: " + writer.Output());
    }
    // The writer is gone when its last bytes are in the pipes; they are still to be read.
    test::WaitUntil([&] {
        return std::min({floor.Received().Count(), product.Received().Count(), stoppable.Received().Count()}) >= frames;
    });

    Measurement measurement{.row = row, .size = size.name, .unit = "us", .floor = {}, .product = {}, .context = {}};
    measurement.floor = perTurn(floor.Received(), plan, kFloor);
    measurement.product = perTurn(product.Received(), plan, kProduct);
    if (paced) {
        measurement.context.emplace_back("late_frames", LateFrames(writer.Output()));
    } else {
        measurement.context.emplace_back("floor_frames_per_s", 1e6 / Mean(measurement.floor));
        measurement.context.emplace_back("product_frames_per_s", 1e6 / Mean(measurement.product));
    }
    Report(measurement);
    measurement.row += "_stoppable";
    measurement.floor = perTurn(stoppable.Received(), plan, kStoppable);
    measurement.context.clear();
    Report(measurement);
}

/// Back to back: microseconds for each frame, from the first of a turn to its last. The change of pipes is not in it.
void MeasureReceive(const FrameSize& size, bool quick) {
    const bool large = FrameBytes(size.geometry) > 8'000'000;
    const TurnPlan plan = quick ? TurnPlan{kPipes, 4, 8} : large ? TurnPlan{kPipes, 6, 201} : TurnPlan{kPipes, 16, 251};
    MeasurePipes("receive", size, plan, false, FrameTimes);
}

/// At the size's usual rate: each turn's median of the microseconds from the first byte written to the frame in place.
void MeasureTransport(const FrameSize& size, bool quick) {
    const TurnPlan plan = quick ? TurnPlan{kPipes, 3, 8} : TurnPlan{kPipes, size.geometry.rateNumerator / 5, 61};
    MeasurePipes("transport", size, plan, true, TurnLatencies);
}

}  // namespace

void RunBench(const BenchOptions& options) {
    const CameraGround ground;
    for (const FrameSize& size : options.sizes) {
        if (options.Wants("receive") || options.Wants("receive_stoppable")) {
            MeasureReceive(size, options.quick);
        }
        if (options.Wants("transport") || options.Wants("transport_stoppable")) {
            MeasureTransport(size, options.quick);
        }
    }
}

}  // namespace ravlo::bench
