#include "pipe/frame_receive.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace ravlo {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr HeaderVerdict kUntouchedVerdict = static_cast<HeaderVerdict>(77);

/// What a producer wrote, and what a read says that wants more than is left.
class ScriptedSource final : public FrameSource {
public:
    explicit ScriptedSource(Bytes bytes, ReadOutcome atEnd = ReadOutcome::PeerClosed)
        : m_bytes(std::move(bytes)), m_atEnd(atEnd) {}

    ReadOutcome ReadBytes(void* buffer, std::uint32_t length) override {
        lengths.push_back(length);
        if (lengths.size() == throwAtRead) {
            throw std::bad_alloc();
        }
        const std::size_t count = std::min<std::size_t>(length, m_bytes.size() - consumed);
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(consumed), count, static_cast<std::uint8_t*>(buffer));
        consumed += count;
        return count == length ? ReadOutcome::Complete : m_atEnd;
    }

    std::vector<std::uint32_t> lengths;  ///< of the reads asked for so far
    std::size_t consumed = 0;
    std::size_t throwAtRead = 0;  ///< the number of the read that throws, from 1

private:
    Bytes m_bytes;
    ReadOutcome m_atEnd;
};

Bytes WireBytes(const FrameHeader& header) {
    Bytes bytes(sizeof(header));
    std::memcpy(bytes.data(), &header, sizeof(header));
    return bytes;
}

/// Header and payload of a frame whose payload counts up from `first`.
Bytes Frame(std::uint32_t width, std::uint32_t height, std::uint64_t seq, std::uint8_t first) {
    const FrameHeader header = MakeFrameHeader(width, height, seq);
    Bytes bytes = WireBytes(header);
    for (std::uint32_t i = 0; i < header.bytes; ++i) {
        bytes.push_back(static_cast<std::uint8_t>(first + i));
    }
    return bytes;
}

/// The reader's side of a receipt.
struct Receiver {
    FrameHeader header{};
    ReceiveBuffer buffer;
    RecvStatus status = static_cast<RecvStatus>(99);
    HeaderVerdict verdict = kUntouchedVerdict;

    void Receive(ScriptedSource& source, std::uint64_t maxBytes) {
        ReceiveFrame(source, header, buffer, maxBytes, status, verdict);
    }
};

RecvStatus StatusOf(ReadOutcome outcome) {
    switch (outcome) {
        case ReadOutcome::Cancelled:
            return RecvStatus::Cancelled;
        case ReadOutcome::PeerClosed:
            return RecvStatus::PeerClosed;
        default:
            return RecvStatus::IoFault;
    }
}

TEST(FrameReceive, StatusesAndOutcomesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<std::uint32_t>(RecvStatus::Ok), 0U);
    EXPECT_EQ(static_cast<std::uint32_t>(RecvStatus::IoFault), 1U);
    EXPECT_EQ(static_cast<std::uint32_t>(RecvStatus::PeerClosed), 2U);
    EXPECT_EQ(static_cast<std::uint32_t>(RecvStatus::BadHeader), 3U);
    EXPECT_EQ(static_cast<std::uint32_t>(RecvStatus::Oversized), 4U);
    EXPECT_EQ(static_cast<std::uint32_t>(RecvStatus::Cancelled), 5U);
    EXPECT_EQ(static_cast<std::uint32_t>(RecvStatus::NoCancelEvent), 6U);
}

TEST(FrameReceive, TakesExactlyOneFrame) {
    Bytes wire = Frame(4, 4, 7, 100);
    wire.push_back(0xEE);
    ScriptedSource source(wire);
    Receiver receiver;
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Ok);
    EXPECT_EQ(receiver.header.width, 4U);
    EXPECT_EQ(receiver.header.height, 4U);
    EXPECT_EQ(receiver.header.bytes, 24U);
    EXPECT_EQ(receiver.header.seq, 7U);
    ASSERT_EQ(receiver.buffer.Size(), 24U);
    EXPECT_EQ(receiver.buffer.Data()[0], 100);
    EXPECT_EQ(receiver.buffer.Data()[23], 123);
    EXPECT_EQ(source.lengths, (std::vector<std::uint32_t>{40, 24}));
    EXPECT_EQ(source.consumed, 64U);
    EXPECT_EQ(receiver.verdict, kUntouchedVerdict);
}

