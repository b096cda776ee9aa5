// The receipt of one frame from a pipe: what it is given, and the status that says how it ended.
#include "pipe_objects.h"
#include "support/frames.h"
#include "program_heap.h"
#include "support/import_hooks.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

namespace ravlo::test {
namespace {

constexpr std::uint32_t kMaxBytes = 3456;  // 64x36

class PipeReceive : public ::testing::Test {
protected:
    bool Receive(std::uint64_t maxBytes = kMaxBytes) {
        return RecvFrame(m_pipe.endpoint, m_header, m_buffer, maxBytes, m_stop.Get());
    }
    RecvStatus Status() const { return m_pipe.endpoint.Status(); }

    ConnectedPipe m_pipe;
    UniqueObject m_stop = MakeEvent();
    FrameHeader m_header{};
    ReceiveBuffer m_buffer;
};

TEST_F(PipeReceive, AGoodFrameArrivesWholeWithItsHeader) {
    ASSERT_TRUE(m_pipe.client.SendFrame(64, 36, 0x1234));
    ASSERT_TRUE(Receive());
    EXPECT_EQ(RecvStatus::Ok, Status());
    EXPECT_EQ(64u, m_header.width);
    EXPECT_EQ(36u, m_header.height);
    EXPECT_EQ(3456u, m_header.bytes);
    EXPECT_EQ(0x1234u, m_header.seq);
    ASSERT_EQ(3456u, m_buffer.Size());
    EXPECT_EQ(0x1234u, SignatureOf(std::span<const std::uint8_t>(m_buffer.Data(), 3456), 64, 36));
}

TEST_F(PipeReceive, FramesOfChangingSizeFollowEachOtherWithoutAGap) {
    std::thread writer([&] {
        for (std::uint32_t i = 1; i <= 20; ++i) {
            EXPECT_TRUE(m_pipe.client.SendFrame(i % 2 == 0 ? 64 : 16, i % 2 == 0 ? 36 : 8, i));
        }
    });
    for (std::uint32_t i = 1; i <= 20; ++i) {
        ASSERT_TRUE(Receive()) << i;
        EXPECT_EQ(i % 2 == 0 ? 3456u : 192u, m_buffer.Size());
        EXPECT_EQ(i, SignatureOf(std::span<const std::uint8_t>(m_buffer.Data(), m_buffer.Size()), m_header.width,
                                 m_header.height));
    }
    writer.join();
}

TEST_F(PipeReceive, WithoutAStopEventNoReadIsIssued) {
    ASSERT_TRUE(m_pipe.client.SendFrame(64, 36, 1));
    RAVLO_HOOK(ReadFile) reads(ThisProgram());
    EXPECT_FALSE(RecvFrame(m_pipe.endpoint, m_header, m_buffer, kMaxBytes, nullptr));
    EXPECT_EQ(RecvStatus::NoCancelEvent, Status());
    EXPECT_EQ(0u, reads.Count());
}

TEST_F(PipeReceive, TheMissingStopEventIsNoticedBeforeTheMissingPipe) {
    m_pipe.endpoint.Close();
    EXPECT_FALSE(RecvFrame(m_pipe.endpoint, m_header, m_buffer, kMaxBytes, nullptr));
    EXPECT_EQ(RecvStatus::NoCancelEvent, Status());
}

TEST_F(PipeReceive, WithoutAPipeOrAClientItIsAnIoFault) {
    RAVLO_HOOK(ReadFile) reads(ThisProgram());
    m_pipe.endpoint.DisconnectClient();
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::IoFault, Status());
    m_pipe.endpoint.Close();
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::IoFault, Status());
    EXPECT_EQ(0u, reads.Count());
}

TEST_F(PipeReceive, ABadHeaderIsJudgedAndNothingOfItsPayloadIsRead) {
    WireHeader header = HeaderFor(64, 36, 1);
    header.format = 0x32595559;  // YUY2
    header.width = 0;
    ASSERT_TRUE(m_pipe.client.SendHeader(header));
    ASSERT_TRUE(m_pipe.client.SendBytes("payload", 7));
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::BadHeader, Status());
    EXPECT_EQ(HeaderVerdict::PixelFormat, m_pipe.endpoint.Verdict());
    EXPECT_EQ(0u, m_buffer.Capacity());
    char rest[7]{};
    std::uint32_t done = 0;
    EXPECT_EQ(ReadOutcome::Complete, m_pipe.endpoint.ReadExact(rest, 7, m_stop.Get(), done));
    EXPECT_EQ("payload", std::string(rest, 7));
}

TEST_F(PipeReceive, FortyZeroBytesAreABadMagic) {
    const char zeros[40]{};
    ASSERT_TRUE(m_pipe.client.SendBytes(zeros, sizeof zeros));
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::BadHeader, Status());
    EXPECT_EQ(HeaderVerdict::Magic, m_pipe.endpoint.Verdict());
}

