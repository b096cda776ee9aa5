#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "unit/interleaving/choices.h"
#include "unit/interleaving/steps.h"
#include "unit/interleaving/writer_trace.h"

namespace ravlo::interleaving {

/// Which orders of the two sides are walked.
enum class Model : std::uint8_t {
    /// All steps in one order that both sides agree on; orders in which the reader sees the same are walked once.
    Orders,
    /// The same, but each order for itself. For showing that nothing is left out by the above.
    EveryOrder,
    /// As weak as the language allows for what the reader sees: a relaxed read, and every copied word, may be an old
    /// value as long as no newer one happened before it; a sequentially consistent load may be early, but not earlier
    /// than the last acquiring step; only a read-modify-write is sure to meet the newest value.
    Weak,
};

enum class ReadFault : std::uint8_t {
    Lost,     ///< a load returns 0, a compare-exchange does nothing, a word or a count stays as it was
    Stale,    ///< returns for ever what it returned the first time
    Relaxed,  ///< orders nothing
    Load,     ///< a load where a read-modify-write was
};

struct FaultyRead {
    Step step;
    ReadFault fault;
};

/// Runs the reader against the writer's history: before each of its steps the writer moves on by some steps, and the
/// choices decide by how many.
class ReaderStepper final : public Stepper {
public:
    ReaderStepper(const WriterHistory& history, const std::uint8_t* const (&storage)[kSlots], Model model,
                  std::optional<FaultyRead> fault)
        : m_history(history), m_storage{storage[0], storage[1]}, m_model(model), m_fault(fault) {
        StartSchedule();
    }

    bool NextSchedule() {
        StartSchedule();
        return m_choices.Advance();
    }

    /// Marks the beginning of a call, which is a step like any other, and tells which call of the writer is over then.
    const Message& BeginCall() {
        m_callUntil = m_history.End();
        const Message& message = Read({Role::Returned, 1}, kReturned, m_position);
        m_ordered = m_position;
        return message;
    }

    /// How many steps the writer has taken at the least.
    int Position() const { return m_position; }
    /// Whether all that the call read so far can have been read while the writer took no step.
    bool WriterMayHaveStoodStill() const { return m_position <= m_callUntil; }
    /// How many orders of single steps the schedule stands for.
    std::uint64_t Orders() const {
        std::uint64_t sum = 0;
        for (const std::uint64_t ways : m_ways) {
            sum += ways;
        }
        return m_model == Model::Orders ? sum : 1;
    }
    /// Whether the reader changed anything but its counters.
    bool Meddled() const { return m_meddled; }
    /// What the counters should be, by what the reader was given to see.
    std::uint64_t TornAttempts() const { return m_tornAttempts; }
    std::uint64_t ShortAttempts() const { return m_shortAttempts; }
    /// The next calls count a length other than this as a wrong one, unless it comes with an older stamp; 0: any is
    /// right.
    void ExpectLength(std::uint64_t length, std::uint64_t leastStamp) {
        m_requiredLength = length;
        m_leastStamp = leastStamp;
    }
    /// Names of all steps that any schedule took.
    const std::vector<Step>& Names() const { return m_names; }
    std::string Describe() const;

    std::uint64_t Load(int location, std::memory_order order) override;
    void Store(int, std::uint64_t, std::memory_order) override { m_meddled = true; }
    std::uint64_t Add(int location, std::uint64_t value, std::memory_order order) override;
    std::uint64_t Exchange(int location, std::uint64_t, std::memory_order) override {
        m_meddled = true;
        return m_history.Of(location).back().value;
    }
    bool CompareExchange(int location, std::uint64_t& expected, std::uint64_t desired,
                         std::memory_order order) override;
    void Copy(void* destination, const void* source, std::uint64_t bytes) override;

private:
    struct Taken {
        Step step;
        int location;
        std::uint64_t value;
        int position;
    };

    static std::size_t Index(int value) { return static_cast<std::size_t>(value); }

