// The gate pipe as an object: the connection that is polled and never waited for, and the records.
#include "gate/gate_pipe.h"

#include <gtest/gtest.h>

#include <cstring>

#include "pipe_objects.h"
#include "program_heap.h"
#include "support/import_hooks.h"

namespace ravlo::test {
namespace {

using PipeHook = RAVLO_HOOK(CreateNamedPipeW);
using ConnectHook = RAVLO_HOOK(ConnectNamedPipe);
using DisconnectHook = RAVLO_HOOK(DisconnectNamedPipe);
using WriteHook = RAVLO_HOOK(WriteFile);
using ResultHook = RAVLO_HOOK(GetOverlappedResult);
using CancelHook = RAVLO_HOOK(CancelIoEx);

class GatePipe : public ::testing::Test {
protected:
    ~GatePipe() override { RvGatePipeClose(m_gate); }

    bool Create() { return RvGatePipeCreate(m_gate, m_user, m_gateName.c_str()); }
    bool Publish(std::uint64_t idle = 0, std::uint64_t count = 0) { return RvGatePipePublish(m_gate, idle, count); }
    /// Publishes until a connected client gets its record.
    bool PublishToClient(std::uint64_t idle = 0, std::uint64_t count = 0) {
        return WaitUntil([&] { return Publish(idle, count); });
    }

    const std::wstring m_user = CurrentUserSid();
    const std::wstring m_name = UniquePipeName();
    const std::wstring m_gateName = m_name + L".gate";
    RvGatePipe m_gate;
    GateClient m_client;
};

TEST_F(GatePipe, WithoutAPipeNothingIsPublished) {
    EXPECT_FALSE(Publish());
    RvGatePipeDisconnect(m_gate);
    EXPECT_EQ(0u, m_gate.sequence);
}

TEST_F(GatePipe, WithoutAClientNothingIsQueuedAndOneConnectPends) {
    ASSERT_TRUE(Create());
    ConnectHook connects(ThisProgram());
    WriteHook writes(ThisProgram());
    for (int i = 0; i < 5; ++i) {
        EXPECT_FALSE(Publish());
    }
    EXPECT_TRUE(m_gate.connectPending);
    EXPECT_EQ(1u, connects.Count());
    EXPECT_EQ(0u, writes.Count());
    EXPECT_EQ(0u, m_gate.sequence);

    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(PublishToClient(250, 7));
    const std::optional<GateRecord> record = m_client.Read();
    ASSERT_TRUE(record);
    EXPECT_EQ(1u, record->sequence) << "the passes without a client used no numbers";
    EXPECT_EQ(250u, record->idleMs);
    EXPECT_EQ(7u, record->requestCount);
}

TEST_F(GatePipe, AClientThatIsThereBeforeTheFirstPassGetsItsRecordInThatPass) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    EXPECT_TRUE(Publish());
    EXPECT_TRUE(m_gate.connected);
    EXPECT_FALSE(m_gate.connectPending);
}

TEST_F(GatePipe, ARecordIs32BytesInThisOrder) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(Publish(0x0000000000123456, 0x1122334455667788));
    const std::optional<GateRecord> record = m_client.Read();
    ASSERT_TRUE(record);
    constexpr unsigned char kExpected[32] = {'G', 'A', 'T',  'E',  1,    0,    0,    0,    1,    0,   0,
                                             0,   0,   0,    0,    0,    0x56, 0x34, 0x12, 0,    0,   0,
                                             0,   0,   0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11};
    EXPECT_EQ(0, std::memcmp(kExpected, &*record, 32));
}

TEST_F(GatePipe, IdleTimesAreCutAtOneHour) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    for (const std::uint64_t idle : {3'599'999ULL, 3'600'000ULL, 3'600'001ULL, ~0ULL}) {
        ASSERT_TRUE(Publish(idle, 1));
        const std::optional<GateRecord> record = m_client.Read();
        ASSERT_TRUE(record);
        EXPECT_EQ(idle < 3'600'000 ? idle : 3'600'000u, record->idleMs);
    }
}

