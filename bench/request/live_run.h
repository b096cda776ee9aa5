#pragma once

#include <cstdint>
#include <vector>

#include "harness/frame_sizes.h"
#include "request/call_spans.h"

namespace ravlo::bench {

/// One sample that the camera delivered, and when it was due (MFGetSystemTime, 100 ns).
struct Delivery {
    CallRecord call;
    std::int64_t due;
    bool live;  ///< a whole frame of the producer, not the test pattern
};

/// One frame of the floor: a bare wait for its due time, then a bare build of its sample.
struct BareDelivery {
    std::int64_t due;
    std::int64_t wokenAt;  ///< 0: it was due before the wait began
    std::int64_t builtAt;
};

struct RunResult {
    std::vector<Delivery> product;
    std::vector<BareDelivery> floor;
    std::vector<CallRecord> unwaited;  ///< calls that found their sample due, right after another such call
    double hookCostUs = 0;             ///< what one hook leaves behind in a call's own time
    unsigned shortBlocks = 0;          ///< blocks that ended early because the camera fell far behind its grid
};

/// How much of a run is measured on each side: blocks of frames in which product and floor take turns.
struct RunLength {
    unsigned blocks;
    unsigned framesABlock;
    unsigned bursts;  ///< each yields one unwaited call
};

/// Runs one camera of `size` with a paced producer in another process.
///
/// The camera is restarted for each of its blocks: its first sample then comes at once, with the time of the start, and
/// every later one is due at its own sample time. The floor's block goes on with the same grid where the camera's
/// ended, so both meet the producer's frames at about the same distance from their due times; two grids half a period
/// apart would put the transfer of a frame on one of them for the whole run. The producer and the module's reader go on
/// during the floor's blocks. The first sample of a block waits for nothing and is left out.
RunResult TakeLiveRun(const FrameSize& size, const RunLength& length);

}  // namespace ravlo::bench
