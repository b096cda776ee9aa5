#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "unit/interleaving/steps.h"

namespace ravlo::interleaving {

constexpr int kOfReset = 0;
constexpr int kOfRefusal = -1;

/// One effect of the writer on what both sides share.
struct WriterStep {
    Step step;
    int location;
    std::uint64_t value;  ///< what the location holds from then on
    int frame;            ///< the number, from 1, of the frame whose publish took the step, or one of the below
    bool releases;
};

/// Takes the writer's steps down while the real code runs alone. The writer never learns anything from a reader (the
/// reading side asserts that readers change nothing but counters), so these are its steps in every order of the two.
class WriterRecorder final : public Stepper {
public:
    /// Steps named in `lost` have no effect: in frame number `lostInFrame`, or in all with 0.
    WriterRecorder(const std::vector<Step>& lost, int lostInFrame, const std::vector<std::uint64_t>& initialValues)
        : m_lost(lost), m_lostInFrame(lostInFrame), m_memory(initialValues) {
        m_memory.resize(kLocations, 0);
    }

    bool Loses(const Step& step) const {
        return (m_lostInFrame == 0 || m_lostInFrame == m_frame) &&
               std::find(m_lost.begin(), m_lost.end(), step) != m_lost.end();
    }

    void Begin(int frame) {
        m_frame = frame;
        m_counter.Restart();
    }

    /// A call that left no trace still comes to its end.
    void End() {
        if (m_steps.empty() || m_steps.back().frame != m_frame) {
            m_steps.push_back({{Role::Returned, 1}, kReturned, 0, m_frame, false});
        }
    }

    const std::vector<WriterStep>& Steps() const { return m_steps; }
    /// Every step that was asked for, with the lost ones.
    const std::vector<Step>& Names() const { return m_names; }
    /// Where the storage of a slot begins, once something was copied into it.
    const std::uint8_t* Storage(int slot) const { return m_storage[slot]; }

    std::uint64_t Load(int location, std::memory_order) override { return m_memory[Index(location)]; }
    void Store(int location, std::uint64_t value, std::memory_order order) override { Set(location, value, order); }
    std::uint64_t Add(int location, std::uint64_t value, std::memory_order order) override {
        const std::uint64_t before = m_memory[Index(location)];
        Set(location, before + value, order);
        return before;
    }
    std::uint64_t Exchange(int location, std::uint64_t value, std::memory_order order) override {
        const std::uint64_t before = m_memory[Index(location)];
        Set(location, value, order);
        return before;
    }
    bool CompareExchange(int location, std::uint64_t& expected, std::uint64_t desired,
                         std::memory_order order) override {
        const std::uint64_t before = m_memory[Index(location)];
        if (before == expected) {
            Set(location, desired, order);
        }
        return std::exchange(expected, before) == before;
    }
    void Copy(void* destination, const void* source, std::uint64_t bytes) override {
        auto* const to = static_cast<std::uint8_t*>(destination);
        const int slot = m_storage[0] == nullptr || m_storage[0] == to ? 0 : 1;
        m_storage[slot] = to;
        const auto* from = static_cast<const std::uint8_t*>(source);
        const int words = std::min(static_cast<int>(bytes / kWordBytes), kFrameWords);
        for (int word = 0; word < words; ++word, from += kWordBytes) {
            std::uint32_t value = 0;
            std::memcpy(&value, from, sizeof value);
            Set(WordLocation(slot, word), value, std::memory_order_relaxed);
        }
    }

private:
    static std::size_t Index(int location) { return static_cast<std::size_t>(location); }

    void Set(int location, std::uint64_t value, std::memory_order order) {
        const Step step = m_counter.Next(RoleOf(location));
        m_names.push_back(step);
        if (!Loses(step)) {
            m_memory[Index(location)] = value;
            m_steps.push_back({step, location, value, m_frame, Releases(order)});
        }
    }

    const std::vector<Step> m_lost;
    const int m_lostInFrame;
    std::vector<std::uint64_t> m_memory;
    StepCounter m_counter;
    int m_frame = 0;
    std::vector<WriterStep> m_steps;
    std::vector<Step> m_names;
    const std::uint8_t* m_storage[kSlots] = {};
};

/// A value that a location held.
struct Message {
    std::uint64_t value;
    int from;     ///< position of the writer, in steps taken, at which it was written; 0: from the beginning
    int until;    ///< the last position at which it was still there
    int frame;    ///< as in WriterStep; kOfReset as well when it is from the beginning
    int visible;  ///< position up to which an acquiring read of the value makes everything visible
};

/// What every location held at every position of the writer.
class WriterHistory {
public:
    WriterHistory(const std::vector<WriterStep>& steps, const std::vector<std::uint64_t>& initialValues)
        : m_end(static_cast<int>(steps.size())), m_messages(kLocations) {
        for (std::size_t location = 0; location < m_messages.size(); ++location) {
            const std::uint64_t initial = location < initialValues.size() ? initialValues[location] : 0;
            m_messages[location].push_back({initial, 0, m_end, 0, 0});
        }
        std::map<int, int> lastSteps;  // by frame
        for (int i = 0; i < m_end; ++i) {
            const WriterStep& step = steps[static_cast<std::size_t>(i)];
            if (step.location != kReturned) {
                Add(step.location, step.value, i + 1, step.frame, step.releases);
            }
            lastSteps[step.frame] = i + 1;
        }
        lastSteps.erase(kOfRefusal);
        for (int i = 1; i <= m_end; ++i) {
            for (const auto& [frame, position] : lastSteps) {
                if (position == i) {
                    Add(kReturned, 0, i, frame, false);
                }
            }
        }
    }

    int End() const { return m_end; }
    const std::vector<Message>& Of(int location) const { return m_messages[static_cast<std::size_t>(location)]; }

private:
    void Add(int location, std::uint64_t value, int from, int frame, bool releases) {
        std::vector<Message>& messages = m_messages[static_cast<std::size_t>(location)];
        messages.back().until = from - 1;
        // All writers of what others' visibility hangs on are read-modify-writes: without a release of its own such a
        // step still passes on the one before it.
        const int passedOn = messages.back().visible;
        messages.push_back({value, from, m_end, frame, releases ? from : passedOn});
    }

    int m_end;
    std::vector<std::vector<Message>> m_messages;
};

}  // namespace ravlo::interleaving
