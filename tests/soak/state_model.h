// Judges the answers of calls that ran side by side: for each there must be a state that was possible while it ran and
// in which the table gives that answer, and what all of them saw must fit one course of events.
//
// Activation and shutdown happen once, so every call that saw the old state or the new one bounds the moment: not
// before the begin of who still saw the old state, not after the end of who saw the new one. Calls are consistent with
// a single moment exactly when the bounds leave one. Starts and stops come and go; what they leave possible is told by
// those that ended before a call and those that overlapped it.
#pragma once

#include "soak/call_record.h"

#include <algorithm>
#include <array>
#include <map>
#include <string>
#include <vector>

namespace ravlo::test {

using Contradictions = std::vector<std::string>;

/// A change that happens at most once, at a moment of which only bounds are known.
class OneWayChange {
public:
    /// `witness` is the call that tells it; null when it follows from nobody having done it.
    void NotBefore(Stamp stamp, const Call* witness) {
        if (stamp > m_earliest) {
            m_earliest = stamp;
            m_early = witness;
        }
    }
    void NotAfter(Stamp stamp, const Call* witness) {
        if (stamp < m_latest) {
            m_latest = stamp;
            m_late = witness;
        }
    }
    /// This change comes after `earlier`.
    void Follows(OneWayChange& earlier) {
        NotBefore(earlier.m_earliest, earlier.m_early);
        earlier.NotAfter(m_latest, m_late);
    }

    Stamp Earliest() const { return m_earliest; }
    Stamp Latest() const { return m_latest; }
    bool MayBeSeenBy(const Call& call) const { return call.end > m_earliest; }
    bool MayBeMissedBy(const Call& call) const { return call.begin < m_latest; }

    void Judge(const char* name, Contradictions& contradictions) const {
        if (m_earliest >= m_latest) {
            contradictions.push_back(std::string("no moment is left for ") + name + ": not yet for " +
                                     Witness(m_early) + ", done for " + Witness(m_late));
        }
    }

private:
    static std::string Witness(const Call* call) { return call != nullptr ? Describe(*call) : "anyone"; }

    Stamp m_earliest = 0;
    Stamp m_latest = kNever;
    const Call* m_early = nullptr;
    const Call* m_late = nullptr;
};

/// The states that were possible while a call ran.
class StateSet {
public:
    void Add(State state) { m_bits |= 1U << static_cast<unsigned>(state); }
    bool Has(State state) const { return (m_bits >> static_cast<unsigned>(state) & 1U) != 0; }
    bool IsOne() const { return m_bits != 0 && (m_bits & (m_bits - 1)) == 0; }
    bool IsEmpty() const { return m_bits == 0; }
    std::string Text() const {
        std::string text;
        for (std::size_t i = 0; i < kStateCount; ++i) {
            if (Has(static_cast<State>(i))) {
                text += (text.empty() ? "" : ", ") + std::string(kStateNames[i]);
            }
        }
        return text;
    }

private:
    unsigned m_bits = 0;
};

/// What a run exercised: how often each method was called in a state that nothing left in doubt, and what it answered.
struct Coverage {
    std::array<std::array<std::uint64_t, kStateCount>, kOpCount> hits{};
    std::array<std::map<Answer, std::uint64_t>, kOpCount> answers;
    std::uint64_t calls = 0;
};

class StateModel {
public:
    /// `calls` in any order; they must outlive the model. A run that never shut the source down is fine.
    explicit StateModel(const std::vector<Call>& calls) : m_calls(calls) {
        CollectTransitions();
        BoundActivation();
        BoundShutdown();
        for (const Call& call : calls) {
            TakeEvidence(call);
        }
        m_streamDown.Follows(m_sourceDown);
    }

    const OneWayChange& Activation() const { return m_activation; }

