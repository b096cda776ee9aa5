#include "rvfeeder/picture_flow.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>

#include "rvfeeder/raw_reader.h"
#include "rvfeeder/y4m_reader.h"
#include "tools/memory_source.h"

namespace ravlo::test {
namespace {

using Kind = PictureFlow::Kind;
using std::chrono::milliseconds;
constexpr milliseconds kPatience{5000};
constexpr std::int64_t kPeriod = 400'000;  // of 25 pictures a second
constexpr std::int64_t kSecond = 10'000'000;

/// Endless 2x2 pictures whose first byte counts from 0; those that are read past count too.
class CountingReader final : public PictureReader {
public:
    explicit CountingReader(std::shared_ptr<std::atomic<int>> skipped) : m_skipped(std::move(skipped)) {}

    const FrameGeometry& Geometry() const noexcept override { return m_geometry; }
    bool ReadPicture(std::span<std::uint8_t> nv12) override {
        nv12[0] = m_next++;
        return true;
    }
    bool SkipPicture(std::span<std::uint8_t>) override {
        ++m_next;
        ++*m_skipped;
        return true;
    }

private:
    FrameGeometry m_geometry{2, 2, 25, 1};
    std::shared_ptr<std::atomic<int>> m_skipped;
    std::uint8_t m_next = 0;
};

class PictureFlowTest : public ::testing::Test {
protected:
    PictureFlow MakeFlow(bool live) {
        return PictureFlow([skipped = m_skipped] { return std::make_unique<CountingReader>(skipped); }, false, live);
    }

    /// Asks until the answer is one that needs no more patience than the test has.
    PictureFlow::Step Next(PictureFlow& flow, std::int64_t now, bool wanted = true) {
        PictureFlow::Step step = flow.Next(now, wanted, kPatience);
        while (step.kind == Kind::Opening) {
            step = flow.Next(now, wanted, kPatience);
        }
        return step;
    }

    /// The first byte of the picture that is sent at `now`; -1 when none is.
    int Send(PictureFlow& flow, std::int64_t now) {
        const PictureFlow::Step step = Next(flow, now);
        if (step.kind != Kind::Send) {
            return -1;
        }
        const int first = step.frame->nv12[0];
        flow.Done();
        return first;
    }

