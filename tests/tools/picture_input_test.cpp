#include "rvfeeder/picture_input.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <mutex>
#include <new>
#include <thread>

#include "rvfeeder/raw_reader.h"
#include "tools/memory_source.h"

namespace ravlo::test {
namespace {

using std::chrono::milliseconds;
constexpr milliseconds kPatience{5000};

PictureInput::Opener OpenerOf(std::string bytes) {
    return [bytes] {
        return std::make_unique<RawReader>(std::make_unique<MemorySource>(bytes), FrameGeometry{2, 2, 30, 1});
    };
}

/// The next picture as text; "END" at the end, "NOTHING" when none comes in time.
std::string Next(PictureInput& input, milliseconds patience = kPatience) {
    QueuedFrame frame;
    switch (input.Queue().TakeFilled(frame, patience)) {
        case FrameQueue::Take::Frame: {
            std::string text(frame.nv12.begin(), frame.nv12.end());
            input.Queue().PutEmpty(std::move(frame));
            return text;
        }
        case FrameQueue::Take::End:
            return "END";
        case FrameQueue::Take::Nothing:
            break;
    }
    return "NOTHING";
}

TEST(PictureInput, PicturesComeInOrderAndThenTheEnd) {
    PictureInput input(OpenerOf("aaaaaabbbbbbcccccc"), false, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    EXPECT_EQ(input.Geometry(), (FrameGeometry{2, 2, 30, 1}));
    EXPECT_EQ(Next(input), "aaaaaa");
    EXPECT_EQ(Next(input), "bbbbbb");
    EXPECT_EQ(Next(input), "cccccc");
    EXPECT_EQ(Next(input), "END");
    EXPECT_EQ(input.Error(), "");
}

TEST(PictureInput, ALoopBeginsAgainFromTheFirstPicture) {
    PictureInput input(OpenerOf("aaaaaabbbbbb"), true, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    for (int pass = 0; pass < 3; ++pass) {
        EXPECT_EQ(Next(input), "aaaaaa");
        EXPECT_EQ(Next(input), "bbbbbb");
    }
}

TEST(PictureInput, OpeningTheInputAgainCountsAsTimeThatItsNextPictureTook) {
    const auto round = std::make_shared<int>(0);
    PictureInput input(
        [round] {
            if ((*round)++ != 0) {
                std::this_thread::sleep_for(milliseconds(30));  // an input that is slow to open
            }
            return std::make_unique<RawReader>(std::make_unique<MemorySource>("abcdef"), FrameGeometry{2, 2, 30, 1});
        },
        true, 3);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    QueuedFrame first;
    QueuedFrame second;
    ASSERT_EQ(input.Queue().TakeFilled(first, kPatience), FrameQueue::Take::Frame);
    ASSERT_EQ(input.Queue().TakeFilled(second, kPatience), FrameQueue::Take::Frame);
    EXPECT_LE(first.asked, first.arrived);
    EXPECT_LE(first.arrived, second.asked);
    EXPECT_GE(second.arrived - second.asked, 300'000);
}

TEST(PictureInput, ALoopOverNothingEndsInsteadOfSpinning) {
    PictureInput input(OpenerOf(""), true, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    EXPECT_EQ(Next(input), "END");
    EXPECT_EQ(input.Error(), "the input is empty");
}

TEST(PictureInput, ALoopOverAnInputThatChangedItsSizeEnds) {
    const auto rounds = std::make_shared<int>(0);
    PictureInput input(
        [rounds] {
            const std::uint32_t edge = (*rounds)++ == 0 ? 4 : 64;
            return std::make_unique<RawReader>(std::make_unique<MemorySource>(std::string(edge * edge * 3 / 2, 'a')),
                                               FrameGeometry{edge, edge, 30, 1});
        },
        true, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    EXPECT_EQ(Next(input), std::string(24, 'a'));
    EXPECT_EQ(Next(input), "END");
    EXPECT_EQ(input.Error(), "the input changed its size or rate between two rounds");
}

TEST(PictureInput, ALoopOverAnInputThatChangedItsRateEnds) {
    const auto rounds = std::make_shared<std::uint32_t>(30);
    PictureInput input(
        [rounds] {
            return std::make_unique<RawReader>(std::make_unique<MemorySource>("abcdef"),
                                               FrameGeometry{2, 2, (*rounds)++, 1});
        },
        true, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    EXPECT_EQ(Next(input), "abcdef");
    EXPECT_EQ(Next(input), "END");
    EXPECT_EQ(input.Error(), "the input changed its size or rate between two rounds");
}

TEST(PictureInput, WholePicturesBeforeABrokenOneAreDeliveredAndTheErrorIsKept) {
    PictureInput input(OpenerOf("aaaaaabbb"), false, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    EXPECT_EQ(Next(input), "aaaaaa");
    EXPECT_EQ(Next(input), "END");
    EXPECT_EQ(input.Error(),
              "the input ends inside picture 2: 3 bytes are left over, a 2x2 picture has 6; is --size right?");
}

TEST(PictureInput, AnInputThatCannotBeOpenedSaysWhy) {
    PictureInput input([]() -> std::unique_ptr<PictureReader> { throw InputError("no such film"); }, false, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Failed);
    EXPECT_EQ(input.Error(), "no such film");
}

TEST(PictureInput, AnInputThatNeedsMoreMemoryThanThereIsSaysSo) {
    PictureInput input([]() -> std::unique_ptr<PictureReader> { throw std::bad_alloc(); }, false, 2);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Failed);
    EXPECT_EQ(input.Error(), "not enough memory for the pictures of this input");
}

/// How many pictures have been read, for a test that waits for them.
class ReadCount {
public:
    void Raise() {
        const std::lock_guard lock(m_mutex);
        ++m_count;
        m_raised.notify_all();
    }

    /// What the count is once it has reached `wanted`, or when that takes too long.
    int WaitFor(int wanted) {
        std::unique_lock lock(m_mutex);
        m_raised.wait_for(lock, kPatience, [this, wanted] { return m_count >= wanted; });
        return m_count;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_raised;
    int m_count = 0;
};

TEST(PictureInput, ReadingAheadStopsWhenAllBuffersAreFull) {
    class Counting final : public PictureReader {
    public:
        explicit Counting(std::shared_ptr<ReadCount> reads) : m_reads(std::move(reads)) {}
        const FrameGeometry& Geometry() const noexcept override { return m_geometry; }
        bool ReadPicture(std::span<std::uint8_t>) override {
            m_reads->Raise();
            return true;
        }

    private:
        FrameGeometry m_geometry{2, 2, 30, 1};
        std::shared_ptr<ReadCount> m_reads;
    };
    const auto reads = std::make_shared<ReadCount>();
    PictureInput input([reads] { return std::make_unique<Counting>(reads); }, false, 3);
    ASSERT_EQ(input.WaitUntilOpen(kPatience), PictureInput::State::Open);
    EXPECT_EQ(reads->WaitFor(3), 3);
    QueuedFrame frame;
    ASSERT_EQ(input.Queue().TakeFilled(frame, kPatience), FrameQueue::Take::Frame);
    EXPECT_EQ(reads->WaitFor(3), 3) << "no buffer was free for a fourth picture";
    input.Queue().PutEmpty(std::move(frame));
    EXPECT_EQ(reads->WaitFor(4), 4);
}

TEST(PictureInput, AReadThatNeverReturnsHoldsUpNobody) {
    const auto release = std::make_shared<std::promise<void>>();
    const auto released = std::make_shared<std::shared_future<void>>(release->get_future());
    {
        PictureInput input(
            [released]() -> std::unique_ptr<PictureReader> {
                released->wait();
                throw InputError("released");
            },
            false, 2);
        EXPECT_EQ(input.WaitUntilOpen(milliseconds(1)), PictureInput::State::Opening);
    }
    release->set_value();
}

}  // namespace
}  // namespace ravlo::test
