#pragma once

#include <windows.h>

#include "gate/demand_gate.h"
#include "pipe/frame_reader.h"
#include "platform/unique_handle.h"
#include "stream/frame_pool.h"

namespace ravlo {

/// The two threads of a stream, the reader and the gate: their start, the one event that stops both, and a teardown
/// that frees nothing a running thread might touch. A thread that does not end within the join's bound is abandoned,
/// and everything it could reach is leaked on purpose. One thread at a time calls these methods.
class PipeThreads {
public:
    PipeThreads(ActivationNames& names, FrameSink& sink, FramePool& pool, const AdvertisedSize& size,
                const DemandCounters& counters) noexcept;

    /// Starts both threads, once. `frameArrival` is set when the reader ends; borrowed. A failure is traced here and
    /// returned; a gate thread that cannot be started is no failure.
    HRESULT StartPipeThreads(HANDLE frameArrival) noexcept;

    /// Stops and joins both threads and releases the pipes, or abandons them. `notRunning`, which may be null, is
    /// signalled first, so that no request for a sample goes on waiting. May be called again.
    void StopPipeThreads(HANDLE notRunning) noexcept;

    /// True once a teardown has given up on a thread: the object that holds this one must then never be destroyed.
    bool IsAbandoned() const noexcept { return m_abandoned; }

    /// True when the last teardown joined every thread.
    bool JoinedCleanly() const noexcept { return m_joinedCleanly; }

private:
    static DWORD WINAPI ReaderThread(void* parameter) noexcept;
    bool JoinThreads() noexcept;
    void Abandon(DWORD waitResult) noexcept;
    void Release() noexcept;

    FramePool& m_pool;
    const std::uint32_t m_frameBytes;
    FrameReader m_reader;
    RvGateContext m_gate;
    HANDLE m_frameArrival = nullptr;
    UniqueObject m_stopEvent;
    UniqueObject m_readerThread;
    UniqueObject m_gateThread;
    bool m_joinedCleanly = false;
    bool m_abandoned = false;
};

}  // namespace ravlo
