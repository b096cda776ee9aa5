// The kernels as native programs run them, under Google Benchmark. Each iteration times one pair, floor and product in
// turns; the iteration's time is the product's. A repetition reports the medians of its pairs as the counters floor_us
// and product_us, so that N repetitions are N pairs.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "harness/frame_sizes.h"
#include "harness/median.h"
#include "kernels/consume.h"
#include "kernels/formatting.h"
#include "kernels/pattern.h"
#include "kernels/publish.h"
#include "kernels/take_turns.h"

namespace ravlo::bench {
namespace {

template <class Kernel, class... Arguments>
void TimePairs(benchmark::State& state, const Arguments&... arguments) {
    Kernel kernel(arguments...);
    TimePair(kernel, true);
    std::vector<double> floor;
    std::vector<double> product;
    for ([[maybe_unused]] auto iteration : state) {
        const TimedPair pair = TimePair(kernel, GoesFirst(floor.size()));
        floor.push_back(pair.floor);
        product.push_back(pair.product);
        constexpr double kSecondsPerMicrosecond = 1e-6;
        state.SetIterationTime(pair.product * kSecondsPerMicrosecond);
    }
    state.counters["floor_us"] = Median(std::move(floor));
    state.counters["product_us"] = Median(std::move(product));
}

template <class Kernel>
void RegisterSizes(const std::string& row) {
    for (const FrameSize& size : kFrameSizes) {
        benchmark::RegisterBenchmark((row + "/" + size.name).c_str(), [&size](benchmark::State& state) {
            TimePairs<Kernel>(state, size.geometry);
        })->UseManualTime();
    }
}

void RegisterKernels() {
    RegisterSizes<PublishKernel>("publish");
    RegisterSizes<ConsumeKernel>("consume");
    RegisterSizes<PatternKernel>("pattern");
    benchmark::RegisterBenchmark("formatter", [](benchmark::State& state) {
        TimePairs<FormattingKernel>(state);
    })->UseManualTime();
}

}  // namespace
}  // namespace ravlo::bench

int main(int argc, char** argv) {
    ravlo::bench::RegisterKernels();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
