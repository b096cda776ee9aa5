#pragma once

#include "unit/interleaving/stepped_frame_pool.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "unit/interleaving/pool_scenario.h"
#include "unit/interleaving/reader_stepper.h"
#include "unit/interleaving/steps.h"
#include "unit/interleaving/writer_trace.h"

namespace ravlo::interleaving {

/// Reaches the pool's one member that is neither atomic nor copied: where the next publish writes. An explicit
/// instantiation may name what is private.
template <auto Member>
struct WriteIndexKey {
    friend std::int32_t& WriteIndexOf(stepped::FramePool& pool) { return pool.*Member; }
};
template struct WriteIndexKey<&stepped::FramePool::m_writeIndex>;
std::int32_t& WriteIndexOf(stepped::FramePool& pool);

constexpr FrameGeometry kGeometry{4, 2, 30, 1};
constexpr std::uint64_t kFrameBytes = kFrameWords * kWordBytes;
constexpr std::uint64_t kNow = 50'000;
constexpr std::uint64_t kFreshness = 1000;
constexpr std::uint32_t kUntouched = 0xEEEE'EEEE;

/// Each word of each frame is like no other.
constexpr std::uint32_t PayloadWord(int frame, int word) {
    return 0xC0DE'0000U + static_cast<std::uint32_t>(frame) * 0x100U + static_cast<std::uint32_t>(word);
}

/// Walks all orders of a scenario, under a fault, and judges every one.
class PoolWalk {
public:
    PoolWalk(const Scenario& scenario, Model model, const Fault& fault);

    /// Walks to the end, or until a promise of the kind `until` is broken, but no more than `most` schedules.
    Outcome Run(std::uint64_t most, std::optional<Broken> until);

private:
    /// What a reader has to expect at some moment: the newest published frame, 0 for none, and the oldest that any
    /// later call may return.
    struct Expectation {
        int newest;
        int least;
    };

    /// False when the pool did not answer as it should.
    bool Publish(WriterRecorder& recorder, const Action& action);
    std::vector<WriterStep> Record(const Fault& fault);
    static void MoveSteps(std::vector<WriterStep>& steps, const Move& move);
    Expectation Expect(const Message& returned) const;
    bool IsFresh(int frame) const;
    const Action& ActionOf(int frame) const { return m_frames[static_cast<std::size_t>(frame - 1)]; }
    void Report(Broken kind);
    void JudgeFrame(int frame, const Expectation& expected);
    std::optional<std::uint64_t> Peek();
    void Consume(std::uint64_t promised);
    void RunCalls();

