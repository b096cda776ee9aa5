#include "delivery/end_to_end.h"
#include "delivery/frame_cost.h"

namespace ravlo::bench {

void RunBench(const BenchOptions& options) {
    MeasureEndToEnd(options);
    MeasureFrameCost(options);
}

}  // namespace ravlo::bench