    void StartSchedule();
    Step NextStep(int location);
    bool Has(ReadFault fault, const Step& step) const {
        return m_fault && m_fault->fault == fault && m_fault->step == step;
    }
    /// Reads a value that was still there at position `oldest` of the writer, or a newer one.
    const Message& Read(const Step& step, int location, int oldest);
    void CountOrders(const Message& message);
    std::uint64_t OrStale(const Step& step, std::uint64_t value);
    void Acquire(const Message& message);
    /// Keeps what the counters should be.
    void Note(const Step& step, std::uint64_t seen);

    const WriterHistory& m_history;
    const std::uint8_t* const m_storage[kSlots];
    const Model m_model;
    const std::optional<FaultyRead> m_fault;
    Choices m_choices;
    std::vector<Step> m_names;

    int m_position = 0;
    int m_callUntil = 0;
    int m_view = 0;     ///< all that the writer did up to here happened before the reader's next step
    int m_ordered = 0;  ///< position at the last acquiring step
    std::vector<std::size_t> m_seen = std::vector<std::size_t>(kLocations);  ///< no location goes back in time
    std::vector<std::uint64_t> m_counts = std::vector<std::uint64_t>(kLocations);
    std::vector<std::uint64_t> m_ways;  ///< orders so far, by the position at the last step
    StepCounter m_counter;
    std::optional<std::uint64_t> m_stale;
    std::uint64_t m_look = 0;
    std::uint64_t m_stamp = 0;
    std::uint64_t m_requiredLength = 0;
    std::uint64_t m_leastStamp = 0;
    std::uint64_t m_tornAttempts = 0;
    std::uint64_t m_shortAttempts = 0;
    bool m_meddled = false;
    std::vector<Taken> m_taken;
};

inline void ReaderStepper::StartSchedule() {
    m_position = 0;
    m_callUntil = 0;
    m_view = 0;
    m_ordered = 0;
    std::fill(m_seen.begin(), m_seen.end(), 0);
    std::fill(m_counts.begin(), m_counts.end(), 0);
    m_ways.assign(Index(m_history.End()) + 1, 0);
    m_ways[0] = 1;
    m_counter.Restart();
    m_stale.reset();
    m_requiredLength = 0;
    m_tornAttempts = 0;
    m_shortAttempts = 0;
    m_meddled = false;
    m_taken.clear();
}

inline Step ReaderStepper::NextStep(int location) {
    if (location == kPublished) {
        m_counter.Restart();  // an attempt begins with a look at what is published
    }
    const Step step = m_counter.Next(RoleOf(location));
    if (std::find(m_names.begin(), m_names.end(), step) == m_names.end()) {
        m_names.push_back(step);
    }
    return step;
}

inline const Message& ReaderStepper::Read(const Step& step, int location, int oldest) {
    const std::vector<Message>& messages = m_history.Of(location);
    const bool newest = m_model != Model::Weak || oldest == m_position;
    std::size_t chosen = m_seen[Index(location)];
    if (m_model == Model::EveryOrder) {
        m_position += m_choices.Choose(m_history.End() - m_position + 1);
        while (messages[chosen].until < m_position) {
            ++chosen;
        }
    } else {
        while (messages[chosen].until < (m_model == Model::Weak ? oldest : m_position)) {
            ++chosen;
        }
        if (chosen + 1 < messages.size()) {
            chosen += Index(m_choices.Choose(static_cast<int>(messages.size() - chosen)));
        }
    }
    m_seen[Index(location)] = chosen;
    const Message& message = messages[chosen];
    m_position = std::max(m_position, message.from);
    if (newest) {
        m_callUntil = std::min(m_callUntil, message.until);
    }
    if (m_model == Model::Orders) {
        CountOrders(message);
    }
    m_taken.push_back({step, location, message.value, m_position});
    return message;
}

inline void ReaderStepper::CountOrders(const Message& message) {
    std::uint64_t sum = 0;
    for (int position = 0; position <= m_history.End(); ++position) {
        std::uint64_t& ways = m_ways[Index(position)];
        sum += ways;
        ways = position >= message.from && position <= message.until ? sum : 0;
    }
}

inline std::uint64_t ReaderStepper::OrStale(const Step& step, std::uint64_t value) {
    if (!Has(ReadFault::Stale, step)) {
        return value;
    }
    if (!m_stale) {
        m_stale = value;
    }
    return *m_stale;
}

inline void ReaderStepper::Acquire(const Message& message) {
    m_view = std::max(m_view, message.visible);
    m_ordered = m_position;
}

inline std::uint64_t ReaderStepper::Load(int location, std::memory_order order) {
    if (location == kTornReads || location == kWrongLengthFrames) {
        return m_counts[Index(location)];
    }
    const Step step = NextStep(location);
    if (Has(ReadFault::Lost, step)) {
        return 0;
    }
    const bool relaxed = Has(ReadFault::Relaxed, step);
    const Message& message = Read(step, location, order == std::memory_order_seq_cst && !relaxed ? m_ordered : m_view);
    if (Acquires(order) && !relaxed) {
        Acquire(message);
    }
    const std::uint64_t value = OrStale(step, message.value);
    Note(step, value);
    return value;
}

inline void ReaderStepper::Note(const Step& step, std::uint64_t seen) {
    if (step == Step{Role::Sequence, 1}) {
        m_look = seen;
    } else if (step == Step{Role::Sequence, 2} && seen != m_look) {
        ++m_tornAttempts;
    } else if (step.role == Role::Stamp) {
        m_stamp = seen;
    } else if (step.role == Role::Length && m_requiredLength != 0 && seen != m_requiredLength &&
               m_stamp >= m_leastStamp) {
        ++m_shortAttempts;
    }
}

inline std::uint64_t ReaderStepper::Add(int location, std::uint64_t value, std::memory_order) {
    const std::uint64_t before = m_counts[Index(location)];
    if (location != kTornReads && location != kWrongLengthFrames) {
        m_meddled = true;
    } else if (!Has(ReadFault::Lost, NextStep(location))) {
        m_counts[Index(location)] += value;
    }
    return before;
}

inline bool ReaderStepper::CompareExchange(int location, std::uint64_t& expected, std::uint64_t desired,
                                           std::memory_order order) {
    const Step step = NextStep(location);
    if (Has(ReadFault::Lost, step)) {
        return true;
    }
    const bool relaxed = Has(ReadFault::Relaxed, step);
    const int oldest = relaxed ? m_view : Has(ReadFault::Load, step) ? m_ordered : m_position;
    const Message& message = Read(step, location, oldest);
    if (Acquires(order) && !relaxed) {
        Acquire(message);
    }
    const std::uint64_t seen = OrStale(step, message.value);
    Note(step, seen);
    if (seen == expected && seen != desired) {
        m_meddled = true;
    }
    const bool equal = seen == expected;
    expected = seen;
    return equal;
}

inline void ReaderStepper::Copy(void* destination, const void* source, std::uint64_t bytes) {
    auto* to = static_cast<std::uint8_t*>(destination);
    const auto* const from = static_cast<const std::uint8_t*>(source);
    const int slot =
        m_storage[1] != nullptr && from >= m_storage[1] && from < m_storage[1] + kFrameWords * kWordBytes ? 1 : 0;
    if (from < m_storage[slot] || from + bytes > m_storage[slot] + kFrameWords * kWordBytes) {
        m_meddled = true;
        return;
    }
    const int first = static_cast<int>(static_cast<std::uint64_t>(from - m_storage[slot]) / kWordBytes);
    for (int i = 0; i < static_cast<int>(bytes / kWordBytes); ++i, to += kWordBytes) {
        const int location = WordLocation(slot, first + i);
        const Step step = NextStep(location);
        if (Has(ReadFault::Lost, step)) {
            continue;
        }
        const auto value = static_cast<std::uint32_t>(OrStale(step, Read(step, location, m_view).value));
        std::memcpy(to, &value, sizeof value);
    }
}

inline std::string ReaderStepper::Describe() const {
    std::string text;
    for (const Taken& taken : m_taken) {
        text += taken.step.role == Role::Returned ? "\n  call" : "  " + NameOf(taken.step);
        text += "=" + std::to_string(static_cast<std::int64_t>(taken.value)) + "@" + std::to_string(taken.position);
    }
    return text;
}

}  // namespace ravlo::interleaving
