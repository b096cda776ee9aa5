#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "support/camera.h"
#include "support/fixtures.h"
#include "windows/hooked_clock.h"
#include "windows/stream_object.h"

// The building of one sample: its failures, none of which queues anything, and the test pattern's bytes.
namespace ravlo::test {
namespace {

/// A media buffer of which each step can be made to fail. Real memory behind it, of the size it tells.
class BufferDouble final : public IMFMediaBuffer {
public:
    struct Plan {
        HRESULT lock = S_OK;
        HRESULT unlock = S_OK;
        HRESULT setLength = S_OK;
        DWORD size = 0;
        std::atomic<int> unlocks{0};
        std::atomic<int> alive{0};
    };

    explicit BufferDouble(Plan& plan) : m_plan(plan), m_bytes(plan.size + 16, 0xEE) { ++m_plan.alive; }

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        *object = riid == IID_IUnknown || riid == IID_IMFMediaBuffer ? this : nullptr;
        if (*object) {
            AddRef();
        }
        return *object ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&m_count)); }
    STDMETHODIMP_(ULONG) Release() override {
        const LONG count = InterlockedDecrement(&m_count);
        if (count == 0) {
            delete this;
        }
        return static_cast<ULONG>(count);
    }
    STDMETHODIMP Lock(BYTE** data, DWORD* maxLength, DWORD* length) override {
        *data = m_bytes.data();
        if (maxLength) {
            *maxLength = m_plan.size;
        }
        if (length) {
            *length = 0;
        }
        return m_plan.lock;
    }
    STDMETHODIMP Unlock() override {
        ++m_plan.unlocks;
        return m_plan.unlock;
    }
    STDMETHODIMP GetCurrentLength(DWORD* length) override {
        *length = 0;
        return S_OK;
    }
    STDMETHODIMP SetCurrentLength(DWORD) override { return m_plan.setLength; }
    STDMETHODIMP GetMaxLength(DWORD* length) override {
        *length = m_plan.size;
        return S_OK;
    }

private:
    ~BufferDouble() { --m_plan.alive; }

    LONG m_count = 1;
    Plan& m_plan;
    std::vector<BYTE> m_bytes;
};

constexpr DWORD kFrameBytes = 3456;  // 64x36

class SampleBuilding : public ModuleTest {
protected:
    SampleBuilding() { m_camera.Start(); }