    /// The states that the call may have found; what it does itself comes after.
    StateSet PossibleStates(const Call& call) const {
        const bool ofStream = RowOf(call.op).object == Object::Stream;
        const OneWayChange& down = ofStream ? m_streamDown : m_sourceDown;
        StateSet states;
        if (down.MayBeMissedBy(call) && !WasDoneBefore(m_shutdowns, call)) {
            if (!ofStream && m_activation.MayBeMissedBy(call) && !WasDoneBefore(m_activators, call)) {
                states.Add(State::NotActivated);
            }
            if (m_activation.MayBeSeenBy(call) && MayBeDoneBy(m_activators, call)) {
                if (MayBeStarted(call)) {
                    states.Add(State::Started);
                }
                if (!IsSurelyStarted(call)) {
                    states.Add(State::Stopped);
                }
            }
        }
        if (down.MayBeSeenBy(call) && MayBeDoneBy(m_shutdowns, call)) {
            states.Add(State::ShutDown);
        }
        return states;
    }

    /// What is wrong with the calls; nothing for a run as it should be. Adds what it saw to `coverage`.
    Contradictions Judge(Coverage& coverage) const {
        Contradictions contradictions;
        m_activation.Judge("the activation", contradictions);
        m_sourceDown.Judge("the shutdown of the source", contradictions);
        m_streamDown.Judge("the shutdown of the stream", contradictions);
        for (const Call& call : m_calls) {
            JudgeCall(call, coverage, contradictions);
        }
        return contradictions;
    }

private:
    void CollectTransitions() {
        for (const Call& call : m_calls) {
            if (call.op == Op::Start && call.answer == kOk) {
                m_starts.push_back(&call);
            } else if ((call.op == Op::Start && call.answer == kShutDownAnswer) || call.op == Op::Stop) {
                // A start that the shutdown cut off has stopped the stream before, and never started it.
                m_stops.push_back(&call);
            } else if (call.op == Op::ActivateObject || call.op == Op::ActivateStranger) {
                m_activators.push_back(&call);
            } else if (call.op == Op::Shutdown) {
                m_shutdowns.push_back(&call);
            }
        }
        // The first end of a stop that certainly came behind a start: from there on that start keeps nothing started.
        for (const Call* start : m_starts) {
            Stamp ended = kNever;
            for (const Call* stop : m_stops) {
                if (stop->answer == kOk && EndedBefore(*start, *stop)) {
                    ended = std::min(ended, stop->end);
                }
            }
            m_startEnded.push_back(ended);
        }
    }

    void BoundActivation() {
        for (const Call* call : m_activators) {
            if (call->answer == kOk || call->answer == kNoInterface) {
                m_activation.NotAfter(call->end, call);
            }
        }
        NotBeforeFirst(m_activation, m_activators);
    }

    void BoundShutdown() {
        for (const Call* call : m_shutdowns) {
            // A repeat returns at once, but only behind the state change of the call that it repeats.
            m_sourceDown.NotAfter(call->end, call);
        }
        NotBeforeFirst(m_sourceDown, m_shutdowns);
        // The call that did the work is one of those that began before the state was certainly changed; the stream
        // is down when the last of them returns.
        const Call* last = nullptr;
        for (const Call* call : m_shutdowns) {
            if (call->begin < m_sourceDown.Latest() && (last == nullptr || call->end > last->end)) {
                last = call;
            }
        }
        if (last != nullptr) {
            m_streamDown.NotAfter(last->end, last);
        }
        NotBeforeFirst(m_streamDown, m_shutdowns);
    }

    /// For a call that may have made the change itself: whether another had made it before.
    static bool WasDoneBefore(const std::vector<const Call*>& makers, const Call& call) {
        return IsIn(makers, call) && std::any_of(makers.begin(), makers.end(), [&](const Call* maker) {
                   return maker->answer != kShutDownAnswer && EndedBefore(*maker, call);
               });
    }
    /// Whether anybody but the call itself may have made the change before the call looked.
    static bool MayBeDoneBy(const std::vector<const Call*>& makers, const Call& call) {
        return !IsIn(makers, call) || std::any_of(makers.begin(), makers.end(), [&](const Call* maker) {
            return maker != &call && maker->begin < call.end;
        });
    }
    static bool IsIn(const std::vector<const Call*>& calls, const Call& call) {
        return std::find(calls.begin(), calls.end(), &call) != calls.end();
    }

