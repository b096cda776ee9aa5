#include "gate/demand_gate.h"

#include "trace/trace.h"

namespace ravlo {
namespace {

constexpr std::uint64_t kCreateRetryMs = 1000;

/// True when the gate pipe is there, created now if need be.
bool EnsureCreated(RvGateContext& context, std::uint64_t now) noexcept {
    if (context.created) {
        return true;
    }
    if (context.nextAttemptTick != 0 && now < context.nextAttemptTick) {
        return false;
    }
    context.nextAttemptTick = now + kCreateRetryMs;
    const GateName name = GateNameFor(context.framePipe.name);
    if (!RvGatePipeCreate(context.gate, context.framePipe.authorizedUserSid, name.text)) {
        if (!context.failureReported) {
            context.failureReported = true;
            RvTrace(
                "GATE could not create %ls, GetLastError=%lu - retrying every %I64u ms. The bridge sees no demand "
                "record and decodes every frame, which is the behaviour that shipped before the gate existed",
                &name.text[0], context.gate.lastError, kCreateRetryMs);
        }
        return false;
    }
    context.created = true;
    context.failureReported = false;
    RvTrace("GATE serving %ls - the bridge may now see whether anything is pulling samples", &name.text[0]);
    return true;
}

}  // namespace

void RvGateTick(RvGateContext& context) noexcept {
    if (!context.framePipe.created.load() || context.framePipe.name.IsEmpty() ||
        context.framePipe.authorizedUserSid.empty()) {
        return;
    }
    const std::uint64_t now = GetTickCount64();
    if (!EnsureCreated(context, now)) {
        return;
    }
    if (context.lastPublishTick != 0 && now - context.lastPublishTick < kDemandPeriodMs) {
        return;
    }
    context.lastPublishTick = now;
    const std::int64_t requests = context.demand.totalCalls.load();
    const std::uint64_t idleMs = DemandIdleMs(now, context.demand.lastCallTick.load());
    RvGatePipePublish(context.gate, idleMs, requests < 1 ? 0 : static_cast<std::uint64_t>(requests));
}

DWORD WINAPI RvGateThread(void* parameter) noexcept {
    auto& context = *static_cast<RvGateContext*>(parameter);
    do {
        RvGateTick(context);
        // A wait that fails ends the loop as a stop would: it fails at once, and the loop would spin on it.
    } while (WaitForSingleObject(context.stopEvent, static_cast<DWORD>(kDemandPeriodMs)) == WAIT_TIMEOUT);
    RvTrace(
        "GATE thread exiting - no further demand records are published, so the bridge's lease expires and it goes "
        "back to decoding every frame");
    return 0;
}

void RvGateRelease(RvGateContext& context) noexcept {
    RvGatePipeClose(context.gate);
    context.created = false;
    context.failureReported = false;
    context.nextAttemptTick = 0;
    context.lastPublishTick = 0;
}

}  // namespace ravlo
