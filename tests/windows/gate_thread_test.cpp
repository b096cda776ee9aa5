// The gate as a producer meets it: through the DLL, on real pipes and real time.
#include <gtest/gtest.h>

#include "gate/gate_pipe.h"
#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

#include <cstring>

namespace ravlo::test {
namespace {

constexpr char kExit[] =
    "GATE thread exiting - no further demand records are published, so the bridge's lease expires and it goes back to "
    "decoding every frame";

class GateThread : public ModuleTest {
protected:
    void ExpectRecord(GateClient& client, GateRecord& record) {
        const std::optional<GateRecord> read = client.Read();
        ASSERT_TRUE(read) << m_log.Text();
        record = *read;
        EXPECT_EQ(0, std::memcmp("GATE", record.magic, 4));
        EXPECT_EQ(1u, record.version);
    }

    const std::wstring m_name = UniquePipeName();
};

/// The same with the module's clock and the gate's pauses ten times as fast, for what is no question of time.
class FastGate : public GateThread {
protected:
    using TickHook = RAVLO_HOOK(GetTickCount64);
    using WaitHook = RAVLO_HOOK(WaitForSingleObject);
    FastGate() : m_ticks(m_module.Handle()), m_waits(m_module.Handle()) {
        const ULONGLONG start = GetTickCount64();
        m_ticks.Replace([start] { return start + 10 * (GetTickCount64() - start); });
        m_waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
            return WaitHook::CallOriginal(handle, timeout == 500 ? 50 : timeout);
        });
    }
    TickHook m_ticks;
    WaitHook m_waits;
};

TEST_F(GateThread, RecordsComeAboutEvery500MillisecondsInSequence) {
    Camera camera(m_module, {.pipeName = m_name});
    GateClient client;
    ASSERT_TRUE(client.Connect(m_name)) << m_log.Text();
    GateRecord record{};
    ExpectRecord(client, record);
    ULONGLONG last = GetTickCount64();
    std::uint64_t sequence = record.sequence;
    EXPECT_EQ(1u, sequence);
    for (int i = 0; i < 2; ++i) {
        ExpectRecord(client, record);
        const ULONGLONG now = GetTickCount64();
        EXPECT_EQ(++sequence, record.sequence);
        EXPECT_EQ(3'600'000u, record.idleMs) << "nobody has asked for a sample";
        EXPECT_EQ(0u, record.requestCount);
        // A pass that comes a moment early skips its record, so one interval may be two passes long.
        EXPECT_GE(now - last, 400u);
        EXPECT_LE(now - last, 1200u);
        last = now;
    }
}

TEST_F(GateThread, TheThreadSaysThatItStartedServesAndEnds) {
    {
        Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
    }
    EXPECT_TRUE(
        m_log.HasMessage("GATE thread started - the demand lease is now re-asserted every 500 ms on its own clock, "
                         "not once per frame received"));
    EXPECT_TRUE(m_log.HasMessage("GATE serving " + Narrow(m_name) +
                                 ".gate - the bridge may now see whether anything is pulling samples"));
    EXPECT_TRUE(m_log.HasMessage(kExit)) << m_log.Text();
    EXPECT_EQ(3u, m_log.CountLines("GATE "));
}

TEST_F(GateThread, TheDemandIsCountedSinceTheLastStartAndTheIdleTimeSinceTheLastRequest) {
    Camera camera(m_module, {.pipeName = m_name});
    camera.Start();
    for (int i = 0; i < 3; ++i) {
        camera.Pull();
    }
    GateClient client;
    ASSERT_TRUE(client.Connect(m_name)) << m_log.Text();
    GateRecord record{};
    ExpectRecord(client, record);
    EXPECT_EQ(3u, record.requestCount);
    EXPECT_LE(record.idleMs, 2000u);
    const std::uint64_t idle = record.idleMs;
    ExpectRecord(client, record);
    EXPECT_EQ(3u, record.requestCount);
    EXPECT_GE(record.idleMs, idle + 400);
    EXPECT_LE(record.idleMs, idle + 1500);

    camera.Stop();
    camera.Start();
    ExpectRecord(client, record);
    EXPECT_EQ(0u, record.requestCount) << "a start clears the count";
    EXPECT_GT(record.idleMs, idle + 400) << "but not the time of the last request";
    EXPECT_LT(record.idleMs, 10'000u);
    camera.Pull();
    ExpectRecord(client, record);
    EXPECT_EQ(1u, record.requestCount);
    EXPECT_LE(record.idleMs, 1500u);
}

TEST_F(FastGate, TheSequenceGoesOnForTheNextClientAndStartsOverForTheNextStream) {
    GateRecord record{};
    std::uint64_t last = 0;
    {
        Camera camera(m_module, {.pipeName = m_name});
        for (int i = 0; i < 2; ++i) {
            GateClient client;
            ASSERT_TRUE(client.Connect(m_name)) << m_log.Text();
            ExpectRecord(client, record);
            EXPECT_GT(record.sequence, last);
            last = record.sequence;
        }
        EXPECT_EQ(1u, m_log.CountLines("GATE serving "));
    }
    Camera camera(m_module, {.pipeName = m_name});
    GateClient client;
    ASSERT_TRUE(client.Connect(m_name)) << m_log.Text();
    ExpectRecord(client, record);
    EXPECT_EQ(1u, record.sequence);
}

TEST_F(FastGate, AProducerThatStandsStillMidFrameDoesNotStopTheRecords) {
    Camera camera(m_module, {.pipeName = m_name});
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_name));
    ASSERT_TRUE(producer.SendHeader(HeaderFor(320, 180, 1)));
    GateClient client;
    ASSERT_TRUE(client.Connect(m_name)) << m_log.Text();
    GateRecord record{};
    ExpectRecord(client, record);
    ExpectRecord(client, record);
    EXPECT_EQ(2u, record.sequence);
}