TEST_F(GatePipe, ARecordThatIsStillOnItsWayMakesThePassSkip) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    std::uint64_t issued = 0;
    while (issued < 1000 && !m_gate.writePending) {
        ASSERT_TRUE(Publish(0, ++issued));
    }
    ASSERT_TRUE(m_gate.writePending) << "a client that never reads fills the pipe";
    EXPECT_GE(issued, 128u) << "4096 bytes hold many records";
    const DemandRecordBytes onItsWay = m_gate.record;
    for (int i = 0; i < 3; ++i) {
        EXPECT_FALSE(Publish(999, 999));
    }
    EXPECT_EQ(issued, m_gate.sequence);
    EXPECT_EQ(issued, m_gate.recordsIssued);
    EXPECT_EQ(onItsWay, m_gate.record);
    EXPECT_TRUE(m_gate.connected);
    for (std::uint64_t i = 1; i <= issued; ++i) {
        const std::optional<GateRecord> record = m_client.Read();
        ASSERT_TRUE(record) << i;
        ASSERT_EQ(i, record->sequence);
        ASSERT_EQ(i, record->requestCount) << "the buffer was left alone while it was on its way";
    }
    ASSERT_TRUE(PublishToClient());
    EXPECT_EQ(issued + 1, m_client.Read()->sequence);
}

TEST_F(GatePipe, AWriteThatPendsCountsAsIssuedAndItsFailureDropsTheClient) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    WriteHook writes(ThisProgram());
    writes.FailEvery(FALSE, ERROR_IO_PENDING);
    EXPECT_TRUE(Publish());
    EXPECT_TRUE(m_gate.writePending);
    EXPECT_EQ(1u, m_gate.recordsIssued);
    {
        ResultHook results(ThisProgram());
        results.FailEvery(FALSE, ERROR_IO_INCOMPLETE);
        EXPECT_FALSE(Publish());
        EXPECT_TRUE(m_gate.writePending);
        EXPECT_EQ(FALSE, std::get<3>(results.Calls().front())) << "looked at, not waited for";
    }
    {
        ResultHook results(ThisProgram());
        results.FailCall(1, FALSE, ERROR_BROKEN_PIPE);
        EXPECT_FALSE(Publish());
    }
    EXPECT_EQ(109u, m_gate.lastError);
    EXPECT_FALSE(m_gate.writePending);
    EXPECT_FALSE(m_gate.connected);
    EXPECT_TRUE(m_client.Read(50) == std::nullopt);
    EXPECT_EQ(1u, m_gate.sequence);
}

TEST_F(GatePipe, AClientThatLeavesCostsOneRecordAndTheSequenceGoesOn) {
    PipeHook pipes(ThisProgram());
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(Publish());
    EXPECT_EQ(1u, m_client.Read()->sequence);
    m_client.Close();
    EXPECT_FALSE(Publish());
    EXPECT_NE(0u, m_gate.lastError);
    EXPECT_FALSE(m_gate.connected);
    EXPECT_EQ(2u, m_gate.sequence) << "the record that failed has consumed its number";
    EXPECT_EQ(1u, m_gate.recordsIssued);
    EXPECT_FALSE(Publish());
    EXPECT_TRUE(m_gate.connectPending);
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(PublishToClient());
    EXPECT_EQ(3u, m_client.Read()->sequence);
    EXPECT_EQ(1u, pipes.Count());
}

TEST_F(GatePipe, AConnectThatFailsIsIssuedAgainAfterADisconnect) {
    ASSERT_TRUE(Create());
    ConnectHook connects(ThisProgram());
    DisconnectHook disconnects(ThisProgram());
    connects.FailCall(1, FALSE, ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_FALSE(Publish());
    EXPECT_EQ(1450u, m_gate.lastError);
    EXPECT_EQ(0u, disconnects.Count());
    EXPECT_FALSE(Publish());
    EXPECT_EQ(1u, disconnects.Count());
    EXPECT_EQ(2u, connects.Count());
    EXPECT_TRUE(m_gate.connectPending);
}

TEST_F(GatePipe, AConnectThatSucceedsAtOnceIsAConnection) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    ConnectHook connects(ThisProgram());
    connects.FailEvery(TRUE);
    EXPECT_TRUE(Publish());
    EXPECT_TRUE(m_client.Read());
}

