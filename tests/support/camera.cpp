#include "support/camera.h"

#include <atomic>
#include <stdexcept>

namespace ravlo::test {
namespace {

/// Takes the next event, which must be of one of two types and must report success.
Event Expect(IMFMediaEventGenerator* generator, MediaEventType type, MediaEventType alternative) {
    std::optional<Event> event = NextEvent(generator);
    if (!event) {
        throw std::runtime_error("no event came, event " + std::to_string(type) + " was due");
    }
    if (event->type != type && event->type != alternative) {
        throw std::runtime_error("event " + std::to_string(event->type) + " came, event " + std::to_string(type) +
                                 " was due");
    }
    Require(event->status, "the status of the event");
    return std::move(*event);
}

void SetText(IMFActivate* activate, REFGUID key, const std::wstring& text) {
    if (!text.empty()) {
        Require(activate->SetString(key, text.c_str()), "IMFActivate::SetString");
    }
}

}  // namespace

std::wstring UniquePipeName() {
    static std::atomic<unsigned> counter{0};
    // Ten digits, the first of them 1: one of at most 10 digits without a leading zero is what the grammar
    // allows.
    const unsigned long long process = GetCurrentProcessId() % 100000;
    const unsigned long long number = 1000000000ULL + process * 10000 + counter++ % 10000;
    return L"\\\\.\\pipe\\Ravlo." + std::to_wstring(number);
}

Camera::Camera(const ModuleUnderTest& module, CameraOptions options) : m_pipeName(std::move(options.pipeName)) {
    const ComPtr<IMFActivate> activate = module.CreateSource<IMFActivate>();
    SetText(activate.Get(), kGeometryAttribute, options.geometry);
    SetText(activate.Get(), kPipeNameAttribute, m_pipeName);
    const HRESULT hr = activate->ActivateObject(__uuidof(IMFMediaSourceEx), m_source.PutVoid());
    if (FAILED(hr)) {
        if (const ComPtr<IMFMediaSource> source = activate.As<IMFMediaSource>()) {
            source->Shutdown();
        }
        ThrowFailed("ActivateObject", hr);
    }
}

Camera::~Camera() {
    if (m_source) {
        m_source->Shutdown();
    }
}

void Camera::Start() {
    const ComPtr<IMFPresentationDescriptor> presentation = PresentationOf(m_source.Get());
    const PropVariant position;
    Require(m_source->Start(presentation.Get(), nullptr, position.Get()), "IMFMediaSource::Start");
    const Event stream = Expect(m_source.Get(), MENewStream, MEUpdatedStream);
    m_stream = stream.Object<IMFMediaStream>();
    if (!m_stream) {
        throw std::runtime_error("the new-stream event holds no stream");
    }
    Expect(m_source.Get(), MESourceStarted, MESourceStarted);
    Expect(m_stream.Get(), MEStreamStarted, MEStreamStarted);
}

void Camera::Stop() {
    Require(m_source->Stop(), "IMFMediaSource::Stop");
    Expect(m_source.Get(), MESourceStopped, MESourceStopped);
    if (m_stream && !WaitForEvent(m_stream.Get(), MEStreamStopped)) {
        throw std::runtime_error("no MEStreamStopped came");
    }
}

void Camera::ReleaseAll() {
    m_stream.Reset();
    m_source.Reset();
}

std::optional<Sample> Camera::PullUntil(const std::function<bool(const Sample&)>& wanted, DWORD timeoutMs) {
    const Deadline deadline(timeoutMs);
    do {
        Sample sample = Pull();
        if (wanted(sample)) {
            return sample;
        }
    } while (!deadline.Passed());
    return std::nullopt;
}

ComPtr<IMFPresentationDescriptor> PresentationOf(IMFMediaSource* source) {
    ComPtr<IMFPresentationDescriptor> presentation;
    Require(source->CreatePresentationDescriptor(presentation.Put()), "CreatePresentationDescriptor");
    return presentation;
}

ComPtr<IMFMediaType> MediaTypeOf(IMFMediaSource* source) {
    const ComPtr<IMFPresentationDescriptor> presentation = PresentationOf(source);
    BOOL selected = FALSE;
    ComPtr<IMFStreamDescriptor> stream;
    Require(presentation->GetStreamDescriptorByIndex(0, &selected, stream.Put()), "GetStreamDescriptorByIndex");
    ComPtr<IMFMediaTypeHandler> handler;
    Require(stream->GetMediaTypeHandler(handler.Put()), "GetMediaTypeHandler");
    ComPtr<IMFMediaType> type;
    Require(handler->GetCurrentMediaType(type.Put()), "GetCurrentMediaType");
    return type;
}

bool WaitForPipe(const std::wstring& name, DWORD timeoutMs) {
    return WaitUntil([&] { return WaitNamedPipeW(name.c_str(), 1) || GetLastError() == ERROR_SEM_TIMEOUT; }, timeoutMs);
}

}  // namespace ravlo::test
