#include "stream/frame_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <thread>
#include <vector>

#include "unit/checked_frame.h"

// One writer and four readers at full speed.
namespace ravlo {
namespace {

constexpr FrameGeometry kGeometry{64, 32, 30, 1};
constexpr std::uint64_t kFrameBytes = 64 * 48;
constexpr auto kDuration = std::chrono::milliseconds(1000);
/// How long a busy machine may take to do the least that counts.
constexpr auto kPatience = std::chrono::seconds(20);
constexpr std::uint64_t kLeastPublished = 200;
constexpr std::uint64_t kLeastConsumed = 20;
constexpr std::uint8_t kPadding = 0xEE;
/// Two readers take frames as they are packed, two into wider rows.
constexpr std::uint32_t kStrides[] = {64, 80, 64, 72};

/// How far the writer is.
struct Progress {
    std::atomic<std::uint64_t> begun{0};      ///< stamp of the frame that was last handed to the pool
    std::atomic<std::uint64_t> published{0};  ///< stamp of the last frame that the pool took
    std::atomic<bool> over{false};
};

class Reader {
public:
    Reader(FramePool& pool, const Progress& progress, std::uint32_t stride)
        : m_pool(pool), m_progress(progress), m_stride(stride), m_picture(std::size_t{stride} * 48, kPadding) {}

    void Run() {
        while (!m_progress.over.load()) {
            Serve();
        }
    }

    /// What a request for a sample does. True when it came back with a frame.
    bool Serve() {
        const std::uint64_t before = m_progress.published.load();
        std::uint64_t promised = 0;
        // A now of 0 makes every stamp one of the future, and so fresh.
        if (!m_pool.Peek(0, 0, promised)) {
            return false;
        }
        older += promised < before ? 1U : 0U;
        unknown += promised > m_progress.begun.load() ? 1U : 0U;
        const CopyDescriptor copy =
            DescribeCopy(kGeometry, m_picture.data(), static_cast<std::uint32_t>(m_picture.size()),
                         static_cast<std::int32_t>(m_stride));
        if (!m_pool.Consume(0, 0, promised, kFrameBytes, copy)) {
            return false;
        }
        ++consumed;
        last = CheckedFrame::NumberOf(m_picture.data());
        older += last < promised ? 1U : 0U;
        unknown += last > m_progress.begun.load() ? 1U : 0U;
        broken += CheckedFrame::IsWhole(m_picture.data(), kGeometry, m_stride, kPadding, last) ? 0U : 1U;
        return true;
    }

    std::atomic<std::uint64_t> consumed{0};
    std::uint64_t broken = 0;   ///< frames that are not wholly one
    std::uint64_t older = 0;    ///< frames older than promised, or than what was published before the call
    std::uint64_t unknown = 0;  ///< frames that nobody began to publish
    std::uint64_t last = 0;     ///< stamp of the last frame

private:
    FramePool& m_pool;
    const Progress& m_progress;
    const std::uint32_t m_stride;
    std::vector<std::uint8_t> m_picture;
};

struct WriterResult {
    std::uint64_t published = 0;
    std::uint64_t refused = 0;
};

/// Publishes until the time is over and the readers had enough, and ends with a frame of full length.
template <class Condition>
WriterResult PublishUntil(FramePool& pool, Progress& progress, Condition haveReadersEnough) {
    WriterResult result;
    std::vector<std::uint8_t> frame(kFrameBytes + 8);
    const auto begin = std::chrono::steady_clock::now();
    bool ended = false;
    for (std::uint64_t stamp = 1; !ended; ++stamp) {
        if (stamp % 64 == 1) {
            const auto elapsed = std::chrono::steady_clock::now() - begin;
            const bool enough = result.published >= kLeastPublished && haveReadersEnough();
            ended = elapsed >= kPatience || (elapsed >= kDuration && enough);
        }
        CheckedFrame::Fill(frame.data(), frame.size(), stamp);
        progress.begun.store(stamp);
        // Some are too large for the pool, and some too short for the readers, who must count and leave them.
        const std::uint64_t length = stamp % 64 == 0   ? kFrameBytes + 8
                                     : stamp % 16 == 0 ? kFrameBytes - 8
                                                       : kFrameBytes;
        if (!pool.Publish({frame.data(), length}, stamp)) {
            ++result.refused;
            continue;
        }
        ++result.published;
        progress.published.store(stamp);
        if (stamp % 8 == 3) {
            std::this_thread::yield();
        }
    }
    return result;
}

TEST(FramePoolStress, NoReaderEverGetsATornFrameOrAnOlderOneThanItWasPromised) {
    FramePool pool;
    ASSERT_TRUE(pool.Allocate(kFrameBytes));
    Progress progress;
    std::deque<Reader> readers;
    for (const std::uint32_t stride : kStrides) {
        readers.emplace_back(pool, progress, stride);
    }
    std::vector<std::thread> threads;
    for (Reader& reader : readers) {
        threads.emplace_back([&reader] { reader.Run(); });
    }
    const WriterResult written = PublishUntil(pool, progress, [&readers] {
        return std::all_of(readers.begin(), readers.end(),
                           [](const Reader& reader) { return reader.consumed.load() >= kLeastConsumed; });
    });
    progress.over.store(true);
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (Reader& reader : readers) {
        EXPECT_EQ(reader.broken, 0U);
        EXPECT_EQ(reader.older, 0U);
        EXPECT_EQ(reader.unknown, 0U);
        EXPECT_GE(reader.consumed.load(), kLeastConsumed);
        ASSERT_TRUE(reader.Serve()) << "the writer is at rest";
        EXPECT_EQ(reader.last, progress.published.load()) << "so this is its last frame";
        EXPECT_EQ(reader.broken, 0U);
    }
    EXPECT_GE(written.published, kLeastPublished);
    EXPECT_GT(written.refused, 0U);
    EXPECT_EQ(pool.RefusedPublishes(), static_cast<std::int32_t>(written.refused));
    RecordProperty("published", static_cast<int>(written.published));
    RecordProperty("torn", pool.TornReads());
    RecordProperty("wrongLength", pool.WrongLengthFrames());
}

}  // namespace
}  // namespace ravlo
