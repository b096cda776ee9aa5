// Picks and makes random calls.
#pragma once

#include "soak/attribute_calls.h"
#include "soak/source_calls.h"

#include <algorithm>
#include <random>
#include <stdexcept>
#include <vector>

namespace ravlo::test {

/// Calls of the stream; false when `op` is none of them.
inline bool CallStream(Caller& caller, Op op) {
    IMFMediaStream* const stream = caller.stream.Get();
    const GUID ids[] = {IID_IUnknown, IID_IMFMediaEventGenerator, IID_IMFMediaStream};
    const GUID& id = ids[caller.Below(3)];
    switch (op) {
        case Op::RequestSample:
            caller.record.Record(op, [&](Stamp name) {
                const auto token = ComPtr<Token>::Adopt(new Token(name));
                return stream->RequestSample(token.Get());
            });
            return true;
        case Op::RequestSampleNoToken:
            caller.Do(op, [&] { return stream->RequestSample(nullptr); });
            return true;
        case Op::GetMediaSource: {
            const ComPtr<IMFMediaSource> source =
                caller.Get<IMFMediaSource>(op, [&](IMFMediaSource** out) { return stream->GetMediaSource(out); });
            caller.record.Expect(!source || IsSameObject(source.Get(), caller.source.Get()), "it has another source");
            return true;
        }
        case Op::GetMediaSourceNull:
            caller.Do(op, [&] { return stream->GetMediaSource(nullptr); });
            return true;
        case Op::GetStreamDescriptor:
            caller.Get<IMFStreamDescriptor>(
                op, [&](IMFStreamDescriptor** out) { return stream->GetStreamDescriptor(out); });
            return true;
        case Op::StreamQuery:
            caller.Do(op, [&] { return QueryAndCompare(stream, id, stream); });
            return true;
        case Op::StreamQueryMarshal:
            caller.Get<IUnknown>(op, [&](IUnknown** out) {
                return stream->QueryInterface(IID_IMarshal, reinterpret_cast<void**>(out));
            });
            return true;
        case Op::StreamQueryStranger:
            caller.Get<IUnknown>(
                op, [&](IUnknown** out) { return stream->QueryInterface(kStranger, reinterpret_cast<void**>(out)); });
            return true;
        case Op::StreamReference:
            caller.Do(op, [&] { return TakeAndDropReferences(stream); });
            return true;
        default:
            return false;
    }
}

/// Makes one call. A call of a stream that nobody has seen yet becomes a look for the event that brings it.
inline void MakeCall(Caller& caller, Op op) {
    if (RowOf(op).object == Object::Stream && !caller.stream) {
        caller.stream = caller.stage.Stream();
        if (!caller.stream) {
            Look(caller, Object::Source);
            return;
        }
    }
    const bool made = CallEvents(caller, op) || CallTransition(caller, op) || CallLook(caller, op) ||
                      CallIdentity(caller, op) || CallActivation(caller, op) || CallControl(caller, op) ||
                      CallAttributes(caller, op) || CallStream(caller, op);
    if (!made) {
        throw std::logic_error(std::string("nobody makes the call ") + RowOf(op).name);
    }
}

/// How often each call comes up, relative to the others. Transitions are rare enough to leave times between them in
/// which the state is beyond doubt; what fills the queues is balanced by what empties them.
inline std::discrete_distribution<std::size_t> CallWeights(const Stage& stage) {
    std::vector<double> weights(kOpCount, 10);
    const auto set = [&](Op op, double weight) { weights[static_cast<std::size_t>(op)] = weight; };
    set(Op::Start, 20);
    set(Op::Stop, 8);
    set(Op::Shutdown, stage.mayShutDown ? 1 : 0);
    set(Op::ActivateObject, stage.mayActivate ? 3 : 0);
    set(Op::ActivateStranger, stage.mayActivate ? 2 : 0);
    set(Op::SourceGetEvent, 40);
    set(Op::SourceEndGetEvent, 30);
    set(Op::StreamGetEvent, 60);
    set(Op::StreamEndGetEvent, 30);
    set(Op::RequestSample, 60);
    set(Op::RequestSampleNoToken, 20);
    return std::discrete_distribution<std::size_t>(weights.begin(), weights.end());
}

inline void MakeRandomCalls(Caller& caller, unsigned count) {
    std::discrete_distribution<std::size_t> choose = CallWeights(caller.stage);
    for (unsigned i = 0; i < count; ++i) {
        MakeCall(caller, static_cast<Op>(choose(caller.random)));
    }
}

}  // namespace ravlo::test
