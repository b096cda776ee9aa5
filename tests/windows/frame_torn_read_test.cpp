// A frame that is overwritten while somebody copies it. The memory that the copy writes to, or reads from, is fenced
// off, so that the test comes to its turn in the middle of every copy, on the copying thread.
#include "stream/frame_pool.h"
#include "stream/frame_publisher.h"

#include <gtest/gtest.h>

#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/media.h"
#include "support/pattern.h"
#include "windows/platform_proxies.h"
#include "windows/stream_object.h"

#include <functional>
#include <stdexcept>
#include <vector>

namespace ravlo::test {
namespace {

// Planes so large that the processor's string instruction copies them where it is fast: 16 pages of luma, 8 of chroma.
constexpr FrameGeometry kGeometry{256, 256, 60, 1};
constexpr std::uint32_t kFrameBytes = 98'304;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kFirstChromaPage = 16;

/// A frame's memory whose first page is closed until it is touched; then `onTouch` runs in the middle of the copy. The
/// chroma page, which every copy comes to last, closes the first one again for the next copy.
class FencedFrame {
public:
    explicit FencedFrame(std::function<void()> onTouch) : m_onTouch(std::move(onTouch)) {
        m_memory =
            static_cast<std::uint8_t*>(VirtualAlloc(nullptr, kFrameBytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
        s_current = this;
        m_handler = AddVectoredExceptionHandler(1, &OnFault);
        if (!m_memory || !m_handler) {
            throw std::runtime_error("no memory that can be fenced off");
        }
    }
    ~FencedFrame() {
        RemoveVectoredExceptionHandler(m_handler);
        s_current = nullptr;
        VirtualFree(m_memory, 0, MEM_RELEASE);
    }
    FencedFrame(const FencedFrame&) = delete;
    FencedFrame& operator=(const FencedFrame&) = delete;

    void Close() { Protect(0, PAGE_NOACCESS); }
    void Open() {
        Protect(0, PAGE_READWRITE);
        Protect(kFirstChromaPage, PAGE_READWRITE);
    }
    std::uint8_t* Data() { return m_memory; }
    std::vector<std::uint8_t> Bytes() {
        Open();
        return {m_memory, m_memory + kFrameBytes};
    }
    int Touches() const { return m_touches; }

private:
    static LONG CALLBACK OnFault(EXCEPTION_POINTERS* exception) {
        const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
        if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION || s_current == nullptr) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        return s_current->OnTouch(record.ExceptionInformation[1]) ? EXCEPTION_CONTINUE_EXECUTION
                                                                  : EXCEPTION_CONTINUE_SEARCH;
    }
    bool OnTouch(ULONG_PTR address) {
        const std::size_t offset = address - reinterpret_cast<ULONG_PTR>(m_memory);
        if (offset >= kFrameBytes) {
            return false;
        }
        if (offset < kPage) {
            Protect(0, PAGE_READWRITE);
            Protect(kFirstChromaPage, PAGE_NOACCESS);
            ++m_touches;
            m_onTouch();
        } else {
            Protect(kFirstChromaPage, PAGE_READWRITE);
            Protect(0, PAGE_NOACCESS);
        }
        return true;
    }
    void Protect(std::size_t page, DWORD protection) {
        DWORD before = 0;
        VirtualProtect(m_memory + page * kPage, kPage, protection, &before);
    }

    static inline FencedFrame* s_current = nullptr;
    std::function<void()> m_onTouch;
    std::uint8_t* m_memory = nullptr;
    PVOID m_handler = nullptr;
    int m_touches = 0;
};

std::vector<std::uint8_t> Filled(std::uint8_t value) {
    return std::vector<std::uint8_t>(kFrameBytes, value);
}

class TornRead : public ::testing::Test {
protected:
    TornRead() { EXPECT_TRUE(m_pool.Allocate(kFrameBytes)); }

