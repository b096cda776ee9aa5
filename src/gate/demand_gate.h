#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "gate/gate_pipe.h"
#include "pipe/frame_pipe_status.h"

namespace ravlo {

/// The stream's demand as two numbers that RequestSample keeps up to date.
struct DemandCounters {
    std::atomic<std::int64_t> totalCalls{0};     ///< sample requests since the last Start
    std::atomic<std::uint64_t> lastCallTick{0};  ///< ms tick of the most recent request; 0 when there was none
};

/// Everything the gate thread works on: what it may read of the frame pipe and the stream, and its own pipe and state.
struct RvGateContext {
    RvGateContext(const FramePipeStatus& status, const DemandCounters& counters) noexcept
        : framePipe(status), demand(counters) {}

    const FramePipeStatus& framePipe;
    const DemandCounters& demand;
    HANDLE stopEvent = nullptr;  ///< borrowed; shared with the reader thread
    RvGatePipe gate;
    bool created = false;
    bool failureReported = false;
    std::uint64_t nextAttemptTick = 0;  ///< ms; 0 = none
    std::uint64_t lastPublishTick = 0;  ///< ms; 0 = none
};

/// One pass: creates the gate pipe when the frame pipe exists, at most once a second, and publishes a record when 500
/// ms have passed since the last one.
void RvGateTick(RvGateContext& context) noexcept;

/// The gate thread: a pass at once and then one every 500 ms until the stop event is signalled. `parameter` is the
/// RvGateContext. Returns 0.
DWORD WINAPI RvGateThread(void* parameter) noexcept;

/// Closes the gate pipe and clears the gate's state, so that a later start begins afresh. Only without a gate thread.
void RvGateRelease(RvGateContext& context) noexcept;

}  // namespace ravlo
