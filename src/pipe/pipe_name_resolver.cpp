#include "pipe/pipe_name_resolver.h"

#include "trace/trace.h"

namespace ravlo {
namespace {

void TraceHostPidRoute(const PipeName& name, std::uint32_t hostPid, std::uint64_t waitedMs, bool refused) noexcept {
    RvTrace(
        "PIPE name %ls - route=host-pid %lu from the undocumented activation attribute, taken after waiting %lu ms "
        "of a %lu ms grace for the explicit name; that attribute was %s",
        &name.text[0], hostPid, static_cast<DWORD>(waitedMs), static_cast<DWORD>(kHostPidGraceMs),
        refused
            ? "PRESENT BUT REFUSED - not a value this product may serve (a name outside RvIsRavloPipeName's grammar, "
              "or a length the attribute store reported inconsistently), so it was discarded"
            : "absent (a rvclient.exe or rvhost.exe older than 2026-09-09, or a camera this client did not create)");
}

void TraceSingletonRoute(const PipeName& name, bool refused) noexcept {
    // The grace and not the measured wait: the line explains the rule.
    RvTrace(
        "PIPE name %ls - route=singleton; after %lu ms the explicit pipe-name attribute was %s and the host-pid "
        "attribute was absent too, so there is nothing left to derive a per-node name from",
        &name.text[0], static_cast<DWORD>(kSingletonGraceMs),
        refused ? "PRESENT BUT REFUSED - outside RvIsRavloPipeName's grammar, or a length the attribute store reported "
                  "inconsistently"
                : "absent");
}

}  // namespace

bool PipeNameResolver::ResolvePipeName(PipeName& name) noexcept {
    if (!name.IsEmpty()) {
        return true;
    }
    const std::uint64_t now = GetTickCount64();
    if (m_waitStart == 0) {
        m_waitStart = now;
    }
    PipeName explicitName;
    std::uint32_t hostPid = 0;
    const ExplicitName outcome = m_names.ReadNames(explicitName, hostPid);
    const std::uint64_t waitedMs = now - m_waitStart;
    const bool refused = outcome == ExplicitName::Refused;
    switch (ChoosePipeNameRoute(outcome, hostPid, waitedMs)) {
        case PipeNameRoute::Explicit:
            name = explicitName;
            RvTrace(
                "PIPE name %ls - route=client-attribute; the camera owner published it explicitly and "
                "RvIsRavloPipeName accepted it",
                &name.text[0]);
            return true;
        case PipeNameRoute::HostPid:
            name = PipeNameForPid(hostPid);
            TraceHostPidRoute(name, hostPid, waitedMs, refused);
            return true;
        case PipeNameRoute::Singleton:
            name = PipeNameForPid(0);
            TraceSingletonRoute(name, refused);
            return true;
        default:
            return false;
    }
}

}  // namespace ravlo