TEST(FrameReceive, FramesFollowEachOtherWithoutAGap) {
    Bytes wire = Frame(4, 4, 1, 10);
    for (const Bytes& next : {Frame(2, 2, 2, 50), Frame(4, 4, 3, 90)}) {
        wire.insert(wire.end(), next.begin(), next.end());
    }
    ScriptedSource source(wire);
    Receiver receiver;
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Ok);
    EXPECT_EQ(receiver.header.seq, 1U);
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Ok);
    EXPECT_EQ(receiver.header.seq, 2U);
    ASSERT_EQ(receiver.buffer.Size(), 6U);
    EXPECT_EQ(receiver.buffer.Data()[5], 55);
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Ok);
    EXPECT_EQ(receiver.header.seq, 3U);
    ASSERT_EQ(receiver.buffer.Size(), 24U);
    EXPECT_EQ(receiver.buffer.Data()[23], 113);
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.status, RecvStatus::PeerClosed);
}

TEST(FrameReceive, AWriterThatStopsWithinTheHeaderEndsTheReceiptAtEveryByte) {
    const Bytes whole = Frame(4, 4, 7, 100);
    for (const ReadOutcome outcome : {ReadOutcome::PeerClosed, ReadOutcome::Cancelled, ReadOutcome::Failed}) {
        for (std::ptrdiff_t cut = 0; cut < 40; ++cut) {
            ScriptedSource source(Bytes(whole.begin(), whole.begin() + cut), outcome);
            Receiver receiver;
            receiver.Receive(source, 24);
            EXPECT_EQ(receiver.status, StatusOf(outcome)) << cut;
            EXPECT_EQ(source.lengths, (std::vector<std::uint32_t>{40})) << cut;
            EXPECT_EQ(receiver.buffer.Capacity(), 0U) << cut;
            EXPECT_EQ(receiver.verdict, kUntouchedVerdict) << cut << ": an incomplete header is not judged";
        }
    }
}

TEST(FrameReceive, AWriterThatStopsWithinThePayloadEndsTheReceiptAtEveryByte) {
    const Bytes whole = Frame(4, 4, 7, 100);
    for (const ReadOutcome outcome : {ReadOutcome::PeerClosed, ReadOutcome::Cancelled, ReadOutcome::Failed}) {
        for (std::ptrdiff_t cut = 40; cut < 64; ++cut) {
            ScriptedSource source(Bytes(whole.begin(), whole.begin() + cut), outcome);
            Receiver receiver;
            receiver.Receive(source, 24);
            EXPECT_EQ(receiver.status, StatusOf(outcome)) << cut;
            EXPECT_EQ(source.lengths, (std::vector<std::uint32_t>{40, 24})) << cut;
        }
    }
}

TEST(FrameReceive, EachReadOutcomeHasItsStatus) {
    const auto statusAtEnd = [](ReadOutcome outcome) {
        ScriptedSource source({}, outcome);
        Receiver receiver;
        receiver.Receive(source, 24);
        return receiver.status;
    };
    EXPECT_EQ(statusAtEnd(ReadOutcome::PeerClosed), RecvStatus::PeerClosed);
    EXPECT_EQ(statusAtEnd(ReadOutcome::Cancelled), RecvStatus::Cancelled);
    EXPECT_EQ(statusAtEnd(ReadOutcome::Failed), RecvStatus::IoFault);
    EXPECT_EQ(statusAtEnd(static_cast<ReadOutcome>(99)), RecvStatus::IoFault);
}

