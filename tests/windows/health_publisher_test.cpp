#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "stream/frame_publisher.h"
#include "stream/pacing_reports.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"

// The reports of the publish step, on the publisher and the pool themselves: the wire lets no frame through that the
// pool would refuse or whose length is wrong.
namespace ravlo::test {
namespace {

constexpr FrameGeometry kGeometry{16, 8, 60, 1};
constexpr std::uint32_t kFrameBytes = 192;

class HealthPublisher : public AnchoredTest {
protected:
    HealthPublisher() {
        m_tick.Replace([this] { return m_now; });
        if (!m_pool.Allocate(kFrameBytes)) {
            throw std::runtime_error("no memory for the pool");
        }
    }

    void PublishAt(std::uint64_t now, std::uint32_t length = kFrameBytes) {
        m_now = now;
        FrameHeader header{};
        header.width = 16;
        header.height = 8;
        header.seq = ++m_sequence;
        m_publisher.PublishFrame(header, m_payload.data(), length);
    }
    /// Has a consumer ask for the newest frame.
    bool Consume() {
        std::vector<std::uint8_t> picture(kFrameBytes);
        return m_pool.Consume(m_now, 1000, 0, kFrameBytes, DescribeCopy(kGeometry, picture.data(), kFrameBytes, 16));
    }
    static std::string CadenceLine(int gap) {
        return "PIPE " + std::to_string(gap) +
               " ms passed between frames - longer than the 100 ms cadence bound, so a due request in the gap would "
               "have served the paced test pattern. The last real picture was NOT repeated and the client was NOT "
               "dropped";
    }

