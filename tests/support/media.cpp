#include "support/media.h"

#include <stdexcept>

namespace ravlo::test {
namespace {

constexpr DWORD kLookIntervalMs = 5;

}  // namespace

std::optional<Event> NextEvent(IMFMediaEventGenerator* generator, DWORD timeoutMs) {
    ComPtr<IMFMediaEvent> event;
    HRESULT hr = MF_E_NO_EVENTS_AVAILABLE;
    WaitUntil(
        [&] {
            hr = generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.Put());
            return hr != MF_E_NO_EVENTS_AVAILABLE;
        },
        timeoutMs, kLookIntervalMs);
    if (FAILED(hr)) {
        return std::nullopt;
    }
    std::optional<Event> result(std::in_place);
    Require(event->GetType(&result->type), "IMFMediaEvent::GetType");
    Require(event->GetExtendedType(&result->extendedType), "IMFMediaEvent::GetExtendedType");
    Require(event->GetStatus(&result->status), "IMFMediaEvent::GetStatus");
    Require(event->GetValue(result->value.Put()), "IMFMediaEvent::GetValue");
    return result;
}

std::optional<Event> WaitForEvent(IMFMediaEventGenerator* generator, MediaEventType type, DWORD timeoutMs) {
    const Deadline deadline(timeoutMs);
    for (;;) {
        std::optional<Event> event = NextEvent(generator, deadline.Left());
        if (!event || event->type == type) {
            return event;
        }
    }
}

std::vector<MediaEventType> DrainEvents(IMFMediaEventGenerator* generator) {
    std::vector<MediaEventType> types;
    while (const std::optional<Event> event = NextEvent(generator, 0)) {
        types.push_back(event->type);
    }
    return types;
}

Sample ReadSample(IMFSample* sample) {
    Sample result;
    result.object = ComPtr<IMFSample>::Share(sample);
    Require(sample->GetSampleTime(&result.time), "IMFSample::GetSampleTime");
    Require(sample->GetSampleDuration(&result.duration), "IMFSample::GetSampleDuration");
    result.cleanPoint = MFGetAttributeUINT32(sample, MFSampleExtension_CleanPoint, 0);
    sample->GetUnknown(MFSampleExtension_Token, IID_IUnknown, result.token.PutVoid());

    ComPtr<IMFMediaBuffer> buffer;
    Require(sample->ConvertToContiguousBuffer(buffer.Put()), "IMFSample::ConvertToContiguousBuffer");
    BYTE* data = nullptr;
    DWORD length = 0;
    Require(buffer->Lock(&data, nullptr, &length), "IMFMediaBuffer::Lock");
    result.bytes.assign(data, data + length);
    Require(buffer->Unlock(), "IMFMediaBuffer::Unlock");
    return result;
}

Sample RequestSample(IMFMediaStream* stream, IUnknown* token) {
    Require(stream->RequestSample(token), "IMFMediaStream::RequestSample");
    const std::optional<Event> event = NextEvent(stream);
    if (!event || event->type != MEMediaSample) {
        throw std::runtime_error("RequestSample succeeded, but the stream's next event is no MEMediaSample");
    }
    Require(event->status, "the status of MEMediaSample");
    const ComPtr<IMFSample> sample = event->Object<IMFSample>();
    if (!sample) {
        throw std::runtime_error("MEMediaSample holds no sample");
    }
    return ReadSample(sample.Get());
}

}  // namespace ravlo::test
