#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "support/fixtures.h"
#include "support/media.h"
#include "windows/stream_object.h"

// Guards of the stream that no caller can reach: a stream that was not initialised never leaves Create, and its slots
// always fit. They are reached here by changing the object's own state.
namespace ravlo::test {
namespace {

/// Hands out a pointer to a private member: access is not checked in an explicit instantiation.
template <class Tag, typename Tag::Member kMember>
struct Expose {
    friend typename Tag::Member MemberOf(Tag) { return kMember; }
};
struct Initialized {
    using Member = bool RvMediaStream::*;
    friend Member MemberOf(Initialized);
};
struct Slots {
    using Member = FramePool RvMediaStream::*;
    friend Member MemberOf(Slots);
};
struct Pacing {
    using Member = Pacer RvMediaStream::*;
    friend Member MemberOf(Pacing);
};
template struct Expose<Initialized, &RvMediaStream::m_initialized>;
template struct Expose<Slots, &RvMediaStream::m_framePool>;
template struct Expose<Pacing, &RvMediaStream::m_pacer>;

class StreamGuards : public AnchoredTest {
protected:
    StreamObject m_object;
};

TEST_F(StreamGuards, AnUninitialisedStreamRefusesStartStopAndRequests) {
    bool& initialized = m_object.Get()->*MemberOf(Initialized());
    initialized = false;
    EXPECT_EQ(MF_E_SHUTDOWN, m_object->Start());
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start hr=0xC00D3E85")) << m_log.Text();
    EXPECT_EQ(MF_E_SHUTDOWN, m_object->Stop());
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Stop hr=0xC00D3E85")) << m_log.Text();
    EXPECT_EQ(MF_E_SHUTDOWN, m_object->RequestSample(nullptr));
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.RequestSample hr=0xC00D3E85")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("APARTMENT RequestSample"));
    initialized = true;
}

TEST_F(StreamGuards, AnUninitialisedStreamIsShutDownWithALineOfItsOwn) {
    bool& initialized = m_object.Get()->*MemberOf(Initialized());
    initialized = false;
    EXPECT_EQ(S_OK, m_object->Shutdown());
    EXPECT_TRUE(m_log.HasMessage("RET STM.Shutdown (uninitialized) hr=0x00000000")) << m_log.Text();
    initialized = true;
    EXPECT_EQ(MF_E_SHUTDOWN, m_object->Start());
}

TEST_F(StreamGuards, SlotsTooSmallForTheGeometryRefuseTheStart) {
    ASSERT_TRUE((m_object.Get()->*MemberOf(Slots())).Allocate(3455));
    EXPECT_EQ(E_UNEXPECTED, m_object->Start());
    // "%zu" is no conversion of this log: it stands as it is written.
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start geometry 64x36 needs %zu slot bytes, slots hold %zu")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL STM.Start/geometry hr=0x8000FFFF")) << m_log.Text();
    ASSERT_TRUE((m_object.Get()->*MemberOf(Slots())).Allocate(3456));
    EXPECT_EQ(S_OK, m_object->Start());
}

TEST_F(StreamGuards, ASampleTimeThatWasClampedShowsInBothLines) {
    StreamObject fast({64, 36, 1000, 1});
    ASSERT_EQ(S_OK, fast->Start());
    Pacer& pacer = fast.Get()->*MemberOf(Pacing());
    PacingDecision clamped = pacer.Decide(INT64_MAX / 2, false, 0);
    ASSERT_EQ(PacingKind::Pattern, clamped.kind);
    clamped.clamped = true;
    clamped.now = clamped.sampleTime;
    pacer.Commit(clamped);
    for (int i = 1; i < 300; ++i) {
        ASSERT_EQ(S_OK, fast->RequestSample(nullptr)) << i;
    }
    EXPECT_TRUE(m_log.HasMessage("TS pacing clamp fired 1 of 300 samples (0.3%; expected 0)")) << m_log.Text();
    ASSERT_EQ(S_OK, fast->Stop());
    EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 1 of 300 samples (0.3%; expected 0)")) << m_log.Text();
}

TEST_F(StreamGuards, ASampleTimeThatWouldNotRiseIsMovedOnePeriodOn) {
    StreamObject fast({64, 36, 1000, 1});
    ASSERT_EQ(S_OK, fast->Start());
    Pacer& pacer = fast.Get()->*MemberOf(Pacing());
    PacingDecision ahead = pacer.Decide(INT64_MAX / 2, false, 0);
    const LONGLONG base = ahead.sampleTime;
    ahead.sampleTime = base + 10'000;  // as if the first sample had carried the second one's time
    ahead.now = base;
    pacer.Commit(ahead);
    DrainEvents(fast.Get());
    EXPECT_EQ(base + 20'000, ravlo::test::RequestSample(fast.Get()).time);
    ASSERT_EQ(S_OK, fast->Stop());
    EXPECT_TRUE(m_log.HasMessage("TS publish-tick clamp fired 1 of 2 samples (50.0%; expected 0)")) << m_log.Text();
}

TEST_F(StreamGuards, AFrameOfTheWrongLengthInTheSlotsBecomesTheTestPattern) {
    ASSERT_EQ(S_OK, m_object->Start());
    FramePool& pool = m_object.Get()->*MemberOf(Slots());
    const std::vector<std::uint8_t> frame(3000, 0x77);
    ASSERT_TRUE(pool.Publish({frame.data(), frame.size()}, GetTickCount64()));
    DrainEvents(m_object.Get());
    const Sample sample = ravlo::test::RequestSample(m_object.Get());
    EXPECT_EQ(3456u, sample.bytes.size());
    EXPECT_EQ(16, sample.bytes[0]);
    EXPECT_EQ(235, sample.bytes[63]);
    EXPECT_EQ(128, sample.bytes[3455]);
    EXPECT_EQ(3, pool.WrongLengthFrames());
    EXPECT_EQ(0u, m_log.CountLines("RequestSample refused")) << m_log.Text();  // the reader thread's to write
}

}  // namespace
}  // namespace ravlo::test
