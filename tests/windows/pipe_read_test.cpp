// Exact reads that a stop event can interrupt, and the receipt of one frame.
#include "pipe_objects.h"
#include "support/frames.h"
#include "support/import_hooks.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <new>
#include <vector>

namespace ravlo::test {
namespace {

using ReadHook = RAVLO_HOOK(ReadFile);
using ResultHook = RAVLO_HOOK(GetOverlappedResult);

class PipeRead : public ::testing::Test {
protected:
    ReadOutcome Read(std::uint32_t length, std::uint32_t& done) {
        return m_pipe.endpoint.ReadExact(m_buffer.data(), length, m_stop.Get(), done);
    }
    ReadOutcome Read(std::uint32_t length) {
        std::uint32_t done = 0;
        return Read(length, done);
    }
    bool Send(const std::string& text) { return m_pipe.client.SendBytes(text.data(), text.size()); }
    std::string Received(std::size_t length) const { return std::string(m_buffer.data(), length); }

    ConnectedPipe m_pipe;
    UniqueObject m_stop = MakeEvent();
    std::array<char, 256> m_buffer{};
};

TEST(ReadOutcomes, HaveTheseNumbers) {
    EXPECT_EQ(0u, static_cast<std::uint32_t>(ReadOutcome::Complete));
    EXPECT_EQ(1u, static_cast<std::uint32_t>(ReadOutcome::Cancelled));
    EXPECT_EQ(2u, static_cast<std::uint32_t>(ReadOutcome::PeerClosed));
    EXPECT_EQ(3u, static_cast<std::uint32_t>(ReadOutcome::Failed));
}

TEST_F(PipeRead, ReadsExactlyAsManyBytesAsAskedAndLeavesTheRest) {
    ASSERT_TRUE(Send("abcdefgh"));
    std::uint32_t done = 77;
    EXPECT_EQ(ReadOutcome::Complete, Read(3, done));
    EXPECT_EQ(3u, done);
    EXPECT_EQ("abc", Received(3));
    EXPECT_EQ(ReadOutcome::Complete, Read(5, done));
    EXPECT_EQ(5u, done);
    EXPECT_EQ("defgh", Received(5));
}

TEST_F(PipeRead, GathersWhatComesInSeveralWrites) {
    ReadHook reads(ThisProgram());
    std::thread writer([&] {
        std::size_t wanted = 0;
        for (const char* part : {"a", "bc", "def"}) {
            EXPECT_TRUE(reads.WaitForCalls(++wanted));
            EXPECT_TRUE(Send(part));
        }
    });
    std::uint32_t done = 0;
    EXPECT_EQ(ReadOutcome::Complete, Read(6, done));
    writer.join();
    EXPECT_EQ(6u, done);
    EXPECT_EQ("abcdef", Received(6));
    ASSERT_EQ(3u, reads.Count());
    EXPECT_EQ(6u, std::get<2>(reads.Calls()[0]));
    EXPECT_EQ(5u, std::get<2>(reads.Calls()[1]));
    EXPECT_EQ(3u, std::get<2>(reads.Calls()[2]));
}

TEST_F(PipeRead, AStopThatIsAlreadySignalledCancelsWithoutAnyRead) {
    ASSERT_TRUE(Send("abc"));
    SetEvent(m_stop.Get());
    ReadHook reads(ThisProgram());
    std::uint32_t done = 77;
    EXPECT_EQ(ReadOutcome::Cancelled, Read(3, done));
    EXPECT_EQ(0u, done);
    EXPECT_EQ(0u, reads.Count());
}

TEST_F(PipeRead, ALengthOfZeroIsCompleteEvenWhenStopIsSignalled) {
    SetEvent(m_stop.Get());
    std::uint32_t done = 77;
    EXPECT_EQ(ReadOutcome::Complete, Read(0, done));
    EXPECT_EQ(0u, done);
}

TEST_F(PipeRead, APeerThatClosesLeavesItsBytesCounted) {
    ASSERT_TRUE(Send("0123456789"));
    m_pipe.client.Close();
    std::uint32_t done = 0;
    EXPECT_EQ(ReadOutcome::PeerClosed, Read(11, done));
    EXPECT_EQ(10u, done);
    EXPECT_EQ("0123456789", Received(10));
}

TEST_F(PipeRead, TheLastBytesBeforeTheCloseAreStillAWholeRead) {
    ASSERT_TRUE(Send("0123456789"));
    m_pipe.client.Close();
    EXPECT_EQ(ReadOutcome::Complete, Read(10));
    EXPECT_EQ(ReadOutcome::PeerClosed, Read(1));
}

TEST_F(PipeRead, StopDuringAReadCancelsItWaitsItOutAndCountsWhatHadCome) {
    using CancelHook = RAVLO_HOOK(CancelIoEx);
    ASSERT_TRUE(Send("abcd"));
    ReadHook reads(ThisProgram());
    CancelHook cancels(ThisProgram());
    ResultHook results(ThisProgram());
    std::uint32_t done = 0;
    ReadOutcome outcome = ReadOutcome::Complete;
    std::thread reader([&] { outcome = Read(10, done); });
    ASSERT_TRUE(reads.WaitForCalls(2));  // the first took the four bytes, the second pends
    SetEvent(m_stop.Get());
    reader.join();
    EXPECT_EQ(ReadOutcome::Cancelled, outcome);
    EXPECT_EQ(4u, done);
    ASSERT_EQ(1u, cancels.Count());
    ASSERT_LE(1u, results.Count());
    const auto last = results.Calls().back();
    EXPECT_EQ(std::get<1>(cancels.Calls().front()), std::get<1>(last)) << "the cancelled operation is waited for";
    EXPECT_EQ(TRUE, std::get<3>(last));
    EXPECT_EQ(6u, std::get<2>(reads.Calls().at(1))) << "only the rest is asked for";
}

TEST_F(PipeRead, NothingReachesTheBufferAfterACancelledRead) {
    ReadHook reads(ThisProgram());
    ReadOutcome outcome = ReadOutcome::Complete;
    std::thread reader([&] { outcome = Read(10); });
    ASSERT_TRUE(reads.WaitForCalls(1));
    SetEvent(m_stop.Get());
    reader.join();
    ASSERT_EQ(ReadOutcome::Cancelled, outcome);
    ASSERT_TRUE(Send("0123456789"));
    EXPECT_EQ(std::string(10, '\0'), Received(10));
    ResetEvent(m_stop.Get());
    EXPECT_EQ(ReadOutcome::Complete, Read(10)) << "the connection outlives a cancelled read";
    EXPECT_EQ("0123456789", Received(10));
}

TEST_F(PipeRead, BytesThatSlipInBeforeTheCancelAreCounted) {
    ReadHook reads(ThisProgram());
    ResultHook results(ThisProgram());
    results.Replace([](HANDLE file, LPOVERLAPPED operation, LPDWORD transferred, BOOL wait) -> BOOL {
        (void)ResultHook::CallOriginal(file, operation, transferred, wait);
        *transferred = 7;
        return TRUE;
    });
    std::uint32_t done = 0;
    ReadOutcome outcome = ReadOutcome::Complete;
    std::thread reader([&] { outcome = Read(10, done); });
    ASSERT_TRUE(reads.WaitForCalls(1));
    SetEvent(m_stop.Get());
    reader.join();
    EXPECT_EQ(ReadOutcome::Cancelled, outcome);
    EXPECT_EQ(7u, done);
}

TEST_F(PipeRead, AWaitThatFailsEndsTheReadAsAStopWould) {
    using WaitHook = RAVLO_HOOK(WaitForMultipleObjects);
    using CancelHook = RAVLO_HOOK(CancelIoEx);
    WaitHook waits(ThisProgram());
    waits.FailEvery(WAIT_FAILED, ERROR_INVALID_HANDLE);
    CancelHook cancels(ThisProgram());
    EXPECT_EQ(ReadOutcome::Cancelled, Read(10));
    EXPECT_EQ(1u, cancels.Count());
    ASSERT_EQ(1u, waits.Count());
    const auto call = waits.Calls().front();
    EXPECT_EQ(2u, std::get<0>(call));
    EXPECT_EQ(FALSE, std::get<2>(call));
    EXPECT_EQ(INFINITE, std::get<3>(call));
}

TEST_F(PipeRead, AReadThatFailsAtOnceIsSortedByItsError) {
    ReadHook reads(ThisProgram());
    for (const DWORD gone : {ERROR_BROKEN_PIPE, ERROR_NO_DATA, ERROR_PIPE_NOT_CONNECTED}) {
        reads.FailEvery(FALSE, gone);
        EXPECT_EQ(ReadOutcome::PeerClosed, Read(4)) << gone;
        EXPECT_EQ(gone, m_pipe.endpoint.LastError());
    }
    for (const DWORD other : {ERROR_IO_DEVICE, ERROR_INVALID_HANDLE, ERROR_OPERATION_ABORTED}) {
        reads.FailEvery(FALSE, other);
        EXPECT_EQ(ReadOutcome::Failed, Read(4)) << other;
        EXPECT_EQ(other, m_pipe.endpoint.LastError());
    }
}

TEST_F(PipeRead, AReadThatFailsLaterIsSortedByItsErrorToo) {
    struct Row {
        DWORD error;
        ReadOutcome outcome;
    };
    for (const Row& row :
         {Row{ERROR_BROKEN_PIPE, ReadOutcome::PeerClosed}, Row{ERROR_NO_DATA, ReadOutcome::PeerClosed},
          Row{ERROR_PIPE_NOT_CONNECTED, ReadOutcome::PeerClosed}, Row{ERROR_IO_DEVICE, ReadOutcome::Failed}}) {
        ReadHook reads(ThisProgram());
        ResultHook results(ThisProgram());
        // The test's own writes pass through the same import.
        std::atomic<DWORD> readingThread{0};
        std::atomic<int> asked{0};
        std::atomic<BOOL> waited{TRUE};
        results.Replace([&](HANDLE file, LPOVERLAPPED operation, LPDWORD transferred, BOOL wait) -> BOOL {
            if (GetCurrentThreadId() != readingThread) {
                return ResultHook::CallOriginal(file, operation, transferred, wait);
            }
            ++asked;
            waited = wait;
            SetLastError(row.error);
            return FALSE;
        });
        ReadOutcome outcome = ReadOutcome::Complete;
        std::thread reader([&] {
            readingThread = GetCurrentThreadId();
            outcome = Read(4);
        });
        EXPECT_TRUE(reads.WaitForCalls(1));
        EXPECT_TRUE(Send("abcd"));
        reader.join();
        EXPECT_EQ(row.outcome, outcome) << row.error;
        EXPECT_EQ(1, asked.load());
        EXPECT_EQ(FALSE, waited.load()) << "a signalled read is not waited for";
        EXPECT_EQ(row.error, m_pipe.endpoint.LastError());
    }
}

TEST_F(PipeRead, AReadThatBringsNothingMeansThatThePeerIsGone) {
    ReadHook reads(ThisProgram());
    reads.Replace([](HANDLE, LPVOID, DWORD, LPDWORD transferred, LPOVERLAPPED) -> BOOL {
        *transferred = 0;
        return TRUE;
    });
    EXPECT_EQ(ReadOutcome::PeerClosed, Read(4));
    EXPECT_EQ(1u, reads.Count());
}

TEST_F(PipeRead, WithoutAnEventTheReadFailsBeforeItIsIssued) {
    RAVLO_HOOK(CreateEventW) events(ThisProgram());
    ReadHook reads(ThisProgram());
    events.FailEvery(nullptr, ERROR_NO_SYSTEM_RESOURCES);
    EXPECT_EQ(ReadOutcome::Failed, Read(4));
    EXPECT_EQ(0u, reads.Count());
    EXPECT_EQ(static_cast<DWORD>(ERROR_NO_SYSTEM_RESOURCES), m_pipe.endpoint.LastError());
}

TEST_F(PipeRead, EveryReadHasAFreshManualResetEventAndGivesItBack) {
    RAVLO_HOOK(CreateEventW) events(ThisProgram());
    const std::size_t before = SettledHandles();
    ReadOutcome outcome = ReadOutcome::Failed;
    std::uint32_t done = 0;
    ASSERT_TRUE(Send("ab"));
    EXPECT_EQ(ReadOutcome::Complete, Read(2));
    ASSERT_TRUE(Send("c"));
    m_pipe.client.Close();
    outcome = Read(2, done);
    EXPECT_EQ(ReadOutcome::PeerClosed, outcome);
    SetEvent(m_stop.Get());
    EXPECT_EQ(ReadOutcome::Cancelled, Read(2));
    std::size_t reads = 0;
    for (const auto& call : events.Calls()) {
        // The test's own writes ask for events as well; all of them are of this kind.
        EXPECT_EQ(TRUE, std::get<1>(call));
        EXPECT_EQ(FALSE, std::get<2>(call));
        EXPECT_EQ(L"", std::get<3>(call));
        ++reads;
    }
    EXPECT_EQ(2u + 3u, reads) << "two writes and three reads";
    EXPECT_EQ(before - 1, CountHandles()) << "only the client's end has gone";
}

}  // namespace
}  // namespace ravlo::test
