// The event generator's calls, on the source and on the stream alike.
#pragma once

#include "soak/caller.h"

namespace ravlo::test {

/// The same methods under their names in the table.
struct EventOps {
    Op look;
    Op lookNull;
    Op subscribe;
    Op end;
    Op endNull;
    Op queue;
};
inline constexpr EventOps kEventOps[2] = {
    {Op::SourceGetEvent, Op::SourceGetEventNull, Op::SourceBeginGetEvent, Op::SourceEndGetEvent,
     Op::SourceEndGetEventNull, Op::SourceQueueEvent},
    {Op::StreamGetEvent, Op::StreamGetEventNull, Op::StreamBeginGetEvent, Op::StreamEndGetEvent,
     Op::StreamEndGetEventNull, Op::StreamQueueEvent},
};
inline const EventOps& EventOpsOf(Object object) {
    return kEventOps[static_cast<std::size_t>(object)];
}

inline HRESULT Look(Caller& caller, Object object) {
    return caller.TakeEvent(object, EventOpsOf(object).look, [&](IMFMediaEvent** out) {
        return caller.Generator(object)->GetEvent(MF_EVENT_FLAG_NO_WAIT, out);
    });
}

/// False when no result waits to be ended.
inline bool EndPending(Caller& caller, Object object) {
    const ComPtr<IMFAsyncResult> result = caller.stage.pending[static_cast<std::size_t>(object)]->Take();
    if (!result) {
        return false;
    }
    caller.TakeEvent(object, EventOpsOf(object).end,
                     [&](IMFMediaEvent** out) { return caller.Generator(object)->EndGetEvent(result.Get(), out); });
    return true;
}

inline void QueueOne(Caller& caller, Object object) {
    const MediaEventType type = caller.Below(2) == 0 ? MEError : MEExtendedType;
    caller.record.Record(EventOpsOf(object).queue, [&](Stamp name) {
        const PropVariant value(static_cast<LONGLONG>(name));
        return caller.Generator(object)->QueueEvent(type, GUID{}, type == MEError ? E_FAIL : S_OK, value.Get());
    });
}

inline void Subscribe(Caller& caller, Object object) {
    const std::shared_ptr<PendingResults> pending = caller.stage.pending[static_cast<std::size_t>(object)];
    const auto callback =
        ComPtr<EventCallback>::Adopt(new EventCallback([pending](IMFAsyncResult* result) { pending->Add(result); }));
    caller.Do(EventOpsOf(object).subscribe,
              [&] { return caller.Generator(object)->BeginGetEvent(callback.Get(), nullptr); });
}

/// A look, and at once an event into the other queue when what came out must have an older counterpart there: a stop
/// that the source reports is in the stream's queue already, a start that the stream reports in the source's.
inline void LookAndProbe(Caller& caller, Object object) {
    caller.lastTaken = EventKind::Other;
    Look(caller, object);
    if (caller.lastTaken == EventKind::SourceStopped && caller.stream) {
        QueueOne(caller, Object::Stream);
    } else if (caller.lastTaken == EventKind::StreamStarted) {
        QueueOne(caller, Object::Source);
    }
}

/// False when `op` is none of these.
inline bool CallEvents(Caller& caller, Op op) {
    const Object object = RowOf(op).object;
    const EventOps& ops = EventOpsOf(object);
    IMFMediaEventGenerator* const generator = caller.Generator(object);
    if (op == ops.look) {
        LookAndProbe(caller, object);
    } else if (op == ops.lookNull) {
        caller.Do(op, [&] { return generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, nullptr); });
    } else if (op == ops.subscribe) {
        Subscribe(caller, object);
    } else if (op == ops.end) {
        if (!EndPending(caller, object)) {
            Look(caller, object);
        }
    } else if (op == ops.endNull) {
        caller.Get<IMFMediaEvent>(op, [&](IMFMediaEvent** out) { return generator->EndGetEvent(nullptr, out); });
    } else if (op == ops.queue) {
        QueueOne(caller, object);
    } else {
        return false;
    }
    return true;
}

/// Empties a queue that nobody else uses, subscriptions included. False when it does not get empty in time.
inline bool DrainQueue(Caller& caller, Object object) {
    const Deadline deadline(kPatienceMs);
    while (!deadline.Passed()) {
        if (EndPending(caller, object)) {
            continue;
        }
        const HRESULT hr = Look(caller, object);
        if (hr == MF_E_NO_EVENTS_AVAILABLE) {
            return true;
        }
        if (hr == MF_E_MULTIPLE_SUBSCRIBERS) {
            // An open subscription ends with the next event, on a thread of the platform.
            QueueOne(caller, object);
            Sleep(1);
        }
    }
    return false;
}

}  // namespace ravlo::test