    std::uint64_t m_now = 1;
    std::uint64_t m_sequence = 0;
    // The clock of the publisher, which lives in this program; nothing that waits may be called meanwhile.
    using GetTickCount64Hook = RAVLO_HOOK(GetTickCount64);
    GetTickCount64Hook m_tick{GetModuleHandleW(nullptr)};
    std::vector<std::uint8_t> m_payload = std::vector<std::uint8_t>(4096, 0x55);
    FramePool m_pool;
    FramePublisher m_publisher{m_pool, kGeometry};
};

TEST_F(HealthPublisher, TheFirstFrameAndOneAHundredMillisecondsLaterAreInCadence) {
    PublishAt(700'000);
    PublishAt(700'100);
    EXPECT_EQ(0u, m_log.CountLines("cadence")) << m_log.Text();
}

TEST_F(HealthPublisher, AHundredAndOneMillisecondsAreReportedOncePerRunAndTheRecoveryOnce) {
    PublishAt(1000);
    PublishAt(1101);
    EXPECT_TRUE(m_log.HasMessage(CadenceLine(101))) << m_log.Text();
    PublishAt(1301);
    EXPECT_EQ(1u, m_log.CountLines("cadence bound"));
    EXPECT_FALSE(m_log.HasMessage("PIPE frame cadence recovered"));
    PublishAt(1401);
    EXPECT_TRUE(m_log.HasMessage("PIPE frame cadence recovered")) << m_log.Text();
    PublishAt(1410);
    EXPECT_EQ(1u, m_log.CountLines("frame cadence recovered"));
    PublishAt(2000);
    EXPECT_TRUE(m_log.HasMessage(CadenceLine(590))) << m_log.Text();
}

TEST_F(HealthPublisher, AClockThatStepsBackIsNoGap) {
    PublishAt(5000);
    PublishAt(4000);
    PublishAt(4100);
    EXPECT_EQ(0u, m_log.CountLines("cadence")) << m_log.Text();
}

TEST_F(HealthPublisher, RefusedPublishesAreReportedOnceAtTheFirst) {
    for (int i = 0; i < 10; ++i) {
        PublishAt(1000 + static_cast<std::uint64_t>(i), kFrameBytes + 1);
    }
    EXPECT_EQ(10, m_pool.RefusedPublishes());
    // "%zu" is no conversion of this log: it stands as it is written.
    EXPECT_TRUE(m_log.HasMessage(
        "PIPE 1 publish(es) REFUSED by the frame pool: payload %zu bytes, slots hold %zu. Nothing was published, so "
        "the camera serves the test pattern - this is a producer sending a size this pool cannot carry, not a wire "
        "fault"))
        << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("REFUSED by the frame pool"));
}

TEST_F(HealthPublisher, ARefusedFrameDoesNotWakeARequestAndAPublishedOneDoes) {
    const HANDLE arrival = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    m_publisher.SetFrameArrivalEvent(arrival);
    PublishAt(1000, kFrameBytes + 1);
    EXPECT_EQ(WAIT_TIMEOUT, WaitForSingleObject(arrival, 0));
    PublishAt(1001);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(arrival, 0));
    CloseHandle(arrival);
    std::uint64_t stamp = 0;
    EXPECT_TRUE(m_pool.Peek(1001, 1000, stamp));
    EXPECT_EQ(1001u, stamp);
}

TEST_F(HealthPublisher, AWrongLengthIsReportedOnceAtTheNextFrame) {
    PublishAt(1000, 100);
    EXPECT_FALSE(Consume());
    EXPECT_EQ(3, m_pool.WrongLengthFrames());  // each of the three attempts saw it
    EXPECT_EQ(0u, m_log.CountLines("RequestSample refused"));
    const std::string line =
        "PIPE RequestSample refused 3 published frame(s) whose length was not the %zu bytes this stream's geometry "
        "needs. The picture was NOT truncated and NOT padded with stale pixels; the test pattern was served instead";
    PublishAt(1010, 100);
    EXPECT_TRUE(m_log.HasMessage(line)) << m_log.Text();
    EXPECT_FALSE(Consume());
    PublishAt(1020);
    EXPECT_EQ(1u, m_log.CountLines("RequestSample refused"));
    EXPECT_TRUE(Consume());
}

TEST_F(HealthPublisher, TheLiveLineIsWrittenOnceAndAgainAfterEachInterruption) {
    PublishAt(1000);
    PublishAt(1010);
    EXPECT_TRUE(m_log.HasMessage("PIPE delivering live frames 16x8 seq=1")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("PIPE delivering live frames"));
    m_publisher.RearmLiveAnnouncement();
    PublishAt(1020);
    PublishAt(1030);
    EXPECT_TRUE(m_log.HasMessage("PIPE delivering live frames 16x8 seq=3")) << m_log.Text();
    EXPECT_EQ(2u, m_log.CountLines("PIPE delivering live frames"));
}

TEST_F(HealthPublisher, TheReportsOfOneFrameComeInTheirOrder) {
    PublishAt(1000, 100);
    Consume();
    m_publisher.RearmLiveAnnouncement();
    PublishAt(2000, kFrameBytes + 1);
    const auto cadence = m_log.Find("cadence bound");
    const auto refused = m_log.Find("REFUSED by the frame pool");
    const auto length = m_log.Find("RequestSample refused");
    const auto live = m_log.Find("PIPE delivering live frames 16x8 seq=2");
    ASSERT_TRUE(cadence && refused && length && live) << m_log.Text();
    EXPECT_LT(cadence, refused);
    EXPECT_LT(refused, length);
    EXPECT_LT(length, live);
}

class HealthClamps : public AnchoredTest {};

TEST_F(HealthClamps, TheShareIsWrittenToOneDecimalPlace) {
    const struct {
        std::uint64_t clamps;
        std::uint64_t samples;
        const char* text;
    } cases[] = {
        {0, 300, "0 of 300 samples (0.0%; expected 0)"},       {1, 300, "1 of 300 samples (0.3%; expected 0)"},
        {1, 1001, "1 of 1001 samples (0.0%; expected 0)"},     {299, 300, "299 of 300 samples (99.6%; expected 0)"},
        {300, 300, "300 of 300 samples (100.0%; expected 0)"}, {19, 20, "19 of 20 samples (95.0%; expected 0)"},
    };
    for (const auto& item : cases) {
        m_log.Restart();
        TracePacingClamps(item.clamps, item.samples);
        TraceStopClamps(item.clamps, item.samples);
        EXPECT_TRUE(m_log.HasMessage(std::string("TS pacing clamp fired ") + item.text)) << m_log.Text();
        EXPECT_TRUE(m_log.HasMessage(std::string("TS publish-tick clamp fired ") + item.text)) << m_log.Text();
    }
}

}  // namespace
}  // namespace ravlo::test
