// One thread's hold on the camera of a run: its references, its record, and how it takes events.
#pragma once

#include "soak/recording.h"
#include "support/frames.h"
#include "support/pattern.h"

#include "platform/kernel_streaming.h"

#include <windows.h>

#include <mferror.h>
#include <mfidl.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <vector>

namespace ravlo::test {

/// Results that callbacks brought and nobody has ended yet. Shared with the callbacks, which may come late.
class PendingResults {
public:
    void Add(IMFAsyncResult* result) {
        const std::lock_guard lock(m_lock);
        m_results.push_back(ComPtr<IMFAsyncResult>::Share(result));
    }
    bool HasAny() {
        const std::lock_guard lock(m_lock);
        return !m_results.empty();
    }
    ComPtr<IMFAsyncResult> Take() {
        const std::lock_guard lock(m_lock);
        if (m_results.empty()) {
            return {};
        }
        ComPtr<IMFAsyncResult> result = std::move(m_results.back());
        m_results.pop_back();
        return result;
    }

private:
    std::mutex m_lock;
    std::vector<ComPtr<IMFAsyncResult>> m_results;
};

/// What the callers of one run share.
struct Stage {
    ComPtr<IMFMediaSourceEx> source;
    ComPtr<IMFPresentationDescriptor> presentation;  ///< for Start, which does not look into it
    UINT32 width = 0;
    UINT32 height = 0;
    /// Events come out of each queue on one thread at a time, so that their order is known.
    bool takesInTurn = false;
    /// Shutdown is one of the calls that anybody may make at any time.
    bool mayShutDown = false;
    /// So are the activations.
    bool mayActivate = true;

    StampCounter stamps;
    std::mutex taking[2];
    std::shared_ptr<PendingResults> pending[2] = {std::make_shared<PendingResults>(),
                                                  std::make_shared<PendingResults>()};
    std::atomic<std::uint64_t> liveSamples{0};

    void Publish(ComPtr<IMFMediaStream> found) {
        const std::lock_guard lock(m_streamLock);
        if (!m_stream) {
            m_stream = std::move(found);
        }
    }
    ComPtr<IMFMediaStream> Stream() {
        const std::lock_guard lock(m_streamLock);
        return m_stream;
    }
    /// Gives up the stage's own references.
    void Leave() {
        const std::lock_guard lock(m_streamLock);
        m_stream.Reset();
        source.Reset();
    }

private:
    std::mutex m_streamLock;
    ComPtr<IMFMediaStream> m_stream;
};

class Caller {
public:
    Caller(Stage& shared, unsigned number, std::uint64_t seed)
        : stage(shared),
          record(stage.stamps, number),
          random(seed),
          source(stage.source),
          activate(source.As<IMFActivate>()),
          services(source.As<IMFGetService>()),
          controls(source.As<IKsControl>()),
          key{0x52564C00 + number, 0x0001, 0x0002, {1, 2, 3, 4, 5, 6, 7, 8}} {}

    std::uint32_t Below(std::uint32_t bound) {
        return std::uniform_int_distribution<std::uint32_t>(0, bound - 1)(random);
    }

    IMFMediaEventGenerator* Generator(Object object) {
        return object == Object::Source ? static_cast<IMFMediaEventGenerator*>(source.Get()) : stream.Get();
    }

    /// A method without output.
    template <class Method>
    HRESULT Do(Op op, Method&& method) {
        return record.Record(op, [&](Stamp) { return method(); });
    }

    /// A method that gives an object exactly when it succeeds.
    template <class I, class Method>
    ComPtr<I> Get(Op op, Method&& method) {
        I* out = reinterpret_cast<I*>(this);  // an output that must be overwritten
        const HRESULT hr = Do(op, [&] { return method(&out); });
        record.Expect(SUCCEEDED(hr) == (out != nullptr), "the output does not fit the result");
        return SUCCEEDED(hr) ? ComPtr<I>::Adopt(out) : ComPtr<I>();
    }