    bool Publish(std::uint8_t value) {
        const std::vector<std::uint8_t> frame = Filled(value);
        return m_pool.Publish({frame.data(), frame.size()}, 5000);
    }
    bool ConsumeInto(std::uint8_t* destination) {
        return m_pool.Consume(5000, 1000, 5000, kFrameBytes, DescribeCopy(kGeometry, destination, kFrameBytes, 256));
    }

    FramePool m_pool;
};

TEST_F(TornRead, OnePublishDuringACopyTouchesTheOtherSlotAndTearsNothing) {
    FencedFrame destination([&] { EXPECT_TRUE(Publish(2)); });
    ASSERT_TRUE(Publish(1));
    destination.Close();
    EXPECT_TRUE(ConsumeInto(destination.Data()));
    EXPECT_EQ(Filled(1), destination.Bytes());
    EXPECT_EQ(1, destination.Touches());
    EXPECT_EQ(0, m_pool.TornReads());
}

TEST_F(TornRead, TwoPublishesDuringACopyTearItAndTheNextAttemptGetsTheNewestFrame) {
    std::uint8_t next = 2;
    FencedFrame destination([&] {
        if (next == 2) {
            EXPECT_TRUE(Publish(next++));
            EXPECT_TRUE(Publish(next++));
        }
    });
    ASSERT_TRUE(Publish(1));
    destination.Close();
    EXPECT_TRUE(ConsumeInto(destination.Data()));
    EXPECT_EQ(Filled(3), destination.Bytes());
    EXPECT_EQ(2, destination.Touches());
    EXPECT_EQ(1, m_pool.TornReads());
}

TEST_F(TornRead, ThreeTornAttemptsInARowAreGivenUp) {
    std::uint8_t next = 2;
    FencedFrame destination([&] {
        EXPECT_TRUE(Publish(next++));
        EXPECT_TRUE(Publish(next++));
    });
    ASSERT_TRUE(Publish(1));
    destination.Close();
    EXPECT_FALSE(ConsumeInto(destination.Data()));
    destination.Open();
    EXPECT_EQ(3, destination.Touches());
    EXPECT_EQ(3, m_pool.TornReads());
    EXPECT_EQ(0, m_pool.WrongLengthFrames());
    std::vector<std::uint8_t> quiet(kFrameBytes);
    EXPECT_TRUE(ConsumeInto(quiet.data()));
    EXPECT_EQ(Filled(7), quiet);
    EXPECT_EQ(3, m_pool.TornReads());
}

TEST_F(TornRead, WhoLooksInDuringAPublishGetsTheFrameBefore) {
    std::vector<std::uint8_t> seen(kFrameBytes);
    std::vector<bool> found;
    FencedFrame source([&] {
        std::uint64_t stamp = 0;
        found.push_back(m_pool.Peek(5000, 1000, stamp));
        found.push_back(ConsumeInto(seen.data()));
    });
    source.Close();
    EXPECT_TRUE(m_pool.Publish({source.Data(), kFrameBytes}, 5000));
    EXPECT_EQ((std::vector<bool>{false, false}), found) << "the very first frame is not there before it is whole";
    source.Open();
    ASSERT_TRUE(Publish(1));
    found.clear();
    source.Close();
    EXPECT_TRUE(m_pool.Publish({source.Data(), kFrameBytes}, 5000));
    EXPECT_EQ((std::vector<bool>{true, true}), found);
    EXPECT_EQ(Filled(1), seen);
    EXPECT_EQ(0, m_pool.TornReads());
}

class TornReadReport : public AnchoredTest {};

TEST_F(TornReadReport, IsWrittenOnceAtTheNextFrameWithTheCount) {
    FramePool pool;
    ASSERT_TRUE(pool.Allocate(kFrameBytes));
    FramePublisher publisher(pool, kGeometry);
    const std::vector<std::uint8_t> payload = Filled(9);
    const auto publish = [&] { publisher.PublishFrame(MakeFrameHeader(256, 256, 1), payload.data(), kFrameBytes); };
    FencedFrame destination([&] {
        EXPECT_TRUE(pool.Publish({payload.data(), payload.size()}, GetTickCount64()));
        EXPECT_TRUE(pool.Publish({payload.data(), payload.size()}, GetTickCount64()));
    });
    publish();
    const auto consume = [&] {
        destination.Close();
        EXPECT_FALSE(
            pool.Consume(0, 1000, 0, kFrameBytes, DescribeCopy(kGeometry, destination.Data(), kFrameBytes, 256)));
        destination.Open();
    };
    consume();
    EXPECT_FALSE(m_log.Contains("RequestSample discarded")) << "the reader thread writes it, and has not come yet";
    publish();
    EXPECT_TRUE(m_log.HasMessage(
        "PIPE RequestSample discarded 3 read attempt(s) that this thread overwrote mid-copy. NOTHING was dropped from "
        "the wire, and most are absorbed by the bounded retry rather than costing a test-pattern frame; a large or "
        "growing count means this reader is outrunning the consumer"))
        << m_log.Text();
    consume();
    publish();
    EXPECT_EQ(6, pool.TornReads());
    EXPECT_EQ(1u, m_log.CountLines("RequestSample discarded"));
}

/// Hands out a pointer to a private member: access is not checked in an explicit instantiation.
template <class Tag, typename Tag::Member kMember>
struct Expose {
    friend typename Tag::Member MemberOf(Tag) { return kMember; }
};
struct Slots {
    using Member = FramePool RvMediaStream::*;
    friend Member MemberOf(Slots);
};
template struct Expose<Slots, &RvMediaStream::m_framePool>;

/// A media buffer over memory of the test's own.
class BorrowedBuffer final : public Counted<IMFMediaBuffer> {
public:
    explicit BorrowedBuffer(BYTE* memory) : m_memory(memory) {}
    STDMETHODIMP Lock(BYTE** data, DWORD* capacity, DWORD* length) override {
        *data = m_memory;
        if (capacity) {
            *capacity = kFrameBytes;
        }
        if (length) {
            *length = kFrameBytes;
        }
        return S_OK;
    }
    STDMETHODIMP Unlock() override { return S_OK; }
    STDMETHODIMP GetCurrentLength(DWORD* length) override {
        *length = kFrameBytes;
        return S_OK;
    }
    STDMETHODIMP SetCurrentLength(DWORD) override { return S_OK; }
    STDMETHODIMP GetMaxLength(DWORD* length) override {
        *length = kFrameBytes;
        return S_OK;
    }

private:
    BYTE* m_memory;
};

class TornSample : public AnchoredTest {};

TEST_F(TornSample, CostsOneTestPatternAndNoFailure) {
    StreamObject stream(kGeometry);
    FramePool& pool = stream.Get()->*MemberOf(Slots());
    const std::vector<std::uint8_t> frame = Filled(0x55);
    const auto publish = [&] { EXPECT_TRUE(pool.Publish({frame.data(), frame.size()}, GetTickCount64())); };
    FencedFrame memory([&] {
        if (pool.TornReads() < 3) {
            publish();
            publish();
        }
    });
    RAVLO_HOOK(MFCreateMemoryBuffer) buffers(GetModuleHandleW(nullptr));
    buffers.Replace([&](DWORD, IMFMediaBuffer** buffer) -> HRESULT {
        *buffer = new BorrowedBuffer(memory.Data());
        return S_OK;
    });
    ASSERT_EQ(S_OK, stream->Start());
    publish();
    memory.Close();
    EXPECT_EQ(S_OK, stream->RequestSample(nullptr));
    EXPECT_EQ(3, pool.TornReads());
    EXPECT_TRUE(IsTestPattern(memory.Bytes(), 0, 256, 256));
    publish();
    EXPECT_EQ(S_OK, stream->RequestSample(nullptr));
    EXPECT_EQ(frame, memory.Bytes()) << "the next sample is live again";
    DrainEvents(stream.Get());
}

}  // namespace
}  // namespace ravlo::test
