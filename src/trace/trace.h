#pragma once

#include <windows.h>

#include <cstddef>
#include <type_traits>

#include "trace/format_string.h"

namespace ravlo {

/// Tells the trace log which module it belongs to; called once, at process attach, before the first line.
void RvSetTraceModule(HMODULE module) noexcept;

/// Writes one line from packed arguments. RvTrace is the checked way to call this.
void RvTraceSlots(const char* format, const TraceSlot* slots, std::size_t slotCount) noexcept;

/// Writes one line to the trace log: "[pid:tid process] time message". Any thread, any time, also under the loader
/// lock; the log is opened with the rights of the calling thread. Never fails, and the thread's last error is
/// afterwards what it was before, so a failure may be logged and then read.
template <class... Arguments>
void RvTrace(TraceFormat<std::type_identity_t<Arguments>...> format, Arguments... arguments) noexcept {
    const TraceSlot slots[] = {ToTraceSlot(arguments)..., 0};
    RvTraceSlots(format.Text(), slots, sizeof...(arguments));
}

/// Writes "%s %G hr=0x%08X": a result that concerns an interface, attribute or class. `guid` may be null.
void RvTraceGuidHr(const char* label, const GUID* guid, HRESULT hr) noexcept;

/// Writes "FAIL label hr=0x..." for a failure and "RET label hr=0x..." otherwise, and returns `hr`: the way out of
/// every public COM method.
HRESULT RvTraceResult(const char* label, HRESULT hr) noexcept;

/// Writes "PIPE text".
void RvTracePipe(const char* text) noexcept;

}  // namespace ravlo
