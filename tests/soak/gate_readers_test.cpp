// Readers of demand records that do everything but read them, beside a camera that must not notice.
#include "soak/seeded_run.h"
#include "soak/complaints.h"
#include "soak/holdings.h"
#include "soak/judged_camera.h"
#include "soak/producer_player.h"
#include "soak/sent_frames.h"
#include "soak/stall_meter.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <thread>

namespace ravlo::test {
namespace {

/// A lock of the watch over the tests makes a handle when two threads first meet at it. A leak would come once a
/// reader.
constexpr std::size_t kHandleSlack = 2;

/// The gate's clock and its pauses fifty times as fast, so that what would need minutes takes a second. Nothing else of
/// the module is hurried. One at a time.
class HurriedGate {
public:
    explicit HurriedGate(HMODULE module)
        : m_waits(module, "WaitForSingleObject", &Wait), m_ticks(module, "GetTickCount64", &Ticks) {
        s_thread = 0;
        s_passes = 0;
        s_start = GetTickCount64();
    }

    /// Waits until the gate's thread has made `count` more passes.
    static bool WaitForPasses(unsigned count) {
        const unsigned wanted = s_passes + count;
        return WaitUntil([&] { return s_passes >= wanted; }, kPassesPatienceMs);
    }

private:
    static constexpr unsigned kHurry = 50;
    static constexpr DWORD kPauseMs = 500;
    /// Two hundred passes take two seconds on an idle machine.
    static constexpr DWORD kPassesPatienceMs = 30'000;

    static DWORD WINAPI Wait(HANDLE handle, DWORD timeoutMs) {
        if (timeoutMs != kPauseMs) {
            return WaitForSingleObject(handle, timeoutMs);
        }
        s_thread = GetCurrentThreadId();  // only the gate's thread makes this pause
        ++s_passes;
        return WaitForSingleObject(handle, kPauseMs / kHurry);
    }
    static ULONGLONG WINAPI Ticks() {
        const ULONGLONG now = GetTickCount64();
        return s_thread == GetCurrentThreadId() ? s_start + kHurry * (now - s_start) : now;
    }

    static inline std::atomic<DWORD> s_thread{0};
    static inline std::atomic<unsigned> s_passes{0};
    static inline std::atomic<ULONGLONG> s_start{0};
    // Plain functions and not recording hooks: those hold locks of a kind that makes handles.
    ScopedHook<DWORD WINAPI(HANDLE, DWORD)> m_waits;
    ScopedHook<ULONGLONG WINAPI()> m_ticks;
};

/// A judged camera with a producer that sends a frame every few milliseconds.
class GateReaders : public ModuleTest {
protected:
    GateReaders() {
        m_camera.emplace(m_module, m_pipeName, m_sent, m_stalls, m_complaints);
        m_producer = std::thread([this] { Produce(); });
        EXPECT_TRUE(m_camera->WaitForFrame(1, kPatienceMs)) << m_log.Text();
    }
    ~GateReaders() override {
        m_stop = true;
        m_producer.join();
    }

    /// The next reader gets records, which go on in order.
    void ExpectRecordsAgain() {
        GateClient reader;
        ASSERT_TRUE(reader.Connect(m_pipeName)) << reader.LastError();
        std::optional<GateRecord> last;
        for (int i = 0; i < 3; ++i) {
            const std::optional<GateRecord> record = reader.Read();
            ASSERT_TRUE(record) << "record " << i << ", error " << reader.LastError();
            EXPECT_GT(record->sequence, last ? last->sequence : m_lastSequence);
            EXPECT_GT(record->requestCount, 0u);
            last = record;
        }
        m_lastSequence = last->sequence;
    }
    /// The camera shows new frames, and all its samples were right and in time.
    void ExpectCameraUntouched() {
        const std::uint32_t next = m_sent.Next();
        EXPECT_TRUE(m_camera->WaitForFrame(next, kPatienceMs));
        EXPECT_EQ(0u, m_complaints.Count()) << m_complaints.Text();
        const PullStatistics statistics = m_camera->Statistics();
        EXPECT_LE(statistics.late, statistics.LateAllowed());
    }
    /// Lines about the gate, and about failures of any kind.
    std::size_t GateLines() {
        const std::vector<std::string> messages = m_log.Messages();
        return static_cast<std::size_t>(std::count_if(messages.begin(), messages.end(), [](const std::string& message) {
            return message.starts_with("GATE") || message.starts_with("WARN") || message.starts_with("FAIL");
        }));
    }

    const std::wstring m_pipeName = UniquePipeName();
    Complaints m_complaints;
    SentFrames m_sent;
    StallMeter m_stalls;
    Choices m_choices{1};
    HurriedGate m_gate{m_module.Handle()};
    std::optional<JudgedCamera> m_camera;
    std::uint64_t m_lastSequence = 0;

private:
    void Produce() {
        ProducerPlayer producer(m_pipeName, m_sent, m_stalls, m_choices, m_complaints);
        while (!m_stop) {
            producer.SendFrame();
            Sleep(10);
        }
    }

