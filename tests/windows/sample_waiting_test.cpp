#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <set>
#include <thread>
#include <vector>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pipe_client.h"

// What ends the wait for the next due sample, with the real clock.
namespace ravlo::test {
namespace {

using Clock = std::chrono::steady_clock;

long long MsSince(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

/// Far below the 2 s after which a wait of these slow cameras looks again by itself, far above a busy machine's delays.
constexpr long long kPromptMs = 1200;

/// A request that another thread makes; the wait that it ends in has begun when the constructor returns.
class WaitingRequest {
public:
    WaitingRequest(HMODULE module, IMFMediaStream* stream) : m_waits(module) {
        m_thread = std::thread([this, stream] { m_result = stream->RequestSample(nullptr); });
        const bool waiting = WaitUntil([this] {
            for (const auto& call : m_waits.Calls()) {
                if (!std::get<2>(call) && std::get<3>(call) != INFINITE) {
                    return true;
                }
            }
            return false;
        });
        if (!waiting) {
            ADD_FAILURE() << "the request does not wait";
        }
    }
    ~WaitingRequest() { Result(); }
    WaitingRequest(const WaitingRequest&) = delete;
    WaitingRequest& operator=(const WaitingRequest&) = delete;

    HRESULT Result() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
        return m_result;
    }

private:
    RAVLO_HOOK(WaitForMultipleObjects) m_waits;
    std::atomic<HRESULT> m_result{E_PENDING};
    std::thread m_thread;
};

class SampleWaiting : public ModuleTest {
protected:
    Camera m_slow{m_module, {.geometry = L"64x36@1/20"}};
};

TEST_F(SampleWaiting, AStopWakesTheWaiterWithWrongState) {
    m_slow.Start();
    WaitingRequest request(m_module.Handle(), m_slow.Stream());
    const Clock::time_point start = Clock::now();
    m_slow.Stop();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, request.Result());
    EXPECT_LT(MsSince(start), kPromptMs);
    EXPECT_TRUE(DrainEvents(m_slow.Stream()).empty());
}

TEST_F(SampleWaiting, AShutdownWakesTheWaiterWithShutdown) {
    m_slow.Start();
    WaitingRequest request(m_module.Handle(), m_slow.Stream());
    const Clock::time_point start = Clock::now();
    m_slow.Shutdown();
    EXPECT_EQ(MF_E_SHUTDOWN, request.Result());
    EXPECT_LT(MsSince(start), kPromptMs);
}

TEST_F(SampleWaiting, ARestartDuringTheWaitEndsTheOldRequest) {
    m_slow.Start();
    WaitingRequest request(m_module.Handle(), m_slow.Stream());
    const Clock::time_point start = Clock::now();
    m_slow.Start();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, request.Result());
    EXPECT_LT(MsSince(start), kPromptMs);
}

TEST_F(SampleWaiting, AFrameThatArrivesWakesTheFirstRequest) {
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_slow.PipeName())) << m_log.Text();
    m_slow.Start();
    WaitingRequest request(m_module.Handle(), m_slow.Stream());
    const Clock::time_point start = Clock::now();
    ASSERT_TRUE(producer.SendFrame(64, 36, 9));
    EXPECT_EQ(S_OK, request.Result());
    EXPECT_LT(MsSince(start), kPromptMs);
    const std::optional<Event> event = NextEvent(m_slow.Stream());
    ASSERT_TRUE(event);
    const ComPtr<IMFSample> sample = event->Object<IMFSample>();
    ASSERT_TRUE(sample);
    EXPECT_EQ(9u, SignatureOf(ReadSample(sample.Get()).bytes, 64, 36));
}

