#pragma once

#include "harness/bench_main.h"

namespace ravlo::bench {

/// Rows idle_wakeups, idle_core, idle_allocations: what an open camera costs that nobody feeds and nobody reads.
void MeasureIdleCamera(const BenchOptions& options);

/// Row first_sample: from the activation to the first picture.
void MeasureFirstSample(const BenchOptions& options);

/// Row memory: what a running camera adds to its process.
void MeasureMemory(const BenchOptions& options);

}  // namespace ravlo::bench
