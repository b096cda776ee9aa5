#include "stream/frame_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

namespace ravlo {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr FrameGeometry kGeometry{8, 4, 30, 1};
constexpr std::uint64_t kBytes = 48;
constexpr std::uint64_t kFreshness = 1000;
constexpr std::uint64_t kNow = 50'000;

class FramePoolTest : public testing::Test {
protected:
    FramePoolTest() { EXPECT_TRUE(m_pool.Allocate(64)); }

    bool PublishFilled(std::uint8_t value, std::uint64_t stamp, std::size_t length = kBytes) {
        const Bytes frame(length, value);
        return m_pool.Publish({frame.data(), frame.size()}, stamp);
    }

    bool Consume(Bytes& destination, std::uint64_t now, std::uint64_t expectedStamp = 0) {
        destination.assign(kBytes, 0xEE);
        return m_pool.Consume(now, kFreshness, expectedStamp, kBytes,
                              DescribeCopy(kGeometry, destination.data(), kBytes, 8));
    }

    void ExpectNothingCounted() const {
        EXPECT_EQ(m_pool.TornReads(), 0);
        EXPECT_EQ(m_pool.RefusedPublishes(), 0);
        EXPECT_EQ(m_pool.WrongLengthFrames(), 0);
    }

    FramePool m_pool;
};

TEST(FramePool, ACapacityOfZeroIsNotAllocated) {
    FramePool pool;
    EXPECT_FALSE(pool.Allocate(0));
    EXPECT_EQ(pool.Capacity(), 0U);
}

TEST(FramePool, BeforeTheAllocationEverythingIsRefused) {
    FramePool pool;
    const Bytes frame(4, 1);
    EXPECT_FALSE(pool.Publish({frame.data(), 4}, kNow));
    EXPECT_EQ(pool.RefusedPublishes(), 1);
    std::uint64_t stamp = 0;
    EXPECT_FALSE(pool.Peek(kNow, kFreshness, stamp));
}

TEST_F(FramePoolTest, TouchingMoreThanASlotHoldsPublishesNothingAndHarmsNothing) {
    m_pool.TouchSlots(100'000);
    std::uint64_t stamp = 0;
    EXPECT_FALSE(m_pool.Peek(kNow, kFreshness, stamp));
    ASSERT_TRUE(PublishFilled(7, kNow));
    Bytes destination;
    ASSERT_TRUE(Consume(destination, kNow));
    EXPECT_EQ(destination, Bytes(kBytes, 7));
    ExpectNothingCounted();
}

TEST(FramePool, TouchingKeepsFramesThatAreThere) {
    constexpr FrameGeometry kTall{64, 256, 30, 1};  // six pages
    constexpr std::uint32_t kTallBytes = 24'576;
    FramePool pool;
    ASSERT_TRUE(pool.Allocate(kTallBytes));
    for (const std::uint8_t value : Bytes{3, 4}) {
        const Bytes frame(kTallBytes, value);
        ASSERT_TRUE(pool.Publish({frame.data(), frame.size()}, kNow));
    }
    pool.TouchSlots(kTallBytes);
    Bytes destination(kTallBytes, 0xEE);
    ASSERT_TRUE(
        pool.Consume(kNow, kFreshness, kNow, kTallBytes, DescribeCopy(kTall, destination.data(), kTallBytes, 64)));
    EXPECT_EQ(destination, Bytes(kTallBytes, 4));
}

TEST(FramePool, TouchingBeforeTheAllocationDoesNothing) {
    FramePool pool;
    pool.TouchSlots(64);
    EXPECT_EQ(pool.Capacity(), 0U);
}

TEST_F(FramePoolTest, BeforeTheFirstPublishNothingIsThereAndNothingIsCounted) {
    std::uint64_t stamp = 123;
    Bytes destination;
    EXPECT_FALSE(m_pool.Peek(kNow, kFreshness, stamp));
    EXPECT_EQ(stamp, 123U);
    EXPECT_FALSE(Consume(destination, kNow));
    EXPECT_EQ(destination, Bytes(kBytes, 0xEE));
    ExpectNothingCounted();
}

TEST_F(FramePoolTest, APublishedFrameIsSeenWithItsStampAndCopiedWhole) {
    ASSERT_TRUE(PublishFilled(7, kNow));
    std::uint64_t stamp = 0;
    ASSERT_TRUE(m_pool.Peek(kNow + 5, kFreshness, stamp));
    EXPECT_EQ(stamp, kNow);
    Bytes destination;
    ASSERT_TRUE(Consume(destination, kNow + 5, kNow));
    EXPECT_EQ(destination, Bytes(kBytes, 7));
    ExpectNothingCounted();
}

TEST_F(FramePoolTest, TheNewestFrameWinsWheneverItComes) {
    Bytes destination;
    for (std::uint8_t value = 1; value <= 9; ++value) {
        ASSERT_TRUE(PublishFilled(value, kNow + value));
        ASSERT_TRUE(Consume(destination, kNow + value, kNow + value));
        EXPECT_EQ(destination, Bytes(kBytes, value));
    }
}

TEST_F(FramePoolTest, AFrameMayBeConsumedManyTimes) {
    ASSERT_TRUE(PublishFilled(3, kNow));
    Bytes destination;
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(Consume(destination, kNow, kNow));
    }
}

TEST_F(FramePoolTest, PublishOfNothingOrOverCapacityIsRefusedAndKeepsThePreviousFrame) {
    ASSERT_TRUE(PublishFilled(5, kNow));
    EXPECT_FALSE(m_pool.Publish({nullptr, 48}, kNow + 1));
    EXPECT_FALSE(PublishFilled(6, kNow + 1, 0));
    EXPECT_FALSE(PublishFilled(6, kNow + 1, 65));
    EXPECT_EQ(m_pool.RefusedPublishes(), 3);
    Bytes destination;
    ASSERT_TRUE(Consume(destination, kNow, kNow));
    EXPECT_EQ(destination, Bytes(kBytes, 5));
}

TEST_F(FramePoolTest, AFrameOfExactlyTheCapacityIsTaken) {
    EXPECT_TRUE(PublishFilled(5, kNow, 64));
    EXPECT_EQ(m_pool.RefusedPublishes(), 0);
}

TEST_F(FramePoolTest, AFrameIsFreshForExactlyTheBound) {
    ASSERT_TRUE(PublishFilled(5, kNow));
    std::uint64_t stamp = 0;
    Bytes destination;
    EXPECT_TRUE(m_pool.Peek(kNow + 1000, kFreshness, stamp));
    EXPECT_TRUE(Consume(destination, kNow + 1000, kNow));
    EXPECT_FALSE(m_pool.Peek(kNow + 1001, kFreshness, stamp));
    EXPECT_FALSE(Consume(destination, kNow + 1001, kNow));
    ExpectNothingCounted();
}

TEST_F(FramePoolTest, AStampInTheFutureIsFresh) {
    ASSERT_TRUE(PublishFilled(5, kNow + 5000));
    std::uint64_t stamp = 0;
    EXPECT_TRUE(m_pool.Peek(kNow, kFreshness, stamp));
}

TEST_F(FramePoolTest, TheConsumerNeverGoesBackInTime) {
    ASSERT_TRUE(PublishFilled(5, kNow));
    Bytes destination;
    EXPECT_FALSE(Consume(destination, kNow, kNow + 1));
    EXPECT_EQ(destination, Bytes(kBytes, 0xEE));
    EXPECT_TRUE(Consume(destination, kNow, kNow - 1)) << "a newer frame than the one that was promised is welcome";
    ExpectNothingCounted();
}

TEST_F(FramePoolTest, EveryAttemptThatSeesAFrameOfAnotherLengthIsCounted) {
    ASSERT_TRUE(PublishFilled(5, kNow, 47));
    Bytes destination;
    EXPECT_FALSE(Consume(destination, kNow));
    EXPECT_EQ(m_pool.WrongLengthFrames(), 3);
    EXPECT_EQ(destination, Bytes(kBytes, 0xEE)) << "neither cut nor padded";
    EXPECT_FALSE(Consume(destination, kNow));
    EXPECT_EQ(m_pool.WrongLengthFrames(), 6);
    EXPECT_EQ(m_pool.TornReads(), 0);
}

TEST_F(FramePoolTest, TheCopyFollowsTheDestinationsStrideAndLeavesItsPadding) {
    Bytes frame(kBytes);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<std::uint8_t>(i);
    }
    ASSERT_TRUE(m_pool.Publish({frame.data(), frame.size()}, kNow));
    Bytes destination(10 * 6, 0xEE);
    ASSERT_TRUE(m_pool.Consume(kNow, kFreshness, kNow, kBytes, DescribeCopy(kGeometry, destination.data(), 60, 10)));
    for (std::size_t row = 0; row < 6; ++row) {
        for (std::size_t x = 0; x < 8; ++x) {
            EXPECT_EQ(destination[row * 10 + x], row * 8 + x);
        }
        EXPECT_EQ(destination[row * 10 + 8], 0xEE);
        EXPECT_EQ(destination[row * 10 + 9], 0xEE);
    }
}

