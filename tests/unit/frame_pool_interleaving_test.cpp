// Before anything else: brings the pool's source in, and may not meet the pool's header.
#include "unit/interleaving/pool_walk.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <string>
#include <vector>

// Every order in which the steps of one writer and one reader can come, for a few frames. The steps are those of the
// pool's real source: it is compiled here a second time over atomics, and a copy of four bytes at a time, that hand
// each access to a Stepper. A reader changes nothing but counters (Broken::Meddled tells when that ends), so
//  - the writer's steps are the same in every order: they are taken down once, from the code running alone,
//  - the reader's code is run again and again against them, with every choice of how far the writer is at each of the
//    reader's steps (where it sees the same, once for all such choices),
//  - and what holds for one reader holds for any number.
//
// Model::Orders is one order that all agree on. It holds everything that x86-64 can do: there a processor only delays
// its own stores, in their order, and the reader has none while the writer reads nothing of the reader's. What the
// compiler and other processors may do is in Model::Weak as far as the reader sees it: old values wherever the language
// allows them. Not in either: a store of the writer that becomes visible before an older read-modify-write of the
// writer's own. The language forbids it by the acquire in that step; that the order is needed is shown below by moving
// steps across each other. Bytes of one word never mix.
namespace ravlo::interleaving {
namespace {

using Kind = Action::Kind;

const Action kFirst{Kind::Publish, kNow - 900, kFrameWords};
const Action kSecond{Kind::Publish, kNow - 500, kFrameWords};
const Action kThird{Kind::Publish, kNow - 100, kFrameWords};
const Action kShort{Kind::Publish, kNow - 950, 2};
const Action kShortThird{Kind::Publish, kNow - 100, 2};
const Action kTooOld{Kind::Publish, kNow - kFreshness - 1, kFrameWords};
const Action kJustFresh{Kind::Publish, kNow - kFreshness, kFrameWords};
const Action kRefused{Kind::Refused};
const Action kReset{Kind::Reset};

const Scenario kServeTwice{{kFirst, kSecond, kThird}, {Call::Serve, Call::Serve}};
/// In which every kind of step occurs.
const Scenario kServeTwiceAmongOthers{{kShort, kRefused, kSecond, kThird}, {Call::Serve, Call::Serve}};

const Scenario kServeTwiceThenShort{{kFirst, kSecond, kShortThird}, {Call::Serve, Call::Serve}, false};

const Step kOddIncrement{Role::Sequence, 1};
const Step kEvenIncrement{Role::Sequence, 2};
const Step kLook{Role::Sequence, 1};
const Step kConfirm{Role::Sequence, 2};
const Step kPublication{Role::Published, 1};
const Step kLookAtPublished{Role::Published, 1};
const Step kLength{Role::Length, 1};
const Step kStamp{Role::Stamp, 1};
const Step kIndex{Role::WriteIndex, 1};

Step Word(int nth) {
    return {Role::Word, nth};
}

/// Ends a walk that a mistake has made endless.
constexpr std::uint64_t kMostSchedules = 1'000'000;

Outcome Walk(const Scenario& scenario, Model model, const Fault& fault = {}, std::optional<Broken> until = {}) {
    const Outcome outcome = PoolWalk(scenario, model, fault).Run(kMostSchedules, until);
    EXPECT_LT(outcome.schedules, kMostSchedules);
    return outcome;
}

void ExpectNothingBroken(const Outcome& outcome, const std::string& what) {
    for (std::size_t kind = 0; kind < outcome.broken.size(); ++kind) {
        EXPECT_EQ(outcome.broken[kind], 0U) << what << " broke first: " << outcome.firstBroken;
    }
    std::cout << what << ": " << outcome.schedules << " schedules";
    if (outcome.orders != outcome.schedules) {
        std::cout << " for " << outcome.orders << " orders";
    }
    std::cout << '\n';
}

void ExpectCaught(const Scenario& scenario, Model model, const Fault& fault, Broken kind, const std::string& what) {
    EXPECT_NE(Walk(scenario, model, fault, kind).Of(kind), 0U) << what << " did not show as " << NameOf(kind);
}

Fault Lost(std::vector<Step> steps, int frame = 0) {
    Fault fault;
    fault.lost = std::move(steps);
    fault.lostInFrame = frame;
    return fault;
}

Fault Moved(const Step& step, bool later, const Step& past) {
    Fault fault;
    fault.moved = Move{step, later, past};
    return fault;
}

Fault OfRead(const Step& step, ReadFault kind) {
    Fault fault;
    fault.ofRead = FaultyRead{step, kind};
    return fault;
}

std::vector<std::string> SortedNames(const std::vector<Step>& steps) {
    std::vector<std::string> names;
    for (const Step& step : steps) {
        names.push_back(NameOf(step));
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

TEST(FramePoolInterleaving, TheStepsAreThoseThatAreLostAndMovedBelow) {
    const Outcome outcome = Walk(kServeTwiceAmongOthers, Model::Orders);
    EXPECT_EQ(SortedNames(outcome.publishSteps),
              (std::vector<std::string>{"length#1", "published#1", "refusedPublishes#1", "sequence#1", "sequence#2",
                                        "stamp#1", "word#1", "word#2", "word#3"}));
    EXPECT_EQ(SortedNames(outcome.readSteps),
              (std::vector<std::string>{"length#1", "published#1", "sequence#1", "sequence#2", "stamp#1", "tornReads#1",
                                        "word#1", "word#2", "word#3", "wrongLengthFrames#1"}));
    EXPECT_EQ(g_initialValues.size(), static_cast<std::size_t>(kAtomics));
}

TEST(FramePoolInterleaving, NoOrderIsLeftOut) {
    const Scenario peek{{kFirst, kSecond}, {Call::Peek}};
    const Scenario consume{{kFirst, kSecond}, {Call::Consume}};
    const Scenario serve{{kFirst, kReset}, {Call::Serve}, false};
    for (const Scenario& scenario : {peek, consume, serve}) {
        const Outcome everyOrder = Walk(scenario, Model::EveryOrder);
        ExpectNothingBroken(everyOrder, "each order for itself");
        EXPECT_EQ(Walk(scenario, Model::Orders).orders, everyOrder.schedules);
        EXPECT_GT(everyOrder.schedules, 100U);
    }
}

TEST(FramePoolInterleaving, EveryOrderOfThreeFramesAndOneReaderKeepsEveryPromise) {
    const std::vector<Action> frames{kFirst, kSecond, kThird};
    ExpectNothingBroken(Walk({frames, {Call::Peek}}, Model::Orders), "peek");
    ExpectNothingBroken(Walk({frames, {Call::Consume}}, Model::Orders), "consume");
    ExpectNothingBroken(Walk({frames, {Call::Consume, Call::Consume, Call::Consume}}, Model::Orders), "consume x 3");
    const Outcome outcome = Walk({frames, {Call::Serve, Call::Serve, Call::Serve}}, Model::Orders);
    ExpectNothingBroken(outcome, "peek and consume x 3");
    EXPECT_GT(outcome.orders, 1'000'000'000'000U);
    EXPECT_GT(outcome.full, 0U);
    EXPECT_GT(outcome.empty, 0U) << "a first call may come before the first frame";
    EXPECT_EQ(outcome.mostTorn, 1);
    RecordProperty("schedules", std::to_string(outcome.schedules));
    RecordProperty("orders", std::to_string(outcome.orders));
}

TEST(FramePoolInterleaving, EveryOrderWithRefusedShortStaleAndWithdrawnFramesKeepsEveryPromise) {
    const std::vector<Call> twice{Call::Serve, Call::Serve};
    ExpectNothingBroken(Walk(kServeTwiceAmongOthers, Model::Orders), "short, refused");
    ExpectNothingBroken(Walk({{kFirst, kShort, kThird}, twice, false}, Model::Orders), "short in between");
    ExpectNothingBroken(Walk({{kTooOld, kJustFresh, kThird}, twice}, Model::Orders), "stale");
    ExpectNothingBroken(Walk({{kFirst, kSecond, kReset, kThird}, twice, false}, Model::Orders), "reset");
    ExpectNothingBroken(Walk({{kFirst, kSecond, kReset}, twice, false}, Model::Orders), "reset at the end");
}

TEST(FramePoolInterleaving, OldValuesWhereTheLanguageAllowsThemBreakNoPromise) {
    const std::vector<Call> twice{Call::Serve, Call::Serve};
    const Outcome outcome = Walk({kServeTwice.writer, {Call::Serve, Call::Serve, Call::Serve}}, Model::Weak);
    ExpectNothingBroken(outcome, "weak, peek and consume x 3");
    EXPECT_GT(outcome.schedules, Walk(kServeTwice, Model::Orders).schedules);
    ExpectNothingBroken(Walk(kServeTwiceAmongOthers, Model::Weak), "weak, short, refused");
    ExpectNothingBroken(Walk({{kTooOld, kJustFresh, kThird}, twice}, Model::Weak), "weak, stale");
    ExpectNothingBroken(Walk({{kFirst, kSecond, kReset, kThird}, twice, false}, Model::Weak), "weak, reset");
}

TEST(FramePoolInterleaving, FourFramesNeverDefeatThreeAttemptsAndFiveCan) {
    const Action fourth{Kind::Publish, kNow - 50, kFrameWords};
    const Action fifth{Kind::Publish, kNow - 20, kFrameWords};
    ExpectNothingBroken(Walk({{kFirst, kSecond, kThird, fourth}, {Call::Serve}}, Model::Orders), "four frames");
    const std::vector<Action> five{kFirst, kSecond, kThird, fourth, fifth};
    for (const Call call : {Call::Peek, Call::Consume}) {
        const Outcome outcome = Walk({five, {call}}, Model::Orders);
        EXPECT_NE(outcome.Of(Broken::Missed), 0U);
        EXPECT_EQ(outcome.mostTorn, 3) << "and after the third it ends";
        // Giving up is all that happens then, and only to a reader that the writer overran.
        ExpectNothingBroken(Walk({five, {call}, false}, Model::Orders), "five frames");
    }
}

TEST(FramePoolInterleaving, ALostStepOfThePublishIsCaught) {
    const struct {
        Step step;
        Broken kind;
    } steps[] = {
        {kOddIncrement, Broken::Missed},  // odd for ever
        {Word(1), Broken::Torn},
        {Word(2), Broken::Torn},
        {Word(3), Broken::Torn},
        {kLength, Broken::Missed},
        {kStamp, Broken::Missed},  // a stamp of 0 is stale
        {kEvenIncrement, Broken::Missed},
        {kPublication, Broken::Missed},
        {kIndex, Broken::Missed},  // the published slot is written again
        {{Role::RefusedPublishes, 1}, Broken::Miscounted},
    };
    for (const auto& [step, kind] : steps) {
        ExpectCaught(kServeTwiceAmongOthers, Model::Orders, Lost({step}), kind, NameOf(step));
    }
    // Both increments, so that the slot looks at rest all the time: what they are there for.
    ExpectCaught(kServeTwice, Model::Orders, Lost({kOddIncrement, kEvenIncrement}), Broken::Torn, "both increments");
}

TEST(FramePoolInterleaving, AStepThatOnePublishAloneLosesIsCaught) {
    // The third frame goes over the first, so what it does not write is still the first one's.
    const struct {
        Step step;
        Broken ofFirst;
        Broken ofThird;
    } steps[] = {
        {kOddIncrement, Broken::Missed, Broken::Missed},
        {Word(1), Broken::Torn, Broken::Torn},
        {Word(2), Broken::Torn, Broken::Torn},
        {Word(3), Broken::Torn, Broken::Torn},
        {kLength, Broken::Missed, Broken::Torn},
        {kStamp, Broken::Missed, Broken::Older},
        {kEvenIncrement, Broken::Missed, Broken::Missed},
        {kPublication, Broken::Missed, Broken::Older},
    };
    for (const auto& [step, ofFirst, ofThird] : steps) {
        const Scenario& scenario = step == kLength ? kServeTwiceThenShort : kServeTwice;
        ExpectCaught(scenario, Model::Orders, Lost({step}, 1), ofFirst, NameOf(step) + " of the first");
        ExpectCaught(scenario, Model::Orders, Lost({step}, 3), ofThird, NameOf(step) + " of the third");
    }
}

TEST(FramePoolInterleaving, AMovedStepOfThePublishIsCaught) {
    for (const Step& step : {Word(1), Word(2), Word(3)}) {
        ExpectCaught(kServeTwice, Model::Orders, Moved(step, false, kOddIncrement), Broken::Torn, "early");
        ExpectCaught(kServeTwice, Model::Orders, Moved(step, true, kEvenIncrement), Broken::Torn, "late");
    }
    ExpectCaught(kServeTwice, Model::Orders, Moved(kStamp, false, kOddIncrement), Broken::Unfinished, "early stamp");
    ExpectCaught(kServeTwice, Model::Orders, Moved(kStamp, true, kEvenIncrement), Broken::Unfinished, "late stamp");
    ExpectCaught(kServeTwiceAmongOthers, Model::Orders, Moved(kLength, false, kOddIncrement), Broken::Torn,
                 "early length");
    ExpectCaught(kServeTwiceThenShort, Model::Orders, Moved(kLength, true, kEvenIncrement), Broken::Torn,
                 "late length");
    // A reader that meets a published slot at work finds nothing while the writer rests.
    ExpectCaught(kServeTwice, Model::Orders, Moved(kPublication, false, kEvenIncrement), Broken::Missed,
                 "publication before the even increment");
    ExpectCaught(kServeTwice, Model::Orders, Moved(kPublication, true, kOddIncrement), Broken::Missed,
                 "publication after the next odd increment");
}

TEST(FramePoolInterleaving, TheOrderBetweenTheTwoIncrementsIsFree) {
    // Words, length and stamp are written under the odd sequence, and nobody looks at them until it is even.
    const struct {
        Step step;
        Step past;
    } moves[] = {{Word(1), Word(2)}, {Word(1), kStamp}, {Word(3), kLength}, {kLength, kStamp}};
    for (const auto& [step, past] : moves) {
        ExpectNothingBroken(Walk(kServeTwice, Model::Orders, Moved(step, true, past)),
                            NameOf(step) + " behind " + NameOf(past));
    }
}

TEST(FramePoolInterleaving, ALostStepOfTheReadIsCaught) {
    const struct {
        Step step;
        Broken kind;
    } steps[] = {
        {kLookAtPublished, Broken::Missed},  // as if nothing were published
        {kLook, Broken::Missed},             // as if the slot were untouched
        {kStamp, Broken::Missed},            // a stamp of 0 is stale
        {kLength, Broken::Missed},
        {Word(1), Broken::Torn},
        {Word(2), Broken::Torn},
        {Word(3), Broken::Torn},
        {kConfirm, Broken::Torn},  // as if it had not changed
        {{Role::TornReads, 1}, Broken::Miscounted},
    };
    for (const auto& [step, kind] : steps) {
        ExpectCaught(kServeTwice, Model::Orders, OfRead(step, ReadFault::Lost), kind, NameOf(step));
    }
    const Step wrongLength{Role::WrongLengthFrames, 1};
    ExpectCaught(kServeTwiceAmongOthers, Model::Orders, OfRead(wrongLength, ReadFault::Lost), Broken::Miscounted,
                 NameOf(wrongLength));
}

TEST(FramePoolInterleaving, APeekNeedsItsConfirmationUnlessTheStampIsWrittenLast) {
    // The one loss that nothing shows: whoever reads a new stamp, which the writer writes last, finds the rest there.
    const Scenario peek{{kFirst, kSecond, kThird}, {Call::Peek}};
    Fault fault = OfRead(kConfirm, ReadFault::Lost);
    ExpectNothingBroken(Walk(peek, Model::Orders, fault), "a peek without confirmation");
    fault.moved = Move{kLength, true, kStamp};
    ExpectCaught(peek, Model::Orders, fault, Broken::Unfinished, "a peek without confirmation, stamp before length");
    fault.ofRead.reset();
    ExpectNothingBroken(Walk(peek, Model::Orders, fault), "a peek, stamp before length");
}

TEST(FramePoolInterleaving, AReadThatKeepsItsFirstAnswerIsCaught) {
    const struct {
        Step step;
        Broken kind;
    } steps[] = {
        {kLookAtPublished, Broken::Older}, {kLook, Broken::Missed}, {kStamp, Broken::Older}, {kLength, Broken::Missed},
        {Word(1), Broken::Torn},           {Word(2), Broken::Torn}, {Word(3), Broken::Torn}, {kConfirm, Broken::Missed},
    };
    for (const auto& [step, kind] : steps) {
        ExpectCaught(kServeTwiceAmongOthers, Model::Orders, OfRead(step, ReadFault::Stale), kind, NameOf(step));
    }
}

TEST(FramePoolInterleaving, AnOrderingThatIsNotAskedForIsCaughtWhereItIsNeeded) {
    Fault unordered;
    unordered.unordered = kEvenIncrement;
    ExpectCaught(kServeTwice, Model::Weak, unordered, Broken::Torn, "the even increment without release");
    ExpectCaught(kServeTwice, Model::Weak, OfRead(kLook, ReadFault::Relaxed), Broken::Torn, "the look without acquire");
    ExpectCaught(kServeTwice, Model::Weak, OfRead(kConfirm, ReadFault::Load), Broken::Torn,
                 "the confirmation as a load");
}

TEST(FramePoolInterleaving, OrderingsThatAreNotNeededBesideTheOthers) {
    // The look at the sequence acquires all of the frame, and what an odd sequence would release is never used.
    for (const Step& step : {kPublication, kOddIncrement}) {
        Fault unordered;
        unordered.unordered = step;
        ExpectNothingBroken(Walk(kServeTwice, Model::Weak, unordered), NameOf(step) + " without release");
    }
    // Neither look is followed by anything that it would have to hold back: only the confirmation must be more than a
    // load.
    ExpectNothingBroken(Walk(kServeTwice, Model::Weak, OfRead(kLookAtPublished, ReadFault::Load)),
                        "the look at what is published as a load");
    ExpectNothingBroken(Walk(kServeTwice, Model::Weak, OfRead(kLook, ReadFault::Load)), "the look as a load");
}

}  // namespace
}  // namespace ravlo::interleaving
