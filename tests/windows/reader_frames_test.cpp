// What the camera does with every kind of frame that it must not show, and the line that it writes for it.
#include <gtest/gtest.h>

#include "support/fixtures.h"
#include "support/frames.h"
#include "support/heap_faults.h"
#include "support/import_hooks.h"
#include "support/pattern.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

constexpr char kWriterClosed[] =
    "PIPE the writer closed the pipe - client slot released and the listen re-armed, waiting for rvfeeder.exe to reconnect. "
    "Pattern until it does";
constexpr char kIoFault[] =
    "PIPE client dropped by an I/O FAULT mid-frame - not a disconnect and not a bad header. Framing is lost; pattern";

class ReaderFrames : public ModuleTest {
protected:
    ReaderFrames() : m_camera(std::in_place, m_module) {}

    /// Connects a producer and waits until the camera knows it.
    void Connect() {
        ASSERT_TRUE(m_producer.Connect(m_camera->PipeName())) << m_log.Text();
        ASSERT_TRUE(m_log.WaitForCount("PIPE client connected - ", ++m_connections)) << m_log.Text();
    }
    /// The producer is thrown out, and the line says why.
    void ExpectDropped(const std::string& line) {
        EXPECT_TRUE(m_producer.WaitForDisconnect()) << m_log.Text();
        EXPECT_TRUE(m_log.WaitForLine([&](const TraceLine& candidate) { return candidate.message == line; }))
            << line << "\n"
            << m_log.Text();
    }
    void ExpectRejected(const WireHeader& header, const std::string& line) {
        Connect();
        ASSERT_TRUE(m_producer.SendHeader(header));
        ExpectDropped(line);
    }

    std::optional<Camera> m_camera;  // 320x180
    PipeClient m_producer;
    std::size_t m_connections = 0;
};

TEST_F(ReaderFrames, EveryVerdictHasItsLineAndCostsTheConnection) {
    ExpectRejected(WireHeader{0, 0, 0, 0, 0, 0},
                   "FAIL PIPE header rejected: MAGIC (wire magic=0x00000000 version=0 format=0x00000000 0x0 bytes=0) - "
                   "pattern");
    WireHeader header = HeaderFor(320, 180, 1);
    header.version = 1;
    ExpectRejected(header,
                   "FAIL PIPE header rejected: VERSION (wire magic=0x4F4C5652 version=1 format=0x3231564E 320x180 "
                   "bytes=86400) - pattern");
    header.version = 3;
    ExpectRejected(header,
                   "FAIL PIPE header rejected: VERSION (wire magic=0x4F4C5652 version=3 format=0x3231564E 320x180 "
                   "bytes=86400) - pattern");
    header = HeaderFor(0, 180, 1);
    header.format = 0x32595559;
    ExpectRejected(header,
                   "FAIL PIPE header rejected: PIXEL_FORMAT (wire magic=0x4F4C5652 version=2 format=0x32595559 0x180 "
                   "bytes=0) - pattern");
    header = HeaderFor(641, 480, 1);
    header.bytes = 4294967295;
    ExpectRejected(header,
                   "FAIL PIPE header rejected: GEOMETRY (wire magic=0x4F4C5652 version=2 format=0x3231564E 641x480 "
                   "bytes=4294967295) - pattern");
    ExpectRejected(HeaderFor(16386, 2, 1),
                   "FAIL PIPE header rejected: GEOMETRY (wire magic=0x4F4C5652 version=2 format=0x3231564E 16386x2 "
                   "bytes=49158) - pattern");
    header = HeaderFor(320, 180, 1);
    header.bytes = 86401;
    ExpectRejected(header,
                   "FAIL PIPE header rejected: BYTE_COUNT (wire magic=0x4F4C5652 version=2 format=0x3231564E 320x180 "
                   "bytes=86401) - pattern");
    header.bytes = 86399;
    ExpectRejected(header,
                   "FAIL PIPE header rejected: BYTE_COUNT (wire magic=0x4F4C5652 version=2 format=0x3231564E 320x180 "
                   "bytes=86399) - pattern");
    EXPECT_EQ(1u, m_log.CountLines("PIPE created "));
    EXPECT_FALSE(m_log.Contains("PIPE delivering live frames"));
}

TEST_F(ReaderFrames, OversizedFramesAreRefusedBeforeAnyMemoryIsAskedFor) {
    HeapFaults heap(m_module.Handle());
    heap.FailFromSize(86401);
    ExpectRejected(
        HeaderFor(16384, 16384, 1),
        "FAIL PIPE oversized frame refused before allocation: wire declared 402653184 bytes (16384x16384), this "
        "stream accepts at most 86400");
    ExpectRejected(
        HeaderFor(320, 182, 1),
        "FAIL PIPE oversized frame refused before allocation: wire declared 87360 bytes (320x182), this stream "
        "accepts at most 86400");
    EXPECT_FALSE(heap.Hit());
}

