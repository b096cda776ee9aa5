// The event queues of the module under test, watched.
#pragma once

#include "support/import_hooks.h"
#include "windows/platform_proxies.h"

#include <mfapi.h>

#include <mutex>

namespace ravlo::test {

/// Watches the event queues that the module creates from here on: the source's is the first, its stream's the second.
class WatchedQueues {
public:
    using Answer = std::function<std::optional<HRESULT>(int queue, const QueuedEvent& event)>;

    explicit WatchedQueues(HMODULE module, Answer answer = {}) : m_queues(module), m_answer(std::move(answer)) {
        m_queues.Replace([this](IMFMediaEventQueue** out) {
            const HRESULT hr = Queues::CallOriginal(out);
            const int number = ++m_created;
            *out = new QueueProxy(ComPtr<IMFMediaEventQueue>::Adopt(*out), [this, number](const QueuedEvent& event) {
                {
                    const std::lock_guard lock(m_mutex);
                    m_order.push_back(event.type);
                }
                return m_answer ? m_answer(number, event) : std::nullopt;
            });
            return hr;
        });
    }

    /// The events of both queues, in the order in which they were queued.
    std::vector<MediaEventType> Order() const {
        const std::lock_guard lock(m_mutex);
        return m_order;
    }

private:
    using Queues = RAVLO_HOOK(MFCreateEventQueue);
    Queues m_queues;
    Answer m_answer;
    int m_created = 0;
    mutable std::mutex m_mutex;
    std::vector<MediaEventType> m_order;
};

/// Event types in the order in which they were queued.
using Types = std::vector<MediaEventType>;

}  // namespace ravlo::test
