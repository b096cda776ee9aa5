#pragma once

#include <windows.h>

#include <mfidl.h>
#include <mfobjects.h>

#include <atomic>
#include <cstdint>
#include <optional>

#include "gate/demand_gate.h"
#include "module/module_count.h"
#include "platform/com_ptr.h"
#include "platform/critical_section.h"
#include "platform/unique_handle.h"
#include "stream/activation_names.h"
#include "stream/frame_pool.h"
#include "stream/frame_publisher.h"
#include "stream/geometry.h"
#include "stream/pacer.h"
#include "stream/pipe_threads.h"

namespace ravlo {

/// What the stream needs of the source that creates it: the object that clients know, and an untraced way to the
/// activation attributes.
class StreamOwner : public ActivationStore {
public:
    /// The source's identity as clients see it, borrowed.
    virtual IMFMediaSource* AsMediaSource() noexcept = 0;

protected:
    ~StreamOwner() = default;
};

/// The one video stream of the camera, for one geometry. The source creates it and drives it with Start, Stop and
/// Shutdown; the pipeline pulls samples with RequestSample. Free-threaded. Lock order: pacing lock, then state lock;
/// nothing that can block runs under either.
class RvMediaStream final : public IMFMediaStream, private ActivationStore {
public:
    /// Creates a stream; the caller owns the reference. E_POINTER for a null output, E_INVALIDARG for a null owner or
    /// descriptor, E_OUTOFMEMORY, or what the initialisation failed with.
    static HRESULT Create(StreamOwner* owner, IMFStreamDescriptor* descriptor, const FrameGeometry& geometry,
                          RvMediaStream** stream) noexcept;

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override;
    STDMETHODIMP_(ULONG) Release() noexcept override;

    // IMFMediaEventGenerator
    STDMETHODIMP GetEvent(DWORD flags, IMFMediaEvent** event) noexcept override;
    STDMETHODIMP BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) noexcept override;
    STDMETHODIMP EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) noexcept override;
    STDMETHODIMP QueueEvent(MediaEventType type, REFGUID extendedType, HRESULT status,
                            const PROPVARIANT* value) noexcept override;

    // IMFMediaStream
    STDMETHODIMP GetMediaSource(IMFMediaSource** source) noexcept override;
    STDMETHODIMP GetStreamDescriptor(IMFStreamDescriptor** descriptor) noexcept override;
    STDMETHODIMP RequestSample(IUnknown* token) noexcept override;

    /// Compares the descriptor's current media type with the geometry of this stream. A type that cannot be read passes
    /// with a warning; one that differs is MF_E_INVALIDMEDIATYPE.
    HRESULT CheckCurrentMediaType() noexcept;

    /// Resets the pacing, queues MEStreamStarted and then accepts requests.
    HRESULT Start() noexcept;

    /// Stops accepting requests, wakes those that wait, and queues MEStreamStopped. The two threads go on.
    HRESULT Stop() noexcept;

    /// Ends the stream for good: event queue, threads, references. Never fails; a repeat does nothing.
    HRESULT Shutdown() noexcept;

private:
    enum class State : LONG { Stopped = 0, Started = 1, ShutDown = 2 };

    RvMediaStream(ActivationStore& ownerStore, const FrameGeometry& geometry) noexcept;
    ~RvMediaStream();

    HRESULT Initialize(IMFMediaSource* source, IMFStreamDescriptor* descriptor) noexcept;
    HRESULT CreateLocks() noexcept;
    HRESULT CreateWaitHandles() noexcept;
    HRESULT AllocateFramePool() noexcept;

    ComPtr<IMFAttributes> ReferenceActivationStore() noexcept override;
    ComPtr<IMFMediaEventQueue> ReferenceQueue() noexcept;
    HRESULT CompareCurrentMediaType() noexcept;
    HRESULT RunStart(std::int64_t now) noexcept;
    HRESULT RunStop() noexcept;
    HRESULT EnterStarted(std::uint32_t generation) noexcept;

    // Sample delivery (sample_delivery.cpp).
    HRESULT DeliverSample(IUnknown* token) noexcept;
    void CountRequest() noexcept;
    void TraceApartmentOnce() noexcept;
    HRESULT PaceNextSample(PacingDecision& decision, std::optional<std::uint32_t>& generation,
                           ComPtr<IMFMediaEventQueue>& queue) noexcept;
    HRESULT CheckDeliverable(std::optional<std::uint32_t>& generation) const noexcept;
    bool ArmTimer(std::int64_t waitRemainder) noexcept;
    HRESULT WaitForNextLook(bool timerArmed, DWORD timeoutMs) noexcept;

    const ModuleReference m_moduleReference;
    std::atomic<LONG> m_refCount{1};
    CriticalSection m_stateLock;   ///< state, generation and the three interface pointers
    CriticalSection m_pacingLock;  ///< pacing decisions, Start and Stop
    bool m_initialized = false;    ///< both locks exist
    State m_state = State::Stopped;
    ComPtr<IMFMediaEventQueue> m_eventQueue;
    ComPtr<IMFMediaSource> m_source;
    ComPtr<IMFStreamDescriptor> m_descriptor;
    /// Part of the object that m_source references; used only while a reference is held.
    ActivationStore& m_ownerStore;
    const FrameGeometry m_geometry;
    Pacer m_pacer;
    std::uint32_t m_generation = 0;  ///< raised by every Start, Stop and Shutdown
    UniqueObject m_frameArrival;     ///< auto-reset; set when a frame was published
    UniqueObject m_notRunning;       ///< manual-reset; set whenever the stream is not started
    UniqueObject m_timer;            ///< high-resolution, may be absent
    DemandCounters m_demand;
    std::atomic<std::int64_t> m_lastLineTick{-1};  ///< ms; negative: write a line at once
    std::atomic<bool> m_apartmentTraced{false};
    FramePool m_framePool;
    FramePublisher m_publisher;
    StreamActivationNames m_names;
    PipeThreads m_threads;
    ComPtr<IUnknown> m_freeThreadedMarshaler;
};

}  // namespace ravlo
