#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/camera.h"
#include "support/fixtures.h"
#include "windows/hooked_clock.h"

// What a request for a sample says in the log, what the sample carries, and when it is refused.
namespace ravlo::test {
namespace {

std::string Observed(int total) {
    return "STM.RequestSample observed " + std::to_string(total) + " total calls (rate-limited to <=1 line/s)";
}

class SampleRequest : public ModuleTest {
protected:
    HookedClock m_clock{m_module.Handle()};
    Camera m_camera{m_module, {.geometry = L"64x36@60/1"}};
};

TEST_F(SampleRequest, EveryExitWritesItsResult) {
    m_camera.Start();
    m_camera.Pull();
    EXPECT_TRUE(m_log.HasMessage("RET STM.RequestSample hr=0x00000000")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("STM.RequestSample hr="));
    m_camera.Stop();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0xC00D3E9B")) << m_log.Text();
    m_camera.Shutdown();
    EXPECT_EQ(MF_E_SHUTDOWN, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0xC00D3E85")) << m_log.Text();
    EXPECT_EQ(3u, m_log.CountLines("STM.RequestSample hr="));
    EXPECT_EQ(0u, m_log.CountLines("CALL STM.RequestSample"));
}

TEST_F(SampleRequest, ARefusedRequestQueuesNothing) {
    m_camera.Start();
    m_camera.Stop();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(DrainEvents(m_camera.Stream()).empty());
}

TEST_F(SampleRequest, TheSampleCarriesDurationCleanPointAndOneBufferOfTheFramesSize) {
    m_camera.Start();
    const Sample sample = m_camera.Pull();
    EXPECT_EQ(166'666, sample.duration);
    EXPECT_EQ(1u, sample.cleanPoint);
    EXPECT_EQ(64u * 36 * 3 / 2, sample.bytes.size());
    DWORD buffers = 0;
    EXPECT_EQ(S_OK, sample.object->GetBufferCount(&buffers));
    EXPECT_EQ(1u, buffers);
    DWORD total = 0;
    EXPECT_EQ(S_OK, sample.object->GetTotalLength(&total));
    EXPECT_EQ(3456u, total);
}

TEST_F(SampleRequest, TheEventCarriesTheSampleAsItsValue) {
    m_camera.Start();
    ASSERT_EQ(S_OK, m_camera.Stream()->RequestSample(nullptr));
    const std::optional<Event> event = NextEvent(m_camera.Stream());
    ASSERT_TRUE(event);
    EXPECT_EQ(213u, event->type);
    EXPECT_EQ(GUID_NULL, event->extendedType);
    EXPECT_EQ(S_OK, event->status);
    EXPECT_EQ(VT_UNKNOWN, event->value.Type());
    const ComPtr<IMFSample> sample = event->Object<IMFSample>();
    ASSERT_TRUE(sample);
    // The event and this holder: the module keeps no reference of its own.
    EXPECT_EQ(2u, ReferenceCount(sample.Get()));
}

TEST_F(SampleRequest, TheTokenComesBackOnTheSampleAndIsAbsentWithoutOne) {
    m_camera.Start();
    ComPtr<IMFAttributes> token;
    Require(MFCreateAttributes(token.Put(), 0), "MFCreateAttributes");
    {
        const Sample sample = m_camera.Pull(token.Get());
        EXPECT_TRUE(IsSameObject(token.Get(), sample.token.Get()));
    }
    EXPECT_EQ(1u, ReferenceCount(token.Get()));
    UINT32 count = 0;
    const Sample without = m_camera.Pull();
    EXPECT_FALSE(without.token);
    EXPECT_EQ(S_OK, without.object->GetCount(&count));
    EXPECT_EQ(1u, count);  // the clean point alone
}

TEST_F(SampleRequest, TheCallCountIsWrittenOnceASecond) {
    m_camera.Start();
    m_camera.Pull();
    EXPECT_TRUE(m_log.HasMessage(Observed(1))) << m_log.Text();
    const std::uint64_t lineTick = m_clock.Tick();
    while (m_clock.Tick() < lineTick + 900) {
        m_camera.Pull();
    }
    EXPECT_EQ(1u, m_log.CountLines("STM.RequestSample observed"));
}

TEST_F(SampleRequest, TheNextCountComesAThousandMillisecondsLaterAndNotOneEarlier) {
    m_camera.Start();
    m_clock.AdvanceMs(500);  // due at once, so that no request waits and moves the clock
    m_camera.Pull();
    m_camera.Stop();
    IMFMediaStream* const stream = m_camera.Stream();
    m_clock.AdvanceMs(999);
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, stream->RequestSample(nullptr));
    EXPECT_EQ(1u, m_log.CountLines("STM.RequestSample observed"));
    m_clock.AdvanceMs(1);
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, stream->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage(Observed(3))) << m_log.Text();  // refused requests are counted as well
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, stream->RequestSample(nullptr));
    EXPECT_EQ(2u, m_log.CountLines("STM.RequestSample observed"));
}

TEST_F(SampleRequest, OfManyThreadsAtOnceOnlyOneWritesTheCount) {
    m_camera.Start();
    m_camera.Stop();
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 20; ++n) {
                EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, m_camera.Stream()->RequestSample(nullptr));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1u, m_log.CountLines("STM.RequestSample observed")) << m_log.Text();
    m_clock.AdvanceMs(1000);
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage(Observed(161))) << "every request of every thread was counted\n" << m_log.Text();
}