TEST_F(PipeReceive, AnOversizedFrameIsRefusedBeforeTheBufferIsTouched) {
    ASSERT_TRUE(m_pipe.client.SendHeader(HeaderFor(16384, 16384, 1)));
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::Oversized, Status());
    EXPECT_EQ(402653184u, m_header.bytes);
    EXPECT_EQ(0u, m_buffer.Capacity());
}

TEST_F(PipeReceive, OneByteDecidesBetweenFittingAndOversized) {
    ASSERT_TRUE(m_pipe.client.SendFrame(64, 36, 1));
    EXPECT_TRUE(Receive(3456));
    ASSERT_TRUE(m_pipe.client.SendFrame(64, 36, 2));
    EXPECT_FALSE(Receive(3455));
    EXPECT_EQ(RecvStatus::Oversized, Status());
}

TEST_F(PipeReceive, AWriterThatClosesInHeaderOrPayloadIsAPeerThatClosed) {
    const WireHeader header = HeaderFor(64, 36, 1);
    ASSERT_TRUE(m_pipe.client.SendBytes(&header, 39));
    m_pipe.client.Close();
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::PeerClosed, Status());

    m_pipe.endpoint.DisconnectClient();
    m_pipe.endpoint.PollListen();
    ASSERT_TRUE(m_pipe.client.Connect(m_pipe.name));
    ASSERT_TRUE(m_pipe.endpoint.WaitForClient(kPatienceMs));
    const std::vector<std::uint8_t> frame = MakeFrame(64, 36, 1);
    ASSERT_TRUE(m_pipe.client.SendHeader(header));
    ASSERT_TRUE(m_pipe.client.SendBytes(frame.data(), frame.size() - 1));
    m_pipe.client.Close();
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::PeerClosed, Status());
}

TEST_F(PipeReceive, StopIsCancelledInHeaderAndInPayload) {
    SetEvent(m_stop.Get());
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::Cancelled, Status());

    ResetEvent(m_stop.Get());
    ASSERT_TRUE(m_pipe.client.SendHeader(HeaderFor(64, 36, 1)));
    ASSERT_TRUE(m_pipe.client.SendBytes("half", 4));
    RAVLO_HOOK(ReadFile) reads(ThisProgram());
    bool received = true;
    std::thread reader([&] { received = Receive(); });
    ASSERT_TRUE(reads.WaitForCalls(3));  // header, the four bytes, the rest that never comes
    SetEvent(m_stop.Get());
    reader.join();
    EXPECT_FALSE(received);
    EXPECT_EQ(RecvStatus::Cancelled, Status());
}

TEST_F(PipeReceive, AnyOtherFailureOfTheReadIsAnIoFault) {
    RAVLO_HOOK(ReadFile) reads(ThisProgram());
    reads.FailEvery(FALSE, ERROR_IO_DEVICE);
    EXPECT_FALSE(Receive());
    EXPECT_EQ(RecvStatus::IoFault, Status());
    EXPECT_EQ(static_cast<DWORD>(ERROR_IO_DEVICE), m_pipe.endpoint.LastError());
}

TEST_F(PipeReceive, ABufferThatCannotGrowThrowsAndTheStatusIsAnIoFault) {
    ASSERT_TRUE(m_pipe.client.SendFrame(64, 36, 1));
    ASSERT_TRUE(Receive());  // so that a status of before could be mistaken for the new one
    ASSERT_TRUE(m_pipe.client.SendHeader(HeaderFor(320, 180, 2)));
    ProgramHeap heap;
    heap.FailFromSize(86400);
    EXPECT_THROW(Receive(86400), std::bad_alloc);
    EXPECT_TRUE(heap.Hit());
    heap.PassOn();
    EXPECT_EQ(RecvStatus::IoFault, Status());
    EXPECT_EQ(0u, m_buffer.Size());
}

TEST_F(PipeReceive, TheBufferIsReusedFromFrameToFrame) {
    ASSERT_TRUE(m_pipe.client.SendFrame(64, 36, 1));
    ASSERT_TRUE(Receive());
    const std::uint8_t* const storage = m_buffer.Data();
    ASSERT_TRUE(m_pipe.client.SendFrame(16, 8, 2));
    ASSERT_TRUE(m_pipe.client.SendFrame(64, 36, 3));
    ProgramHeap heap;
    ASSERT_TRUE(Receive());
    EXPECT_EQ(192u, m_buffer.Size());
    ASSERT_TRUE(Receive());
    EXPECT_EQ(3456u, m_buffer.Size());
    EXPECT_EQ(storage, m_buffer.Data());
    EXPECT_EQ(0, heap.Allocations());
}

}  // namespace
}  // namespace ravlo::test
