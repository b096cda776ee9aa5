// The judge of event queues, on made-up histories.
#include "soak/event_judge.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

namespace ravlo::test {
namespace {

constexpr std::int64_t kPeriod = 10'000;

/// Two starts with a stop between them, a sample and an event of a client's own in each queue, one after the other.
struct RecordedRun {
    std::vector<Call> calls{
        {Op::ActivateObject, kOk, 1, 2, 0},     {Op::Start, kOk, 3, 4, 0},   {Op::RequestSample, kOk, 5, 6, 0},
        {Op::RequestSample, kOk, 7, 8, 0},      {Op::Stop, kOk, 9, 10, 0},   {Op::SourceQueueEvent, kOk, 11, 12, 0},
        {Op::StreamQueueEvent, kOk, 13, 14, 0}, {Op::Start, kOk, 15, 16, 0}, {Op::RequestSampleNoToken, kOk, 17, 18, 0},
    };
    QueueHistory source{{{EventKind::NewStream, kOk, 0, 30},
                         {EventKind::SourceStarted, kOk, 3, 31},
                         {EventKind::SourceStopped, kOk, 0, 32},
                         {EventKind::Queued, kOk, 11, 33},
                         {EventKind::UpdatedStream, kOk, 0, 34},
                         {EventKind::SourceStarted, kOk, 15, 35}},
                        kNever};
    QueueHistory stream{{{EventKind::StreamStarted, kOk, 0, 40},
                         {EventKind::Sample, kOk, 5, 41, 500'000},
                         {EventKind::Sample, kOk, 7, 42, 520'000},
                         {EventKind::StreamStopped, kOk, 0, 43},
                         {EventKind::Queued, kOk, 13, 44},
                         {EventKind::StreamStarted, kOk, 0, 45},
                         {EventKind::Sample, kOk, 0, 46, 777'777}},
                        kNever};

    Contradictions Judge() const {
        const StateModel model(calls);
        return EventJudge(calls, model, kPeriod).Judge(source, stream);
    }
};

void Erase(QueueHistory& history, std::size_t place) {
    history.events.erase(history.events.begin() + static_cast<std::ptrdiff_t>(place));
}

TEST(EventJudge, ARightRunIsPassed) {
    EXPECT_EQ(RecordedRun().Judge(), Contradictions{});
}

TEST(EventJudge, EveryMissingEventIsFound) {
    for (std::size_t place = 0; place < RecordedRun().source.events.size(); ++place) {
        RecordedRun run;
        Erase(run.source, place);
        EXPECT_FALSE(run.Judge().empty()) << "source " << place;
    }
    for (std::size_t place = 0; place < RecordedRun().stream.events.size(); ++place) {
        RecordedRun run;
        Erase(run.stream, place);
        EXPECT_FALSE(run.Judge().empty()) << "stream " << place;
    }
}

TEST(EventJudge, EveryDoubledEventIsFound) {
    for (std::size_t place = 0; place < RecordedRun().source.events.size(); ++place) {
        RecordedRun run;
        run.source.events.insert(run.source.events.begin() + static_cast<std::ptrdiff_t>(place),
                                 run.source.events[place]);
        EXPECT_FALSE(run.Judge().empty()) << "source " << place;
    }
    for (std::size_t place = 0; place < RecordedRun().stream.events.size(); ++place) {
        RecordedRun run;
        run.stream.events.insert(run.stream.events.begin() + static_cast<std::ptrdiff_t>(place),
                                 run.stream.events[place]);
        EXPECT_FALSE(run.Judge().empty()) << "stream " << place;
    }
}

TEST(EventJudge, EveryTwoSwappedNeighboursAreFound) {
    for (std::size_t place = 1; place < RecordedRun().source.events.size(); ++place) {
        RecordedRun run;
        std::swap(run.source.events[place - 1], run.source.events[place]);
        EXPECT_FALSE(run.Judge().empty()) << "source " << place;
    }
    for (std::size_t place = 1; place < RecordedRun().stream.events.size(); ++place) {
        RecordedRun run;
        std::swap(run.stream.events[place - 1], run.stream.events[place]);
        EXPECT_FALSE(run.Judge().empty()) << "stream " << place;
    }
}

TEST(EventJudge, CallsThatOverlapMayLeaveTheirEventsInEitherOrder) {
    RecordedRun run;
    run.calls[2].end = 8;
    run.calls[3].begin = 7;
    run.calls[3].end = 9;
    run.calls[4].begin = 10;
    run.calls[4].end = 11;
    run.calls[5].begin = 12;
    run.calls[5].end = 13;
    run.calls[6].begin = 14;
    run.calls[6].end = 15;
    run.calls[7].begin = 16;
    run.calls[7].end = 17;
    run.calls[8].begin = 18;
    run.calls[8].end = 19;
    run.source.events[3].maker = 12;
    run.source.events[5].maker = 16;
    run.stream.events[4].maker = 14;
    EXPECT_EQ(run.Judge(), Contradictions{});
    std::swap(run.stream.events[1], run.stream.events[2]);
    EXPECT_EQ(run.Judge(), Contradictions{});
}

TEST(EventJudge, TheFirstStartAnnouncesANewStreamAndLaterOnesAnUpdate) {
    RecordedRun run;
    run.source.events[0].kind = EventKind::UpdatedStream;
    EXPECT_EQ(run.Judge().size(), 1U);
    run = RecordedRun();
    run.source.events[4].kind = EventKind::NewStream;
    EXPECT_EQ(run.Judge().size(), 1U);
}

TEST(EventJudge, AnEventThatNamesNoCallOrAFailedOneIsFound) {
    RecordedRun run;
    run.source.events[3].maker = 99;
    EXPECT_FALSE(run.Judge().empty());
    run = RecordedRun();
    run.stream.events[1].maker = 13;
    EXPECT_FALSE(run.Judge().empty()) << "an event of a client's own is no sample's maker";
    run = RecordedRun();
    run.calls[3].answer = kWrongState;
    EXPECT_FALSE(run.Judge().empty()) << "a request that failed has delivered";
}

TEST(EventJudge, AStatusThatIsNoSuccessIsFound) {
    for (const std::size_t place : {std::size_t{1}, std::size_t{2}}) {
        RecordedRun run;
        run.source.events[place].status = kInvalidArgument;
        EXPECT_FALSE(run.Judge().empty()) << place;
    }
    RecordedRun run;
    run.stream.events[0].status = kInvalidArgument;
    EXPECT_FALSE(run.Judge().empty());
}

TEST(EventJudge, AnEventCannotBeTakenBeforeItsCall) {
    RecordedRun run;
    run.source.events[0].taken = 1;
    run.source.events[1].taken = 2;
    EXPECT_FALSE(run.Judge().empty());
}

TEST(EventJudge, SampleTimesStayOnTheGridAndGrow) {
    RecordedRun run;
    run.stream.events[2].time = 520'001;
    EXPECT_EQ(run.Judge().size(), 1U) << "off the grid";
    run.stream.events[2].time = 500'000;
    EXPECT_EQ(run.Judge().size(), 2U) << "twice, and not later";
    run.stream.events[2].time = 490'000;
    EXPECT_EQ(run.Judge().size(), 1U) << "older";
}

TEST(EventJudge, AnEventOfTheWrongQueueIsFound) {
    RecordedRun run;
    run.source.events[3].kind = EventKind::Sample;
    EXPECT_FALSE(run.Judge().empty());
    run = RecordedRun();
    run.stream.events[4].kind = EventKind::SourceStopped;
    EXPECT_FALSE(run.Judge().empty());
    run = RecordedRun();
    run.stream.events[4].kind = EventKind::Other;
    EXPECT_FALSE(run.Judge().empty());
}

TEST(EventJudge, WhatAShutdownCutOffMayBeMissingButOnlyAtTheEnd) {
    for (std::size_t left = 0; left <= RecordedRun().source.events.size(); ++left) {
        RecordedRun run;
        run.source.completeUntil = run.stream.completeUntil = 0;
        run.source.events.resize(left);
        EXPECT_EQ(run.Judge(), Contradictions{}) << left;
    }
    for (std::size_t left = 0; left <= RecordedRun().stream.events.size(); ++left) {
        RecordedRun run;
        run.source.completeUntil = run.stream.completeUntil = 0;
        run.stream.events.resize(left);
        EXPECT_EQ(run.Judge(), Contradictions{}) << left;
    }
    RecordedRun run;
    run.source.completeUntil = run.stream.completeUntil = 0;
    Erase(run.source, 2);
    EXPECT_FALSE(run.Judge().empty()) << "a stop in the middle is missing";
    run = RecordedRun();
    run.source.completeUntil = run.stream.completeUntil = 0;
    Erase(run.stream, 1);
    EXPECT_FALSE(run.Judge().empty()) << "a sample in the middle is missing";
}

TEST(EventJudge, AStopBeforeTheActivationIsNoneOfTheStreams) {
    RecordedRun run;
    run.calls = {{Op::Stop, kOk, 1, 2, 0},
                 {Op::ActivateObject, kOk, 3, 4, 0},
                 {Op::Start, kOk, 5, 6, 0},
                 {Op::Stop, kOk, 7, 8, 0}};
    run.source.events = {{EventKind::SourceStopped, kOk, 0, 30},
                         {EventKind::NewStream, kOk, 0, 31},
                         {EventKind::SourceStarted, kOk, 5, 32},
                         {EventKind::SourceStopped, kOk, 0, 33}};
    run.stream.events = {{EventKind::StreamStarted, kOk, 0, 40}, {EventKind::StreamStopped, kOk, 0, 41}};
    EXPECT_EQ(run.Judge(), Contradictions{});
    run.stream.events.insert(run.stream.events.begin(), {EventKind::StreamStopped, kOk, 0, 39});
    EXPECT_FALSE(run.Judge().empty());
}

TEST(EventJudge, AStopReachesTheStreamBeforeTheSource) {
    RecordedRun run;
    run.source.events[2].taken = 11;
    run.calls[6].begin = 12;
    run.stream.events[4].maker = 12;
    run.calls[5].begin = 13;
    run.source.events[3].maker = 13;
    run.calls[4].end = 14;  // the stop goes on, but its event has come out of the source
    run.source.events[0].taken = 8;
    run.source.events[1].taken = 9;
    EXPECT_EQ(run.Judge(), Contradictions{});
    std::swap(run.stream.events[3], run.stream.events[4]);
    EXPECT_EQ(run.Judge().size(), 1U) << "an event that came after that stands before the stop";
}

TEST(EventJudge, ASampleStandsBehindAStartUnlessItsRequestMetTheStop) {
    RecordedRun run;
    run.calls = {{Op::ActivateObject, kOk, 1, 2, 0}, {Op::Start, kOk, 3, 9, 0}, {Op::RequestSample, kOk, 6, 7, 1}};
    run.source.events = {{EventKind::NewStream, kOk, 0, 30}, {EventKind::SourceStarted, kOk, 3, 31}};
    run.stream.events = {{EventKind::StreamStarted, kOk, 0, 40}, {EventKind::Sample, kOk, 6, 41}};
    EXPECT_EQ(run.Judge(), Contradictions{});
    std::swap(run.stream.events[0], run.stream.events[1]);
    EXPECT_EQ(run.Judge().size(), 1U);
    run = RecordedRun();
    run.calls[3].end = 9;  // this request and the stop meet
    run.calls[4].begin = 8;
    std::swap(run.stream.events[2], run.stream.events[3]);
    EXPECT_EQ(run.Judge(), Contradictions{});
}

TEST(EventJudge, AStartReachesTheSourceBeforeTheStream) {
    RecordedRun run;
    run.calls = {{Op::ActivateObject, kOk, 1, 2, 0}, {Op::Start, kOk, 3, 9, 0}, {Op::SourceQueueEvent, kOk, 6, 7, 1}};
    run.source.events = {
        {EventKind::NewStream, kOk, 0, 30}, {EventKind::SourceStarted, kOk, 3, 31}, {EventKind::Queued, kOk, 6, 32}};
    run.stream.events = {{EventKind::StreamStarted, kOk, 0, 5}};
    EXPECT_EQ(run.Judge(), Contradictions{});
    std::swap(run.source.events[1], run.source.events[2]);
    EXPECT_EQ(run.Judge().size(), 1U);
}

TEST(EventJudge, AStreamThatNobodySawKeepsItsEvents) {
    RecordedRun run;
    run.calls = {{Op::ActivateObject, kOk, 1, 2, 0}, {Op::Stop, kOk, 3, 4, 0}};
    run.source.events = {{EventKind::SourceStopped, kOk, 0, 30}};
    run.stream = {};
    EXPECT_EQ(run.Judge(), Contradictions{});
    run.stream.completeUntil = kNever;
    EXPECT_EQ(run.Judge().size(), 2U) << "one that was seen and found empty has lost one";
}

TEST(AnonymousEvents, AreTakenByTheCallThatHasLeastTime) {
    // The long stop may lie before or behind the start; only the long one fits behind it.
    const Call start{Op::Start, kOk, 20, 30, 0};
    const Call longStop{Op::Stop, kOk, 1, 100, 1};
    const Call shortStop{Op::Stop, kOk, 10, 11, 2};
    const std::vector<Slot> slots{{nullptr, EventKind::SourceStopped, 200},
                                  {&start, EventKind::SourceStarted, 201},
                                  {nullptr, EventKind::SourceStopped, 202}};
    Contradictions contradictions;
    AnonymousEvents(slots, EventKind::SourceStopped, {&longStop, &shortStop}, {}).Judge("stop", contradictions);
    EXPECT_EQ(contradictions, Contradictions{});
    const Call secondShort{Op::Stop, kOk, 12, 13, 2};
    AnonymousEvents(slots, EventKind::SourceStopped, {&secondShort, &shortStop}, {}).Judge("stop", contradictions);
    EXPECT_EQ(contradictions.size(), 2U) << "nobody for the place behind the start, and no place for one of the two";
}

}  // namespace
}  // namespace ravlo::test
