// Taking down what threads do to the camera: calls with their stamps, events with their makers, and the objects by
// which an event can be traced back to its call.
#pragma once

#include "soak/event_queue.h"
#include "support/counted.h"
#include "support/media.h"

#include <windows.h>

#include <mfapi.h>
#include <mfidl.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace ravlo::test {

/// Travels through RequestSample into the sample and says whose it is.
class Token final : public Counted<IUnknown> {
public:
    explicit Token(Stamp maker) : m_maker(maker) {}
    Stamp Maker() const { return m_maker; }

private:
    const Stamp m_maker;
};

/// Hands the result of a BeginGetEvent on.
class EventCallback final : public Counted<IMFAsyncCallback> {
public:
    using Action = std::function<void(IMFAsyncResult*)>;
    explicit EventCallback(Action action) : m_action(std::move(action)) {}

    STDMETHODIMP GetParameters(DWORD*, DWORD*) override { return E_NOTIMPL; }
    STDMETHODIMP Invoke(IMFAsyncResult* result) override {
        m_action(result);
        return S_OK;
    }

private:
    const Action m_action;
};

/// Every thread of a run takes its stamps here.
class StampCounter {
public:
    Stamp Next() { return m_next.fetch_add(1); }

private:
    std::atomic<Stamp> m_next{1};
};

/// What one thread did and saw. Read it when the thread is gone.
class Recorder {
public:
    Recorder(StampCounter& stamps, unsigned thread) : m_stamps(stamps), m_thread(thread) {}

    /// Runs one call, which is told its own name.
    template <class Method>
    HRESULT Record(Op op, Method&& method) {
        Call call{op, kOk, m_stamps.Next(), 0, m_thread};
        const HRESULT hr = method(call.begin);
        call.end = m_stamps.Next();
        call.answer = static_cast<Answer>(hr);
        m_calls.push_back(call);
        return hr;
    }
    const Call& LastCall() const { return m_calls.back(); }

    void Took(Object object, const TakenEvent& event) { m_events[static_cast<std::size_t>(object)].push_back(event); }

    /// Something that no answer shows: a wrong output, a picture that is none.
    void Complain(const std::string& text) {
        m_contradictions.push_back((m_calls.empty() ? "before any call" : Describe(m_calls.back())) + ": " + text);
    }
    void Expect(bool good, const char* text) {
        if (!good) {
            Complain(text);
        }
    }

    const std::vector<Call>& Calls() const { return m_calls; }
    const std::vector<TakenEvent>& Events(Object object) const { return m_events[static_cast<std::size_t>(object)]; }
    const Contradictions& Complained() const { return m_contradictions; }

private:
    StampCounter& m_stamps;
    const unsigned m_thread;
    std::vector<Call> m_calls;
    std::vector<TakenEvent> m_events[2];
    Contradictions m_contradictions;
};

inline EventKind KindOf(MediaEventType type) {
    switch (type) {
        case MENewStream:
            return EventKind::NewStream;
        case MEUpdatedStream:
            return EventKind::UpdatedStream;
        case MESourceStarted:
            return EventKind::SourceStarted;
        case MESourceStopped:
            return EventKind::SourceStopped;
        case MEStreamStarted:
            return EventKind::StreamStarted;
        case MEStreamStopped:
            return EventKind::StreamStopped;
        case MEMediaSample:
            return EventKind::Sample;
        case MEError:
        case MEExtendedType:
            return EventKind::Queued;
        default:
            return EventKind::Other;
    }
}

}  // namespace ravlo::test
