// What the producer library hears of a camera's demand, against the module's own gate pipe and against others.
#include <gtest/gtest.h>

#include <thread>

#include "support/handles.h"
#include "tools/producer_demand_stage.h"
#include "windows/program_heap.h"

namespace ravlo::test {
namespace {

TEST_F(ProducerDemand, TheGateIsOpenedForReadingOnlyUnsharedAndAtIdentificationLevel) {
    OpenHook opens(ThisProgram());
    ExpectNothingKnown(2);
    ASSERT_EQ(1U, opens.Count());
    const auto call = opens.Calls().front();
    EXPECT_EQ(m_gateName, std::get<0>(call));
    EXPECT_EQ(0x80000000U, std::get<1>(call));
    EXPECT_EQ(0U, std::get<2>(call));
    EXPECT_EQ(nullptr, std::get<3>(call));
    EXPECT_EQ(3U, std::get<4>(call));
    EXPECT_EQ(0x40110000U, std::get<5>(call));
}

TEST_F(ProducerDemand, AMissingGateIsTriedTwiceASecond) {
    StopClock();
    OpenHook opens(ThisProgram());
    ExpectNothingKnown(2);
    for (int i = 0; i < 20; ++i) {
        ExpectNothingKnown(2);
    }
    EXPECT_EQ(1U, opens.Count());
    Pass(499);
    ExpectNothingKnown(2);
    EXPECT_EQ(1U, opens.Count());
    Pass(1);
    ExpectNothingKnown(2);
    EXPECT_EQ(2U, opens.Count());
}

TEST_F(ProducerDemand, ASilentGateIsNoDemandAndIsNotWaitedFor) {
    Serve();
    RAVLO_HOOK(Sleep) sleeps(ThisProgram());
    RAVLO_HOOK(WaitForSingleObject) waits(ThisProgram());
    ExpectNothingKnown(0);
    ExpectNothingKnown(0);
    EXPECT_EQ(0U, sleeps.Count());
    for (const auto& call : waits.Calls()) {
        EXPECT_EQ(0U, std::get<1>(call));
    }
}

TEST_F(ProducerDemand, ARecordIsReadFieldByField) {
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(kRecord42));
    ASSERT_TRUE(WaitForRecord(42));
    EXPECT_EQ(12U, m_demand.idle_ms);
    EXPECT_EQ(1260U, m_demand.requests);
    EXPECT_LT(m_demand.age_ms, 2000U);
}

TEST_F(ProducerDemand, OfSeveralRecordsTheNewestCountsAndAGapShows) {
    Serve();
    ExpectNothingKnown(0);
    ASSERT_TRUE(WaitUntil([&] { return Publish(100, 1); }));
    ASSERT_TRUE(Publish(200, 2));
    ++m_gate.sequence;  // a record that was lost on its way
    ASSERT_TRUE(Publish(300, 4));
    ASSERT_TRUE(WaitForRecord(4));
    EXPECT_EQ(300U, m_demand.idle_ms);
    EXPECT_EQ(4U, m_demand.requests);
}

TEST_F(ProducerDemand, ARecordIsKnownForTwoSecondsAndThenLapses) {
    Serve();
    ExpectNothingKnown(0);
    ASSERT_TRUE(WaitUntil([&] { return Publish(100, 1); }));
    std::uint64_t now = GetTickCount64();
    m_clock.Replace([&] { return now; });
    ASSERT_TRUE(ReadSoon());
    EXPECT_EQ(0U, m_demand.age_ms);
    now += 1999;
    ASSERT_EQ(RAVLO_OK, Read());
    EXPECT_EQ(1U, m_demand.sequence);
    EXPECT_EQ(1999U, m_demand.age_ms);
    now += 1;
    ExpectNothingKnown(0);
    ASSERT_TRUE(Publish(50, 9));
    ASSERT_TRUE(ReadSoon()) << "the gate stayed open";
    EXPECT_EQ(2U, m_demand.sequence);
    EXPECT_EQ(0U, m_demand.age_ms);
}

TEST_F(ProducerDemand, AGateThatClosesTakesItsLeaseWithItAndTheNextOneIsFound) {
    Serve();
    ExpectNothingKnown(0);
    ASSERT_TRUE(WaitUntil([&] { return Publish(100, 1); }));
    ASSERT_TRUE(WaitForRecord(1));
    StopClock();
    RvGatePipeClose(m_gate);
    ExpectNothingKnown(233);
    Pass(500);
    ExpectNothingKnown(2);
    Serve();
    ExpectNothingKnown(2);
    Pass(500);
    ExpectNothingKnown(0);
    RunClock();
    ASSERT_TRUE(WaitUntil([&] { return Publish(700, 3); }));
    ASSERT_TRUE(WaitForRecord(1));
    EXPECT_EQ(700U, m_demand.idle_ms);
}

TEST_F(ProducerDemand, ARecordThatComesInPiecesIsPutTogether) {
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(kRecord42.substr(0, 5)));
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(kRecord42.substr(5, 26)));
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(kRecord42.substr(31)));
    ASSERT_TRUE(WaitForRecord(42));
    EXPECT_EQ(1260U, m_demand.requests);
}

