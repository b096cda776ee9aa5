// Writing frames under a deadline, and every way in which that can end.
#include "pipe/pipe_producer.h"

#include <gtest/gtest.h>

#include "made_pipe.h"
#include "pipe_objects.h"
#include "support/frames.h"
#include "support/import_hooks.h"

namespace ravlo::test {
namespace {

using WriteHook = RAVLO_HOOK(WriteFile);

class ProducerWrite : public ::testing::Test {
protected:
    void ServeAndConnect() {
        ASSERT_TRUE(m_endpoint.Create(m_name.c_str(), CurrentUserSid()));
        ASSERT_TRUE(m_producer.ConnectToServer(m_name.c_str(), 0, false));
        ASSERT_TRUE(m_endpoint.WaitForClient(kPatienceMs));
    }
    WriteOutcome Write(std::uint64_t timeoutMs) {
        return m_producer.WriteFrame(MakeFrameHeader(64, 36, 5), m_frame.data(), timeoutMs);
    }

    const std::wstring m_name = UniquePipeName();
    PipeProducer m_producer;
    PipeEndpoint m_endpoint;
    std::vector<std::uint8_t> m_frame = MakeFrame(64, 36, 5);
};

TEST_F(ProducerWrite, AFrameArrivesAsItWasSent) {
    ServeAndConnect();
    ASSERT_EQ(WriteOutcome::Ok, Write(kPatienceMs));
    FrameHeader header{};
    ReceiveBuffer buffer;
    const UniqueObject stop = MakeEvent();
    ASSERT_TRUE(RecvFrame(m_endpoint, header, buffer, 3456, stop.Get()));
    EXPECT_EQ(5u, header.seq);
    EXPECT_EQ(m_frame, std::vector<std::uint8_t>(buffer.Data(), buffer.Data() + buffer.Size()));
}

TEST_F(ProducerWrite, AFrameLargerThanThePipesBufferArrivesWholeToo) {
    ServeAndConnect();
    const std::vector<std::uint8_t> large = MakeFrame(1920, 1080, 9);
    WriteOutcome outcome = WriteOutcome::Failed;
    std::thread writer(
        [&] { outcome = m_producer.WriteFrame(MakeFrameHeader(1920, 1080, 9), large.data(), kPatienceMs); });
    FrameHeader header{};
    ReceiveBuffer buffer;
    const UniqueObject stop = MakeEvent();
    EXPECT_TRUE(RecvFrame(m_endpoint, header, buffer, 3110400, stop.Get()));
    writer.join();
    EXPECT_EQ(WriteOutcome::Ok, outcome);
    ASSERT_EQ(3110400u, buffer.Size());
    EXPECT_EQ(9u, SignatureOf(std::span<const std::uint8_t>(buffer.Data(), buffer.Size()), 1920, 1080));
}

TEST_F(ProducerWrite, WithoutAConnectionTheHandleIsInvalid) {
    EXPECT_EQ(WriteOutcome::Failed, Write(1000));
    EXPECT_EQ(6u, m_producer.LastError());
}

TEST_F(ProducerWrite, ADeadlineThatIsPastWritesNothing) {
    ServeAndConnect();
    WriteHook writes(ThisProgram());
    EXPECT_EQ(WriteOutcome::DeadlineExpired, Write(0));
    EXPECT_EQ(258u, m_producer.LastError());
    EXPECT_EQ(0u, writes.Count());
}

TEST_F(ProducerWrite, AServerThatDoesNotReadCostsTheDeadlineAndTheWriteIsWaitedOut) {
    const MadePipe pipe(m_name, L"O:SYD:(A;;GA;;;WD)", 1024);
    ASSERT_TRUE(m_producer.ConnectToServer(m_name.c_str(), 0, false));
    RAVLO_HOOK(CancelIoEx) cancels(ThisProgram());
    RAVLO_HOOK(GetOverlappedResult) results(ThisProgram());
    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(WriteOutcome::DeadlineExpired, Write(150));
    const ULONGLONG waited = GetTickCount64() - start;
    EXPECT_EQ(258u, m_producer.LastError());
    EXPECT_GE(waited, 114u);
    EXPECT_LE(waited, 1500u);
    ASSERT_EQ(1u, cancels.Count());
    ASSERT_LE(1u, results.Count());
    EXPECT_EQ(std::get<1>(cancels.Calls().front()), std::get<1>(results.Calls().back()));
    EXPECT_EQ(TRUE, std::get<3>(results.Calls().back()));
}

TEST_F(ProducerWrite, HeaderAndPayloadShareOneDeadline) {
    ServeAndConnect();
    // The clock jumps past the deadline once the header is out.
    RAVLO_HOOK(GetTickCount64) ticks(ThisProgram());
    WriteHook writes(ThisProgram());
    ticks.Replace([&]() -> ULONGLONG { return writes.Count() == 0 ? 1000u : 1100u; });
    EXPECT_EQ(WriteOutcome::DeadlineExpired, Write(100));
    EXPECT_EQ(258u, m_producer.LastError());
    ASSERT_EQ(1u, writes.Count());
    EXPECT_EQ(40u, std::get<2>(writes.Calls().front()));
}

TEST_F(ProducerWrite, APendingWriteIsWaitedForAsLongAsTheDeadlineLeaves) {
    ServeAndConnect();
    RAVLO_HOOK(GetTickCount64) ticks(ThisProgram());
    RAVLO_HOOK(WaitForSingleObject) waits(ThisProgram());
    WriteHook writes(ThisProgram());
    writes.FailEvery(FALSE, ERROR_IO_PENDING);
    RAVLO_HOOK(CancelIoEx) cancels(ThisProgram());
    RAVLO_HOOK(GetOverlappedResult) results(ThisProgram());
    results.FailEvery(FALSE, ERROR_OPERATION_ABORTED);
    waits.FailEvery(WAIT_TIMEOUT);
    std::atomic<ULONGLONG> afterWrite{1030};
    ticks.Replace([&]() -> ULONGLONG { return writes.Count() == 0 ? 1000u : afterWrite.load(); });
    EXPECT_EQ(WriteOutcome::DeadlineExpired, Write(100));
    ASSERT_EQ(1u, waits.Count());
    EXPECT_EQ(70u, std::get<1>(waits.Calls().front()));
    writes.ForgetCalls();
    waits.ForgetCalls();
    afterWrite = 5000;
    EXPECT_EQ(WriteOutcome::DeadlineExpired, Write(100));
    ASSERT_EQ(1u, waits.Count());
    EXPECT_EQ(0u, std::get<1>(waits.Calls().front())) << "a deadline that passed meanwhile leaves nothing";
}

TEST_F(ProducerWrite, AServerThatHangsUpIsAPeerThatClosed) {
    ServeAndConnect();
    m_endpoint.DisconnectClient();
    EXPECT_EQ(WriteOutcome::PeerClosed, Write(1000));
    EXPECT_TRUE(m_producer.LastError() == ERROR_NO_DATA || m_producer.LastError() == ERROR_PIPE_NOT_CONNECTED ||
                m_producer.LastError() == ERROR_BROKEN_PIPE)
        << m_producer.LastError();
    m_endpoint.Close();
    EXPECT_EQ(WriteOutcome::PeerClosed, Write(1000));
}

TEST_F(ProducerWrite, AServerThatHangsUpDuringAWriteIsAPeerThatClosed) {
    MadePipe pipe(m_name, L"O:SYD:(A;;GA;;;WD)", 1024);
    ASSERT_TRUE(m_producer.ConnectToServer(m_name.c_str(), 0, false));
    RAVLO_HOOK(WaitForSingleObject) waits(ThisProgram());
    const DWORD writer = GetCurrentThreadId();
    std::atomic<bool> pends{false};
    waits.Replace([&](HANDLE handle, DWORD timeout) -> DWORD {
        using Waits = RAVLO_HOOK(WaitForSingleObject);
        pends = pends || GetCurrentThreadId() == writer;
        return Waits::CallOriginal(handle, timeout);
    });
    std::thread server([&] {
        EXPECT_TRUE(WaitUntil([&] { return pends.load(); })) << "the payload does not fit the pipe's buffer";
        pipe.pipe.Reset();
    });
    EXPECT_EQ(WriteOutcome::PeerClosed, Write(kPatienceMs));
    server.join();
}

TEST_F(ProducerWrite, ErrorsAreSorted) {
    ServeAndConnect();
    WriteHook writes(ThisProgram());
    for (const DWORD gone : {109u, 232u, 233u}) {
        writes.FailEvery(FALSE, gone);
        EXPECT_EQ(WriteOutcome::PeerClosed, Write(1000)) << gone;
        EXPECT_EQ(gone, m_producer.LastError());
    }
    writes.FailEvery(FALSE, ERROR_IO_DEVICE);
    EXPECT_EQ(WriteOutcome::Failed, Write(1000));
    EXPECT_EQ(1117u, m_producer.LastError());
    writes.Replace([](HANDLE, LPCVOID, DWORD, LPDWORD written, LPOVERLAPPED) -> BOOL {
        *written = 0;
        return TRUE;
    });
    EXPECT_EQ(WriteOutcome::PeerClosed, Write(1000)) << "a write that completes with nothing written";
    EXPECT_EQ(232u, m_producer.LastError());
    writes.PassOn();
    RAVLO_HOOK(CreateEventW) events(ThisProgram());
    events.FailEvery(nullptr, ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(WriteOutcome::Failed, Write(1000));
    EXPECT_EQ(1450u, m_producer.LastError());
}

TEST_F(ProducerWrite, AWriteThatFailsLaterIsSortedByItsErrorToo) {
    ServeAndConnect();
    WriteHook writes(ThisProgram());
    RAVLO_HOOK(WaitForSingleObject) waits(ThisProgram());
    RAVLO_HOOK(GetOverlappedResult) results(ThisProgram());
    writes.FailEvery(FALSE, ERROR_IO_PENDING);
    waits.FailEvery(WAIT_OBJECT_0);
    results.FailEvery(FALSE, ERROR_BROKEN_PIPE);
    EXPECT_EQ(WriteOutcome::PeerClosed, Write(1000));
    EXPECT_EQ(109u, m_producer.LastError());
    EXPECT_EQ(FALSE, std::get<3>(results.Calls().front()));
    results.FailEvery(FALSE, ERROR_IO_DEVICE);
    EXPECT_EQ(WriteOutcome::Failed, Write(1000));
    EXPECT_EQ(1117u, m_producer.LastError());
}

TEST(WriteOutcomes, HaveTheseWords) {
    EXPECT_STREQ("ok", WriteOutcomeWord(static_cast<WriteOutcome>(0)));
    EXPECT_STREQ("the peer closed the pipe", WriteOutcomeWord(static_cast<WriteOutcome>(1)));
    EXPECT_STREQ("the write deadline expired", WriteOutcomeWord(static_cast<WriteOutcome>(2)));
    EXPECT_STREQ("the write failed", WriteOutcomeWord(static_cast<WriteOutcome>(3)));
    EXPECT_STREQ("unknown", WriteOutcomeWord(static_cast<WriteOutcome>(4)));
    EXPECT_STREQ("unknown", WriteOutcomeWord(static_cast<WriteOutcome>(0xFFFFFFFF)));
}

}  // namespace
}  // namespace ravlo::test