    const Scenario m_scenario;
    std::vector<Action> m_frames;  ///< the publishes that are accepted
    /// The atomics of the pool that comes next number themselves from 0.
    struct Renumbering {
        Renumbering() { g_initialValues.clear(); }
    } m_renumbering;
    stepped::FramePool m_pool;
    Outcome m_outcome;
    std::vector<int> m_finished;  ///< by frame: the position at which its last byte, length and stamp are written
    const std::uint8_t* m_storage[kSlots] = {};
    WriterHistory m_history;
    ReaderStepper m_reader;
};

inline PoolWalk::PoolWalk(const Scenario& scenario, Model model, const Fault& fault)
    : m_scenario(scenario),
      m_history(Record(fault), g_initialValues),
      m_reader(m_history, m_storage, model, fault.ofRead) {
}

inline bool PoolWalk::Publish(WriterRecorder& recorder, const Action& action) {
    const bool fits = action.kind == Action::Kind::Publish;
    if (fits) {
        m_frames.push_back(action);
    }
    const int frame = static_cast<int>(m_frames.size());
    std::uint32_t payload[kFrameWords + 1] = {};
    for (int word = 0; word < kFrameWords; ++word) {
        payload[word] = PayloadWord(frame, word);
    }
    const std::uint64_t bytes = fits ? static_cast<std::uint64_t>(action.words) * kWordBytes : sizeof payload;
    recorder.Begin(fits ? frame : kOfRefusal);
    const std::int32_t index = WriteIndexOf(m_pool);
    const bool accepted = m_pool.Publish({reinterpret_cast<const std::uint8_t*>(payload), bytes}, action.stamp);
    if (recorder.Loses({Role::WriteIndex, 1})) {
        WriteIndexOf(m_pool) = index;
    }
    return accepted == fits;
}

inline std::vector<WriterStep> PoolWalk::Record(const Fault& fault) {
    WriterRecorder recorder(fault.lost, fault.lostInFrame, g_initialValues);
    g_stepper = &recorder;
    bool answered = m_pool.Allocate(kFrameBytes);
    std::uint64_t refused = 0;
    for (const Action& action : m_scenario.writer) {
        if (action.kind == Action::Kind::Reset) {
            recorder.Begin(kOfReset);
            m_pool.Reset();
        } else {
            answered = Publish(recorder, action) && answered;
            refused += action.kind == Action::Kind::Refused ? 1U : 0U;
        }
        recorder.End();
    }
    if (!answered || recorder.Load(kRefusedPublishes, std::memory_order_seq_cst) != refused) {
        Report(Broken::Miscounted);
    }
    m_outcome.publishSteps = recorder.Names();
    for (int slot = 0; slot < kSlots; ++slot) {
        m_storage[slot] = recorder.Storage(slot);
    }
    std::vector<WriterStep> steps = recorder.Steps();
    for (WriterStep& step : steps) {
        step.releases = step.releases && fault.unordered != step.step;
    }
    if (fault.moved) {
        MoveSteps(steps, *fault.moved);
    }
    m_finished.assign(m_frames.size() + 1, 0);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Role role = steps[i].step.role;
        if (steps[i].frame > 0 && (role == Role::Word || role == Role::Length || role == Role::Stamp)) {
            m_finished[static_cast<std::size_t>(steps[i].frame)] = static_cast<int>(i) + 1;
        }
    }
    return steps;
}

inline void PoolWalk::MoveSteps(std::vector<WriterStep>& steps, const Move& move) {
    const auto is = [](const Step& wanted) { return [wanted](const WriterStep& step) { return step.step == wanted; }; };
    if (!move.later) {
        std::reverse(steps.begin(), steps.end());
    }
    for (auto from = steps.begin(); (from = std::find_if(from, steps.end(), is(move.step))) != steps.end();) {
        const auto to = std::find_if(from, steps.end(), is(move.past));
        if (to == steps.end()) {
            break;
        }
        std::rotate(from, from + 1, to + 1);
        from = to + 1;
    }
    if (!move.later) {
        std::reverse(steps.begin(), steps.end());
    }
}

inline Outcome PoolWalk::Run(std::uint64_t most, std::optional<Broken> until) {
    g_stepper = &m_reader;
    do {
        RunCalls();
        ++m_outcome.schedules;
        m_outcome.orders += m_reader.Orders();
        m_outcome.mostTorn = std::max(m_outcome.mostTorn, m_pool.TornReads());
    } while ((!until || m_outcome.Of(*until) == 0) && m_outcome.schedules < most && m_reader.NextSchedule());
    m_outcome.readSteps = m_reader.Names();
    return m_outcome;
}

inline PoolWalk::Expectation PoolWalk::Expect(const Message& returned) const {
    if (returned.frame > 0) {
        return {returned.frame, returned.frame};
    }
    // Nothing was published, or after a Reset: what was published before must not come back.
    int last = 0;
    for (const Message& message : m_history.Of(kReturned)) {
        last = message.from < returned.from ? std::max(last, message.frame) : last;
    }
    return {0, last + 1};
}

inline bool PoolWalk::IsFresh(int frame) const {
    const std::uint64_t stamp = ActionOf(frame).stamp;
    return stamp >= kNow || kNow - stamp <= kFreshness;
}