    std::shared_ptr<std::atomic<int>> m_skipped = std::make_shared<std::atomic<int>>(0);
    // The reader stamps pictures with the steady clock, so the test's own time begins there.
    std::int64_t m_now = SteadyTicks();
};

TEST_F(PictureFlowTest, EveryPictureIsDueInItsTurn) {
    PictureFlow flow = MakeFlow(false);
    EXPECT_EQ(Send(flow, m_now), 0);
    EXPECT_EQ(flow.Geometry(), (FrameGeometry{2, 2, 25, 1}));
    const PictureFlow::Step early = Next(flow, m_now + kPeriod / 4);
    EXPECT_EQ(early.kind, Kind::Wait);
    EXPECT_EQ(early.wait, 300'000);
    EXPECT_EQ(Send(flow, m_now + kPeriod), 1);
    EXPECT_EQ(flow.PictureNumber(), 2U);
}

TEST_F(PictureFlowTest, WhatIsHeldUpHereIsDroppedAsLate) {
    PictureFlow flow = MakeFlow(false);
    EXPECT_EQ(Send(flow, m_now), 0);
    EXPECT_EQ(Next(flow, m_now + 3 * kPeriod).kind, Kind::Late);
    EXPECT_EQ(Send(flow, m_now + 3 * kPeriod), 2);
}

class PictureFlowAfterADelay : public PictureFlowTest, public ::testing::WithParamInterface<bool> {};

TEST_P(PictureFlowAfterADelay, AnInputThatIsAheadIsBackAtItsPlaceEvenIfItWasNotReadMeanwhile) {
    // A picture a second, so that how long a busy machine takes to read one does not matter.
    const auto opener = [] {
        return std::make_unique<RawReader>(std::make_unique<MemorySource>(std::string(600, 'x')),
                                           FrameGeometry{2, 2, 1, 1});
    };
    PictureFlow flow(opener, false, GetParam());
    const std::int64_t back = SteadyTicks();
    EXPECT_EQ(Send(flow, back - 27 * kSecond), 'x');
    int late = 0;
    PictureFlow::Step step = Next(flow, back);
    while (step.kind == Kind::Late) {
        ++late;
        step = Next(flow, back);
    }
    EXPECT_EQ(late, 25) << "many more than are read ahead";
    ASSERT_EQ(step.kind, Kind::Send);
    EXPECT_EQ(flow.PictureNumber(), 27U);
    flow.Done();
    EXPECT_EQ(Send(flow, back), 'x') << "the one due now";
    EXPECT_EQ(Next(flow, back).wait, kSecond);
    EXPECT_EQ(flow.ClockRestarts(), 0U);
}

INSTANTIATE_TEST_SUITE_P(WhetherOrNotItCanWait, PictureFlowAfterADelay, ::testing::Bool());

TEST_F(PictureFlowTest, AnInputThatCanWaitStandsStillAndGoesOnAtTheSamePictureAtOnce) {
    PictureFlow flow = MakeFlow(false);
    EXPECT_EQ(Send(flow, m_now), 0);
    EXPECT_EQ(Send(flow, m_now + kPeriod), 1);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Next(flow, m_now + i * kSecond, false).kind, Kind::Paused);
    }
    const std::int64_t back = m_now + 60 * kSecond + 1;
    EXPECT_EQ(Send(flow, back), 2);
    EXPECT_EQ(Next(flow, back).kind, Kind::Wait) << "no burst";
    EXPECT_EQ(Next(flow, back).wait, kPeriod);
    EXPECT_EQ(Send(flow, back + kPeriod), 3);
    EXPECT_EQ(flow.ClockRestarts(), 0U) << "a pause is no fault of the input";
    EXPECT_EQ(*m_skipped, 0);
}

TEST_F(PictureFlowTest, APictureThatWasNotYetDueWhenThePauseCameIsTheFirstAfterIt) {
    PictureFlow flow = MakeFlow(false);
    EXPECT_EQ(Send(flow, m_now), 0);
    EXPECT_EQ(Next(flow, m_now + 1).kind, Kind::Wait);
    EXPECT_EQ(Next(flow, m_now + 2, false).kind, Kind::Paused);
    EXPECT_EQ(Send(flow, m_now + kSecond), 1);
}

TEST_F(PictureFlowTest, ALiveInputIsReadPastAtItsOwnPaceWhileNobodyWants) {
    PictureFlow flow = MakeFlow(true);
    EXPECT_EQ(Send(flow, m_now), 0);
    for (int i = 1; i <= 50; ++i) {
        const std::int64_t now = m_now + i * kPeriod;
        EXPECT_EQ(Next(flow, now, false).kind, Kind::Drained);
        EXPECT_EQ(Next(flow, now, false).kind, Kind::Wait);
    }
    EXPECT_GE(*m_skipped, 40) << "without the work of making pictures of them";
    // At most what was read ahead is thrown away before the first picture that is made anew.
    const std::int64_t back = m_now + 50 * kPeriod + 1;
    int thrownAway = 0;
    PictureFlow::Step step = Next(flow, back);
    while (step.kind == Kind::Drained) {
        ++thrownAway;
        step = Next(flow, back);
    }
    ASSERT_EQ(step.kind, Kind::Send);
    EXPECT_LE(thrownAway, 5);
    EXPECT_EQ(step.frame->nv12[0], 51 + thrownAway);
    flow.Done();
    EXPECT_EQ(Next(flow, back).wait, kPeriod) << "no burst";
}

TEST_F(PictureFlowTest, APictureOfALiveInputThatWasMadeButIsNoLongerWantedIsDrained) {
    PictureFlow flow = MakeFlow(true);
    EXPECT_EQ(Send(flow, m_now), 0);
    EXPECT_EQ(Next(flow, m_now + 1).kind, Kind::Wait);
    EXPECT_EQ(Next(flow, m_now + kPeriod, false).kind, Kind::Drained);
}

TEST_F(PictureFlowTest, TheEndAndAFailureToOpenAreTold) {
    PictureFlow film(
        [] {
            return std::make_unique<RawReader>(std::make_unique<MemorySource>("abcdef"), FrameGeometry{2, 2, 25, 1});
        },
        false, false);
    EXPECT_EQ(Send(film, m_now), 'a');
    EXPECT_EQ(Next(film, m_now + kPeriod).kind, Kind::End);
    EXPECT_EQ(film.Error(), "");
    PictureFlow broken([]() -> std::unique_ptr<PictureReader> { throw InputError("no such film"); }, false, false);
    EXPECT_EQ(Next(broken, m_now).kind, Kind::Failed);
    EXPECT_EQ(broken.Error(), "no such film");
}

TEST(SkipPicture, AY4mPictureIsReadPastWithEverythingThatBelongsToIt) {
    const std::string film = "YUV4MPEG2 W2 H2 F25:1\nFRAME\nabcdUVFRAME Xcomment\nefghWXFRAME\nijklYZ";
    Y4mReader reader(std::make_unique<MemorySource>(film));
    std::vector<std::uint8_t> picture(6);
    EXPECT_TRUE(reader.ReadPicture(picture));
    EXPECT_TRUE(reader.SkipPicture(picture));
    EXPECT_TRUE(reader.ReadPicture(picture));
    EXPECT_EQ(std::string(picture.begin(), picture.end()), "ijklYZ");
    EXPECT_FALSE(reader.SkipPicture(picture));
}

TEST(SkipPicture, ABreakInAPictureThatNobodySeesIsStillAnError) {
    Y4mReader reader(std::make_unique<MemorySource>("YUV4MPEG2 W2 H2 F25:1\nFRAME\nabcdU"));
    std::vector<std::uint8_t> picture(6);
    EXPECT_EQ(InputErrorOf([&] { reader.SkipPicture(picture); }), "the Y4M stream ends inside picture 1");
    std::vector<std::uint8_t> small(5);
    EXPECT_THROW(reader.SkipPicture(small), std::invalid_argument);
}

}  // namespace
}  // namespace ravlo::test
