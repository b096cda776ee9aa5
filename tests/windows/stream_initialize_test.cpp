#include <gtest/gtest.h>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/handles.h"
#include "support/heap_faults.h"
#include "support/pattern.h"
#include "windows/hooked_clock.h"
#include "windows/stream_object.h"

// The making of a stream, and each step of it failing.
namespace ravlo::test {
namespace {

constexpr auto kNoResources = static_cast<HRESULT>(0x800705AA);  // ERROR_NO_SYSTEM_RESOURCES

class StreamInitialize : public ModuleTest {
protected:
    /// A source that has not built its stream yet: a hook set now sees what the stream does, and nothing before.
    StreamInitialize() : m_activate(m_module.CreateSource<IMFActivate>()) {
        Require(m_activate->SetString(kGeometryAttribute, L"64x36@60/1"), "SetString");
        Require(m_activate->SetString(kPipeNameAttribute, UniquePipeName().c_str()), "SetString");
    }
    ~StreamInitialize() override { m_activate.As<IMFMediaSource>()->Shutdown(); }

    HRESULT Activate() {
        ComPtr<IMFMediaSource> source;
        return m_activate->ActivateObject(__uuidof(IMFMediaSource), source.PutVoid());
    }

    /// Expects that the activation failed with `expected`, left no handle behind, and works the next time.
    template <class Hook>
    void ExpectFailure(HRESULT expected, Hook& hook, std::size_t handles) {
        EXPECT_EQ(expected, Activate());
        EXPECT_TRUE(HandlesSettleAt(handles));
        EXPECT_FALSE(m_log.Contains("PIPE reader thread started"));
        hook.PassOn();
        EXPECT_EQ(S_OK, Activate());
    }

