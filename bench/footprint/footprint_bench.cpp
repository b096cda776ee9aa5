// What a camera costs by being there: at rest, in memory, and until its first picture. None of these has a floor that
// takes the same time; their bars are absolute, and each file says what it counts.
#include "footprint/footprint.h"

namespace ravlo::bench {

void RunBench(const BenchOptions& options) {
    if (options.Wants("idle_wakeups") || options.Wants("idle_core") || options.Wants("idle_allocations")) {
        MeasureIdleCamera(options);
    }
    if (options.Wants("first_sample")) {
        MeasureFirstSample(options);
    }
    if (options.Wants("memory")) {
        MeasureMemory(options);
    }
}

}  // namespace ravlo::bench