    std::atomic<bool> m_stop{false};
    std::thread m_producer;
};

TEST_F(GateReaders, OneThatNeverReadsFillsItsPipeAndNothingElse) {
    ExpectRecordsAgain();
    const std::size_t linesBefore = GateLines();
    {
        GateClient mute;
        ASSERT_TRUE(mute.Connect(m_pipeName));
        ASSERT_TRUE(m_gate.WaitForPasses(200)) << "128 records fill the pipe, and what comes then is skipped";
        ExpectCameraUntouched();
        // Everything that was written before the pipe was full is still there for it, without a gap.
        std::uint64_t records = 0;
        std::uint64_t previous = 0;
        while (const std::optional<GateRecord> record = mute.Read(0)) {
            ASSERT_EQ(previous == 0 ? record->sequence : previous + 1, record->sequence);
            previous = record->sequence;
            ++records;
        }
        EXPECT_GE(records, 128u);
        EXPECT_LT(records, 200u);
        // And it is served again, from where it was left.
        const std::optional<GateRecord> next = mute.Read();
        ASSERT_TRUE(next);
        EXPECT_EQ(previous + 1, next->sequence);
        m_lastSequence = next->sequence;
    }
    ExpectRecordsAgain();
    ExpectCameraUntouched();
    EXPECT_EQ(linesBefore, GateLines()) << m_log.Text();
}

TEST_F(GateReaders, OneThatVanishesWithItsPipeFullMakesRoomForTheNext) {
    ExpectRecordsAgain();
    const std::size_t linesBefore = GateLines();
    const std::size_t handlesBefore = SettledHandles();
    for (int i = 0; i < 3; ++i) {
        GateClient mute;
        ASSERT_TRUE(mute.Connect(m_pipeName));
        ASSERT_TRUE(m_gate.WaitForPasses(135));
        mute.Close();
        ExpectRecordsAgain();
    }
    ExpectCameraUntouched();
    EXPECT_EQ(linesBefore, GateLines()) << m_log.Text();
    EXPECT_TRUE(HandlesSettleAt(handlesBefore + kHandleSlack)) << handlesBefore << " before, now " << HandleTypes();
}

TEST_F(GateReaders, SlowOnesGetEveryRecordThatWasWritten) {
    GateClient slow;
    ASSERT_TRUE(slow.Connect(m_pipeName));
    std::uint64_t previous = 0;
    for (int i = 0; i < 12; ++i) {
        ASSERT_TRUE(m_gate.WaitForPasses(5)) << "five records come while it reads one";
        const std::optional<GateRecord> record = slow.Read();
        ASSERT_TRUE(record);
        ASSERT_EQ(previous + 1, record->sequence);
        previous = record->sequence;
    }
    ExpectCameraUntouched();
}

TEST_F(GateReaders, ThoseThatComeAndGoAsFastAsTheyCanStarveNobody) {
    ExpectRecordsAgain();
    const std::size_t linesBefore = GateLines();
    const std::size_t handlesBefore = SettledHandles();
    const Deadline deadline(1500);
    unsigned visits = 0;
    while (!deadline.Passed() || visits < 20) {
        GateClient visitor;
        ASSERT_TRUE(visitor.Connect(m_pipeName)) << visits << " visits, error " << visitor.LastError();
        if (++visits % 3 == 0) {
            EXPECT_TRUE(visitor.Read()) << "error " << visitor.LastError();
        }
    }
    ExpectRecordsAgain();
    ExpectCameraUntouched();
    EXPECT_EQ(linesBefore, GateLines()) << m_log.Text();
    EXPECT_TRUE(HandlesSettleAt(handlesBefore + kHandleSlack)) << handlesBefore << " before, now " << HandleTypes();
    EXPECT_EQ(1u, m_log.CountLines("GATE serving "));
}

TEST_F(GateReaders, OneThatReadsByTheByteGetsWholeRecords) {
    PipeEnd reader;
    ASSERT_TRUE(reader.Connect(m_pipeName + L".gate", GENERIC_READ | FILE_WRITE_ATTRIBUTES, kPatienceMs));
    for (std::uint64_t sequence = 1; sequence <= 4; ++sequence) {
        GateRecord record{};
        for (std::size_t i = 0; i < sizeof record; ++i) {
            ASSERT_TRUE(reader.Read(reinterpret_cast<std::uint8_t*>(&record) + i, 1, kPatienceMs))
                << reader.LastError();
        }
        EXPECT_EQ(sequence, record.sequence);
    }
    ExpectCameraUntouched();
}

}  // namespace
}  // namespace ravlo::test