    /// Nothing changes before the first call that could change it; without one it never changes.
    static void NotBeforeFirst(OneWayChange& change, const std::vector<const Call*>& makers) {
        const auto first = std::min_element(makers.begin(), makers.end(),
                                            [](const Call* a, const Call* b) { return a->begin < b->begin; });
        if (first != makers.end()) {
            change.NotBefore((*first)->begin, *first);
        } else {
            change.NotBefore(kNever - 1, nullptr);
        }
    }

    /// What the answer itself tells: which changes the call must have seen, which it cannot have seen.
    void TakeEvidence(const Call& call) {
        const Row& row = RowOf(call.op);
        OneWayChange& down = row.object == Object::Stream ? m_streamDown : m_sourceDown;
        const bool beforeActivation = row.Allows(State::NotActivated, call.answer);
        const bool whileActive = row.Allows(State::Stopped, call.answer) || row.Allows(State::Started, call.answer);
        const bool whenDown = row.Allows(State::ShutDown, call.answer);
        const bool whileLive = beforeActivation || whileActive;
        if (whileLive && !whenDown) {
            down.NotBefore(call.begin, &call);
        }
        if (whenDown && !whileLive) {
            down.NotAfter(call.end, &call);
        }
        if (row.object == Object::Source && !whenDown) {
            if (beforeActivation && !whileActive) {
                m_activation.NotBefore(call.begin, &call);
            }
            if (whileActive && !beforeActivation) {
                m_activation.NotAfter(call.end, &call);
            }
        }
    }

    bool MayBeStarted(const Call& call) const {
        for (std::size_t i = 0; i < m_starts.size(); ++i) {
            if (m_starts[i] != &call && m_starts[i]->begin < call.end && m_startEnded[i] > call.begin) {
                return true;
            }
        }
        return false;
    }

    /// A restart passes through stopped, so a start that overlaps the call leaves it in doubt like a stop.
    bool IsSurelyStarted(const Call& call) const {
        const Call* last = nullptr;
        for (const Call* start : m_starts) {
            if (start == &call) {
                continue;
            }
            if (Overlap(*start, call)) {
                return false;
            }
            if (EndedBefore(*start, call) && (last == nullptr || start->begin > last->begin)) {
                last = start;
            }
        }
        return last != nullptr && std::none_of(m_stops.begin(), m_stops.end(), [&](const Call* stop) {
                   return stop != &call && stop->end > last->begin && stop->begin < call.end;
               });
    }

    void JudgeCall(const Call& call, Coverage& coverage, Contradictions& contradictions) const {
        const auto op = static_cast<std::size_t>(call.op);
        const Row& row = RowOf(call.op);
        const StateSet states = PossibleStates(call);
        ++coverage.calls;
        ++coverage.answers[op][call.answer];
        bool allowed = false;
        for (std::size_t i = 0; i < kStateCount; ++i) {
            const auto state = static_cast<State>(i);
            allowed = allowed || (states.Has(state) && row.Allows(state, call.answer));
            if (states.Has(state) && states.IsOne()) {
                ++coverage.hits[op][i];
            }
        }
        if (!allowed) {
            contradictions.push_back(Describe(call) + " is no answer of a source that is " + states.Text());
        }
    }

    const std::vector<Call>& m_calls;
    std::vector<const Call*> m_starts;
    std::vector<const Call*> m_stops;
    std::vector<Stamp> m_startEnded;
    std::vector<const Call*> m_activators;
    std::vector<const Call*> m_shutdowns;
    OneWayChange m_activation;
    OneWayChange m_sourceDown;
    OneWayChange m_streamDown;
};

}  // namespace ravlo::test
