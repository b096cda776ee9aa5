#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "harness/frame_sizes.h"

namespace ravlo::bench {

/// What the command line of a measuring program asks for.
struct BenchOptions {
    std::vector<FrameSize> sizes;  ///< the sizes to measure, in order
    std::string only;              ///< the one row to measure; empty: all that the program has
    bool quick = false;            ///< a run that shows that it runs: few repetitions, short waits

    bool Wants(std::string_view row) const { return only.empty() || only == row; }
};

/// The measurements of one program, defined by it. Throws on failure: a figure that could not be taken is no figure.
void RunBench(const BenchOptions& options);

}  // namespace ravlo::bench