TEST_F(FramePoolTest, ACopyWhosePlanesDoNotLieInsideTheFrameIsRefused) {
    ASSERT_TRUE(PublishFilled(5, kNow));
    Bytes destination(kBytes, 0xEE);
    CopyDescriptor copy = DescribeCopy(kGeometry, destination.data(), kBytes, 8);
    copy.chromaBytes = 17;
    EXPECT_FALSE(m_pool.Consume(kNow, kFreshness, kNow, kBytes, copy));
    copy = DescribeCopy(kGeometry, destination.data(), kBytes, 8);
    copy.lumaBytes = 49;
    EXPECT_FALSE(m_pool.Consume(kNow, kFreshness, kNow, kBytes, copy));
    copy = DescribeCopy(kGeometry, destination.data(), kBytes, 8);
    copy.lumaBytes = 0xFFFF'FFFF'FFFF'FFFF;
    EXPECT_FALSE(m_pool.Consume(kNow, kFreshness, kNow, kBytes, copy));
    EXPECT_EQ(destination, Bytes(kBytes, 0xEE));
    ExpectNothingCounted();
}

TEST_F(FramePoolTest, ResetUnpublishesAndKeepsCountersAndStorage) {
    ASSERT_TRUE(PublishFilled(5, kNow));
    EXPECT_FALSE(PublishFilled(5, kNow, 65));
    m_pool.Reset();
    std::uint64_t stamp = 0;
    Bytes destination;
    EXPECT_FALSE(m_pool.Peek(kNow, kFreshness, stamp));
    EXPECT_FALSE(Consume(destination, kNow));
    EXPECT_EQ(m_pool.RefusedPublishes(), 1);
    EXPECT_EQ(m_pool.Capacity(), 64U);
    ASSERT_TRUE(PublishFilled(6, kNow));
    EXPECT_TRUE(Consume(destination, kNow, kNow));
    EXPECT_EQ(destination, Bytes(kBytes, 6));
}

