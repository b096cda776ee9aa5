// One life of a camera under random calls of eight threads, from its creation to its last reference, and the judgement
// on it.
#pragma once

#include "soak/event_judge.h"
#include "soak/queue_balance.h"
#include "soak/random_caller.h"
#include "support/camera.h"
#include "support/pipe_client.h"

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace ravlo::test {

inline constexpr unsigned kCallers = 8;

/// What an episode is like; follows from its seed.
struct EpisodePlan {
    std::uint64_t seed = 0;
    unsigned calls = 0;        ///< of each thread
    bool isMortal = false;     ///< any thread may shut the source down; else only the end does
    bool startsCold = false;   ///< the threads find the source not activated
    bool staysCold = false;    ///< and leave it so
    bool meets = false;        ///< mortal, but no thread shuts down before all of them meet to do it at once
    bool takesInTurn = false;  ///< each queue's order is known and judged
    bool hasProducer = false;
    bool isLogged = false;    ///< lines are written to a file; else the file cannot be opened
    bool isJittered = false;  ///< the module pauses now and then where it leaves a lock
    unsigned geometry = 0;

    explicit EpisodePlan(std::uint64_t episodeSeed) : seed(episodeSeed) {
        std::mt19937_64 random(seed);
        const auto below = [&](unsigned bound) { return static_cast<unsigned>(random() % bound); };
        calls = 40 + below(120);
        isMortal = below(2) == 0;
        startsCold = below(3) == 0;
        takesInTurn = below(3) != 0;
        hasProducer = below(3) == 0;
        isLogged = below(8) == 0;
        geometry = below(3);
        isJittered = below(2) == 0;
        meets = isMortal && below(2) == 0;
        staysCold = startsCold && below(4) == 0;
    }

    std::string Text() const {
        return "episode seed " + std::to_string(seed) + ": " + std::to_string(kCallers) + " x " +
               std::to_string(calls) + " calls" +
               (meets      ? ", meeting"
                : isMortal ? ", mortal"
                           : "") +
               (staysCold    ? ", never activated"
                : startsCold ? ", cold"
                             : "") +
               (takesInTurn ? ", in turn" : "") + (hasProducer ? ", with a producer" : "") +
               (isLogged ? ", logged" : "") + (isJittered ? ", jittered" : "");
    }
};

struct SoakGeometry {
    const wchar_t* text;
    UINT32 width;
    UINT32 height;
    std::int64_t period;  ///< 100 ns
};
/// Small and fast, so that a request waits for a millisecond or two.
inline constexpr SoakGeometry kSoakGeometries[] = {
    {L"64x36@1000/1", 64, 36, 10'000},
    {L"16x16@500/1", 16, 16, 20'000},
    {L"64x36@240/1", 64, 36, 41'666},
};

/// Writes frames into a pipe for as long as it lives, connecting anew whenever the camera hangs up.
class EndlessProducer {
public:
    EndlessProducer(std::wstring pipe, UINT32 width, UINT32 height)
        : m_thread([this, pipe = std::move(pipe), width, height] { Run(pipe, width, height); }) {}
    ~EndlessProducer() {
        m_stop = true;
        m_thread.join();
    }
    EndlessProducer(const EndlessProducer&) = delete;
    EndlessProducer& operator=(const EndlessProducer&) = delete;

private:
    void Run(const std::wstring& pipe, UINT32 width, UINT32 height) {
        std::uint32_t number = 0;
        while (!m_stop) {
            PipeClient client;
            bool isConnected = client.Connect(pipe, 20);
            while (isConnected && !m_stop) {
                isConnected = client.SendFrame(width, height, ++number, 200);
                Sleep(2);
            }
        }
    }

    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

class Episode {
public:
    explicit Episode(const EpisodePlan& plan) : m_plan(plan), m_geometry(kSoakGeometries[plan.geometry]) {}

    /// Runs it to the end. Returns what is wrong; adds what it saw to `coverage` and `liveSamples`.
    Contradictions Run(const ModuleUnderTest& module, IMFPresentationDescriptor* presentation, Coverage& coverage,
                       std::uint64_t& liveSamples) {
        const std::wstring pipe = Prepare(module, presentation);
        {
            std::unique_ptr<EndlessProducer> producer;
            if (m_plan.hasProducer) {
                producer = std::make_unique<EndlessProducer>(pipe, m_geometry.width, m_geometry.height);
            }
            RunCallers();
        }
        End();
        Contradictions contradictions = std::move(m_contradictions);
        Judge(coverage, contradictions);
        liveSamples += m_stage.liveSamples;
        return contradictions;
    }

private:
    std::wstring Prepare(const ModuleUnderTest& module, IMFPresentationDescriptor* presentation) {
        m_stage.presentation = ComPtr<IMFPresentationDescriptor>::Share(presentation);
        m_stage.width = m_geometry.width;
        m_stage.height = m_geometry.height;
        m_stage.takesInTurn = m_plan.takesInTurn;
        m_stage.mayShutDown = m_plan.isMortal && !m_plan.meets;
        m_stage.mayActivate = !m_plan.staysCold;
        m_stage.source = module.CreateSource<IMFMediaSourceEx>();
        const ComPtr<IMFActivate> activate = m_stage.source.As<IMFActivate>();
        const std::wstring pipe = UniquePipeName();
        Require(activate->SetString(kGeometryAttribute, m_geometry.text), "SetString");
        Require(activate->SetString(kPipeNameAttribute, pipe.c_str()), "SetString");
        std::mt19937_64 seeds(m_plan.seed ^ 0x9E3779B97F4A7C15ULL);
        for (unsigned number = 0; number <= kCallers; ++number) {
            m_callers.push_back(std::make_unique<Caller>(m_stage, number, seeds()));
        }
        if (!m_plan.startsCold) {
            MakeCall(Last(), Last().Below(4) == 0 ? Op::ActivateStranger : Op::ActivateObject);
        }
        return pipe;
    }

    /// The caller of this thread, behind those of the eight.
    Caller& Last() { return *m_callers.back(); }

    void RunCallers() {
        if (m_plan.isMortal) {
            // Before the others begin, so that each of them may be the last to hold the source.
            Last().Leave();
            m_stage.Leave();
        }
        std::vector<std::thread> threads;
        for (unsigned number = 0; number < kCallers; ++number) {
            threads.emplace_back([this, number] { RunCaller(*m_callers[number]); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void RunCaller(Caller& caller) {
        try {
            MakeRandomCalls(caller, m_plan.calls);
            if (m_plan.meets) {
                Meet(caller);
            }
            if (m_plan.isMortal) {
                MakeCall(caller, Op::Shutdown);
                caller.Leave();
            }
        } catch (const std::exception& error) {
            caller.record.Complain(error.what());
        }
    }

    /// All threads at one moment: some shut the source down, the others are in the middle of what that must not hurt.
    void Meet(Caller& caller) {
        constexpr Op kOps[] = {Op::Shutdown, Op::Shutdown, Op::Start,         Op::Start,
                               Op::Start,    Op::Stop,     Op::RequestSample, Op::ActivateObject};
        constexpr unsigned kCallsAfter = 10;
        const Op op = kOps[caller.Below(std::size(kOps))];
        ++m_met;
        const Deadline deadline(kPatienceMs);
        while (m_met < kCallers && !deadline.Passed()) {
            SwitchToThread();
        }
        MakeCall(caller, op == Op::ActivateObject && m_plan.staysCold ? Op::Start : op);
        MakeRandomCalls(caller, kCallsAfter);
    }

    void End() {
        if (!m_plan.isMortal) {
            Drain();
            for (const Object object : {Object::Source, Object::Stream}) {
                LeaveResultPending(object);
            }
            MakeCall(Last(), Op::Shutdown);
            m_stage.mayShutDown = true;
            MakeRandomCalls(Last(), 2 * m_plan.calls);
        }
        for (const std::unique_ptr<Caller>& caller : m_callers) {
            caller->Leave();
        }
        m_stage.Leave();
        for (const std::shared_ptr<PendingResults>& pending : m_stage.pending) {
            while (pending->Take()) {}
        }
        if (!WaitUntil([] { return Token::Alive() == 0 && EventCallback::Alive() == 0; })) {
            m_contradictions.push_back(std::to_string(Token::Alive()) + " tokens and " +
                                       std::to_string(EventCallback::Alive()) + " callbacks are kept");
        }
    }

    void Drain() {
        const bool sourceIsEmpty = DrainQueue(Last(), Object::Source);
        Last().stream = m_stage.Stream();
        if (!sourceIsEmpty || (Last().stream && !DrainQueue(Last(), Object::Stream))) {
            m_contradictions.push_back("the event queues do not get empty");
        }
        const Stamp now = m_stage.stamps.Next();
        m_drained[0] = now;
        // A stream that nobody ever started has not shown itself, and keeps what stops put into its queue.
        m_drained[1] = Last().stream ? now : 0;
    }

    /// So that the shutdown finds a subscription that has its event, but not handed over.
    void LeaveResultPending(Object object) {
        if (Last().Generator(object) == nullptr) {
            return;
        }
        PendingResults& pending = *m_stage.pending[static_cast<std::size_t>(object)];
        Subscribe(Last(), object);
        QueueOne(Last(), object);
        if (!WaitUntil([&] { return pending.HasAny(); })) {
            m_contradictions.push_back("an event comes and the callback does not");
        }
    }

    void Judge(Coverage& coverage, Contradictions& contradictions) const {
        std::vector<Call> calls;
        QueueHistory histories[2];
        for (const std::unique_ptr<Caller>& caller : m_callers) {
            const Recorder& record = caller->record;
            calls.insert(calls.end(), record.Calls().begin(), record.Calls().end());
            contradictions.insert(contradictions.end(), record.Complained().begin(), record.Complained().end());
            for (const Object object : {Object::Source, Object::Stream}) {
                std::vector<TakenEvent>& events = histories[static_cast<std::size_t>(object)].events;
                const std::vector<TakenEvent>& more = record.Events(object);
                events.insert(events.end(), more.begin(), more.end());
            }
        }
        const StateModel model(calls);
        const Contradictions wrong = model.Judge(coverage);
        contradictions.insert(contradictions.end(), wrong.begin(), wrong.end());
        for (const Object object : {Object::Source, Object::Stream}) {
            QueueBalance(calls, model, object).Judge(contradictions);
        }
        if (m_plan.takesInTurn) {
            for (const Object object : {Object::Source, Object::Stream}) {
                QueueHistory& history = histories[static_cast<std::size_t>(object)];
                std::sort(history.events.begin(), history.events.end(),
                          [](const TakenEvent& a, const TakenEvent& b) { return a.taken < b.taken; });
                history.completeUntil = m_drained[static_cast<std::size_t>(object)];
            }
            const Contradictions misplaced =
                EventJudge(calls, model, m_geometry.period).Judge(histories[0], histories[1]);
            contradictions.insert(contradictions.end(), misplaced.begin(), misplaced.end());
        }
    }

    const EpisodePlan m_plan;
    const SoakGeometry& m_geometry;
    Stage m_stage;
    std::vector<std::unique_ptr<Caller>> m_callers;
    std::atomic<unsigned> m_met{0};  ///< threads that have come to the meeting
    Contradictions m_contradictions;
    Stamp m_drained[2]{};  ///< when a queue was found empty and nobody called; 0 when that never happened
};

}  // namespace ravlo::test
