// The kernels where the product runs them: as a program for Windows, with the memory functions and the formatter that
// its compiler links, beside one trace line, which needs Windows. What floor and product are stands with each kernel.
#include <string>

#include "harness/bench_main.h"
#include "harness/report.h"
#include "harness/stopwatch.h"
#include "kernels/consume.h"
#include "kernels/formatting.h"
#include "kernels/pattern.h"
#include "kernels/publish.h"
#include "kernels/take_turns.h"
#include "kernels/trace_line.h"

namespace ravlo::bench {
namespace {

/// A kernel is made anew for every so many pairs: where its buffers happen to lie in memory must not decide the figure.
constexpr std::size_t kPairsPerKernel = 20;
constexpr double kSecond = 1e6;  // microseconds
constexpr double kFullTime = 8 * kSecond;
constexpr double kQuickTime = kSecond / 4;

/// Takes pairs for a while, at least those of one kernel, and reports them.
template <class Kernel, class... Arguments>
void MeasureKernel(const char* row, const std::string& size, bool quick, const Arguments&... arguments) {
    Measurement measurement{.row = row, .size = size, .unit = "us", .floor = {}, .product = {}};
    const Stopwatch watch;
    do {
        Kernel kernel(arguments...);
        TimePair(kernel, true);
        for (std::size_t i = 0; i < kPairsPerKernel; ++i) {
            const TimedPair pair = TimePair(kernel, GoesFirst(i));
            measurement.floor.push_back(pair.floor);
            measurement.product.push_back(pair.product);
        }
    } while (watch.Microseconds() < (quick ? kQuickTime : kFullTime));
    Report(measurement);
}

template <class Kernel>
void MeasureSizes(const char* row, const BenchOptions& options) {
    if (!options.Wants(row)) {
        return;
    }
    for (const FrameSize& size : options.sizes) {
        MeasureKernel<Kernel>(row, size.name, options.quick, size.geometry);
    }
}

}  // namespace

void RunBench(const BenchOptions& options) {
    MeasureSizes<PublishKernel>("publish", options);
    MeasureSizes<ConsumeKernel>("consume", options);
    MeasureSizes<PatternKernel>("pattern", options);
    if (options.Wants("formatter")) {
        MeasureKernel<FormattingKernel>("formatter", "", options.quick);
    }
    if (options.Wants("trace_line")) {
        MeasureTraceLine(options.quick);
    }
}

}  // namespace ravlo::bench