inline void PoolWalk::Report(Broken kind) {
    if (m_outcome.firstBroken.empty()) {
        m_outcome.firstBroken = NameOf(kind);
        m_outcome.firstBroken += g_stepper == &m_reader ? m_reader.Describe() : " before the first read";
    }
    ++m_outcome.broken[static_cast<std::size_t>(kind)];
}

inline void PoolWalk::JudgeFrame(int frame, const Expectation& expected) {
    if (frame < expected.least) {
        Report(Broken::Older);
    }
    const bool early = m_reader.WriterMayHaveStoodStill() && frame > expected.newest;
    if (early || m_finished[static_cast<std::size_t>(frame)] > m_reader.Position()) {
        Report(Broken::Unfinished);
    }
    if (!IsFresh(frame)) {
        Report(Broken::Stale);
    }
}

inline std::optional<std::uint64_t> PoolWalk::Peek() {
    const Expectation expected = Expect(m_reader.BeginCall());
    m_reader.ExpectLength(0, 0);
    std::uint64_t stamp = 0;
    if (!m_pool.Peek(kNow, kFreshness, stamp)) {
        const bool unhindered = m_scenario.attemptsSuffice || m_reader.WriterMayHaveStoodStill();
        if (expected.newest != 0 && IsFresh(expected.newest) && unhindered) {
            Report(Broken::Missed);
        }
        ++m_outcome.empty;
        return std::nullopt;
    }
    ++m_outcome.full;
    for (int frame = 1; frame <= static_cast<int>(m_frames.size()); ++frame) {
        if (ActionOf(frame).stamp == stamp) {
            JudgeFrame(frame, expected);
            return stamp;
        }
    }
    Report(Broken::Forged);
    return std::nullopt;
}

inline void PoolWalk::Consume(std::uint64_t promised) {
    const Expectation expected = Expect(m_reader.BeginCall());
    m_reader.ExpectLength(kFrameBytes, promised);
    std::array<std::uint32_t, kFrameWords> picture{};
    picture.fill(kUntouched);
    const stepped::CopyDescriptor copy = stepped::DescribeCopy(
        kGeometry, reinterpret_cast<std::uint8_t*>(picture.data()), static_cast<std::uint32_t>(kFrameBytes), 4);
    if (!m_pool.Consume(kNow, kFreshness, promised, kFrameBytes, copy)) {
        const bool unhindered = m_scenario.attemptsSuffice || m_reader.WriterMayHaveStoodStill();
        if (expected.newest != 0 && IsFresh(expected.newest) && ActionOf(expected.newest).stamp >= promised &&
            ActionOf(expected.newest).words == kFrameWords && unhindered) {
            Report(Broken::Missed);
        }
        ++m_outcome.empty;
        return;
    }
    ++m_outcome.full;
    for (int frame = 1; frame <= static_cast<int>(m_frames.size()); ++frame) {
        if (picture[0] == PayloadWord(frame, 0)) {
            const bool whole = picture[1] == PayloadWord(frame, 1) && picture[2] == PayloadWord(frame, 2);
            if (!whole || ActionOf(frame).words != kFrameWords) {
                Report(Broken::Torn);
            } else if (ActionOf(frame).stamp < promised) {
                Report(Broken::Older);
            }
            JudgeFrame(frame, expected);
            return;
        }
    }
    Report(Broken::Torn);
}

inline void PoolWalk::RunCalls() {
    for (const Call call : m_scenario.reader) {
        if (call == Call::Consume) {
            Consume(0);
            continue;
        }
        const std::optional<std::uint64_t> promised = Peek();
        if (call == Call::Serve && promised) {
            Consume(*promised);
        }
    }
    if (static_cast<std::uint64_t>(m_pool.TornReads()) != m_reader.TornAttempts() ||
        static_cast<std::uint64_t>(m_pool.WrongLengthFrames()) != m_reader.ShortAttempts()) {
        Report(Broken::Miscounted);
    }
    if (m_reader.Meddled()) {
        Report(Broken::Meddled);
    }
}

}  // namespace ravlo::interleaving
