#pragma once

#include "harness/bench_main.h"

namespace ravlo::bench {

/// Row camera_limit: with how many cameras the machine keeps up.
void MeasureMachineLimit(const BenchOptions& options);

}  // namespace ravlo::bench
