// What came out of one event queue, and the two judgements that need no more than the order of its events.
#pragma once

#include "soak/state_model.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <queue>
#include <string>
#include <utility>
#include <vector>

namespace ravlo::test {

enum class EventKind : std::uint8_t {
    NewStream,
    UpdatedStream,
    SourceStarted,
    SourceStopped,
    StreamStarted,
    StreamStopped,
    Sample,
    Queued,  ///< came in through QueueEvent
    Other
};

/// One event as it was taken out.
struct TakenEvent {
    EventKind kind = EventKind::Other;
    Answer status = kOk;
    Stamp maker = 0;        ///< begin of the call that the event names; 0 when it names none
    Stamp taken = 0;        ///< end of the call that took it out
    std::int64_t time = 0;  ///< of a sample, 100 ns
};

/// The events of one queue in the order in which they came out.
struct QueueHistory {
    std::vector<TakenEvent> events;
    /// The queue was emptied by then and nobody else called anything: every event of a call that ended before is there.
    /// 0 when the shutdown may have cut events off.
    Stamp completeUntil = 0;

    bool IsComplete() const { return completeUntil != 0; }
};

/// One place in a queue: the call that filled it, when the event names one, and what else bounds the moment.
struct Slot {
    const Call* maker = nullptr;
    EventKind kind = EventKind::Other;
    Stamp taken = kNever;    ///< end of the call that took the event out
    Stamp present = kNever;  ///< it was in the queue by then, as what came out of the other queue shows

    Stamp Latest() const { return std::min({taken, present, maker != nullptr ? maker->end : kNever}); }
};

inline std::string Describe(const Slot& slot) {
    return slot.maker != nullptr ? "the event of " + Describe(*slot.maker)
                                 : "an event that was there at " + std::to_string(slot.Latest());
}

/// A queue hands out what came first first: no event may stand behind one whose call began only after its own had
/// ended, and none can be taken before its call began.
inline void JudgeOrder(const std::vector<Slot>& slots, Contradictions& contradictions) {
    const Slot* latest = nullptr;
    for (const Slot& slot : slots) {
        if (latest != nullptr && slot.Latest() < latest->maker->begin) {
            contradictions.push_back(Describe(slot) + " stands behind " + Describe(*latest));
        }
        if (slot.maker == nullptr) {
            continue;
        }
        if (slot.taken < slot.maker->begin) {
            contradictions.push_back("an event was taken before " + Describe(*slot.maker) + " made it");
        }
        if (latest == nullptr || slot.maker->begin > latest->maker->begin) {
            latest = &slot;
        }
    }
}

/// Pairs the events of one kind that name no call with the calls that may have made them. Between the events that do
/// name their calls, each place leaves its maker a window of time; a call fits a run of places, and taking the most
/// urgent call at each place finds a pairing whenever there is one.
class AnonymousEvents {
public:
    /// `mustAppear` have certainly left an event in the queue, `mayAppear` possibly.
    AnonymousEvents(const std::vector<Slot>& slots, EventKind kind, std::vector<const Call*> mustAppear,
                    std::vector<const Call*> mayAppear)
        : m_must(std::move(mustAppear)), m_all(std::move(mayAppear)) {
        Stamp earliest = 0;
        for (const Slot& slot : slots) {
            if (slot.maker != nullptr) {
                earliest = std::max(earliest, slot.maker->begin);
            } else if (slot.kind == kind) {
                m_windows.push_back({earliest, kNever});
            }
        }
        Stamp latest = kNever;
        std::size_t place = m_windows.size();
        for (auto slot = slots.rbegin(); slot != slots.rend(); ++slot) {
            latest = std::min(latest, slot->Latest());
            if (slot->maker == nullptr && slot->kind == kind) {
                m_windows[--place].latest = latest;
            }
        }
        m_all.insert(m_all.end(), m_must.begin(), m_must.end());
    }

    void Judge(const char* name, Contradictions& contradictions) const {
        // One pairing fills every place and another uses every call that must appear: then one does both.
        if (Pair(m_all).places < m_windows.size()) {
            contradictions.push_back(std::string("no call fits one of the ") + std::to_string(m_windows.size()) +
                                     " events " + name);
        }
        if (const Call* left = Pair(m_must).leftOver) {
            contradictions.push_back(std::string("no event ") + name + " fits " + Describe(*left));
        }
    }

private:
    struct Window {
        Stamp earliest;
        Stamp latest;
    };
    struct Pairing {
        std::size_t places = 0;
        const Call* leftOver = nullptr;
    };
    using Urgent = std::pair<std::size_t, const Call*>;  ///< the first place that is too late for the call

    Pairing Pair(std::vector<const Call*> calls) const {
        std::sort(calls.begin(), calls.end(), [](const Call* a, const Call* b) { return a->begin < b->begin; });
        std::priority_queue<Urgent, std::vector<Urgent>, std::greater<>> waiting;
        Pairing pairing;
        std::size_t next = 0;
        for (std::size_t place = 0; place < m_windows.size(); ++place) {
            for (; next < calls.size() && calls[next]->begin < m_windows[place].latest; ++next) {
                waiting.push({PlacesBefore(calls[next]->end), calls[next]});
            }
            for (; !waiting.empty() && waiting.top().first <= place; waiting.pop()) {
                pairing.leftOver = waiting.top().second;
            }
            if (!waiting.empty()) {
                waiting.pop();
                ++pairing.places;
            }
        }
        if (!waiting.empty()) {
            pairing.leftOver = waiting.top().second;
        }
        if (next < calls.size()) {
            pairing.leftOver = calls[next];
        }
        return pairing;
    }

    std::size_t PlacesBefore(Stamp end) const {
        const auto first = std::partition_point(m_windows.begin(), m_windows.end(),
                                                [&](const Window& window) { return window.earliest < end; });
        return static_cast<std::size_t>(first - m_windows.begin());
    }

    std::vector<Window> m_windows;
    std::vector<const Call*> m_must;
    std::vector<const Call*> m_all;
};

}  // namespace ravlo::test
