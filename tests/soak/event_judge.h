// Judges the two event queues of a run against the calls that filled them: which events, how many, in which order.
#pragma once

#include "soak/event_queue.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ravlo::test {

class EventJudge {
public:
    /// `model` is of these calls; `period` is the stream's, 100 ns. Calls and model must outlive the judge.
    EventJudge(const std::vector<Call>& calls, const StateModel& model, std::int64_t period)
        : m_calls(calls), m_model(model), m_period(period) {
        for (const Call& call : calls) {
            m_byBegin[call.begin] = &call;
        }
    }

    /// To be called once.
    Contradictions Judge(const QueueHistory& source, const QueueHistory& stream) {
        ReadSource(source);
        ReadStream(stream);
        CompareTransitions(source.IsComplete() && stream.IsComplete());
        JudgeSource(source);
        JudgeStream(stream);
        return std::move(m_contradictions);
    }

private:
    /// A start or a stop as one queue shows it.
    struct Transition {
        char kind = 0;  ///< S or P
        std::size_t first = 0;
        std::size_t last = 0;  ///< places of its events
    };

    void ReadSource(const QueueHistory& history) {
        std::vector<Slot>& slots = m_sourceSlots;
        SourceProgress progress;
        for (const TakenEvent& event : history.events) {
            slots.push_back({nullptr, event.kind, event.taken});
            if (event.kind == EventKind::Queued) {
                slots.back().maker = MakerOf(event, {Op::SourceQueueEvent});
                continue;
            }
            Expect(!progress.isOver, "a transition follows a start that failed");
            if (event.kind == EventKind::NewStream || event.kind == EventKind::UpdatedStream) {
                TakeAnnouncement(event, slots.size() - 1, progress);
            } else if (event.kind == EventKind::SourceStarted) {
                TakeSourceStarted(event, progress);
            } else if (event.kind == EventKind::SourceStopped) {
                Expect(!progress.open, "a stop falls into a start");
                Expect(event.status == kOk, "MESourceStopped carries " + HexText(event.status));
                m_sourceTransitions.push_back({'P', slots.size() - 1, slots.size() - 1});
            } else {
                Expect(false, "an event came out of the source that is none of its own");
            }
        }
        Expect(!history.IsComplete() || (!progress.open && !progress.isOver), "a start is incomplete");
    }

    void JudgeSource(const QueueHistory& history) {
        JudgeOrder(m_sourceSlots, m_contradictions);
        JudgeMissing(m_sourceSlots, {Op::Start, Op::SourceQueueEvent}, history.completeUntil);
        JudgeAnonymous(m_sourceSlots, EventKind::SourceStopped, {Op::Stop}, "MESourceStopped", history.completeUntil,
                       0);
    }

    /// Where the source's own events have come to.
    struct SourceProgress {
        std::size_t announced = 0;
        std::optional<std::size_t> open;  ///< place of an announcement whose start has not come yet
        bool isOver = false;              ///< a start was cut off by the shutdown
    };

    void TakeAnnouncement(const TakenEvent& event, std::size_t place, SourceProgress& progress) {
        Expect(!progress.open, "a start is announced within another");
        Expect((event.kind == EventKind::NewStream) == (progress.announced == 0),
               "start " + std::to_string(progress.announced) + " is announced by the wrong one of the two events");
        ++progress.announced;
        progress.open = place;
    }

    /// The event names its call, and so says whose the announcement before it was.
    void TakeSourceStarted(const TakenEvent& event, SourceProgress& progress) {
        Expect(progress.open.has_value(), "MESourceStarted comes without its announcement");
        const std::size_t last = m_sourceSlots.size() - 1;
        const Transition transition{'S', progress.open.value_or(last), last};
        const Call* start = nullptr;
        if (event.status == kOk) {
            start = MakerOf(event, {Op::Start});
            m_sourceSlots[transition.first].maker = start;
            m_sourceSlots[transition.last].maker = start;
        } else {
            Expect(event.status == kShutDownAnswer, "MESourceStarted carries " + HexText(event.status));
        }
        m_sourceTransitions.push_back(transition);
        progress.open.reset();
        progress.isOver = event.status != kOk || (start != nullptr && start->answer != kOk);
    }

