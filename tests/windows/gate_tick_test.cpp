// One pass of the gate thread at a time, under a made-up clock.
#include "gate/demand_gate.h"

#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "program_heap.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"

#include <cstring>

namespace ravlo::test {
namespace {

using TickHook = RAVLO_HOOK(GetTickCount64);
using PipeHook = RAVLO_HOOK(CreateNamedPipeW);
using ConnectHook = RAVLO_HOOK(ConnectNamedPipe);

class GateTick : public AnchoredTest {
protected:
    GateTick() : m_ticks(ThisProgram()), m_pipes(ThisProgram()) {
        m_ticks.Replace([this] {
            // The watch over the tests looks at the clock as well, on a thread of its own.
            m_asked += GetCurrentThreadId() == m_thread ? 1 : 0;
            return m_now.load();
        });
        m_status.name = ToPipeName(m_name);
        m_status.authorizedUserSid = CurrentUserSid();
        m_status.created = true;
    }
    ~GateTick() override { RvGateRelease(m_context); }

    void TickAt(ULONGLONG now) {
        m_now = now;
        RvGateTick(m_context);
    }
    /// Ticks every 500 ms until a record went out to the connected client.
    std::optional<GateRecord> NextRecord() {
        const std::uint64_t before = m_context.gate.recordsIssued;
        for (int i = 0; i < 100 && m_context.gate.recordsIssued == before; ++i) {
            TickAt(m_now + 500);
        }
        return m_client.Read();
    }
    std::uint64_t IdleFor(std::uint64_t lastCallTick) {
        m_counters.lastCallTick = lastCallTick;
        const std::optional<GateRecord> record = NextRecord();
        return record ? record->idleMs : 0xDEAD;
    }