TEST_F(ProducerDemand, HalfARecordIsForgottenWithItsConnection) {
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(kRecord42.substr(0, 5)));
    ExpectNothingKnown(0);
    gate.Drop();
    ExpectNothingKnown(233);
    Pass(500);
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.WaitForClient());
    ASSERT_TRUE(gate.Send(kRecord42));
    EXPECT_TRUE(WaitForRecord(42));
}

TEST_F(ProducerDemand, BytesThatAreNoRecordEndTheConnectionAndTheGateIsTriedAgain) {
    for (const std::size_t offset : {0U, 4U}) {
        RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
        const auto read = [&] { return Read(); };
        EXPECT_EQ(RAVLO_NO_DEMAND, read());
        std::string wrong(kRecord42);
        ++wrong[offset];
        ASSERT_TRUE(gate.Send(std::string(kRecord42) + wrong + std::string(kRecord42)));
        ASSERT_TRUE(WaitUntil([&] { return read() == RAVLO_NO_DEMAND && SystemError() == 13; }));
        gate.Drop();
        Pass(500);
        EXPECT_EQ(RAVLO_NO_DEMAND, read());
        ASSERT_TRUE(gate.WaitForClient());
        ASSERT_TRUE(gate.Send(kRecord42));
        EXPECT_TRUE(WaitUntil([&] { return read() == RAVLO_OK && m_demand.sequence == 42; }));
        gate.Drop();
        EXPECT_EQ(RAVLO_NO_DEMAND, read());
        Pass(500);
    }
}

TEST_F(ProducerDemand, AStrangersGateIsNotListenedTo) {
    RawServer gate(m_gateName, kOwnedByAdministrators, PIPE_ACCESS_OUTBOUND);
    ReadHook reads(ThisProgram());
    ExpectNothingKnown(1307);
    gate.Send(kRecord42);
    ExpectNothingKnown(1307);
    gate.Drop();
    Pass(500);
    ExpectNothingKnown(1307);
    EXPECT_EQ(0U, reads.Count());
}

