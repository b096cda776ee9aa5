#pragma once

#include "harness/bench_main.h"

namespace ravlo::bench {

/// The row frame_cost: processor time for each delivered frame.
void MeasureFrameCost(const BenchOptions& options);

}  // namespace ravlo::bench