TEST(FrameReceive, ARefusedHeaderKeepsItsVerdictAndLeavesThePayloadUnread) {
    struct Case {
        FrameHeader header;
        HeaderVerdict verdict;
    };
    FrameHeader magic = MakeFrameHeader(4, 4, 1);
    magic.magic = 0;
    FrameHeader version = MakeFrameHeader(4, 4, 1);
    version.version = 3;
    FrameHeader format = MakeFrameHeader(4, 4, 1);
    format.format = 0x32595559;
    FrameHeader geometry = MakeFrameHeader(4, 4, 1);
    geometry.width = 5;
    FrameHeader byteCount = MakeFrameHeader(4, 4, 1);
    byteCount.bytes = 25;
    for (const Case& c : {Case{magic, HeaderVerdict::Magic}, Case{version, HeaderVerdict::Version},
                          Case{format, HeaderVerdict::PixelFormat}, Case{geometry, HeaderVerdict::Geometry},
                          Case{byteCount, HeaderVerdict::ByteCount}}) {
        Bytes wire = WireBytes(c.header);
        wire.resize(wire.size() + 24);
        ScriptedSource source(wire);
        Receiver receiver;
        receiver.Receive(source, 24);
        EXPECT_EQ(receiver.status, RecvStatus::BadHeader) << HeaderVerdictWord(c.verdict);
        EXPECT_EQ(receiver.verdict, c.verdict);
        EXPECT_EQ(source.lengths, (std::vector<std::uint32_t>{40}));
        EXPECT_EQ(source.consumed, 40U);
        EXPECT_EQ(receiver.buffer.Capacity(), 0U);
    }
}

TEST(FrameReceive, TheRefusedHeaderIsHandedOverForTheReport) {
    FrameHeader wire = MakeFrameHeader(641, 480, 0x1234);
    wire.bytes = 99;
    ScriptedSource source(WireBytes(wire));
    Receiver receiver;
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.header.magic, 0x4F4C5652U);
    EXPECT_EQ(receiver.header.version, 2U);
    EXPECT_EQ(receiver.header.format, 0x3231564EU);
    EXPECT_EQ(receiver.header.width, 641U);
    EXPECT_EQ(receiver.header.height, 480U);
    EXPECT_EQ(receiver.header.bytes, 99U);
    EXPECT_EQ(receiver.header.seq, 0x1234U);
}

TEST(FrameReceive, AHeaderIsJudgedBeforeItsByteCountIsComparedWithTheLimit) {
    FrameHeader wire = MakeFrameHeader(4, 4, 1);
    wire.bytes = 0xFFFFFFFF;
    ScriptedSource source(WireBytes(wire));
    Receiver receiver;
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.status, RecvStatus::BadHeader);
    EXPECT_EQ(receiver.verdict, HeaderVerdict::ByteCount);
}

TEST(FrameReceive, AnOversizedFrameIsRefusedBeforeTheBufferIsTouched) {
    ScriptedSource source(Frame(4, 6, 1, 0));
    Receiver receiver;
    receiver.buffer.Resize(24);
    receiver.buffer.Resize(6);
    std::memset(receiver.buffer.Data(), 0xA5, 6);
    const std::uint8_t* const storage = receiver.buffer.Data();
    receiver.Receive(source, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Oversized);
    EXPECT_EQ(receiver.verdict, kUntouchedVerdict);
    EXPECT_EQ(receiver.header.bytes, 36U);
    EXPECT_EQ(receiver.header.width, 4U);
    EXPECT_EQ(receiver.header.height, 6U);
    EXPECT_EQ(source.lengths, (std::vector<std::uint32_t>{40}));
    EXPECT_EQ(receiver.buffer.Data(), storage);
    EXPECT_EQ(receiver.buffer.Size(), 6U);
    EXPECT_EQ(receiver.buffer.Capacity(), 24U);
    EXPECT_TRUE(std::all_of(storage, storage + 6, [](std::uint8_t byte) { return byte == 0xA5; }));
}

