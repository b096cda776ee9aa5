#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "stream/frame_pool.h"

// One writer and four readers at full speed. Every frame says of itself which one it is and whether it is whole: it
// begins with its stamp, and all bytes behind that are the stamp's low byte.
namespace ravlo {
namespace {

constexpr FrameGeometry kGeometry{64, 32, 30, 1};
constexpr std::uint64_t kFrameBytes = 64 * 48;
constexpr auto kDuration = std::chrono::milliseconds(700);
constexpr int kReaders = 4;

struct ReaderResult {
    std::uint64_t consumed = 0;
    std::uint64_t broken = 0;
    std::uint64_t older = 0;  ///< frames older than the one that was promised
};

ReaderResult ReadUntil(FramePool& pool, const std::atomic<bool>& stop) {
    ReaderResult result;
    std::vector<std::uint8_t> picture(kFrameBytes);
    const CopyDescriptor copy = DescribeCopy(kGeometry, picture.data(), static_cast<std::uint32_t>(kFrameBytes), 64);
    while (!stop.load()) {
        std::uint64_t promised = 0;
        // A now of 0 makes every stamp one of the future, and so fresh.
        if (!pool.Peek(0, 0, promised) || !pool.Consume(0, 0, promised, kFrameBytes, copy)) {
            continue;
        }
        ++result.consumed;
        std::uint64_t stamp = 0;
        std::memcpy(&stamp, picture.data(), sizeof stamp);
        result.older += stamp < promised ? 1U : 0U;
        const bool whole = std::all_of(picture.begin() + sizeof stamp, picture.end(),
                                       [stamp](std::uint8_t b) { return b == static_cast<std::uint8_t>(stamp); });
        result.broken += whole ? 0U : 1U;
    }
    return result;
}

TEST(FramePoolStress, NoReaderEverGetsATornFrameOrAnOlderOneThanItWasPromised) {
    FramePool pool;
    ASSERT_TRUE(pool.Allocate(kFrameBytes));
    std::atomic<bool> stop{false};
    std::vector<ReaderResult> results(kReaders);
    std::vector<std::thread> readers;
    for (ReaderResult& result : results) {
        readers.emplace_back([&] { result = ReadUntil(pool, stop); });
    }
    std::uint64_t published = 0;
    std::uint64_t refused = 0;
    std::vector<std::uint8_t> frame(kFrameBytes + 1);
    const auto end = std::chrono::steady_clock::now() + kDuration;
    for (std::uint64_t stamp = 1; std::chrono::steady_clock::now() < end; ++stamp) {
        std::fill(frame.begin(), frame.end(), static_cast<std::uint8_t>(stamp));
        std::memcpy(frame.data(), &stamp, sizeof stamp);
        if (stamp % 64 == 0) {
            refused += pool.Publish({frame.data(), kFrameBytes + 1}, stamp) ? 0U : 1U;
        } else {
            // Some frames are a byte short: readers must count and leave them.
            const std::uint64_t length = stamp % 16 == 0 ? kFrameBytes - 1 : kFrameBytes;
            published += pool.Publish({frame.data(), length}, stamp) ? 1U : 0U;
        }
        if (stamp % 8 == 0) {
            std::this_thread::yield();
        }
    }
    stop.store(true);
    std::uint64_t consumed = 0;
    for (std::size_t i = 0; i < readers.size(); ++i) {
        readers[i].join();
        EXPECT_EQ(results[i].broken, 0U);
        EXPECT_EQ(results[i].older, 0U);
        consumed += results[i].consumed;
    }
    EXPECT_GT(published, 100U);
    EXPECT_GT(consumed, 100U);
    EXPECT_EQ(pool.RefusedPublishes(), static_cast<std::int32_t>(refused));
    EXPECT_GT(refused, 0U);
    RecordProperty("torn", pool.TornReads());
    RecordProperty("wrongLength", pool.WrongLengthFrames());
}

}  // namespace
}  // namespace ravlo
