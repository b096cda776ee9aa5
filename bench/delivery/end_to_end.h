#pragma once

#include "harness/bench_main.h"

namespace ravlo::bench {

/// The rows end_to_end_*: a producer, a camera and a consumer over a minute. Sizes below 1080p are not measured.
void MeasureEndToEnd(const BenchOptions& options);

}  // namespace ravlo::bench