TEST_F(ProducerDemand, ARefusedOrTakenGateIsNoDemandWithItsReason) {
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    ExpectNothingKnown(5);
    opens.PassOn();
    Serve();
    const UniqueFile first(
        CreateFileW(m_gateName.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    ASSERT_TRUE(first);
    Pass(500);
    ExpectNothingKnown(231);
}

TEST_F(ProducerDemand, WhatTheSystemRefusesIsNoDemand) {
    Serve();
    {
        RAVLO_HOOK(CreateEventW) events(ThisProgram());
        events.FailEvery(nullptr, ERROR_NO_SYSTEM_RESOURCES);
        ExpectNothingKnown(1450);
    }
    Pass(500);
    {
        ReadHook reads(ThisProgram());
        reads.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
        ExpectNothingKnown(1450);
    }
    RvGatePipeDisconnect(m_gate);
    EXPECT_FALSE(Publish(1, 1));
    Pass(500);
    ExpectNothingKnown(0);
    ASSERT_TRUE(WaitUntil([&] { return Publish(100, 1); }));
    EXPECT_TRUE(WaitUntil([&] { return Read() == RAVLO_OK; }));
}

TEST_F(ProducerDemand, WhereverMemoryRunsOutWhileOpeningNothingIsKnownAndTheNextTryWorks) {
    const PrivateLocalMachine empty;
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    ProgramHeap heap;
    int failures = 0;
    for (long n = 1;; ++n) {
        heap.FailNth(n);
        const ravlo_status status = Read();
        heap.PassOn();
        EXPECT_EQ(RAVLO_NO_DEMAND, status);
        if (!heap.Hit()) {
            break;
        }
        ++failures;
        EXPECT_EQ(8U, SystemError()) << "allocation " << n;
        gate.Drop();
        Pass(500);
    }
    EXPECT_GE(failures, 1);
    EXPECT_EQ(0U, SystemError());
    ASSERT_TRUE(gate.Send(kRecord42));
    EXPECT_TRUE(WaitForRecord(42));
}

TEST_F(ProducerDemand, AThreadThatEndsTakesNoReadWithIt) {
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    std::thread([&] { Read(); }).join();
    ASSERT_TRUE(gate.Send(kRecord42));
    EXPECT_TRUE(WaitForRecord(42));
}

TEST_F(ProducerDemand, AReadThatTheSystemCancelledIsIssuedAgain) {
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    HANDLE pipe = INVALID_HANDLE_VALUE;
    {
        ReadHook reads(ThisProgram());
        ExpectNothingKnown(0);
        ASSERT_EQ(1U, reads.Count());
        pipe = std::get<0>(reads.Calls().front());
    }
    ASSERT_TRUE(CancelIoEx(pipe, nullptr)) << "what the system does when the thread that reads ends";
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(kRecord42));
    EXPECT_TRUE(WaitForRecord(42));
}

TEST_F(ProducerDemand, AServerWithoutEndDoesNotHoldItsReader) {
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    ExpectNothingKnown(0);
    ReadHook reads(ThisProgram());
    reads.Replace([&](HANDLE file, LPVOID to, DWORD bytes, LPDWORD done, LPOVERLAPPED operation) -> BOOL {
        gate.Send(kRecord42);
        return ReadHook::CallOriginal(file, to, bytes, done, operation);
    });
    ASSERT_TRUE(gate.Send(kRecord42));
    ASSERT_TRUE(WaitForRecord(42));
    EXPECT_GE(reads.Count(), 250U);
    EXPECT_LE(reads.Count(), 600U);
}

TEST_F(ProducerDemand, ClosingWithAReadUnderWayCancelsItAndLeavesNoHandle) {
    Serve();
    EXPECT_FALSE(Publish(0, 0)) << "nobody is there yet";
    m_producer.reset();
    m_camera->Drop();
    const std::size_t before = SettledHandles();
    m_producer = OpenProducer(m_name);
    ASSERT_EQ(RAVLO_OK, ravlo_producer_connect(m_producer.get(), kPatienceMs));
    ExpectNothingKnown(0);
    EXPECT_GT(CountHandles(), before);
    RAVLO_HOOK(CancelIoEx) cancels(ThisProgram());
    m_producer.reset();
    EXPECT_EQ(1U, cancels.Count());
    EXPECT_TRUE(HandlesSettleAt(before));
}

TEST_F(ProducerDemand, WithoutAConnectionNothingIsAskedAndTheGateIsLeftToOthers) {
    Serve();
    ExpectNothingKnown(0);
    ASSERT_TRUE(WaitUntil([&] { return Publish(5, 1); }));
    ASSERT_TRUE(WaitForRecord(1));
    ravlo_producer_disconnect(m_producer.get());
    OpenHook opens(ThisProgram());
    Pass(500);
    ExpectNothingKnown(233);
    EXPECT_EQ(0U, opens.Count());
    EXPECT_FALSE(Publish(6, 2)) << "nobody listens";
    EXPECT_FALSE(Publish(6, 2)) << "the gate is open for the next one";
    m_camera->Drop();
    ASSERT_EQ(RAVLO_OK, ravlo_producer_connect(m_producer.get(), kPatienceMs));
    ExpectNothingKnown(0);
    ASSERT_TRUE(WaitUntil([&] { return Publish(7, 3); }));
    EXPECT_TRUE(WaitUntil([&] { return Read() == RAVLO_OK && m_demand.requests == 3; }));
}

TEST_F(ProducerDemand, AWriteThatLosesTheConnectionLeavesTheGateToo) {
    Serve();
    ExpectNothingKnown(0);
    ASSERT_TRUE(WaitUntil([&] { return Publish(5, 1); }));
    ASSERT_TRUE(WaitForRecord(1));
    m_camera->Drop();
    EXPECT_EQ(RAVLO_DISCONNECTED, ravlo_producer_write(m_producer.get(), 4, 2, "abcdefghUVXY", kPatienceMs));
    EXPECT_FALSE(Publish(6, 2)) << "nobody listens";
    ExpectNothingKnown(233);
}

TEST_F(ProducerDemand, AGateThatGoesLeavesTheFramesConnected) {
    Serve();
    ExpectNothingKnown(0);
    RvGatePipeClose(m_gate);
    ExpectNothingKnown(233);
    EXPECT_EQ(1, ravlo_producer_is_connected(m_producer.get()));
    EXPECT_EQ(RAVLO_OK, ravlo_producer_write(m_producer.get(), 4, 2, "abcdefghUVXY", kPatienceMs));
}

TEST_F(ProducerDemand, RecordsThatHaveWaitedLongerThanTheirLeaseCountForNothing) {
    RawServer gate(m_gateName, kOwnedBySystem, PIPE_ACCESS_OUTBOUND);
    StopClock();
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(std::string(kRecord42) + std::string(kRecord42)));
    Pass(2000);
    ExpectNothingKnown(0);
    ExpectNothingKnown(0);
    ASSERT_TRUE(gate.Send(kRecord42));
    Pass(1999);
    EXPECT_TRUE(ReadSoon());
    EXPECT_EQ(42U, m_demand.sequence);
}

}  // namespace
}  // namespace ravlo::test