    /// GetEvent or EndGetEvent.
    template <class Method>
    HRESULT TakeEvent(Object object, Op op, Method&& method) {
        std::unique_lock turn(stage.taking[static_cast<std::size_t>(object)], std::defer_lock);
        if (stage.takesInTurn) {
            turn.lock();
        }
        const ComPtr<IMFMediaEvent> event = Get<IMFMediaEvent>(op, method);
        if (stage.takesInTurn) {
            turn.unlock();
        }
        if (event) {
            Keep(object, event.Get());
        }
        return static_cast<HRESULT>(record.LastCall().answer);
    }

    /// Lets go of everything, the last reference perhaps, in an order of its own.
    void Leave() {
        const std::uint32_t first = Below(5);
        for (std::uint32_t i = 0; i < 5; ++i) {
            switch ((first + i) % 5) {
                case 0:
                    stream.Reset();
                    break;
                case 1:
                    activate.Reset();
                    break;
                case 2:
                    services.Reset();
                    break;
                case 3:
                    controls.Reset();
                    break;
                default:
                    source.Reset();
                    break;
            }
        }
    }

    Stage& stage;
    Recorder record;
    std::mt19937_64 random;
    ComPtr<IMFMediaSourceEx> source;
    ComPtr<IMFActivate> activate;
    ComPtr<IMFGetService> services;
    ComPtr<IKsControl> controls;
    ComPtr<IMFMediaStream> stream;  ///< empty until an event has brought it
    const GUID key;                 ///< of the attribute that only this caller writes
    std::optional<UINT32> written;  ///< what it wrote there last
    EventKind lastTaken = EventKind::Other;

private:
    void Keep(Object object, IMFMediaEvent* event) {
        MediaEventType type = MEUnknown;
        GUID extended{};
        HRESULT status = E_FAIL;
        Event parts;
        record.Expect(SUCCEEDED(event->GetType(&type)) && SUCCEEDED(event->GetExtendedType(&extended)) &&
                          SUCCEEDED(event->GetStatus(&status)) && SUCCEEDED(event->GetValue(parts.value.Put())),
                      "the event cannot be read");
        record.Expect(extended == GUID{}, "the event has an extended type");
        TakenEvent taken{KindOf(type), static_cast<Answer>(status), 0, record.LastCall().end, 0};
        if (parts.value.Type() == VT_I8) {
            taken.maker = static_cast<Stamp>(parts.value->hVal.QuadPart);
        }
        if (taken.kind == EventKind::NewStream || taken.kind == EventKind::UpdatedStream) {
            ComPtr<IMFMediaStream> announced = parts.Object<IMFMediaStream>();
            const ComPtr<IMFMediaStream> known = stage.Stream();
            record.Expect(announced && (!known || known.Get() == announced.Get()), "another stream is announced");
            stage.Publish(std::move(announced));
        }
        if (taken.kind == EventKind::Sample) {
            KeepSample(parts, taken);
        }
        record.Took(object, taken);
        lastTaken = taken.kind;
    }

    /// Whose token the sample carries, when it is for, and whether its picture is one that exists.
    void KeepSample(const Event& event, TakenEvent& taken) {
        const ComPtr<IMFSample> object = event.Object<IMFSample>();
        if (!object) {
            record.Complain("MEMediaSample holds no sample");
            return;
        }
        const Sample sample = ReadSample(object.Get());
        taken.time = sample.time;
        taken.maker = sample.token ? static_cast<Token*>(sample.token.Get())->Maker() : 0;
        if (SignatureOf(sample.bytes, stage.width, stage.height)) {
            ++stage.liveSamples;
        } else {
            record.Expect(TestPatternShift(sample.bytes, stage.width, stage.height).has_value(),
                          "the picture is neither a sent frame nor the test pattern");
        }
    }
};

}  // namespace ravlo::test
