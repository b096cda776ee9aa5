// Counts what went into an event queue and what came out, call by call, for runs whose events came out on several
// threads at once and so in no known order.
#pragma once

#include "soak/state_model.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace ravlo::test {

/// A number that steps up at known moments.
class Steps {
public:
    void Add(Stamp moment, std::uint64_t step) { m_moments.insert(m_moments.end(), step, moment); }
    void Sort() { std::sort(m_moments.begin(), m_moments.end()); }
    std::uint64_t Before(Stamp moment) const {
        return static_cast<std::uint64_t>(std::lower_bound(m_moments.begin(), m_moments.end(), moment) -
                                          m_moments.begin());
    }

private:
    std::vector<Stamp> m_moments;
};

class QueueBalance {
public:
    QueueBalance(const std::vector<Call>& calls, const StateModel& model, Object object)
        : m_calls(calls), m_activated(model.Activation().Latest()), m_ofStream(object == Object::Stream) {
        for (const Call& call : calls) {
            Count(call);
        }
        for (Steps* steps : {&m_surelyIn, &m_possiblyIn, &m_surelyOut, &m_possiblyOut, &m_surelySubscribed,
                             &m_possiblySubscribed, &m_surelyEnded, &m_possiblyEnded}) {
            steps->Sort();
        }
    }

    void Judge(Contradictions& contradictions) const {
        for (const Call& call : m_calls) {
            if (call.op == Look() && call.answer == kNoEvents &&
                m_surelyIn.Before(call.begin) > m_possiblyOut.Before(call.end)) {
                contradictions.push_back(Describe(call) + " although there was an event");
            }
            if (IsTake(call) && m_surelyOut.Before(call.end + 1) > m_possiblyIn.Before(call.end)) {
                contradictions.push_back(Describe(call) + " gave more events than were queued");
            }
            const bool refused = (call.op == Look() && call.answer == kMultipleSubscribers) ||
                                 (call.op == Subscribe() && call.answer != kOk && call.answer != kShutDownAnswer);
            if (refused && m_possiblySubscribed.Before(call.end) <= m_surelyEnded.Before(call.begin)) {
                contradictions.push_back(Describe(call) + " although nobody was subscribed");
            }
            if (call.op == Subscribe() && call.answer == kOk &&
                m_surelySubscribed.Before(call.begin) > m_possiblyEnded.Before(call.end)) {
                contradictions.push_back(Describe(call) + " although another subscription was open");
            }
        }
    }

private:
    Op Look() const { return m_ofStream ? Op::StreamGetEvent : Op::SourceGetEvent; }
    Op Subscribe() const { return m_ofStream ? Op::StreamBeginGetEvent : Op::SourceBeginGetEvent; }
    Op EndLook() const { return m_ofStream ? Op::StreamEndGetEvent : Op::SourceEndGetEvent; }
    bool IsTake(const Call& call) const { return (call.op == Look() || call.op == EndLook()) && call.answer == kOk; }

    /// Events that a call leaves in the queue when it comes to its end.
    std::uint64_t Made(const Call& call) const {
        switch (call.op) {
            case Op::Start:
                return m_ofStream ? 1 : 2;
            case Op::Stop:
                return 1;
            case Op::SourceQueueEvent:
                return m_ofStream ? 0 : 1;
            case Op::StreamQueueEvent:
            case Op::RequestSample:
            case Op::RequestSampleNoToken:
                return m_ofStream ? 1 : 0;
            default:
                return 0;
        }
    }

    void Count(const Call& call) {
        const std::uint64_t made = Made(call);
        if (made != 0 && (call.answer == kOk || call.answer == kShutDownAnswer)) {
            m_possiblyIn.Add(call.begin, made);
            // A stop before the activation leaves nothing in the stream.
            if (call.answer == kOk && !(m_ofStream && call.op == Op::Stop && call.begin < m_activated)) {
                m_surelyIn.Add(call.end, made);
            }
        }
        if (IsTake(call)) {
            m_surelyOut.Add(call.end, 1);
            m_possiblyOut.Add(call.begin, 1);
        }
        if (call.op == Subscribe() && call.answer == kOk) {
            m_surelySubscribed.Add(call.end, 1);
            m_possiblySubscribed.Add(call.begin, 1);
        }
        if (call.op == EndLook() && call.answer == kOk) {
            m_surelyEnded.Add(call.end, 1);
            m_possiblyEnded.Add(call.begin, 1);
        }
    }

    const std::vector<Call>& m_calls;
    const Stamp m_activated;
    const bool m_ofStream;
    Steps m_surelyIn, m_possiblyIn, m_surelyOut, m_possiblyOut;
    Steps m_surelySubscribed, m_possiblySubscribed, m_surelyEnded, m_possiblyEnded;
};

}  // namespace ravlo::test
