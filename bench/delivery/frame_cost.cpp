#include "delivery/frame_cost.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "delivery/role_talk.h"
#include "harness/frame_writer.h"
#include "harness/measuring_child.h"
#include "harness/report.h"
#include "support/camera.h"

// Processor time of a camera process for each frame that it delivers. Product and floor (cost_product.cpp,
// cost_floor.cpp) are two processes that live side by side all the time; one producer feeds them in turns, a few
// seconds each, and whoever is not fed rests. So both meet the same machine, the same producer and the same pace, and
// what is counted is all that the process does: reading, copying, waiting, waking up, lines, allocation of samples.
namespace ravlo::bench {
namespace {

struct Extent {
    std::uint32_t turn;    ///< frames a block
    std::uint32_t blocks;  ///< for each of the two; the first of each is a warm-up
};

constexpr std::uint32_t kBlockSeconds = 2;
constexpr std::uint32_t kBlocks = 16;
/// The size that is judged most closely: on a machine that does other things too, pairs differ.
constexpr std::uint32_t kBlocksAt1080p = 31;
constexpr DWORD kPatienceMs = 60000;
/// Lines of start and stop come on top of those of the samples.
constexpr double kLinesMayDiffer = 0.02;

Extent ExtentOf(const BenchOptions& options, const FrameSize& size) {
    const std::uint32_t perSecond = size.geometry.rateNumerator / size.geometry.rateDenominator;
    if (options.quick) {
        return {perSecond / 2, 2};
    }
    return {perSecond * kBlockSeconds, size.geometry.height == 1080 ? kBlocksAt1080p : kBlocks};
}

test::ChildProcess StartCostRole(const char* role, const FrameGeometry& geometry, const Extent& extent,
                                 const std::wstring& pipe) {
    test::Arguments arguments = GeometryArguments(geometry);
    arguments.insert(arguments.end(),
                     {std::to_wstring(extent.turn), std::to_wstring(extent.blocks), pipe, UniqueMark()});
    return test::StartRole(role, arguments);
}

/// The blocks' costs without the warm-up.
std::vector<double> CostsOf(const std::string& output) {
    std::vector<double> costs = ToldValues(output, "cost");
    costs.erase(costs.begin(), costs.begin() + std::min<std::ptrdiff_t>(1, std::ssize(costs)));
    return costs;
}

void MeasureSize(const BenchOptions& options, const FrameSize& size) {
    const Extent extent = ExtentOf(options, size);
    const std::uint32_t frames = 2 * extent.turn * extent.blocks;
    const std::wstring productPipe = test::UniquePipeName();
    const std::wstring floorPipe = test::UniquePipeName();
    test::ChildProcess product = StartCostRole("CostProduct", size.geometry, extent, productPipe);
    test::ChildProcess floor = StartCostRole("CostFloor", size.geometry, extent, floorPipe);
    test::ChildProcess writer = StartWriter(
        {.pipes = {productPipe, floorPipe}, .geometry = size.geometry, .turn = extent.turn, .frames = frames});

    const DWORD duration = frames * 1000 / (size.geometry.rateNumerator / size.geometry.rateDenominator);
    const std::string written = OutputOf(writer, "the producer", duration + kPatienceMs);
    const std::string productSaid = OutputOf(product, "the product's camera", kPatienceMs);
    const std::string floorSaid = OutputOf(floor, "the floor's camera", kPatienceMs);

    Measurement measurement{"frame_cost", size.name, "us", CostsOf(floorSaid), CostsOf(productSaid)};
    for (const char* key : {"lines_per_sample", "idle_us_per_s", "exact_clock"}) {
        measurement.context.emplace_back(std::string("product_") + key, ToldValue(productSaid, key));
        measurement.context.emplace_back(std::string("floor_") + key, ToldValue(floorSaid, key));
    }
    const double productLines = ToldValue(productSaid, "lines_per_sample");
    const double floorLines = ToldValue(floorSaid, "lines_per_sample");
    if (!options.quick && std::abs(productLines - floorLines) > kLinesMayDiffer * floorLines) {
        throw std::runtime_error("the floor does not write as many lines as the camera");
    }
    measurement.context.emplace_back("frames_written", frames);
    measurement.context.emplace_back("frames_begun_late", LateFrames(written));
    Report(measurement);
}

}  // namespace

void MeasureFrameCost(const BenchOptions& options) {
    if (!options.Wants("frame_cost")) {
        return;
    }
    for (const FrameSize& size : options.sizes) {
        MeasureSize(options, size);
    }
}

}  // namespace ravlo::bench