    ComPtr<IMFActivate> m_activate;
};

TEST_F(StreamInitialize, EitherLockFailingIsTheResult) {
    using Locks = RAVLO_HOOK(InitializeCriticalSectionAndSpinCount);
    for (const int step : {1, 2}) {
        Locks locks(m_module.Handle());
        locks.FailCall(step, FALSE, ERROR_NOT_ENOUGH_MEMORY);
        EXPECT_EQ(static_cast<HRESULT>(0x80070008), Activate()) << step;
        EXPECT_EQ(static_cast<std::size_t>(step), locks.Count());
    }
    Locks locks(m_module.Handle());
    EXPECT_EQ(S_OK, Activate());
    ASSERT_EQ(2u, locks.Count());
    EXPECT_EQ(0u, std::get<1>(locks.Calls()[0]));
    EXPECT_EQ(0u, std::get<1>(locks.Calls()[1]));
}

TEST_F(StreamInitialize, TheFirstLockIsDeletedWhenTheSecondFails) {
    RAVLO_HOOK(InitializeCriticalSectionAndSpinCount) locks(m_module.Handle());
    RAVLO_HOOK(DeleteCriticalSection) deletes(m_module.Handle());
    locks.FailCall(2, FALSE, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(static_cast<HRESULT>(0x80070008), Activate());
    ASSERT_EQ(1u, deletes.Count());
    EXPECT_EQ(std::get<0>(locks.Calls()[0]), std::get<0>(deletes.Calls()[0]));
}

TEST_F(StreamInitialize, TheFrameArrivalEventFailingIsTheResult) {
    const std::size_t handles = SettledHandles();
    RAVLO_HOOK(CreateEventW) events(m_module.Handle());
    events.FailCall(1, nullptr, ERROR_NO_SYSTEM_RESOURCES);
    ExpectFailure(kNoResources, events, handles);
}

TEST_F(StreamInitialize, TheNotRunningEventFailingIsTheResult) {
    const std::size_t handles = SettledHandles();
    RAVLO_HOOK(CreateEventW) events(m_module.Handle());
    events.FailCall(2, nullptr, ERROR_NO_SYSTEM_RESOURCES);
    ExpectFailure(kNoResources, events, handles);
}

TEST_F(StreamInitialize, TheMarshalerFailingIsTheResult) {
    const std::size_t handles = SettledHandles();
    RAVLO_HOOK(CoCreateFreeThreadedMarshaler) marshalers(m_module.Handle());
    marshalers.FailEvery(E_OUTOFMEMORY);
    ExpectFailure(E_OUTOFMEMORY, marshalers, handles);
}

TEST_F(StreamInitialize, TheEventQueueFailingIsTheResult) {
    const std::size_t handles = SettledHandles();
    RAVLO_HOOK(MFCreateEventQueue) queues(m_module.Handle());
    queues.FailEvery(MF_E_PLATFORM_NOT_INITIALIZED);
    ExpectFailure(MF_E_PLATFORM_NOT_INITIALIZED, queues, handles);
}

TEST_F(StreamInitialize, NoMemoryForTheFrameSlotsIsOutOfMemory) {
    HeapFaults heap(m_module.Handle());
    heap.FailFromSize(12'441'600);
    EXPECT_EQ(E_OUTOFMEMORY, Activate());  // the first exception of a module costs handles of the runtime's own
    const std::size_t handles = SettledHandles();
    ExpectFailure(E_OUTOFMEMORY, heap, handles);
    EXPECT_TRUE(heap.Hit());
}

TEST_F(StreamInitialize, TheSlotsHaveTheSizeOfTheLargestGeometryWhateverThisOneIs) {
    HeapFaults heap(m_module.Handle());
    heap.FailFromSize(12'441'601);
    EXPECT_EQ(S_OK, Activate());
    EXPECT_FALSE(heap.Hit());
}

TEST_F(StreamInitialize, EachAllocationOfItFailingIsOutOfMemoryAndLeavesNoBlock) {
    HeapFaults heap(m_module.Handle());
    heap.FailNth(1);
    EXPECT_EQ(E_OUTOFMEMORY, Activate());  // the first exception of a module costs blocks of the runtime's own
    const long blocks = heap.LiveBlocks();
    int failed = 0;
    for (long n = 1; n < 60; ++n) {
        heap.FailNth(n);
        const HRESULT hr = Activate();
        heap.PassOn();
        if (hr == S_OK) {
            break;
        }
        ++failed;
        ASSERT_EQ(E_OUTOFMEMORY, hr) << n;
        ASSERT_EQ(blocks, heap.LiveBlocks()) << n;
    }
    EXPECT_EQ(3, failed);  // the stream and its two frame slots
    EXPECT_EQ(S_OK, Activate());
}

TEST_F(StreamInitialize, ItsEventsAndItsTimerAreMadeAsTheWaitNeedsThem) {
    RAVLO_HOOK(CreateEventW) events(m_module.Handle());
    RAVLO_HOOK(CreateWaitableTimerExW) timers(m_module.Handle());
    ASSERT_EQ(S_OK, Activate());
    ASSERT_GE(events.Count(), 2u);
    const auto arrival = events.Calls()[0];
    EXPECT_EQ(FALSE, std::get<1>(arrival));  // auto-reset
    EXPECT_EQ(FALSE, std::get<2>(arrival));  // clear
    EXPECT_EQ(L"", std::get<3>(arrival));
    const auto notRunning = events.Calls()[1];
    EXPECT_EQ(TRUE, std::get<1>(notRunning));  // manual-reset
    EXPECT_EQ(TRUE, std::get<2>(notRunning));  // set
    ASSERT_EQ(1u, timers.Count());
    EXPECT_EQ(2u, std::get<2>(timers.Calls()[0]));           // high resolution
    EXPECT_EQ(0x00100002u, std::get<3>(timers.Calls()[0]));  // SYNCHRONIZE and TIMER_MODIFY_STATE
    EXPECT_FALSE(m_log.Contains("PACING high-resolution timer unavailable"));
}

TEST_F(StreamInitialize, TheThreadsFailingDoesNotFailIt) {
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    threads.FailEvery(nullptr, ERROR_NOT_ENOUGH_MEMORY);
    EXPECT_EQ(S_OK, Activate());
}

class StreamWithoutTimer : public ModuleTest {};

TEST_F(StreamWithoutTimer, IsMadeWithOneLineAndPacesByTheMillisecondTimeoutOnTwoHandles) {
    HookedClock clock(m_module.Handle());
    RAVLO_HOOK(CreateWaitableTimerExW) timers(m_module.Handle());
    timers.FailEvery(nullptr, ERROR_INVALID_PARAMETER);
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    EXPECT_TRUE(
        m_log.HasMessage("PACING high-resolution timer unavailable (err=87); falling back to the millisecond timeout"))
        << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("PACING"));
    camera.Start();
    for (std::uint32_t k = 0; k < 30; ++k) {
        ASSERT_EQ(HookedClock::kStart + k * 166'666LL, camera.Pull().time);
    }
    // 30 samples end at the 29th period: late by less than one millisecond, never early.
    EXPECT_GE(clock.Now(), HookedClock::kStart + 29 * 166'666LL);
    EXPECT_LT(clock.Now(), HookedClock::kStart + 29 * 166'666LL + 10'000);
    for (const PacingWait& wait : clock.TakeWaits()) {
        EXPECT_EQ(2u, wait.handles);
        EXPECT_GE(17u, wait.timeoutMs);
    }
    EXPECT_EQ(0u, clock.Timer().Count());
}

class StreamGeometry : public ModuleTest {};

TEST_F(StreamGeometry, TheLargestOneIsServed) {
    HookedClock clock(m_module.Handle());
    Camera camera(m_module, {.geometry = L"3840x2160@60/1"});
    camera.Start();
    const Sample sample = camera.Pull();
    EXPECT_EQ(12'441'600u, sample.bytes.size());
    EXPECT_TRUE(IsTestPattern(sample.bytes, 0, 3840, 2160));
}

class StreamCreation : public AnchoredTest {
protected:
    HRESULT Create(const FrameGeometry& geometry) {
        const ComPtr<IMFStreamDescriptor> descriptor = DescriptorFor({64, 36, 60, 1});
        ComPtr<RvMediaStream> stream;
        const HRESULT hr = RvMediaStream::Create(&m_owner, descriptor.Get(), geometry, stream.Put());
        EXPECT_EQ(FAILED(hr), stream == nullptr);
        return hr;
    }

    StreamOwnerDouble m_owner;
};

TEST_F(StreamCreation, AFrameLargerThanTheLargestIsUnexpected) {
    EXPECT_EQ(S_OK, Create({3840, 2160, 60, 1}));
    EXPECT_EQ(S_OK, Create({2160, 3840, 30, 1}));  // the bytes count, not the sides
    EXPECT_EQ(E_UNEXPECTED, Create({3840, 2162, 60, 1}));
    EXPECT_EQ(E_UNEXPECTED, Create({3842, 2160, 60, 1}));
    EXPECT_EQ(E_UNEXPECTED, Create({16384, 16384, 60, 1}));
}

TEST_F(StreamCreation, AnInvalidGeometryIsUnexpected) {
    EXPECT_EQ(E_UNEXPECTED, Create({0, 1080, 60, 1}));
    EXPECT_EQ(E_UNEXPECTED, Create({1920, 1081, 60, 1}));
    EXPECT_EQ(E_UNEXPECTED, Create({16386, 2, 60, 1}));
    EXPECT_EQ(E_UNEXPECTED, Create({1920, 1080, 0, 1}));
    EXPECT_EQ(E_UNEXPECTED, Create({1920, 1080, 60, 0}));
}

TEST_F(StreamCreation, ItsArgumentsAreChecked) {
    const FrameGeometry geometry{64, 36, 60, 1};
    const ComPtr<IMFStreamDescriptor> descriptor = DescriptorFor(geometry);
    EXPECT_EQ(E_POINTER, RvMediaStream::Create(&m_owner, descriptor.Get(), geometry, nullptr));
    RvMediaStream* stream = reinterpret_cast<RvMediaStream*>(this);
    EXPECT_EQ(E_INVALIDARG, RvMediaStream::Create(nullptr, descriptor.Get(), geometry, &stream));
    EXPECT_EQ(nullptr, stream);
    stream = reinterpret_cast<RvMediaStream*>(this);
    EXPECT_EQ(E_INVALIDARG, RvMediaStream::Create(&m_owner, nullptr, geometry, &stream));
    EXPECT_EQ(nullptr, stream);
}

TEST_F(StreamCreation, AStreamWithoutASourceGivesNoneOut) {
    StreamObject object;
    IMFMediaSource* source = reinterpret_cast<IMFMediaSource*>(this);
    EXPECT_EQ(MF_E_SHUTDOWN, object->GetMediaSource(&source));
    EXPECT_EQ(nullptr, source);
}

}  // namespace
}  // namespace ravlo::test
