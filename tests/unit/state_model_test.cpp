// The judge of random calls, on made-up runs: it must pass every right one and find every wrong one, or the runs that
// it judges show nothing.
#include "soak/queue_balance.h"
#include "soak/state_model.h"

#include <gtest/gtest.h>

#include <vector>

namespace ravlo::test {
namespace {

using Calls = std::vector<Call>;

Contradictions JudgeStates(const Calls& calls) {
    Coverage coverage;
    return StateModel(calls).Judge(coverage);
}

/// What is wrong with the last of these calls alone.
std::string StatesOfLast(const Calls& calls) {
    return StateModel(calls).PossibleStates(calls.back()).Text();
}

Calls With(Calls calls, std::initializer_list<Call> more) {
    calls.insert(calls.end(), more);
    return calls;
}

const Calls kActivated{{Op::ActivateObject, kOk, 1, 2, 0}};
const Calls kStarted = With(kActivated, {{Op::Start, kOk, 3, 4, 0}});
const Calls kStopped = With(kStarted, {{Op::Stop, kOk, 5, 6, 0}});
const Calls kGone = With(kStarted, {{Op::Shutdown, kOk, 5, 6, 0}});

TEST(StateTable, HasOneRowForEachCallInTheOrderOfTheCalls) {
    ASSERT_EQ(StateTable().size(), kOpCount);
    for (std::size_t i = 0; i < kOpCount; ++i) {
        EXPECT_EQ(static_cast<std::size_t>(StateTable()[i].op), i) << StateTable()[i].name;
    }
}

TEST(StateTable, NothingButWhatIgnoresTheStateAnswersAShutDownSourceAsALiveOne) {
    for (const Row& row : StateTable()) {
        const Answers& down = row.answers[static_cast<std::size_t>(State::ShutDown)];
        EXPECT_TRUE(down == Answers{kShutDownAnswer} || down == row.answers[1]) << row.name;
        EXPECT_EQ(row.Allows(State::Started, kShutDownAnswer), false) << row.name;
    }
}

TEST(StateModel, KnowsTheStateOfASequence) {
    EXPECT_EQ(StatesOfLast({{Op::Pause, kInvalidTransition, 1, 2, 0}}), "not activated");
    EXPECT_EQ(StatesOfLast(With(kActivated, {{Op::Pause, kInvalidTransition, 3, 4, 0}})), "stopped");
    EXPECT_EQ(StatesOfLast(With(kStarted, {{Op::Pause, kInvalidTransition, 7, 8, 0}})), "started");
    EXPECT_EQ(StatesOfLast(With(kStopped, {{Op::Pause, kInvalidTransition, 7, 8, 0}})), "stopped");
    EXPECT_EQ(StatesOfLast(With(kStopped, {{Op::Start, kOk, 7, 8, 0}, {Op::Pause, kInvalidTransition, 9, 10, 0}})),
              "started");
    EXPECT_EQ(StatesOfLast(With(kGone, {{Op::Pause, kShutDownAnswer, 7, 8, 0}})), "shut down");
}

TEST(StateModel, ATransitionFindsTheStateBeforeIt) {
    EXPECT_EQ(StatesOfLast(kActivated), "not activated");
    EXPECT_EQ(StatesOfLast(kStarted), "stopped");
    EXPECT_EQ(StatesOfLast(kStopped), "started");
    EXPECT_EQ(StatesOfLast(kGone), "started");
    EXPECT_EQ(StatesOfLast(With(kGone, {{Op::Shutdown, kOk, 7, 8, 0}})), "shut down");
    EXPECT_EQ(StatesOfLast(With(kGone, {{Op::Shutdown, kOk, 5, 8, 0}})), "started, shut down");
    EXPECT_EQ(StatesOfLast(With(kActivated, {{Op::ActivateStranger, kNoInterface, 3, 4, 0}})), "stopped");
}

TEST(StateModel, AnOverlappingTransitionLeavesDoubt) {
    EXPECT_EQ(StatesOfLast(With(kStarted, {{Op::Stop, kOk, 5, 9, 0}, {Op::Pause, kInvalidTransition, 7, 8, 1}})),
              "stopped, started");
    EXPECT_EQ(StatesOfLast(With(kStarted, {{Op::Start, kOk, 5, 9, 0}, {Op::Pause, kInvalidTransition, 7, 8, 1}})),
              "stopped, started")
        << "a restart passes through stopped";
    EXPECT_EQ(
        StatesOfLast(With(kStopped, {{Op::Shutdown, kOk, 7, 10, 0}, {Op::ShutdownObject, kNotImplemented, 8, 9, 1}})),
        "stopped, shut down");
}

TEST(StateModel, ARightRunIsPassed) {
    const Calls calls = With(kStarted, {{Op::RequestSample, kOk, 5, 8, 1},
                                        {Op::Stop, kOk, 6, 9, 0},
                                        {Op::RequestSample, kWrongState, 7, 10, 2},
                                        {Op::Shutdown, kOk, 11, 16, 0},
                                        {Op::Pause, kInvalidTransition, 12, 13, 1},
                                        {Op::Pause, kShutDownAnswer, 14, 15, 2}});
    EXPECT_TRUE(JudgeStates(calls).empty());
}

TEST(StateModel, AnAnswerOfAnotherStateIsFound) {
    EXPECT_EQ(JudgeStates({{Op::Start, kOk, 1, 2, 0}}).size(), 2U) << "started without a stream, and so activated";
    EXPECT_EQ(JudgeStates(With(kActivated, {{Op::Start, kNotInitialized, 3, 4, 0}})).size(), 2U);
    EXPECT_EQ(JudgeStates(With(kActivated, {{Op::RequestSample, kOk, 3, 4, 0}})).size(), 1U);
    EXPECT_EQ(JudgeStates(With(kStarted, {{Op::RequestSample, kWrongState, 5, 6, 0}})).size(), 1U);
    EXPECT_EQ(JudgeStates(With(kStopped, {{Op::RequestSample, kOk, 7, 8, 0}})).size(), 1U);
    EXPECT_EQ(JudgeStates(With(kStarted, {{Op::Start, kWrongState, 5, 6, 0}})).size(), 1U);
    EXPECT_EQ(JudgeStates(With(kActivated, {{Op::Pause, kNotImplemented, 3, 4, 0}})).size(), 1U);
}

TEST(StateModel, NothingWorksAfterAShutdownHasReturned) {
    EXPECT_TRUE(JudgeStates(With(kGone, {{Op::Stop, kShutDownAnswer, 7, 8, 1}})).empty());
    EXPECT_FALSE(JudgeStates(With(kGone, {{Op::Stop, kOk, 7, 8, 1}})).empty());
    EXPECT_FALSE(JudgeStates(With(kGone, {{Op::Shutdown, kShutDownAnswer, 7, 8, 1}})).empty()) << "a repeat succeeds";
    EXPECT_FALSE(JudgeStates(With(kGone, {{Op::RequestSample, kWrongState, 7, 8, 1}})).empty());
    EXPECT_FALSE(JudgeStates(With(kGone, {{Op::KsProperty, kShutDownAnswer, 7, 8, 1}})).empty());
}

TEST(StateModel, NobodySeesAShutdownBeforeOneBegan) {
    EXPECT_FALSE(JudgeStates(With(kStarted, {{Op::Pause, kShutDownAnswer, 5, 6, 1}})).empty());
    EXPECT_FALSE(
        JudgeStates(With(kStarted, {{Op::Pause, kShutDownAnswer, 5, 6, 1}, {Op::Shutdown, kOk, 7, 8, 0}})).empty());
}

TEST(StateModel, WhoSeesTheShutdownFirstSeesItForAll) {
    // Both calls overlap the shutdown, so each alone may go either way; together they must agree on its moment.
    EXPECT_FALSE(JudgeStates(With(kStarted, {{Op::Shutdown, kOk, 5, 20, 0},
                                             {Op::Pause, kShutDownAnswer, 6, 7, 1},
                                             {Op::Pause, kInvalidTransition, 8, 9, 2}}))
                     .empty());
    EXPECT_TRUE(JudgeStates(With(kStarted, {{Op::Shutdown, kOk, 5, 20, 0},
                                            {Op::Pause, kShutDownAnswer, 6, 9, 1},
                                            {Op::Pause, kInvalidTransition, 8, 10, 2}}))
                    .empty());
}

TEST(StateModel, ARepeatedShutdownReturnsOnlyBehindTheChange) {
    EXPECT_FALSE(JudgeStates(With(kStarted, {{Op::Shutdown, kOk, 5, 20, 0},
                                             {Op::Shutdown, kOk, 6, 7, 1},
                                             {Op::Pause, kInvalidTransition, 8, 9, 2}}))
                     .empty());
}

TEST(StateModel, TheStreamGoesAfterTheSource) {
    EXPECT_TRUE(JudgeStates(With(kStarted, {{Op::Shutdown, kOk, 5, 20, 0},
                                            {Op::Pause, kShutDownAnswer, 6, 7, 1},
                                            {Op::GetMediaSource, kOk, 8, 9, 2}}))
                    .empty());
    EXPECT_FALSE(JudgeStates(With(kStarted, {{Op::Shutdown, kOk, 5, 20, 0},
                                             {Op::GetMediaSource, kShutDownAnswer, 6, 7, 2},
                                             {Op::Pause, kInvalidTransition, 8, 9, 1}}))
                     .empty());
    EXPECT_FALSE(JudgeStates(With(kGone, {{Op::GetMediaSource, kOk, 8, 9, 2}})).empty());
}

TEST(StateModel, ActivationIsSeenByAllOnceOneHasSeenIt) {
    EXPECT_FALSE(JudgeStates({{Op::ActivateObject, kOk, 1, 10, 0},
                              {Op::CreatePresentationDescriptor, kOk, 2, 3, 1},
                              {Op::CreatePresentationDescriptor, kNotInitialized, 4, 5, 2}})
                     .empty());
    EXPECT_FALSE(
        JudgeStates({{Op::ActivateStranger, kNoInterface, 1, 2, 0}, {Op::Start, kNotInitialized, 3, 4, 1}}).empty())
        << "what is asked for decides nothing about the stream";
    EXPECT_TRUE(JudgeStates({{Op::Shutdown, kOk, 1, 2, 0}, {Op::ActivateObject, kShutDownAnswer, 3, 4, 1}}).empty());
}

TEST(StateModel, CoverageCountsOnlyWhatIsBeyondDoubt) {
    Coverage coverage;
    const Calls calls = With(kStarted, {{Op::Stop, kOk, 5, 9, 0},
                                        {Op::Pause, kInvalidTransition, 7, 8, 1},
                                        {Op::Pause, kInvalidTransition, 10, 11, 1}});
    EXPECT_TRUE(StateModel(calls).Judge(coverage).empty());
    const auto& pauses = coverage.hits[static_cast<std::size_t>(Op::Pause)];
    EXPECT_EQ(pauses[static_cast<std::size_t>(State::Stopped)], 1U);
    EXPECT_EQ(pauses[static_cast<std::size_t>(State::Started)], 0U);
    EXPECT_EQ(coverage.answers[static_cast<std::size_t>(Op::Pause)].at(kInvalidTransition), 2U);
    EXPECT_EQ(coverage.calls, 5U);
}

Contradictions JudgeBalance(const Calls& calls, Object object) {
    Contradictions contradictions;
    QueueBalance(calls, StateModel(calls), object).Judge(contradictions);
    return contradictions;
}

TEST(QueueBalance, AStartLeavesTwoEventsInTheSourceAndOneInTheStream) {
    const Calls two = With(kStarted, {{Op::SourceGetEvent, kOk, 5, 6, 0}, {Op::SourceGetEvent, kOk, 7, 8, 0}});
    EXPECT_TRUE(JudgeBalance(two, Object::Source).empty());
    EXPECT_EQ(JudgeBalance(With(two, {{Op::SourceGetEvent, kOk, 9, 10, 0}}), Object::Source).size(), 1U);
    EXPECT_TRUE(JudgeBalance(With(two, {{Op::SourceGetEvent, kNoEvents, 9, 10, 0}}), Object::Source).empty());
    EXPECT_EQ(JudgeBalance(With(kStarted, {{Op::SourceGetEvent, kNoEvents, 9, 10, 0}}), Object::Source).size(), 1U);
    EXPECT_EQ(JudgeBalance(With(kStarted, {{Op::StreamGetEvent, kNoEvents, 9, 10, 0}}), Object::Stream).size(), 1U);
    EXPECT_TRUE(
        JudgeBalance(With(kStarted, {{Op::StreamGetEvent, kOk, 9, 10, 0}, {Op::StreamGetEvent, kNoEvents, 11, 12, 0}}),
                     Object::Stream)
            .empty());
}

TEST(QueueBalance, AStopBeforeTheActivationLeavesNothingInTheStream) {
    const Calls calls{
        {Op::Stop, kOk, 1, 2, 0}, {Op::ActivateObject, kOk, 3, 4, 0}, {Op::StreamGetEvent, kNoEvents, 5, 6, 0}};
    EXPECT_TRUE(JudgeBalance(calls, Object::Stream).empty());
    EXPECT_EQ(JudgeBalance({{Op::Stop, kOk, 1, 2, 0}, {Op::SourceGetEvent, kNoEvents, 5, 6, 0}}, Object::Source).size(),
              1U);
}

TEST(QueueBalance, ALookIsRefusedOnlyWhileSomebodyIsSubscribed) {
    const Call refused{Op::SourceGetEvent, kMultipleSubscribers, 9, 10, 0};
    EXPECT_EQ(JudgeBalance(With(kActivated, {refused}), Object::Source).size(), 1U);
    const Calls subscribed = With(kActivated, {{Op::SourceBeginGetEvent, kOk, 3, 4, 0}});
    EXPECT_TRUE(JudgeBalance(With(subscribed, {refused}), Object::Source).empty());
    const Calls ended = With(subscribed, {{Op::SourceQueueEvent, kOk, 5, 6, 0}, {Op::SourceEndGetEvent, kOk, 7, 8, 0}});
    EXPECT_EQ(JudgeBalance(With(ended, {refused}), Object::Source).size(), 1U);
    EXPECT_EQ(JudgeBalance(With(subscribed, {{Op::SourceBeginGetEvent, kOk, 5, 6, 1}}), Object::Source).size(), 1U);
}

}  // namespace
}  // namespace ravlo::test