    /// The next request fails with `expected` and queues nothing, and is counted by the pacer all the same.
    void ExpectRefused(HRESULT expected) {
        ASSERT_EQ(expected, m_camera.Stream()->RequestSample(nullptr));
        EXPECT_TRUE(DrainEvents(m_camera.Stream()).empty());
    }
    void ExpectSecondSampleNext() {
        const Sample next = m_camera.Pull();
        EXPECT_EQ(HookedClock::kStart + 166'666, next.time);
        m_camera.Stop();
        EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 0 of 2 samples (0.0%; expected 0)")) << m_log.Text();
    }
    /// One request with a buffer of that plan.
    void ExpectRefusedWith(BufferDouble::Plan& plan, HRESULT expected) {
        {
            RAVLO_HOOK(MFCreateMemoryBuffer) buffers(m_module.Handle());
            buffers.Replace([&](DWORD, IMFMediaBuffer** buffer) -> HRESULT {
                *buffer = new BufferDouble(plan);
                return S_OK;
            });
            ExpectRefused(expected);
        }
        EXPECT_EQ(0, plan.alive.load());
        ExpectSecondSampleNext();
    }

    HookedClock m_clock{m_module.Handle()};
    Camera m_camera{m_module, {.geometry = L"64x36@60/1"}};
};

TEST_F(SampleBuilding, NoSampleObjectIsTheResultAndTheSampleIsCounted) {
    {
        RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
        samples.FailCall(1, E_OUTOFMEMORY);
        ExpectRefused(E_OUTOFMEMORY);
    }
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0x8007000E")) << m_log.Text();
    ExpectSecondSampleNext();
}

TEST_F(SampleBuilding, NoBufferIsTheResultAndTheSampleIsCounted) {
    {
        RAVLO_HOOK(MFCreateMemoryBuffer) buffers(m_module.Handle());
        buffers.FailCall(1, E_OUTOFMEMORY);
        ExpectRefused(E_OUTOFMEMORY);
        EXPECT_EQ(kFrameBytes, std::get<0>(buffers.Calls().at(0)));
    }
    ExpectSecondSampleNext();
}

TEST_F(SampleBuilding, ABufferShorterThanTheFrameIsUnexpectedAndUnlockedAgain) {
    BufferDouble::Plan plan;
    plan.size = kFrameBytes - 1;
    ExpectRefusedWith(plan, E_UNEXPECTED);
    EXPECT_EQ(1, plan.unlocks.load());
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0x8000FFFF")) << m_log.Text();
}

TEST_F(SampleBuilding, AShortBuffersOwnResultOutweighsAFailedUnlock) {
    BufferDouble::Plan plan;
    plan.size = kFrameBytes - 1;
    plan.unlock = E_ABORT;
    ExpectRefusedWith(plan, E_UNEXPECTED);
}

TEST_F(SampleBuilding, AFailedLockIsTheResultWithoutAnUnlock) {
    BufferDouble::Plan plan;
    plan.size = kFrameBytes;
    plan.lock = E_ACCESSDENIED;
    ExpectRefusedWith(plan, E_ACCESSDENIED);
    EXPECT_EQ(0, plan.unlocks.load());
}

TEST_F(SampleBuilding, AFailedUnlockIsTheResult) {
    BufferDouble::Plan plan;
    plan.size = kFrameBytes;
    plan.unlock = E_ABORT;
    ExpectRefusedWith(plan, E_ABORT);
}

TEST_F(SampleBuilding, AFailedLengthIsTheResult) {
    BufferDouble::Plan plan;
    plan.size = kFrameBytes;
    plan.setLength = E_INVALIDARG;
    ExpectRefusedWith(plan, E_INVALIDARG);
}

TEST_F(SampleBuilding, AStopThatLandsWhileTheSampleIsBuiltKeepsItOutOfTheQueue) {
    RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
    samples.Replace([&](IMFSample** sample) -> HRESULT {
        m_camera.Source()->Stop();
        return decltype(samples)::CallOriginal(sample);
    });
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_EQ(std::vector<MediaEventType>{MEStreamStopped}, DrainEvents(m_camera.Stream()));
}

TEST_F(SampleBuilding, ARestartThatLandsWhileTheSampleIsBuiltKeepsItOutOfTheQueue) {
    RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
    samples.Replace([&](IMFSample** sample) -> HRESULT {
        m_camera.Start();
        return decltype(samples)::CallOriginal(sample);
    });
    EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, m_camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(DrainEvents(m_camera.Stream()).empty());
}

TEST_F(SampleBuilding, AShutdownThatLandsWhileTheSampleIsBuiltIsTheResult) {
    RAVLO_HOOK(MFCreateSample) samples(m_module.Handle());
    samples.Replace([&](IMFSample** sample) -> HRESULT {
        m_camera.Shutdown();
        return decltype(samples)::CallOriginal(sample);
    });
    EXPECT_EQ(MF_E_SHUTDOWN, m_camera.Stream()->RequestSample(nullptr));
}

class SampleQueueing : public ModuleTest {};

TEST_F(SampleQueueing, AFailedQueueIsTheResultAndTheSampleGoes) {
    HookedClock clock(m_module.Handle());
    std::atomic<bool> refuse{true};
    const EventQueueHook queues(
        m_module.Handle(), [&](MediaEventType type) { return type == MEMediaSample && refuse ? E_OUTOFMEMORY : S_OK; });
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    ComPtr<IMFAttributes> token;
    Require(MFCreateAttributes(token.Put(), 0), "MFCreateAttributes");
    EXPECT_EQ(E_OUTOFMEMORY, camera.Stream()->RequestSample(token.Get()));
    EXPECT_EQ(1u, ReferenceCount(token.Get()));  // the sample that held the other one is gone
    EXPECT_TRUE(DrainEvents(camera.Stream()).empty());
    refuse = false;
    EXPECT_EQ(HookedClock::kStart + 166'666, camera.Pull().time);
}

class SamplePattern : public ModuleTest {
protected:
    HookedClock m_clock{m_module.Handle()};
};

TEST_F(SamplePattern, TheBarsHaveTheirLevelsAndStepEveryEightSamples) {
    Camera camera(m_module, {.geometry = L"64x4@60/1"});
    camera.Start();
    const std::uint8_t levels[8] = {16, 47, 78, 109, 140, 171, 202, 235};
    for (unsigned n = 0; n < 66; ++n) {
        const Sample sample = camera.Pull();
        ASSERT_EQ(64u * 6, sample.bytes.size());
        for (unsigned i = 0; i < sample.bytes.size(); ++i) {
            const unsigned expected = i < 64 * 4 ? levels[(i % 64 / 8 + n / 8) % 8] : 128u;
            ASSERT_EQ(expected, sample.bytes[i]) << "sample " << n << " byte " << i;
        }
    }
}

TEST_F(SamplePattern, ColumnsLeftOverHaveTheLastBarsLevel) {
    Camera camera(m_module, {.geometry = L"66x2@60/1"});
    camera.Start();
    for (unsigned n = 0; n < 9; ++n) {
        const Sample sample = camera.Pull();
        const std::uint8_t last = n < 8 ? 235 : 16;
        for (const unsigned column : {56u, 63u, 64u, 65u, 66 + 56u, 66 + 65u}) {
            EXPECT_EQ(last, sample.bytes[column]) << "sample " << n << " byte " << column;
        }
        EXPECT_EQ(n < 8 ? 202 : 235, sample.bytes[55]);
        EXPECT_EQ(128, sample.bytes[132]);
    }
}

TEST_F(SamplePattern, At1922ColumnsTheBarsAre240WideAndTwoColumnsAreLeft) {
    Camera camera(m_module, {.geometry = L"1922x2@60/1"});
    camera.Start();
    const Sample sample = camera.Pull();
    EXPECT_EQ(16, sample.bytes[239]);
    EXPECT_EQ(47, sample.bytes[240]);
    EXPECT_EQ(202, sample.bytes[1679]);
    EXPECT_EQ(235, sample.bytes[1680]);
    EXPECT_EQ(235, sample.bytes[1920]);
    EXPECT_EQ(235, sample.bytes[1921]);
}

TEST_F(SamplePattern, AWidthBelowEightHasNoPatternAndTheRequestFails) {
    Camera camera(m_module, {.geometry = L"6x4@60/1"});
    camera.Start();
    EXPECT_EQ(E_INVALIDARG, camera.Stream()->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0x80070057")) << m_log.Text();
    EXPECT_TRUE(DrainEvents(camera.Stream()).empty());
}

}  // namespace
}  // namespace ravlo::test
