// Our own encoders and decoders against the bytes that producers in other languages are tested with.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "gate/demand_record.h"
#include "pipe/frame_header.h"

namespace ravlo {
namespace {

struct GoldenHeader {
    std::uint32_t width;
    std::uint32_t height;
    std::uint64_t seq;
    std::array<std::uint8_t, 40> bytes;
};

struct GoldenRecord {
    DemandRecord record;
    DemandRecordBytes bytes;
};

const std::vector<GoldenHeader> kHeaders{
#define FRAME_HEADER(width, height, seq, ...) GoldenHeader{width, height, seq, {__VA_ARGS__}},
#include "golden/wire_bytes.inc"
};

const std::vector<GoldenRecord> kRecords{
#define DEMAND_RECORD(sequence, idle, requests, ...) GoldenRecord{{sequence, idle, requests}, {__VA_ARGS__}},
#include "golden/wire_bytes.inc"
};

const std::vector<GoldenRecord> kCutRecords{
#define DEMAND_RECORD_CUT(sequence, idle, requests, ...) GoldenRecord{{sequence, idle, requests}, {__VA_ARGS__}},
#include "golden/wire_bytes.inc"
};

const std::vector<DemandRecordBytes> kNoRecords{
#define NO_DEMAND_RECORD(...) DemandRecordBytes{__VA_ARGS__},
#include "golden/wire_bytes.inc"
};

TEST(WireGolden, FrameHeadersAreMadeOfTheseBytes) {
    ASSERT_EQ(kHeaders.size(), 4U);
    for (const GoldenHeader& golden : kHeaders) {
        const FrameHeader header = MakeFrameHeader(golden.width, golden.height, golden.seq);
        std::array<std::uint8_t, 40> bytes{};
        std::memcpy(bytes.data(), &header, bytes.size());
        EXPECT_EQ(bytes, golden.bytes) << golden.width << "x" << golden.height;
        EXPECT_EQ(ValidateFrameHeader(header), HeaderVerdict::Ok) << golden.width << "x" << golden.height;
    }
}

TEST(WireGolden, DemandRecordsAreWrittenAndReadAsTheseBytes) {
    ASSERT_EQ(kRecords.size(), 3U);
    for (const GoldenRecord& golden : kRecords) {
        DemandRecordBytes bytes{};
        EncodeDemandRecord(golden.record, bytes);
        EXPECT_EQ(bytes, golden.bytes) << golden.record.sequence;
        DemandRecord record{};
        EXPECT_TRUE(DecodeDemandRecord(golden.bytes, record));
        EXPECT_EQ(record.sequence, golden.record.sequence);
        EXPECT_EQ(record.idleMs, golden.record.idleMs);
        EXPECT_EQ(record.requestCount, golden.record.requestCount);
    }
}

TEST(WireGolden, IdleTimesAboveTheLimitAreCut) {
    ASSERT_EQ(kCutRecords.size(), 1U);
    for (const GoldenRecord& golden : kCutRecords) {
        DemandRecordBytes bytes{};
        EncodeDemandRecord(golden.record, bytes);
        EXPECT_EQ(bytes, golden.bytes);
    }
}

TEST(WireGolden, BytesOfAnotherMagicOrVersionAreNoRecord) {
    ASSERT_EQ(kNoRecords.size(), 2U);
    for (const DemandRecordBytes& bytes : kNoRecords) {
        DemandRecord record{};
        EXPECT_FALSE(DecodeDemandRecord(bytes, record));
    }
}

}  // namespace
}  // namespace ravlo
