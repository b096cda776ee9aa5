// How the pipe objects begin and end: what a new one says, and what one leaves behind when it goes.
#include <gtest/gtest.h>

#include "gate/demand_gate.h"
#include "pipe/authorized_user.h"
#include "pipe/pipe_producer.h"
#include "pipe_objects.h"
#include "platform/local_memory.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "trace/directory_gate.h"

#include <sddl.h>

#include <memory>
#include <set>

namespace ravlo::test {
namespace {

using CancelHook = RAVLO_HOOK(CancelIoEx);
using DisconnectHook = RAVLO_HOOK(DisconnectNamedPipe);
using TickHook = RAVLO_HOOK(GetTickCount64);

class PipeLifetimes : public AnchoredTest {
protected:
    const std::wstring m_name = UniquePipeName();
};

TEST_F(PipeLifetimes, AnEndpointThatGoesCancelsItsListenBeforeItsMemoryGoes) {
    auto endpoint = std::make_unique<PipeEndpoint>();
    ASSERT_TRUE(endpoint->Create(m_name.c_str(), CurrentUserSid()));
    ASSERT_EQ(ListenState::Listening, endpoint->PollListen());
    CancelHook cancelled(ThisProgram());
    DisconnectHook disconnected(ThisProgram());
    endpoint.reset();
    EXPECT_EQ(1u, cancelled.Count());
    EXPECT_EQ(1u, disconnected.Count());
}

TEST_F(PipeLifetimes, CloseGivesBackEveryHandle) {
    PipeEndpoint endpoint;
    const std::size_t before = SettledHandles();
    ASSERT_TRUE(endpoint.Create(m_name.c_str(), CurrentUserSid()));
    ASSERT_EQ(ListenState::Listening, endpoint.PollListen());
    EXPECT_EQ(before + 2, CountHandles()) << "the pipe and its event";
    endpoint.Close();
    EXPECT_EQ(before, CountHandles());
}

TEST_F(PipeLifetimes, AProducerBeginsWithoutAnErrorAndWithoutTrust) {
    const PipeProducer producer;
    EXPECT_EQ(0u, producer.LastError());
    EXPECT_EQ(OwnerTrust::Untrusted, producer.Owner());
    EXPECT_FALSE(producer.IsConnected());
}

TEST_F(PipeLifetimes, AWriteWithoutADeadlineStillWaitsNotForEver) {
    PipeEndpoint endpoint;
    PipeProducer producer;
    ASSERT_TRUE(endpoint.Create(m_name.c_str(), CurrentUserSid()));
    ASSERT_TRUE(producer.ConnectToServer(m_name.c_str(), 0, false)) << producer.LastError();
    RAVLO_HOOK(WriteFile) writes(ThisProgram());
    writes.FailEvery(FALSE, ERROR_IO_PENDING);
    CancelHook cancelled(ThisProgram());
    RAVLO_HOOK(GetOverlappedResult) results(ThisProgram());
    results.FailEvery(FALSE, ERROR_OPERATION_ABORTED);
    RAVLO_HOOK(WaitForSingleObject) waits(ThisProgram());
    waits.FailEvery(WAIT_TIMEOUT);
    const std::uint8_t payload[6]{};
    EXPECT_EQ(WriteOutcome::DeadlineExpired, producer.WriteFrame(MakeFrameHeader(2, 2, 1), payload, UINT64_MAX));
    ASSERT_EQ(1u, waits.Count());
    EXPECT_EQ(0xFFFFFFFEu, std::get<1>(waits.Calls().front())) << "0xFFFFFFFF would be a wait for ever";
}

TEST_F(PipeLifetimes, TheFirstRecordGoesOutHoweverYoungTheMachineIs) {
    TickHook ticks(ThisProgram());
    std::atomic<ULONGLONG> now{7};
    ticks.Replace([&] { return now.load(); });
    FramePipeStatus status;
    status.name = ToPipeName(m_name);
    status.authorizedUserSid = CurrentUserSid();
    status.created = true;
    DemandCounters counters;
    RvGateContext gate{status, counters};
    RvGateTick(gate);
    EXPECT_TRUE(gate.created);
    EXPECT_EQ(7u, gate.lastPublishTick) << "the pass 7 ms after the start of the machine counted";
    RvGateRelease(gate);
    EXPECT_EQ(0u, gate.lastPublishTick);
}

TEST_F(PipeLifetimes, TheGatesBufferHoldsAHundredAndTwentyEightRecords) {
    RAVLO_HOOK(CreateNamedPipeW) pipes(ThisProgram());
    RvGatePipe gate;
    ASSERT_TRUE(RvGatePipeCreate(gate, CurrentUserSid(), (m_name + L".gate").c_str())) << gate.lastError;
    ASSERT_EQ(1u, pipes.Count());
    EXPECT_EQ(1u, std::get<3>(pipes.Calls().front())) << "instances";
    EXPECT_EQ(4096u, std::get<4>(pipes.Calls().front())) << "bytes towards the reader";
    EXPECT_EQ(0u, std::get<5>(pipes.Calls().front())) << "bytes from it";
    RvGatePipeClose(gate);
}

TEST_F(PipeLifetimes, WhatTheSystemAllocatesForASidIsFreed) {
    RAVLO_HOOK(ConvertSidToStringSidW) texts(ThisProgram());
    RAVLO_HOOK(ConvertStringSidToSidW) sids(ThisProgram());
    RAVLO_HOOK(LocalFree) frees(ThisProgram());
    using TextHook = decltype(texts);
    using SidHook = decltype(sids);
    using FreeHook = decltype(frees);
    std::multiset<void*> live;
    std::size_t allocated = 0;
    texts.Replace([&](PSID sid, LPWSTR* text) {
        const BOOL done = TextHook::CallOriginal(sid, text);
        allocated += live.insert(*text) != live.end() ? 1 : 0;
        return done;
    });
    sids.Replace([&](LPCWSTR text, PSID* sid) {
        const BOOL done = SidHook::CallOriginal(text, sid);
        allocated += live.insert(*sid) != live.end() ? 1 : 0;
        return done;
    });
    frees.Replace([&](HLOCAL block) {
        live.erase(block);
        return FreeHook::CallOriginal(block);
    });
    std::wstring sid;
    DWORD error = 0;
    EXPECT_TRUE(GetOwnTokenUserSid(sid, error)) << error;
    EXPECT_LE(1u, allocated);
    EXPECT_EQ(0u, live.size()) << "after the process's own user";
    allocated = 0;
    EXPECT_EQ(AnchorReason::Ok, ReadAuthorizedUserAnchor(sid));
    EXPECT_LE(1u, allocated);
    EXPECT_EQ(0u, live.size()) << "after the anchor";
    texts.PassOn();
    sids.PassOn();
    frees.PassOn();
}

TEST_F(PipeLifetimes, AUserThatCannotBeReadLeavesNoEarlierOne) {
    LocalSid user;
    ASSERT_TRUE(ConvertStringSidToSidW(L"S-1-5-18", user.Put()));
    m_anchor.Delete();
    DWORD error = 0;
    EXPECT_FALSE(RvReadAuthorizedUserSid(&user, &error));
    EXPECT_EQ(2u, error);
    EXPECT_FALSE(user);
}

TEST_F(PipeLifetimes, ANameThatIsTakenAgainAfterASuccessIsReportedAgain) {
    RAVLO_HOOK(WaitForSingleObject) waits(ThisProgram());
    using WaitHook = decltype(waits);
    waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
        return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout);
    });
    RAVLO_HOOK(CreateNamedPipeW) pipes(ThisProgram());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    RunningReader running(m_name);
    running.Start();
    ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE could not create ")) << m_log.Text();
    pipes.PassOn();
    ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    running.Stop();
    running.reader.Release();
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    running.Start();
    EXPECT_TRUE(m_log.WaitForCount("FAIL PIPE could not create ", 2)) << m_log.Text();
    running.Stop();
}

}  // namespace
}  // namespace ravlo::test
