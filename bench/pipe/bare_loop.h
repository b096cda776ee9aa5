#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <thread>

#include "harness/page_buffer.h"
#include "pipe/arrivals.h"
#include "platform/unique_handle.h"

namespace ravlo::bench {

/// The least that a receiver of frames can do: on a pipe like the camera's it reads each header and each payload whole
/// into touched memory and copies the payload once. No header is judged; the end of the pipe ends
/// it. It runs on a thread of its own, for one writer.
class BareLoop {
public:
    enum class Reads {
        Plain,  ///< blocking reads on a handle for blocking use
        /// As the camera reads: a look at a stop event before each frame and each read, an event of its own for each
        /// read, a wait on both, and an event set for each frame.
        Stoppable,
    };

    BareLoop(const std::wstring& pipeName, const FrameGeometry& geometry, Reads reads, std::size_t frames);
    BareLoop(const BareLoop&) = delete;
    BareLoop& operator=(const BareLoop&) = delete;
    ~BareLoop();

    const Arrivals& Received() const noexcept { return m_arrivals; }

private:
    void Run();
    bool AcceptWriter();
    bool ReadAll(void* bytes, std::size_t size);
    bool ReadStoppably(void* bytes, DWORD size, DWORD& transferred);
    bool StopRequested() const;

    const std::wstring m_pipeName;
    const Reads m_reads;
    Arrivals m_arrivals;
    PageBuffer m_received;
    PageBuffer m_copies[2];
    UniqueFile m_pipe;
    UniqueObject m_event;         ///< of the listen
    UniqueObject m_stopEvent;     ///< never set
    UniqueObject m_frameArrival;  ///< nobody waits for it
    std::thread m_thread;
};

}  // namespace ravlo::bench