TEST(FrameReceive, TheLargestValidHeaderIsOversizedForTheLargestStream) {
    ScriptedSource source(WireBytes(MakeFrameHeader(16384, 16384, 1)));
    Receiver receiver;
    receiver.Receive(source, 12441600);
    EXPECT_EQ(receiver.status, RecvStatus::Oversized);
    EXPECT_EQ(receiver.header.bytes, 402653184U);
    EXPECT_EQ(receiver.buffer.Capacity(), 0U);
}

TEST(FrameReceive, TheLimitItselfIsAcceptedAndOneByteLessIsNot) {
    ScriptedSource exact(Frame(4, 4, 1, 0));
    Receiver receiver;
    receiver.Receive(exact, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Ok);
    ScriptedSource above(Frame(4, 4, 1, 0));
    receiver.Receive(above, 23);
    EXPECT_EQ(receiver.status, RecvStatus::Oversized);
    ScriptedSource nothing(Frame(2, 2, 1, 0));
    receiver.Receive(nothing, 0);
    EXPECT_EQ(receiver.status, RecvStatus::Oversized);
}

TEST(FrameReceive, ASmallerFrameAndOneOfAnotherShapeAreReadWhole) {
    ScriptedSource smaller(Frame(2, 2, 1, 0));
    Receiver receiver;
    receiver.Receive(smaller, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Ok);
    EXPECT_EQ(smaller.consumed, 46U);
    ScriptedSource reshaped(Frame(8, 2, 1, 0));
    receiver.Receive(reshaped, 24);
    EXPECT_EQ(receiver.status, RecvStatus::Ok);
    EXPECT_EQ(receiver.header.width, 8U);
    EXPECT_EQ(receiver.buffer.Size(), 24U);
    EXPECT_EQ(reshaped.consumed, 64U);
}

TEST(FrameReceive, AlternatingSizesReuseOneBuffer) {
    Receiver receiver;
    ScriptedSource first(Frame(4, 4, 1, 0));
    receiver.Receive(first, 24);
    const std::uint8_t* const storage = receiver.buffer.Data();
    for (int round = 0; round < 4; ++round) {
        ScriptedSource small(Frame(2, 2, 1, 9));
        receiver.Receive(small, 24);
        EXPECT_EQ(receiver.status, RecvStatus::Ok);
        EXPECT_EQ(receiver.buffer.Size(), 6U);
        EXPECT_EQ(receiver.buffer.Capacity(), 24U);
        EXPECT_EQ(receiver.buffer.Data(), storage);
        ScriptedSource large(Frame(4, 4, 1, 0));
        receiver.Receive(large, 24);
        EXPECT_EQ(receiver.buffer.Size(), 24U);
        EXPECT_EQ(receiver.buffer.Data(), storage);
    }
}

TEST(FrameReceive, AnExceptionInEitherReadLeavesTheStatusIoFault) {
    for (const std::size_t read : {1U, 2U}) {
        ScriptedSource source(Frame(4, 4, 1, 0));
        source.throwAtRead = read;
        Receiver receiver;
        EXPECT_THROW(receiver.Receive(source, 24), std::bad_alloc) << read;
        EXPECT_EQ(receiver.status, RecvStatus::IoFault) << read;
        EXPECT_EQ(source.lengths.size(), read);
    }
}

TEST(FrameReceive, AnEarlierSuccessDoesNotShowThroughALaterFault) {
    Receiver receiver;
    ScriptedSource good(Frame(4, 4, 1, 0));
    receiver.Receive(good, 24);
    ASSERT_EQ(receiver.status, RecvStatus::Ok);
    ScriptedSource faulty(Frame(4, 4, 2, 0));
    faulty.throwAtRead = 1;
    EXPECT_THROW(receiver.Receive(faulty, 24), std::bad_alloc);
    EXPECT_EQ(receiver.status, RecvStatus::IoFault);
}

}  // namespace
}  // namespace ravlo