TEST_F(GatePipe, AClientThatCameAndWentBeforeTheFirstConnectIsClearedAway) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    m_client.Close();
    EXPECT_FALSE(Publish());
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_DATA), m_gate.lastError);
    EXPECT_FALSE(Publish());
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(PublishToClient());
    EXPECT_EQ(1u, m_client.Read()->sequence);
}

TEST_F(GatePipe, AConnectThatEndsBadlyIsForgottenAndIssuedAgain) {
    ASSERT_TRUE(Create());
    EXPECT_FALSE(Publish());
    SetEvent(m_gate.connectEvent.Get());
    {
        ResultHook results(ThisProgram());
        results.FailCall(1, FALSE, ERROR_BROKEN_PIPE);
        EXPECT_FALSE(Publish());
        EXPECT_EQ(FALSE, std::get<3>(results.Calls().front()));
    }
    EXPECT_EQ(109u, m_gate.lastError);
    EXPECT_FALSE(m_gate.connectPending);
    ConnectHook connects(ThisProgram());
    EXPECT_FALSE(Publish());
    EXPECT_EQ(1u, connects.Count());
}

TEST_F(GatePipe, DisconnectCancelsAndWaitsOutAWriteAndThenAConnect) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    while (!m_gate.writePending && m_gate.sequence < 1000) {
        ASSERT_TRUE(Publish());
    }
    ASSERT_TRUE(m_gate.writePending);
    {
        CancelHook cancels(ThisProgram());
        ResultHook results(ThisProgram());
        DisconnectHook disconnects(ThisProgram());
        RvGatePipeDisconnect(m_gate);
        ASSERT_EQ(1u, cancels.Count());
        ASSERT_EQ(1u, results.Count());
        EXPECT_EQ(&m_gate.writeOverlapped, std::get<1>(cancels.Calls().front()));
        EXPECT_EQ(&m_gate.writeOverlapped, std::get<1>(results.Calls().front()));
        EXPECT_EQ(TRUE, std::get<3>(results.Calls().front()));
        EXPECT_EQ(1u, disconnects.Count());
    }
    EXPECT_FALSE(m_gate.writePending);
    EXPECT_FALSE(m_gate.connected);
    EXPECT_FALSE(Publish());
    ASSERT_TRUE(m_gate.connectPending);
    CancelHook cancels(ThisProgram());
    ResultHook results(ThisProgram());
    RvGatePipeDisconnect(m_gate);
    ASSERT_EQ(1u, cancels.Count());
    ASSERT_EQ(1u, results.Count());
    EXPECT_EQ(&m_gate.connectOverlapped, std::get<1>(cancels.Calls().front()));
    EXPECT_EQ(TRUE, std::get<3>(results.Calls().front()));
    EXPECT_FALSE(m_gate.connectPending);
    EXPECT_TRUE(m_gate.pipe.IsValid());
}

TEST_F(GatePipe, CloseFreesTheNameAndStartsTheSequenceOver) {
    const std::size_t handles = SettledHandles();
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(Publish());
    RvGatePipeClose(m_gate);
    EXPECT_EQ(0u, m_gate.sequence);
    EXPECT_EQ(L'\0', m_gate.name.text[0]);
    EXPECT_FALSE(m_gate.connected);
    EXPECT_FALSE(Publish());
    m_client.Close();
    EXPECT_EQ(handles, CountHandles());
    EXPECT_FALSE(m_client.Connect(m_name, 0));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), m_client.LastError());
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(Publish());
    EXPECT_EQ(1u, m_client.Read()->sequence);
}

TEST_F(GatePipe, PublishingAsksForNoMemory) {
    ASSERT_TRUE(Create());
    ASSERT_TRUE(m_client.Connect(m_name));
    ASSERT_TRUE(Publish());
    ProgramHeap heap;
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(Publish());
    }
    EXPECT_EQ(0, heap.Allocations());
}

}  // namespace
}  // namespace ravlo::test
