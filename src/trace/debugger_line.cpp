#include "trace/debugger_line.h"

#include <objbase.h>

#include "trace/trace.h"

namespace ravlo {
namespace {

constexpr std::uint32_t kDebuggerCapacity = 256;

void WriteInterfaceQueryLine(const wchar_t* className, REFIID riid, HRESULT hr) noexcept {
    const GuidText interfaceText(riid, L"{unknown-iid}");
    const char* word = nullptr;
    switch (hr) {
        case S_OK:
            word = "S_OK";
            break;
        case E_NOINTERFACE:
            word = "E_NOINTERFACE";
            break;
        case E_POINTER:
            word = "E_POINTER";
            break;
        default:
            RvDebuggerLine("RAVLO-QI: %ls QI %ls -> 0x%08X\n", className, interfaceText.Get(), hr);
            return;
    }
    RvDebuggerLine("RAVLO-QI: %ls QI %ls -> %s\n", className, interfaceText.Get(), word);
}

}  // namespace

GuidText::GuidText(REFGUID guid, const wchar_t* fallback) noexcept {
    m_text = StringFromGUID2(guid, m_buffer, kCapacity) > 0 ? m_buffer : fallback;
}

void RvDebuggerSlots(const char* format, const TraceSlot* slots, std::size_t slotCount) noexcept {
    char narrow[kDebuggerCapacity];
    RvLineBuffer line(narrow, kDebuggerCapacity);
    RvFormat(line, format, slots, slotCount);
    wchar_t wide[kDebuggerCapacity];
    for (std::int32_t i = 0; i <= line.length; ++i) {
        wide[i] = static_cast<wchar_t>(static_cast<unsigned char>(line.text[i]));
    }
    const DWORD lastError = GetLastError();
    OutputDebugStringW(wide);
    SetLastError(lastError);
}

HRESULT RvTraceInterfaceQuery(const wchar_t* className, const char* label, const char* failLabel, REFIID riid,
                              HRESULT hr) noexcept {
    WriteInterfaceQueryLine(className, riid, hr);
    RvTraceGuidHr(FAILED(hr) ? failLabel : label, &riid, hr);
    return hr;
}

}  // namespace ravlo