    const std::wstring m_name = UniquePipeName();
    const DWORD m_thread = GetCurrentThreadId();
    std::atomic<unsigned> m_asked{0};
    std::atomic<ULONGLONG> m_now{10'000'000};
    TickHook m_ticks;
    PipeHook m_pipes;
    FramePipeStatus m_status;
    DemandCounters m_counters;
    RvGateContext m_context{m_status, m_counters};
    GateClient m_client;
};

TEST_F(GateTick, WithoutAFramePipeANameOrAUserItDoesNothing) {
    m_status.created = false;
    RvGateTick(m_context);
    m_status.created = true;
    m_status.name.Clear();
    RvGateTick(m_context);
    m_status.name = ToPipeName(m_name);
    m_status.authorizedUserSid.clear();
    RvGateTick(m_context);
    EXPECT_EQ(0u, m_pipes.Count());
    EXPECT_EQ(0u, m_asked.load());
    EXPECT_EQ(0u, m_context.nextAttemptTick);
    EXPECT_FALSE(m_log.Contains("GATE ")) << m_log.Text();
}

TEST_F(GateTick, TheFirstPassCreatesTheGateSaysSoAndLooksForAClient) {
    TickAt(5000);
    EXPECT_TRUE(m_context.created);
    EXPECT_TRUE(m_log.HasMessage("GATE serving " + Narrow(m_name) +
                                 ".gate - the bridge may now see whether anything is pulling samples"))
        << m_log.Text();
    EXPECT_EQ(5000u, m_context.lastPublishTick);
    EXPECT_TRUE(m_context.gate.connectPending);
    for (ULONGLONG now = 5500; now < 12000; now += 500) {
        TickAt(now);
    }
    EXPECT_EQ(1u, m_pipes.Count()) << "once created it is never created again";
    EXPECT_EQ(1u, m_log.CountLines("GATE "));
}

TEST_F(GateTick, AFramePipeThatIsGoneMakesItIdleAgain) {
    TickAt(5000);
    m_status.created = false;
    m_asked = 0;
    TickAt(6000);
    EXPECT_EQ(0u, m_asked.load());
    EXPECT_EQ(5000u, m_context.lastPublishTick);
}

TEST_F(GateTick, AFailureToCreateIsReportedOnceAndTriedOncePerSecond) {
    m_pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    TickAt(5000);
    EXPECT_TRUE(m_log.HasMessage("GATE could not create " + Narrow(m_name) +
                                 ".gate, GetLastError=5 - retrying every 1000 ms. The bridge sees no demand record and "
                                 "decodes every frame, which is the behaviour that shipped before the gate existed"))
        << m_log.Text();
    EXPECT_EQ(6000u, m_context.nextAttemptTick);
    TickAt(5500);
    TickAt(5999);
    EXPECT_EQ(1u, m_pipes.Count());
    TickAt(6000);
    EXPECT_EQ(2u, m_pipes.Count());
    TickAt(6999);
    EXPECT_EQ(2u, m_pipes.Count());
    TickAt(7000);
    EXPECT_EQ(3u, m_pipes.Count());
    EXPECT_EQ(1u, m_log.CountLines("GATE could not create"));
    EXPECT_EQ(0u, m_context.lastPublishTick);

    m_pipes.PassOn();
    TickAt(8000);
    EXPECT_TRUE(m_context.created);
    EXPECT_FALSE(m_context.failureReported);
    EXPECT_EQ(1u, m_log.CountLines("GATE serving "));
    EXPECT_EQ(8000u, m_context.lastPublishTick) << "the pass that creates publishes as well";
}

TEST_F(GateTick, TwoErrorsInOneRunOfFailuresHaveOneLine) {
    m_pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    TickAt(5000);
    m_pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_PIPE_BUSY);
    TickAt(6000);
    EXPECT_EQ(1u, m_log.CountLines("GATE could not create"));
}

TEST_F(GateTick, ASquatterIsOutwaited) {
    RvGatePipe squatter;
    ASSERT_TRUE(RvGatePipeCreate(squatter, CurrentUserSid(), (m_name + L".gate").c_str()));
    TickAt(5000);
    TickAt(6000);
    EXPECT_EQ(1u, m_log.CountLines("GATE could not create " + Narrow(m_name) + ".gate, GetLastError="));
    RvGatePipeClose(squatter);
    TickAt(7000);
    EXPECT_TRUE(m_context.created) << m_log.Text();
}

TEST_F(GateTick, ReleaseClearsTheStateSoThatTheNextRunBeginsAfresh) {
    m_pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    TickAt(5000);
    RvGateRelease(m_context);
    EXPECT_FALSE(m_context.created);
    EXPECT_FALSE(m_context.failureReported);
    EXPECT_EQ(0u, m_context.nextAttemptTick);
    EXPECT_EQ(0u, m_context.lastPublishTick);
    TickAt(5001);
    EXPECT_EQ(2u, m_pipes.Count()) << "no second's wait is left from before";
    EXPECT_EQ(2u, m_log.CountLines("GATE could not create")) << "and a new run of failures has a line of its own";
    m_pipes.PassOn();
    TickAt(6001);
    RvGateRelease(m_context);
    EXPECT_FALSE(m_context.gate.pipe.IsValid());
    EXPECT_EQ(0u, m_context.lastPublishTick);
}

TEST_F(GateTick, ARecordGoesOutEvery500MillisecondsAndNotBefore) {
    TickAt(5000);
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(NextRecord());
    const std::uint64_t base = m_now;
    const std::uint64_t issued = m_context.gate.recordsIssued;
    TickAt(base + 1);
    TickAt(base + 499);
    EXPECT_EQ(issued, m_context.gate.recordsIssued);
    TickAt(base + 500);
    EXPECT_EQ(issued + 1, m_context.gate.recordsIssued);
    TickAt(base + 2000);
    EXPECT_EQ(issued + 2, m_context.gate.recordsIssued) << "a late pass does not catch up";
    TickAt(base + 2499);
    EXPECT_EQ(issued + 2, m_context.gate.recordsIssued);
}

TEST_F(GateTick, AnAttemptWithoutAClientCountsAsOne) {
    ConnectHook connects(ThisProgram());
    connects.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
    TickAt(5000);
    EXPECT_EQ(1u, connects.Count());
    TickAt(5499);
    EXPECT_EQ(1u, connects.Count());
    TickAt(5500);
    EXPECT_EQ(2u, connects.Count());
    EXPECT_EQ(5500u, m_context.lastPublishTick);
}

TEST_F(GateTick, TheIdleTimeIsThatSinceTheLastRequest) {
    TickAt(9'000'000);
    ASSERT_TRUE(m_client.Connect(m_name));
    EXPECT_EQ(3'600'000u, IdleFor(0)) << "nobody has asked yet";
    EXPECT_EQ(0u, IdleFor(m_now + 500)) << "asked in this very tick";
    EXPECT_EQ(0u, IdleFor(m_now + 5000)) << "asked after this pass took the time";
    EXPECT_EQ(250u, IdleFor(m_now + 250));
    EXPECT_EQ(1u, IdleFor(m_now + 499));
    EXPECT_EQ(3'599'999u, IdleFor(m_now + 500 - 3'599'999));
    EXPECT_EQ(3'600'000u, IdleFor(m_now + 500 - 3'600'000));
    EXPECT_EQ(3'600'000u, IdleFor(m_now + 500 - 3'600'001));
    EXPECT_EQ(3'600'000u, IdleFor(1));
}

TEST_F(GateTick, TheRequestCountIsSentAsItIsAndNeverBelowZero) {
    TickAt(9'000'000);
    ASSERT_TRUE(m_client.Connect(m_name));
    for (const std::int64_t count : {std::int64_t{0}, std::int64_t{-1}, std::int64_t{1}, std::int64_t{1} << 40}) {
        m_counters.totalCalls = count;
        const std::optional<GateRecord> record = NextRecord();
        ASSERT_TRUE(record);
        EXPECT_EQ(count < 1 ? 0u : static_cast<std::uint64_t>(count), record->requestCount);
    }
}

TEST_F(GateTick, SequencesFollowEachOtherAcrossClients) {
    TickAt(5000);
    ASSERT_TRUE(m_client.Connect(m_name));
    for (std::uint64_t expected = 1; expected <= 3; ++expected) {
        const std::optional<GateRecord> record = NextRecord();
        ASSERT_TRUE(record);
        EXPECT_EQ(expected, record->sequence);
        EXPECT_EQ(0, std::memcmp("GATE", record->magic, 4));
        EXPECT_EQ(1u, record->version);
    }
    m_client.Close();
    TickAt(m_now + 500);  // record 4 is lost on the client that left
    TickAt(m_now + 500);
    ASSERT_TRUE(m_client.Connect(m_name));
    const std::optional<GateRecord> record = NextRecord();
    ASSERT_TRUE(record);
    EXPECT_EQ(5u, record->sequence);
}

TEST_F(GateTick, APassAsksForNoMemory) {
    TickAt(5000);
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(NextRecord());
    static ULONGLONG s_now;
    s_now = m_now;
    // The recording clock keeps a list of its calls; this one keeps nothing.
    const auto step = +[]() -> ULONGLONG { return s_now += 500; };
    const ScopedHook<ULONGLONG()> quiet(ThisProgram(), "GetTickCount64", step);
    const std::uint64_t issued = m_context.gate.recordsIssued;
    ProgramHeap heap;
    for (int i = 0; i < 10; ++i) {
        RvGateTick(m_context);
    }
    EXPECT_EQ(issued + 10, m_context.gate.recordsIssued);
    EXPECT_EQ(0, heap.Allocations());
}

}  // namespace
}  // namespace ravlo::test
