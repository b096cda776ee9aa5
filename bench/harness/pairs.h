#pragma once

#include <cstddef>

#include "harness/report.h"
#include "harness/stopwatch.h"

namespace ravlo::bench {

/// Fills `measurement` with `count` pairs. Floor and product take turns, and take turns at going first, so that
/// whatever slows the machine down for a while slows both. `prepare` runs before each, untimed.
template <class Prepare, class Floor, class Product>
void MeasurePairs(Measurement& measurement, std::size_t count, Prepare&& prepare, Floor&& floor, Product&& product) {
    for (std::size_t i = 0; i < count; ++i) {
        const bool floorFirst = i % 2 == 0;
        double times[2];
        for (int turn = 0; turn < 2; ++turn) {
            const bool isFloor = (turn == 0) == floorFirst;
            prepare();
            times[isFloor ? 0 : 1] = isFloor ? TimeOnce(floor) : TimeOnce(product);
        }
        measurement.floor.push_back(times[0]);
        measurement.product.push_back(times[1]);
    }
}

}  // namespace ravlo::bench