TEST_F(ReaderFrames, AWriterThatDiesMidPayloadIsReleasedAndItsPartialFrameNeverShown) {
    Connect();
    m_camera->Start();
    const std::vector<std::uint8_t> frame = MakeFrame(320, 180, 5);
    ASSERT_TRUE(m_producer.SendHeader(HeaderFor(320, 180, 5)));
    ASSERT_TRUE(m_producer.SendBytes(frame.data(), frame.size() - 1));
    m_producer.Close();
    ASSERT_TRUE(m_log.WaitForLine(kWriterClosed)) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage(kWriterClosed));
    for (std::uint32_t index = 0; index < 3; ++index) {
        EXPECT_EQ(TestPattern(index, 320, 180), m_camera->Pull().bytes);
    }
    EXPECT_FALSE(m_log.Contains("PIPE delivering live frames"));
}

TEST_F(ReaderFrames, AWriterThatClosesBeforeOrWithinAHeaderIsReleasedToo) {
    Connect();
    m_producer.Close();
    ASSERT_TRUE(m_log.WaitForCount(kWriterClosed, 1)) << m_log.Text();
    Connect();
    const WireHeader header = HeaderFor(320, 180, 1);
    ASSERT_TRUE(m_producer.SendBytes(&header, 20));
    m_producer.Close();
    ASSERT_TRUE(m_log.WaitForCount(kWriterClosed, 2)) << m_log.Text();
    Connect();
    ASSERT_TRUE(m_producer.SendFrame(320, 180, 9));
    EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=9")) << m_log.Text();
}

TEST_F(ReaderFrames, AReadThatFailsForAnotherReasonIsAnIoFault) {
    RAVLO_HOOK(ReadFile) reads(m_module.Handle());
    reads.FailEvery(FALSE, ERROR_IO_DEVICE);
    Connect();
    ExpectDropped(kIoFault);
    reads.PassOn();
    Connect();
    ASSERT_TRUE(m_producer.SendFrame(320, 180, 3));
    EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=3")) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("PIPE the writer closed the pipe"));
}

TEST_F(ReaderFrames, AReceiveBufferThatCannotGrowIsAnIoFaultAndTheNextClientMayDoBetter) {
    {
        HeapFaults heap(m_module.Handle());
        Connect();
        heap.FailFromSize(86400);
        ASSERT_TRUE(m_producer.SendHeader(HeaderFor(320, 180, 1)));
        ExpectDropped(kIoFault);
        EXPECT_TRUE(heap.Hit());
        heap.PassOn();
    }
    Connect();
    ASSERT_TRUE(m_producer.SendFrame(320, 180, 4));
    EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=4")) << m_log.Text();
}

TEST_F(ReaderFrames, ALostByteDesynchronisesEverythingBehindItAndCostsTheConnection) {
    Connect();
    const std::vector<std::uint8_t> frame = MakeFrame(320, 180, 1);
    ASSERT_TRUE(m_producer.SendHeader(HeaderFor(320, 180, 1)));
    ASSERT_TRUE(m_producer.SendBytes(frame.data(), frame.size() - 1));
    WireHeader next = HeaderFor(320, 180, 2);
    ASSERT_TRUE(m_producer.SendHeader(next));
    (void)m_producer.SendBytes(frame.data(), frame.size());
    EXPECT_TRUE(m_log.WaitForLine("FAIL PIPE header rejected: MAGIC (wire magic=0x024F4C56 ")) << m_log.Text();
    EXPECT_TRUE(m_producer.WaitForDisconnect());
}

TEST_F(ReaderFrames, SequenceNumberAndReservedBytesMayHoldAnything) {
    Connect();
    WireHeader header = HeaderFor(320, 180, 0xFFFFFFFFFFFFFFFF);
    for (std::uint8_t& byte : header.reserved) {
        byte = 0xEE;
    }
    const std::vector<std::uint8_t> frame = MakeFrame(320, 180, 1);
    ASSERT_TRUE(m_producer.SendHeader(header));
    ASSERT_TRUE(m_producer.SendBytes(frame.data(), frame.size()));
    EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=18446744073709551615")) << m_log.Text();
}

TEST_F(ReaderFrames, AFrameThatArrivesInManyPiecesIsOneFrame) {
    Connect();
    m_camera->Start();
    const WireHeader header = HeaderFor(320, 180, 8);
    for (std::size_t i = 0; i < sizeof header; ++i) {
        ASSERT_TRUE(m_producer.SendBytes(reinterpret_cast<const char*>(&header) + i, 1));
    }
    const std::vector<std::uint8_t> frame = MakeFrame(320, 180, 8);
    for (std::size_t start = 0; start < frame.size(); start += 8640) {
        ASSERT_TRUE(m_producer.SendBytes(frame.data() + start, 8640));
    }
    ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=8")) << m_log.Text();
    EXPECT_EQ(frame, m_camera->Pull().bytes);
}

TEST_F(ReaderFrames, StopWhileWaitingForAHeaderEndsTheThreadWithoutAWordAboutTheClient) {
    Connect();
    m_camera.reset();
    EXPECT_TRUE(m_log.HasMessage("PIPE reader thread exiting")) << m_log.Text();
    for (const char* word : {"writer closed", "I/O FAULT", "header rejected", "oversized", "FAIL PIPE"}) {
        EXPECT_FALSE(m_log.Contains(word)) << word;
    }
}

}  // namespace
}  // namespace ravlo::test