TEST_F(GateThread, FramesDoNotMultiplyTheRecords) {
    using WaitHook = RAVLO_HOOK(WaitForSingleObject);
    WaitHook waits(m_module.Handle());
    Camera camera(m_module, {.pipeName = m_name});
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_name));
    GateClient client;
    ASSERT_TRUE(client.Connect(m_name)) << m_log.Text();
    GateRecord record{};
    ExpectRecord(client, record);
    const Deadline deadline(700);
    int frames = 0;
    for (; !deadline.Passed() || frames < 10; ++frames) {
        ASSERT_TRUE(producer.SendFrame(320, 180, 1));
    }
    // Everything that has come until now: no more records than the gate has made its pauses.
    ExpectRecord(client, record);
    while (const std::optional<GateRecord> more = client.Read(0)) {
        record = *more;
    }
    std::size_t pauses = 0;
    for (const auto& call : waits.Calls()) {
        pauses += std::get<1>(call) == 500 ? 1 : 0;
    }
    EXPECT_GE(record.sequence, 2u);
    EXPECT_LE(record.sequence, pauses + 1);
}

TEST_F(FastGate, WithoutAFramePipeThereIsNoGate) {
    RAVLO_HOOK(CreateNamedPipeW) pipes(m_module.Handle());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    {
        Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE could not create ")) << m_log.Text();
        EXPECT_TRUE(WaitUntil([&] {
            std::size_t pauses = 0;
            for (const auto& call : m_waits.Calls()) {
                pauses += std::get<1>(call) == 500 ? 1 : 0;
            }
            return pauses >= 5;
        }));
    }
    for (const auto& call : pipes.Calls()) {
        EXPECT_EQ(m_name, std::get<0>(call));
    }
    EXPECT_FALSE(m_log.Contains("GATE serving"));
    EXPECT_FALSE(m_log.Contains("GATE could not create"));
}

TEST_F(FastGate, ASquatterOnTheGatesNameCostsOneLineAndNotTheCamera) {
    RvGatePipe squatter;
    ASSERT_TRUE(RvGatePipeCreate(squatter, CurrentUserSid(), (m_name + L".gate").c_str()));
    RAVLO_HOOK(CreateNamedPipeW) pipes(m_module.Handle());
    Camera camera(m_module, {.pipeName = m_name});
    ASSERT_TRUE(pipes.WaitForCalls(4)) << "the frame pipe, and the gate three times";
    EXPECT_EQ(1u, m_log.CountLines("GATE could not create " + Narrow(m_name) + ".gate, GetLastError="));
    EXPECT_TRUE(
        m_log.Contains(" - retrying every 1000 ms. The bridge sees no demand record and decodes every frame, which is "
                       "the behaviour that shipped before the gate existed"));
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(m_name));
    ASSERT_TRUE(producer.SendFrame(320, 180, 5));
    EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=5")) << m_log.Text();
    RvGatePipeClose(squatter);
    EXPECT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("GATE could not create"));
    GateClient client;
    ASSERT_TRUE(client.Connect(m_name));
    GateRecord record{};
    ExpectRecord(client, record);
    EXPECT_EQ(1u, record.sequence);
}

TEST_F(FastGate, TheRecordsStopWithTheStream) {
    GateClient client;
    {
        Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(client.Connect(m_name)) << m_log.Text();
        GateRecord record{};
        ExpectRecord(client, record);
    }
    EXPECT_FALSE(client.Read(50));
    EXPECT_NE(static_cast<DWORD>(WAIT_TIMEOUT), client.LastError()) << "the pipe is gone, it is not only silent";
}

}  // namespace
}  // namespace ravlo::test