TEST_F(SampleWaiting, AFailedWaitIsTheRequestsResult) {
    m_slow.Start();
    HRESULT hr = S_OK;
    {
        RAVLO_HOOK(WaitForMultipleObjects) waits(m_module.Handle());
        waits.FailWhen([](DWORD, const HANDLE*, BOOL all, DWORD ms) { return !all && ms != INFINITE; }, WAIT_FAILED,
                       ERROR_INVALID_HANDLE);
        hr = m_slow.Stream()->RequestSample(nullptr);
    }
    EXPECT_EQ(static_cast<HRESULT>(0x80070006), hr);
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0x80070006")) << m_log.Text();
    EXPECT_TRUE(DrainEvents(m_slow.Stream()).empty());
}

TEST_F(SampleWaiting, AnAbandonedWaitLooksAgain) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    RAVLO_HOOK(WaitForMultipleObjects) waits(m_module.Handle());
    std::atomic<int> left{3};
    waits.FailWhen([&](DWORD, const HANDLE*, BOOL all, DWORD ms) { return !all && ms != INFINITE && left-- > 0; },
                   WAIT_ABANDONED_0);
    EXPECT_EQ(S_OK, camera.Stream()->RequestSample(nullptr));
    EXPECT_GE(0, left.load());
}

TEST(SampleWaitingTogether, RequestsOfSeveralThreadsGetASampleEachOnDistinctGridTimes) {
    const PrivateLocalMachine localMachine;
    const AnchorGuard anchor(CurrentUserSid());
    const ModuleUnderTest module;
    Camera camera(module, {.geometry = L"64x36@200/1"});
    camera.Start();
    constexpr int kThreads = 4;
    constexpr int kEach = 25;
    std::atomic<int> served{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < kEach; ++n) {
                served += camera.Stream()->RequestSample(nullptr) == S_OK ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ASSERT_EQ(kThreads * kEach, served.load());
    std::set<LONGLONG> times;
    for (int n = 0; n < kThreads * kEach; ++n) {
        const std::optional<Event> event = NextEvent(camera.Stream(), 0);
        ASSERT_TRUE(event) << n;
        ASSERT_EQ(MEMediaSample, event->type);
        LONGLONG time = 0;
        ASSERT_EQ(S_OK, event->Object<IMFSample>()->GetSampleTime(&time));
        EXPECT_TRUE(times.insert(time).second) << n;
    }
    LONGLONG expected = *times.begin();
    for (const LONGLONG time : times) {
        EXPECT_EQ(expected, time);
        expected += 50'000;
    }
    EXPECT_FALSE(NextEvent(camera.Stream(), 0));
}

TEST(SampleWaitingTogether, AStopWakesEveryWaiter) {
    const PrivateLocalMachine localMachine;
    const AnchorGuard anchor(CurrentUserSid());
    const ModuleUnderTest module;
    Camera camera(module, {.geometry = L"64x36@1/20"});
    camera.Start();
    RAVLO_HOOK(WaitForMultipleObjects) waits(module.Handle());
    std::atomic<int> refused{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(
            [&] { refused += camera.Stream()->RequestSample(nullptr) == MF_E_MEDIA_SOURCE_WRONGSTATE ? 1 : 0; });
    }
    EXPECT_TRUE(WaitUntil([&] {
        const auto calls = waits.Calls();
        return std::count_if(calls.begin(), calls.end(),
                             [](const auto& call) { return !std::get<2>(call) && std::get<3>(call) != INFINITE; }) >= 4;
    }));
    const Clock::time_point start = Clock::now();
    camera.Stop();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(4, refused.load());
    EXPECT_LT(MsSince(start), kPromptMs);
}

TEST_F(SampleWaiting, TheRealClockPacesAtThePeriod) {
    Camera camera(m_module, {.geometry = L"64x36@20/1"});
    camera.Start();
    for (int i = 0; i < 8; ++i) {
        const Sample sample = camera.Pull();
        const LONGLONG lateness = MFGetSystemTime() - sample.time;
        // Never early, however busy the machine is; the first is a period late because no frame was there for it.
        EXPECT_GE(lateness, i == 0 ? 500'000 : 0) << i;
        EXPECT_LT(lateness, 10'000'000) << i;
    }
}

}  // namespace
}  // namespace ravlo::test