/// Planes of many kilobytes are copied in another way than small ones, and so are rows one by one.
TEST(FramePool, LargePlanesArriveWholeAtTheirStrideAndInIt) {
    constexpr FrameGeometry kLarge{512, 256, 30, 1};
    constexpr std::size_t kLargeBytes = 196'608;
    Bytes frame(kLargeBytes);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<std::uint8_t>((i + i / 512) % 251);
    }
    FramePool pool;
    ASSERT_TRUE(pool.Allocate(kLargeBytes));
    ASSERT_TRUE(pool.Publish({frame.data(), frame.size()}, kNow));
    for (const std::uint32_t stride : {512U, 576U}) {
        const std::uint32_t length = stride * 384;
        Bytes destination(length + 64, 0xEE);
        ASSERT_TRUE(pool.Consume(kNow, kFreshness, kNow, kLargeBytes,
                                 DescribeCopy(kLarge, destination.data(), length, static_cast<std::int32_t>(stride))));
        Bytes expected(length + 64, 0xEE);
        for (std::size_t row = 0; row < 384; ++row) {
            std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(row * 512), 512,
                        expected.begin() + static_cast<std::ptrdiff_t>(row * stride));
        }
        EXPECT_EQ(destination, expected) << "stride " << stride;
    }
}

TEST(CopyDescriptor, ADestinationIsLargeEnoughOrItIsNotUsed) {
    Bytes destination(100);
    const auto can = [&](std::uint8_t* data, std::uint32_t length, std::int32_t stride) {
        return CanReceiveFrame(DescribeCopy(kGeometry, data, length, stride));
    };
    EXPECT_TRUE(can(destination.data(), 48, 8));
    EXPECT_FALSE(can(nullptr, 48, 8));
    EXPECT_FALSE(can(destination.data(), 47, 8));
    EXPECT_FALSE(can(destination.data(), 48, 7));
    EXPECT_FALSE(can(destination.data(), 48, -8));
    EXPECT_FALSE(can(destination.data(), 48, 9)) << "54 bytes are needed at that stride";
    EXPECT_TRUE(can(destination.data(), 54, 9));
}

}  // namespace
}  // namespace ravlo
