#include "trace/trace.h"

#include <atomic>
#include <iterator>

#include "platform/unique_handle.h"
#include "trace/line_layout.h"
#include "trace/trace_location.h"

namespace ravlo {
namespace {

enum ChoiceState : LONG { kNotChosen = 0, kBeingChosen = 1, kChosen = 2 };

// Constant-initialised and trivially destructible: lines are written while the loader attaches and detaches the module.
constinit RvTraceLocation g_location{};
constinit std::atomic<LONG> g_choiceState{kNotChosen};
constinit std::atomic<bool> g_reportWritten{false};
constinit std::atomic<HMODULE> g_module{nullptr};

/// The location to use for one line. While another thread is still choosing, nobody waits for it: this line makes a
/// complete choice of its own into `scratch`, at the cost of a few opens at start-up.
const RvTraceLocation& CurrentLocation(RvTraceLocation& scratch) noexcept {
    LONG state = kNotChosen;
    if (g_choiceState.compare_exchange_strong(state, kBeingChosen)) {
        ChooseTraceLocation(g_location, g_module.load());
        g_choiceState.store(kChosen);
        return g_location;
    }
    if (state == kChosen) {
        return g_location;
    }
    ChooseTraceLocation(scratch, g_module.load());
    return scratch;
}

void AppendPrefix(RvLineBuffer& line, const RvTraceLocation& location) noexcept {
    FILETIME fileTime{};
    GetSystemTimeAsFileTime(&fileTime);
    SYSTEMTIME utc{};
    const bool converted = FileTimeToSystemTime(&fileTime, &utc) != FALSE;
    const TimeOfDay time{utc.wHour, utc.wMinute, utc.wSecond, utc.wMilliseconds};
    AppendLinePrefix(line, GetCurrentProcessId(), GetCurrentThreadId(), location.processName,
                     converted ? &time : nullptr);
}

void WriteLine(const RvTraceLocation& location, const char* format, const TraceSlot* slots,
               std::size_t slotCount) noexcept {
    char storage[kLineCapacity];
    RvLineBuffer line(storage, kMessageCapacity);
    AppendPrefix(line, location);
    RvFormat(line, format, slots, slotCount);
    FinishLine(line);

    const UniqueFile file(OpenTraceFile(location.path));
    if (file) {
        // One write for the whole line: appends are atomic, so lines of many threads and processes interleave whole.
        DWORD written = 0;
        WriteFile(file.Get(), line.text, static_cast<DWORD>(line.length), &written, nullptr);
    }
}

/// How the location was chosen, once per process, ahead of the first line.
void WriteLocationReport(const RvTraceLocation& location) noexcept {
    bool written = false;
    if (!g_reportWritten.compare_exchange_strong(written, true)) {
        return;
    }
    const TraceSlot slots[] = {
        location.candidate,     ToTraceSlot(&location.path[0]), ToTraceSlot(TraceDirVerdictWord(location.verdicts[0])),
        location.gateErrors[0], location.openErrors[0],         ToTraceSlot(TraceDirVerdictWord(location.verdicts[1])),
        location.gateErrors[1], location.openErrors[1],         location.openErrors[2]};
    WriteLine(location,
              "TRACEPATH candidate=%u path=%ls cand1=C:\\ProgramData\\Ravlo gate=%s/gateerr=%u/openerr=%u "
              "cand2=<dll-directory> gate=%s/gateerr=%u/openerr=%u "
              "cand3=C:\\Windows\\Temp gate=UNGATED-LAST-RESORT/openerr=%u",
              slots, std::size(slots));
}

}  // namespace

void RvSetTraceModule(HMODULE module) noexcept {
    g_module.store(module);
}

void RvTraceSlots(const char* format, const TraceSlot* slots, std::size_t slotCount) noexcept {
    const DWORD lastError = GetLastError();
    RvTraceLocation scratch;
    const RvTraceLocation& location = CurrentLocation(scratch);
    if (location.candidate != 0) {
        WriteLocationReport(location);
        WriteLine(location, format, slots, slotCount);
    }
    SetLastError(lastError);
}

void RvTraceGuidHr(const char* label, const GUID* guid, HRESULT hr) noexcept {
    RvTrace("%s %G hr=0x%08X", label, guid, hr);
}

HRESULT RvTraceResult(const char* label, HRESULT hr) noexcept {
    RvTrace("%s %s hr=0x%08X", FAILED(hr) ? "FAIL" : "RET", label, hr);
    return hr;
}

void RvTracePipe(const char* text) noexcept {
    RvTrace("PIPE %s", text);
}

}  // namespace ravlo
