#include <gtest/gtest.h>

#include <mfidl.h>
#include <mfreadwrite.h>

#include <mutex>
#include <vector>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pattern.h"
#include "support/pipe_client.h"

// The platform's own client of the camera.
namespace ravlo::test {
namespace {

constexpr DWORD kStream = static_cast<DWORD>(MF_SOURCE_READER_FIRST_VIDEO_STREAM);

/// Gathers what the asynchronous reader delivers and asks for the next sample until it has enough.
class ReaderCallback final : public IMFSourceReaderCallback {
public:
    explicit ReaderCallback(std::size_t wanted) : m_wanted(wanted) {}
    ~ReaderCallback() {
        CloseHandle(m_enough);
        CloseHandle(m_flushed);
    }

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        *object = riid == IID_IUnknown || riid == IID_IMFSourceReaderCallback ? this : nullptr;
        return *object ? S_OK : E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return 2; }  // lives on the test's stack
    STDMETHODIMP_(ULONG) Release() override { return 1; }
    STDMETHODIMP OnReadSample(HRESULT hr, DWORD, DWORD, LONGLONG, IMFSample* sample) override {
        const std::lock_guard guard(m_lock);
        m_failed = m_failed || FAILED(hr);
        if (sample && m_samples.size() < m_wanted) {
            m_samples.push_back(ReadSample(sample));
        }
        if (m_failed || m_samples.size() >= m_wanted) {
            SetEvent(m_enough);
        } else {
            m_reader->ReadSample(kStream, 0, nullptr, nullptr, nullptr, nullptr);
        }
        return S_OK;
    }
    STDMETHODIMP OnFlush(DWORD) override {
        SetEvent(m_flushed);
        return S_OK;
    }
    STDMETHODIMP OnEvent(DWORD, IMFMediaEvent*) override { return S_OK; }

    HANDLE m_enough = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE m_flushed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::vector<Sample> m_samples;
    bool m_failed = false;
    IMFSourceReader* m_reader = nullptr;

private:
    const std::size_t m_wanted;
    std::mutex m_lock;
};

class SourceReader : public ModuleTest {
protected:
    /// A reader on a new camera of 64x36 at 60/1; only the reader holds the source.
    ComPtr<IMFSourceReader> Open(IMFSourceReaderCallback* callback = nullptr) {
        const ComPtr<IMFActivate> activate = m_module.CreateSource<IMFActivate>();
        Require(activate->SetString(kGeometryAttribute, L"64x36@60/1"), "SetString");
        Require(activate->SetString(kPipeNameAttribute, m_pipeName.c_str()), "SetString");
        ComPtr<IMFMediaSource> source;
        Require(activate->ActivateObject(__uuidof(IMFMediaSource), source.PutVoid()), "ActivateObject");
        ComPtr<IMFAttributes> attributes;
        Require(MFCreateAttributes(attributes.Put(), 1), "MFCreateAttributes");
        if (callback) {
            Require(attributes->SetUnknown(MF_SOURCE_READER_ASYNC_CALLBACK, callback), "SetUnknown");
        }
        ComPtr<IMFSourceReader> reader;
        Require(MFCreateSourceReaderFromMediaSource(source.Get(), attributes.Get(), reader.Put()),
                "MFCreateSourceReaderFromMediaSource");
        return reader;
    }
    static Sample Read(IMFSourceReader* reader) {
        DWORD index = 99;
        DWORD flags = 99;
        LONGLONG time = -1;
        for (;;) {
            ComPtr<IMFSample> sample;
            Require(reader->ReadSample(kStream, 0, &index, &flags, &time, sample.Put()), "ReadSample");
            if (sample) {
                EXPECT_EQ(0u, index);
                EXPECT_EQ(0u, flags);
                Sample result = ReadSample(sample.Get());
                EXPECT_EQ(time, result.time);
                return result;
            }
        }
    }
    /// Everything of the module is gone: it was shut down, and could be unloaded.
    void ExpectReleased() {
        EXPECT_TRUE(m_log.WaitForLine("RET SRC.Shutdown hr=0x00000000")) << m_log.Text();
        EXPECT_TRUE(m_log.WaitForLine("RET STM.Shutdown hr=0x00000000")) << m_log.Text();
        EXPECT_TRUE(WaitUntil([&] { return m_module.CanUnloadNow() == S_OK; }));
        EXPECT_TRUE(m_log.HasMessage("PIPE reader thread exiting")) << m_log.Text();
    }