TEST_F(SampleRequest, StartClearsTheCountAndWritesAtOnceAgain) {
    m_camera.Start();
    m_camera.Pull();
    m_camera.Pull();
    m_camera.Start();
    m_camera.Pull();
    EXPECT_EQ(2u, m_log.CountLines("STM.RequestSample observed 1 total calls"));
    EXPECT_EQ(2u, m_log.CountLines("STM.RequestSample observed"));
}

TEST_F(SampleRequest, TheApartmentIsWrittenByTheFirstRequestOfEachStart) {
    const std::string line =
        "APARTMENT RequestSample tid=" + std::to_string(GetCurrentThreadId()) + " hr=0x00000000 apt=1 aptq=0";
    m_camera.Start();
    m_camera.Pull();
    m_camera.Pull();
    EXPECT_TRUE(m_log.HasMessage(line)) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("APARTMENT RequestSample"));
    m_camera.Start();
    m_camera.Pull();
    EXPECT_EQ(2u, m_log.CountLines(line));
    m_camera.Stop();
    m_camera.Start();
    m_camera.Pull();
    EXPECT_EQ(3u, m_log.CountLines("APARTMENT RequestSample"));
}

TEST_F(SampleRequest, ARefusedRequestAlsoWritesTheApartment) {
    m_camera.Start();
    m_camera.Stop();
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_EQ(1u, m_log.CountLines("APARTMENT RequestSample"));
}

TEST_F(SampleRequest, AnApartmentThatCannotBeAskedForShowsMinusOne) {
    RAVLO_HOOK(CoGetApartmentType) apartment(m_module.Handle());
    apartment.FailEvery(CO_E_NOTINITIALIZED);
    m_camera.Start();
    m_camera.Pull();
    const std::string thread = std::to_string(GetCurrentThreadId());
    EXPECT_TRUE(m_log.HasMessage("APARTMENT Start tid=" + thread + " hr=0x800401F0 apt=-1 aptq=-1")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("APARTMENT RequestSample tid=" + thread + " hr=0x800401F0 apt=-1 aptq=-1"))
        << m_log.Text();
}

TEST_F(SampleRequest, ARequestFromAThreadWithoutComIsServed) {
    m_camera.Start();
    HRESULT hr = E_FAIL;
    DWORD thread = 0;
    std::thread requester([&] {
        thread = GetCurrentThreadId();
        hr = m_camera.Stream()->RequestSample(nullptr);
    });
    requester.join();
    EXPECT_EQ(S_OK, hr);
    EXPECT_TRUE(
        m_log.HasMessage("APARTMENT RequestSample tid=" + std::to_string(thread) + " hr=0x00000000 apt=1 aptq=1"))
        << m_log.Text();
}

}  // namespace
}  // namespace ravlo::test
