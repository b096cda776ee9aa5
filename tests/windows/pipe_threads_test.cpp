// The two threads of a stream, without the stream: started once, stopped any number of times, started afresh.
#include "stream/pipe_threads.h"

#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "stream/frame_pool.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

constexpr char kReaderExit[] = "PIPE reader thread exiting";
constexpr char kGateExit[] =
    "GATE thread exiting - no further demand records are published, so the bridge's lease expires and it goes back to decoding every frame";

class ThreadsAlone : public AnchoredTest {
protected:
    ThreadsAlone() { EXPECT_TRUE(m_pool.Allocate(3456)); }

    const std::wstring m_name = UniquePipeName();
    FixedName m_names{m_name};
    CountingSink m_sink;
    FramePool m_pool;
    DemandCounters m_counters;
    UniqueObject m_frameArrival = MakeEvent();
    UniqueObject m_notRunning = MakeEvent();
    PipeThreads m_threads{m_names, m_sink, m_pool, {64, 36, 3456}, m_counters};
};

TEST_F(ThreadsAlone, StartingTwiceStartsOnce) {
    EXPECT_EQ(S_OK, m_threads.StartPipeThreads(m_frameArrival.Get()));
    EXPECT_EQ(S_OK, m_threads.StartPipeThreads(m_frameArrival.Get()));
    m_threads.StopPipeThreads(nullptr);
    EXPECT_EQ(1u, m_log.CountLines("PIPE reader thread started")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines(kReaderExit));
}

TEST_F(ThreadsAlone, StoppingSignalsThoseWhoWaitForASampleOrAFrame) {
    EXPECT_EQ(S_OK, m_threads.StartPipeThreads(m_frameArrival.Get()));
    m_threads.StopPipeThreads(m_notRunning.Get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(m_notRunning.Get(), 0));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(m_frameArrival.Get(), 0));
    EXPECT_TRUE(m_threads.JoinedCleanly());
    EXPECT_FALSE(m_threads.IsAbandoned());
}

TEST_F(ThreadsAlone, StoppingWhatNeverRanOrRunsNoLongerIsHarmless) {
    m_threads.StopPipeThreads(m_notRunning.Get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(m_notRunning.Get(), 0));
    EXPECT_EQ(S_OK, m_threads.StartPipeThreads(m_frameArrival.Get()));
    m_threads.StopPipeThreads(nullptr);
    m_threads.StopPipeThreads(nullptr);
    EXPECT_FALSE(m_threads.IsAbandoned());
    EXPECT_FALSE(m_log.Contains("FAIL")) << m_log.Text();
}

TEST_F(ThreadsAlone, AfterATeardownNoFrameCountsAsPublishedAnyMore) {
    const std::vector<std::uint8_t> frame(3456, 1);
    ASSERT_TRUE(m_pool.Publish({frame.data(), frame.size()}, 1000));
    std::uint64_t stamp = 0;
    ASSERT_TRUE(m_pool.Peek(1000, 1000, stamp));
    EXPECT_EQ(S_OK, m_threads.StartPipeThreads(m_frameArrival.Get()));
    m_threads.StopPipeThreads(nullptr);
    EXPECT_FALSE(m_pool.Peek(1000, 1000, stamp));
}

TEST_F(ThreadsAlone, AStopDuringTheAccountLookupLeavesNoPipeBehind) {
    using LookupHook = RAVLO_HOOK(LookupAccountSidW);
    using CreateHook = RAVLO_HOOK(CreateNamedPipeW);
    CreateHook pipes(ThisProgram());
    LookupHook lookup(ThisProgram());
    const UniqueObject stop = MakeEvent();
    // As a lookup that outlasts the teardown's patience: by the time it answers, the thread has been given up.
    lookup.Replace([&](LPCWSTR, PSID, LPWSTR, LPDWORD, LPWSTR, LPDWORD, PSID_NAME_USE) -> BOOL {
        SetEvent(stop.Get());
        SetLastError(ERROR_NONE_MAPPED);
        return FALSE;
    });
    FrameReader reader(m_names, m_sink, {64, 36, 3456});
    reader.Run(stop.Get());
    EXPECT_EQ(1u, lookup.Count());
    EXPECT_EQ(0u, pipes.Count());
}

TEST_F(ThreadsAlone, ALaterStartBeginsAfresh) {
    for (std::size_t run = 1; run <= 2; ++run) {
        EXPECT_EQ(S_OK, m_threads.StartPipeThreads(m_frameArrival.Get()));
        ASSERT_TRUE(m_log.WaitForCount("PIPE created ", run)) << m_log.Text();
        GateClient gate;
        ASSERT_TRUE(gate.Connect(m_name)) << m_log.Text();
        const std::optional<GateRecord> record = gate.Read();
        ASSERT_TRUE(record);
        EXPECT_EQ(1u, record->sequence) << "the sequence starts over with the pipe";
        PipeClient producer;
        ASSERT_TRUE(producer.Connect(m_name));
        ASSERT_TRUE(producer.SendFrame(64, 36, 1));
        EXPECT_TRUE(WaitUntil([&] { return m_sink.published == static_cast<int>(run); }));
        m_threads.StopPipeThreads(nullptr);
        EXPECT_EQ(run, m_log.CountLines("PIPE name ")) << "resolved anew each time";
        EXPECT_EQ(run, m_log.CountLines(kReaderExit));
        EXPECT_EQ(run, m_log.CountLines(kGateExit));
    }
}

}  // namespace
}  // namespace ravlo::test