    MediaFoundation m_mediaFoundation;
    const std::wstring m_pipeName = UniquePipeName();
};

TEST_F(SourceReader, OffersNv12OfTheRequestedGeometry) {
    ComPtr<IMFSourceReader> reader = Open();
    for (const bool native : {true, false}) {
        ComPtr<IMFMediaType> type;
        ASSERT_EQ(S_OK, native ? reader->GetNativeMediaType(kStream, 0, type.Put())
                               : reader->GetCurrentMediaType(kStream, type.Put()));
        GUID subtype{};
        EXPECT_EQ(S_OK, type->GetGUID(MF_MT_SUBTYPE, &subtype));
        EXPECT_EQ(MFVideoFormat_NV12, subtype);
        UINT32 first = 0;
        UINT32 second = 0;
        EXPECT_EQ(S_OK, MFGetAttributeSize(type.Get(), MF_MT_FRAME_SIZE, &first, &second));
        EXPECT_EQ(64u, first);
        EXPECT_EQ(36u, second);
        EXPECT_EQ(S_OK, MFGetAttributeRatio(type.Get(), MF_MT_FRAME_RATE, &first, &second));
        EXPECT_EQ(60u, first);
        EXPECT_EQ(1u, second);
        EXPECT_EQ(64u, MFGetAttributeUINT32(type.Get(), MF_MT_DEFAULT_STRIDE, 0));
    }
    ComPtr<IMFMediaType> another;
    EXPECT_EQ(MF_E_NO_MORE_TYPES, reader->GetNativeMediaType(kStream, 1, another.Put()));
    reader.Reset();
    ExpectReleased();
}

TEST_F(SourceReader, ReadsPatternSamplesOnTheGridOneAfterTheOther) {
    ComPtr<IMFSourceReader> reader = Open();
    const Sample first = Read(reader.Get());
    EXPECT_TRUE(TestPatternShift(first.bytes, 64, 36));
    EXPECT_EQ(166'666, first.duration);
    LONGLONG last = first.time;
    for (int i = 0; i < 20; ++i) {
        const Sample sample = Read(reader.Get());
        EXPECT_EQ(last + 166'666, sample.time) << i;
        EXPECT_EQ(1u, sample.cleanPoint);
        EXPECT_TRUE(TestPatternShift(sample.bytes, 64, 36)) << i;
        last = sample.time;
    }
    reader.Reset();
    ExpectReleased();
}

TEST_F(SourceReader, SeesTheProducersFrames) {
    ComPtr<IMFSourceReader> reader = Open();
    Read(reader.Get());
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_pipeName)) << m_log.Text();
    ASSERT_TRUE(producer.SendFrame(64, 36, 12));
    ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 64x36 seq=12")) << m_log.Text();
    bool seen = false;
    for (int i = 0; i < 30 && !seen; ++i) {
        seen = SignatureOf(Read(reader.Get()).bytes, 64, 36) == 12u;
    }
    EXPECT_TRUE(seen);
    producer.Close();
    reader.Reset();
    ExpectReleased();
}

TEST_F(SourceReader, DeliversAsynchronously) {
    ReaderCallback callback(15);
    ComPtr<IMFSourceReader> reader = Open(&callback);
    callback.m_reader = reader.Get();
    ASSERT_EQ(S_OK, reader->ReadSample(kStream, 0, nullptr, nullptr, nullptr, nullptr));
    ASSERT_EQ(WAIT_OBJECT_0, WaitForSingleObject(callback.m_enough, kPatienceMs));
    EXPECT_EQ(S_OK, reader->Flush(kStream));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(callback.m_flushed, kPatienceMs));
    EXPECT_FALSE(callback.m_failed);
    ASSERT_EQ(15u, callback.m_samples.size());
    for (std::size_t i = 0; i < callback.m_samples.size(); ++i) {
        EXPECT_EQ(callback.m_samples[0].time + static_cast<LONGLONG>(i) * 166'666, callback.m_samples[i].time);
        EXPECT_TRUE(TestPatternShift(callback.m_samples[i].bytes, 64, 36)) << i;
    }
    callback.m_samples.clear();
    reader.Reset();
    ExpectReleased();
}

TEST_F(SourceReader, StartsTheStreamOnceForManyReads) {
    ComPtr<IMFSourceReader> reader = Open();
    for (int i = 0; i < 5; ++i) {
        Read(reader.Get());
    }
    EXPECT_EQ(1u, m_log.CountLines("CALL STM.Start"));
    EXPECT_EQ(0u, m_log.CountLines("FAIL STM."));
    reader.Reset();
    ExpectReleased();
}

TEST_F(SourceReader, AReaderThatNeverReadIsReleasedAsWell) {
    Open().Reset();
    ExpectReleased();
}

}  // namespace
}  // namespace ravlo::test