    void ReadStream(const QueueHistory& history) {
        std::vector<Slot>& slots = m_streamSlots;
        for (const TakenEvent& event : history.events) {
            slots.push_back({nullptr, event.kind, event.taken});
            const std::size_t place = slots.size() - 1;
            if (event.kind == EventKind::StreamStarted) {
                m_streamTransitions.push_back({'S', place, place});
            } else if (event.kind == EventKind::StreamStopped) {
                m_streamTransitions.push_back({'P', place, place});
            } else if (event.kind == EventKind::Sample) {
                slots.back().maker = event.maker != 0 ? MakerOf(event, {Op::RequestSample}) : nullptr;
            } else if (event.kind == EventKind::Queued) {
                slots.back().maker = MakerOf(event, {Op::StreamQueueEvent});
            } else {
                Expect(false, "an event came out of the stream that is none of its own");
            }
            Expect(event.kind == EventKind::Queued || event.status == kOk,
                   "an event of the stream carries " + HexText(event.status));
        }
    }

    void JudgeStream(const QueueHistory& history) {
        JudgeOrder(m_streamSlots, m_contradictions);
        JudgeMissing(m_streamSlots, {Op::RequestSample, Op::StreamQueueEvent}, history.completeUntil);
        JudgeAnonymous(m_streamSlots, EventKind::Sample, {Op::RequestSampleNoToken}, "MEMediaSample without a token",
                       history.completeUntil, 0);
        // A stop before the activation had no stream to stop.
        JudgeAnonymous(m_streamSlots, EventKind::StreamStopped, {Op::Stop}, "MEStreamStopped", history.completeUntil,
                       m_model.Activation().Latest());
        JudgeStoppedSamples();
        JudgeTimes(history);
    }

    /// The stream goes through the transitions of the source, but for the stops before there was a stream; and what of
    /// one transition came out of one queue tells what must have been in the other by then.
    void CompareTransitions(bool isComplete) {
        std::size_t surely = 0;
        std::size_t possibly = 0;
        for (const Call& call : m_calls) {
            if (call.op == Op::Stop && call.answer == kOk) {
                surely += call.end < m_model.Activation().Earliest() ? 1 : 0;
                possibly += call.begin < m_model.Activation().Latest() ? 1 : 0;
            }
        }
        const std::string source = Kinds(m_sourceTransitions);
        const std::string stream = Kinds(m_streamTransitions);
        const std::size_t leading = std::min(source.find_first_not_of('P'), source.size());
        bool fits = false;
        for (std::size_t skipped = std::min(surely, leading); skipped <= std::min(possibly, leading); ++skipped) {
            const std::string expected = source.substr(skipped);
            const std::size_t common = std::min(expected.size(), stream.size());
            fits = fits || (isComplete ? expected == stream : expected.compare(0, common, stream, 0, common) == 0);
        }
        Expect(fits, "source and stream went through different transitions: " + source + " and " + stream);
        if (fits && std::min(surely, leading) == std::min(possibly, leading)) {
            Relate(std::min(surely, leading));
        }
    }

    /// A stop reaches the stream's queue before the source's, a start the source's before the stream's.
    void Relate(std::size_t skipped) {
        for (std::size_t i = 0; i < m_streamTransitions.size() && i + skipped < m_sourceTransitions.size(); ++i) {
            const Transition& ofSource = m_sourceTransitions[i + skipped];
            Slot& ofStream = m_streamSlots[m_streamTransitions[i].last];
            if (ofSource.kind == 'P') {
                ofStream.present = m_sourceSlots[ofSource.last].taken;
                continue;
            }
            ofStream.maker = m_sourceSlots[ofSource.last].maker;
            for (const std::size_t place : {ofSource.first, ofSource.last}) {
                m_sourceSlots[place].present = ofStream.taken;
            }
        }
    }

    static std::string Kinds(const std::vector<Transition>& transitions) {
        std::string kinds;
        for (const Transition& transition : transitions) {
            kinds += transition.kind;
        }
        return kinds;
    }

    /// The call that an event names. It must be one of `ops`, must not have failed for another reason than the
    /// shutdown, and must not have made another event.
    const Call* MakerOf(const TakenEvent& event, std::set<Op> ops) {
        const auto found = m_byBegin.find(event.maker);
        if (found == m_byBegin.end() || ops.count(found->second->op) == 0) {
            Expect(false, "an event names a call that nobody made: " + std::to_string(event.maker));
            return nullptr;
        }
        const Call* const call = found->second;
        Expect(call->answer == kOk || (call->answer == kShutDownAnswer && call->op == Op::Start),
               "an event came of " + Describe(*call));
        Expect(m_seen.insert(call).second, "two events came of " + Describe(*call));
        return call;
    }

