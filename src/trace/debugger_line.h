#pragma once

#include <windows.h>

#include <cstddef>
#include <type_traits>

#include "trace/format_string.h"

namespace ravlo {

/// An interface or class identifier as text, "{xxxxxxxx-...}"; `fallback` when the system cannot convert it.
class GuidText {
public:
    GuidText(REFGUID guid, const wchar_t* fallback) noexcept;
    const wchar_t* Get() const noexcept { return m_text; }

private:
    static constexpr int kCapacity = 64;
    wchar_t m_buffer[kCapacity]{};
    const wchar_t* m_text;
};

/// Writes one line of at most 255 characters to the debugger channel. The text is ASCII: wide arguments print "?" for
/// everything else. RvDebuggerLine is the checked way to call this.
void RvDebuggerSlots(const char* format, const TraceSlot* slots, std::size_t slotCount) noexcept;

/// Writes one formatted line to the debugger channel; the format has the trace log's conversions.
template <class... Arguments>
void RvDebuggerLine(TraceFormat<std::type_identity_t<Arguments>...> format, Arguments... arguments) noexcept {
    const TraceSlot slots[] = {ToTraceSlot(arguments)..., 0};
    RvDebuggerSlots(format.Text(), slots, sizeof...(arguments));
}

/// Reports one answered interface query: "RAVLO-QI: class QI {iid} -> result" on the debugger channel and `label`
/// (or "FAIL " before it) with the identifier in the trace log. Returns `hr`.
HRESULT RvTraceInterfaceQuery(const wchar_t* className, const char* label, const char* failLabel, REFIID riid,
                              HRESULT hr) noexcept;

}  // namespace ravlo
