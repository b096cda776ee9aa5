#include "stream/pipe_threads.h"

#include "platform/hresult.h"
#include "trace/trace.h"

namespace ravlo {
namespace {

/// For both threads together.
constexpr DWORD kJoinTimeoutMs = 2000;

bool IsRunning(const UniqueObject& thread) noexcept {
    return thread.IsValid() && WaitForSingleObject(thread.Get(), 0) != WAIT_OBJECT_0;
}

}  // namespace

PipeThreads::PipeThreads(ActivationNames& names, FrameSink& sink, FramePool& pool, const AdvertisedSize& size,
                         const DemandCounters& counters) noexcept
    : m_pool(pool), m_frameBytes(size.frameBytes), m_reader(names, sink, size), m_gate(m_reader.Status(), counters) {
}

HRESULT PipeThreads::StartPipeThreads(HANDLE frameArrival) noexcept {
    if (m_readerThread || m_abandoned) {
        return S_OK;
    }
    m_frameArrival = frameArrival;
    m_stopEvent.Reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!m_stopEvent) {
        RvTrace(
            "FAIL PIPE reader stop event could not be created, GetLastError=%lu - NO reader thread will run and the "
            "camera will serve the test pattern for the life of this stream",
            GetLastError());
        return HresultFromLastError();
    }
    m_readerThread.Reset(CreateThread(nullptr, 0, &PipeThreads::ReaderThread, this, 0, nullptr));
    if (!m_readerThread) {
        m_stopEvent.Reset();
        RvTrace(
            "FAIL PIPE reader thread could not be started, GetLastError=%lu - the camera will serve the test pattern "
            "for the life of this stream",
            GetLastError());
        return HresultFromLastError();
    }
    RvTrace("PIPE reader thread started - RequestSample performs NO pipe I/O");
    m_gate.stopEvent = m_stopEvent.Get();
    m_gateThread.Reset(CreateThread(nullptr, 0, &RvGateThread, &m_gate, 0, nullptr));
    if (m_gateThread) {
        RvTrace(
            "GATE thread started - the demand lease is now re-asserted every %I64u ms on its own clock, not once per "
            "frame received",
            kDemandPeriodMs);
    } else {
        RvTrace(
            "FAIL GATE thread could not be started, GetLastError=%lu - NO demand record will ever be published for "
            "this stream, so the bridge sees no gate and decodes every frame. The camera itself is unaffected",
            GetLastError());
    }
    return S_OK;
}

DWORD WINAPI PipeThreads::ReaderThread(void* parameter) noexcept {
    auto& self = *static_cast<PipeThreads*>(parameter);
    // Here and not in the activation, which waits for nothing that only a first frame needs.
    self.m_pool.TouchSlots(self.m_frameBytes);
    self.m_reader.Run(self.m_stopEvent.Get());
    if (self.m_frameArrival != nullptr) {
        // A request that waits for a frame wakes up and finds none.
        SetEvent(self.m_frameArrival);
    }
    RvTrace("PIPE reader thread exiting");
    return 0;
}

void PipeThreads::StopPipeThreads(HANDLE notRunning) noexcept {
    if (notRunning != nullptr) {
        SetEvent(notRunning);
    }
    if (m_abandoned) {
        RvTrace(
            "FAIL PIPE teardown re-entered after the reader thread was ABANDONED - the pipe, the stop event, the "
            "critical sections and this object are left ALONE. This is the second call that used to free them all "
            "under a live thread");
        return;
    }
    if (m_stopEvent) {
        SetEvent(m_stopEvent.Get());
    }
    if (JoinThreads()) {
        Release();
    } else {
        m_abandoned = true;
    }
}

bool PipeThreads::JoinThreads() noexcept {
    HANDLE threads[2];
    DWORD count = 0;
    for (const UniqueObject* thread : {&m_readerThread, &m_gateThread}) {
        if (thread->IsValid()) {
            threads[count++] = thread->Get();
        }
    }
    if (count == 0) {
        return true;
    }
    const DWORD waitResult = WaitForMultipleObjects(count, threads, TRUE, kJoinTimeoutMs);
    if (waitResult >= WAIT_OBJECT_0 + count) {
        Abandon(waitResult);
        return false;
    }
    m_readerThread.Reset();
    m_gateThread.Reset();
    m_joinedCleanly = true;
    return true;
}

void PipeThreads::Abandon(DWORD waitResult) noexcept {
    const bool readerRuns = IsRunning(m_readerThread);
    const bool gateRuns = IsRunning(m_gateThread);
    // Leaked with everything else: the threads use what they use for as long as the process lives.
    (void)m_readerThread.Release();
    (void)m_gateThread.Release();
    m_joinedCleanly = false;
    const char* const who = !gateRuns    ? "the reader thread"
                            : readerRuns ? "the reader AND gate threads"
                                         : "the gate thread";
    RvTrace(
        "FAIL PIPE %s did not exit within %u ms (wait=%lu) - the thread handles, the pipe handle, the stop event, "
        "both critical sections, the frame slots AND THIS WHOLE OBJECT are LEAKED ON PURPOSE rather than freed under "
        "a live thread. The pipe name stays held, so the next media source instance cannot create it and the camera "
        "will serve the test pattern until the Frame Server restarts",
        who, kJoinTimeoutMs, waitResult);
}

void PipeThreads::Release() noexcept {
    m_reader.Release();
    RvGateRelease(m_gate);
    m_pool.Reset();
    m_stopEvent.Reset();
    m_gate.stopEvent = nullptr;
}

}  // namespace ravlo