    /// Whoever succeeded and ended before this moment has certainly left an event among those that are there: the
    /// latest moment at which a call began whose event is there, or more when nothing is missing.
    static Stamp KnownUntil(const std::vector<Slot>& slots, Stamp completeUntil) {
        Stamp latest = completeUntil;
        for (const Slot& slot : slots) {
            latest = slot.maker != nullptr ? std::max(latest, slot.maker->begin) : latest;
        }
        return latest;
    }

    void JudgeMissing(const std::vector<Slot>& slots, std::set<Op> ops, Stamp completeUntil) {
        const Stamp known = KnownUntil(slots, completeUntil);
        for (const Call& call : m_calls) {
            if (ops.count(call.op) != 0 && call.answer == kOk && call.end < known && m_seen.count(&call) == 0) {
                m_contradictions.push_back("no event came of " + Describe(call));
            }
        }
    }

    /// A call that began before `optionalUntil` need not have left an event.
    void JudgeAnonymous(const std::vector<Slot>& slots, EventKind kind, std::set<Op> ops, const char* name,
                        Stamp completeUntil, Stamp optionalUntil) {
        const Stamp known = KnownUntil(slots, completeUntil);
        std::vector<const Call*> must;
        std::vector<const Call*> may;
        for (const Call& call : m_calls) {
            if (ops.count(call.op) == 0 || (call.answer != kOk && call.answer != kShutDownAnswer)) {
                continue;
            }
            const bool mustAppear = call.answer == kOk && call.end < known && call.begin >= optionalUntil;
            (mustAppear ? must : may).push_back(&call);
        }
        AnonymousEvents(slots, kind, std::move(must), std::move(may)).Judge(name, m_contradictions);
    }

    /// No sample comes of a stream that is not started, but one whose request met the stop may come behind it.
    void JudgeStoppedSamples() {
        bool isStarted = false;
        for (const Slot& slot : m_streamSlots) {
            if (slot.kind == EventKind::StreamStarted || slot.kind == EventKind::StreamStopped) {
                isStarted = slot.kind == EventKind::StreamStarted;
            }
            if (slot.kind == EventKind::Sample && slot.maker != nullptr && !isStarted) {
                Expect(Met(*slot.maker, {Op::Stop}), "behind no start stands the sample of " + Describe(*slot.maker));
            }
        }
    }

    /// Within one start, sample times lie on one grid, none comes twice, and a later request gets a later one. Only
    /// requests that met no transition are looked at: others may deliver into the next start.
    void JudgeTimes(const QueueHistory& history) {
        const std::vector<Slot>& slots = m_streamSlots;
        std::map<std::size_t, std::vector<std::pair<const Call*, std::int64_t>>> starts;
        std::size_t start = 0;
        for (std::size_t i = 0; i < slots.size(); ++i) {
            start += slots[i].kind == EventKind::StreamStarted ? 1 : 0;
            if (slots[i].kind == EventKind::Sample && slots[i].maker != nullptr &&
                !Met(*slots[i].maker, {Op::Start, Op::Stop})) {
                starts[start].push_back({slots[i].maker, history.events[i].time});
            }
        }
        for (const auto& [number, samples] : starts) {
            std::set<std::int64_t> times;
            for (const auto& [call, time] : samples) {
                Expect((time - samples.front().second) % m_period == 0,
                       "off the grid: the sample of " + Describe(*call));
                Expect(times.insert(time).second, "a second sample of one time: that of " + Describe(*call));
                for (const auto& [other, otherTime] : samples) {
                    Expect(!EndedBefore(*other, *call) || otherTime < time,
                           "the sample of " + Describe(*call) + " is older than that of " + Describe(*other));
                }
            }
        }
    }

    bool Met(const Call& call, std::set<Op> ops) const {
        return std::any_of(m_calls.begin(), m_calls.end(),
                           [&](const Call& other) { return ops.count(other.op) != 0 && Overlap(other, call); });
    }

    void Expect(bool good, const std::string& complaint) {
        if (!good) {
            m_contradictions.push_back(complaint);
        }
    }

    const std::vector<Call>& m_calls;
    const StateModel& m_model;
    const std::int64_t m_period;
    std::map<Stamp, const Call*> m_byBegin;
    std::set<const Call*> m_seen;  ///< calls whose event has been found
    std::vector<Slot> m_sourceSlots;
    std::vector<Slot> m_streamSlots;
    std::vector<Transition> m_sourceTransitions;
    std::vector<Transition> m_streamTransitions;
    Contradictions m_contradictions;
};

}  // namespace ravlo::test
