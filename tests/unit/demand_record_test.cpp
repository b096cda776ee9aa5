#include "gate/demand_record.h"

#include <gtest/gtest.h>

namespace ravlo {
namespace {

TEST(DemandRecord, EveryFieldStandsAtItsPlaceInLittleEndianOrder) {
    DemandRecordBytes bytes{};
    EncodeDemandRecord({0x1122334455667788, 250, 0x99}, bytes);
    const DemandRecordBytes expected = {'G',  'A', 'T', 'E', 1, 0, 0, 0, 0x88, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11,
                                        0xFA, 0,   0,   0,   0, 0, 0, 0, 0x99, 0,    0,    0,    0,    0,    0,    0};
    EXPECT_EQ(bytes, expected);
}

TEST(DemandRecord, IdleTimeAboveAnHourIsCutToAnHour) {
    DemandRecordBytes bytes{};
    EncodeDemandRecord({1, 3'600'001, 0}, bytes);
    DemandRecord record{};
    ASSERT_TRUE(DecodeDemandRecord(bytes, record));
    EXPECT_EQ(record.idleMs, 3'600'000U);
}

TEST(DemandRecord, DecodingGivesBackWhatWasEncoded) {
    DemandRecordBytes bytes{};
    EncodeDemandRecord({7, 3'599'999, 0xFFFFFFFFFFFFFFFF}, bytes);
    DemandRecord record{};
    ASSERT_TRUE(DecodeDemandRecord(bytes, record));
    EXPECT_EQ(record.sequence, 7U);
    EXPECT_EQ(record.idleMs, 3'599'999U);
    EXPECT_EQ(record.requestCount, 0xFFFFFFFFFFFFFFFFU);
}

TEST(DemandRecord, AnotherMagicOrVersionIsNotDecoded) {
    DemandRecordBytes bytes{};
    EncodeDemandRecord({1, 0, 0}, bytes);
    DemandRecord record{};
    bytes[4] = 2;
    EXPECT_FALSE(DecodeDemandRecord(bytes, record));
    bytes[4] = 1;
    bytes[0] = 'g';
    EXPECT_FALSE(DecodeDemandRecord(bytes, record));
}

TEST(DemandRecord, IdleTimeIsTheDistanceToTheLastRequest) {
    EXPECT_EQ(DemandIdleMs(10'000, 9'750), 250U);
    EXPECT_EQ(DemandIdleMs(10'000, 10'000), 0U);
    EXPECT_EQ(DemandIdleMs(10'000, 10'001), 0U) << "a request that came while the tick was being read";
}

TEST(DemandRecord, IdleTimeIsAnHourWithoutARequestAndAfterMoreThanAnHour) {
    EXPECT_EQ(DemandIdleMs(10'000, 0), 3'600'000U);
    EXPECT_EQ(DemandIdleMs(3'600'001, 1), 3'600'000U);
    EXPECT_EQ(DemandIdleMs(3'600'000, 1), 3'599'999U);
    EXPECT_EQ(DemandIdleMs(9'000'000, 1), 3'600'000U);
}

}  // namespace
}  // namespace ravlo
