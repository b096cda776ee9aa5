#include "faults/camera_client.h"

#include "faults/sites.h"
#include "faults/standins.h"
#include "support/frames.h"
#include "support/pattern.h"
#include "support/wait.h"

#include "ravlo/ids.h"

#include <mfapi.h>
#include <mferror.h>

#include <atomic>
#include <cstdio>
#include <span>

namespace ravlo::faults {
namespace {

using test::ComPtr;
using test::PropVariant;

constexpr wchar_t kModuleName[] = L"rvmediasource.dll";
constexpr int kTries = 3;

/// A name that no other play of any process uses at the same time.
std::wstring NextPipeName() {
    static std::atomic<unsigned> counter{0};
    const unsigned long long process = GetCurrentProcessId() % 100000;
    return L"\\\\.\\pipe\\Ravlo." + std::to_wstring(2000000000ULL + process * 10000 + counter++ % 10000);
}

std::wstring ModulePath() {
    wchar_t path[MAX_PATH]{};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring text = path;
    text.resize(text.rfind(L'\\') + 1);
    return text + kModuleName;
}

template <class F>
bool Resolve(HMODULE module, const char* name, F& function) {
    function = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    return function != nullptr;
}

Picture Judge(IMFSample* sample, std::uint32_t width, std::uint32_t height, LONGLONG* time) {
    ComPtr<IMFMediaBuffer> buffer;
    BYTE* data = nullptr;
    DWORD length = 0;
    if (FAILED(sample->GetBufferByIndex(0, buffer.Put())) || FAILED(buffer->Lock(&data, nullptr, &length))) {
        return Picture::None;
    }
    if (time != nullptr) {
        sample->GetSampleTime(time);
    }
    const std::span<const std::uint8_t> bytes(data, length);
    Picture picture = Picture::Mixture;
    if (test::TestPatternShift(bytes, width, height)) {
        picture = Picture::Pattern;
    } else if (test::SignatureOf(bytes, width, height)) {
        picture = Picture::Live;
    }
    buffer->Unlock();
    return picture;
}

}  // namespace

CameraClient::CameraClient(Outcome& outcome) : m_outcome(outcome), m_pipeName(NextPipeName()) {
}

CameraClient::~CameraClient() = default;

bool CameraClient::Step(const char* name, HRESULT expected, const Call& call, int tries) {
    for (int attempt = 0; attempt < tries; ++attempt) {
        const std::uint32_t before = Delivered();
        HRESULT result = E_UNEXPECTED;
        try {
            result = call();
        } catch (...) {
            m_outcome.wrongs.push_back(std::string("an exception left the module in ") + name);
        }
        if (result == expected) {
            return true;
        }
        const bool duringFault = Delivered() != before && DeliveredThread() == GetCurrentThreadId();
        m_outcome.deviations.push_back({name, result, duringFault, attempt != 0});
    }
    return false;
}

bool CameraClient::Load() {
    const std::uint32_t before = Delivered();
    m_module = LoadLibraryExW(ModulePath().c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (m_module == nullptr) {
        const HRESULT result = HRESULT_FROM_WIN32(GetLastError());
        m_outcome.deviations.push_back({"LoadLibrary", result, Delivered() != before, false});
        return false;
    }
    return Resolve(m_module, "DllGetClassObject", m_getClassObject) &&
           Resolve(m_module, "DllCanUnloadNow", m_canUnload) && Resolve(m_module, "DllRegisterServer", m_register) &&
           Resolve(m_module, "DllUnregisterServer", m_unregister);
}

void CameraClient::Unload() {
    FreeLibrary(m_module);
    m_module = nullptr;
}

void CameraClient::Register() {
    Ok("DllRegisterServer", kTries, [&] { return m_register(); });
    Ok("DllUnregisterServer", kTries, [&] { return m_unregister(); });
}

bool CameraClient::Create() {
    if (!Ok("DllGetClassObject", kTries,
            [&] { return m_getClassObject(kMediaSourceClassId, IID_IClassFactory, m_factory.PutVoid()); })) {
        return false;
    }
    Ok("LockServer", [&] { return m_factory->LockServer(TRUE); });
    const bool created = Ok("CreateInstance", kTries, [&] {
        return m_factory->CreateInstance(nullptr, __uuidof(IMFActivate), m_activate.PutVoid());
    });
    Ok("LockServer", [&] { return m_factory->LockServer(FALSE); });
    return created;
}

bool CameraClient::Activate() {
    UseAttributes(m_activate.Get());
    Ok("SetString(geometry)", kTries, [&] { return m_activate->SetString(RV_GEOMETRY_ATTRIBUTE, L"320x180@30/1"); });
    const bool activated = Ok("ActivateObject", kTries, [&] {
        return m_activate->ActivateObject(__uuidof(IMFMediaSourceEx), m_source.PutVoid());
    });
    if (activated) {
        // The reader looks for a name a few times before it gets one, and so for the other ways to a name too.
        Sleep(5);
        Ok("SetString(pipe name)", kTries,
           [&] { return m_activate->SetString(kPipeNameAttribute, m_pipeName.c_str()); });
    }
    return activated;
}

bool CameraClient::Start() {
    if (!Ok("CreatePresentationDescriptor", kTries,
            [&] { return m_source->CreatePresentationDescriptor(m_presentation.Put()); })) {
        return false;
    }
    ReadGeometry();
    const PropVariant position;
    if (!Ok("Start", kTries, [&] { return m_source->Start(m_presentation.Get(), nullptr, position.Get()); })) {
        return false;
    }
    return TakeStartEvents();
}

void CameraClient::ReadGeometry() {
    BOOL selected = FALSE;
    ComPtr<IMFStreamDescriptor> stream;
    ComPtr<IMFMediaTypeHandler> handler;
    ComPtr<IMFMediaType> type;
    UINT32 numerator = 0;
    UINT32 denominator = 0;
    if (SUCCEEDED(m_presentation->GetStreamDescriptorByIndex(0, &selected, stream.Put())) &&
        SUCCEEDED(stream->GetMediaTypeHandler(handler.Put())) && SUCCEEDED(handler->GetCurrentMediaType(type.Put())) &&
        SUCCEEDED(MFGetAttributeSize(type.Get(), MF_MT_FRAME_SIZE, &m_width, &m_height)) &&
        SUCCEEDED(MFGetAttributeRatio(type.Get(), MF_MT_FRAME_RATE, &numerator, &denominator)) && numerator != 0) {
        m_duration = LONGLONG{10'000'000} * denominator / numerator;
    }
}

/// Finds the stream among the source's events.
bool CameraClient::TakeStartEvents() {
    for (const MediaEventType type : {MENewStream, MEUpdatedStream}) {
        if (m_stream) {
            break;
        }
        const ComPtr<IMFMediaEvent> event = TakeEvent(m_source.Get(), type);
        PropVariant value;
        if (event && SUCCEEDED(event->GetValue(value.Put())) && value.Type() == VT_UNKNOWN) {
            m_stream = ComPtr<IUnknown>::Share(value->punkVal).As<IMFMediaStream>();
        }
        if (!m_stream) {
            // Lost with an event that could not be taken; a repeated start tells again.
            const PropVariant position;
            m_source->Start(m_presentation.Get(), nullptr, position.Get());
        }
    }
    return static_cast<bool>(m_stream);
}

/// The next event of that type; others are dropped. Empty when none is queued.
ComPtr<IMFMediaEvent> CameraClient::TakeEvent(IMFMediaEventGenerator* generator, MediaEventType type) {
    for (int look = 0; look < 16; ++look) {
        ComPtr<IMFMediaEvent> event;
        const std::uint32_t before = Delivered();
        const HRESULT hr = generator->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.Put());
        if (hr == MF_E_NO_EVENTS_AVAILABLE || hr == MF_E_SHUTDOWN) {
            return {};
        }
        MediaEventType got = MEUnknown;
        if (FAILED(hr)) {
            m_outcome.deviations.push_back(
                {"GetEvent", hr, Delivered() != before && DeliveredThread() == GetCurrentThreadId(), false});
        } else if (SUCCEEDED(event->GetType(&got)) && got == type) {
            return event;
        }
    }
    return {};
}

Picture CameraClient::PullPicture(LONGLONG* time) {
    if (!m_stream || !Ok("RequestSample", kTries, [&] { return m_stream->RequestSample(m_factory.Get()); })) {
        return Picture::None;
    }
    const ComPtr<IMFMediaEvent> event = TakeEvent(m_stream.Get(), MEMediaSample);
    PropVariant value;
    if (!event || FAILED(event->GetValue(value.Put())) || value.Type() != VT_UNKNOWN) {
        return Picture::None;
    }
    const ComPtr<IMFSample> sample = ComPtr<IUnknown>::Share(value->punkVal).As<IMFSample>();
    return sample ? Judge(sample.Get(), m_width, m_height, time) : Picture::None;
}

void CameraClient::Restart() {
    const PropVariant position(0);
    Ok("Stop", kTries, [&] { return m_source->Stop(); });
    Ok("Start(again)", kTries, [&] { return m_source->Start(m_presentation.Get(), nullptr, position.Get()); });
}

void CameraClient::Finish() {
    if (m_source) {
        Ok("Stop(last)", kTries, [&] { return m_source->Stop(); });
    }
    if (m_activate) {
        Ok("DeleteAllItems", [&] { return m_activate->DeleteAllItems(); });
    }
    m_presentation.Reset();
    if (const ComPtr<IMFMediaSource> source = m_activate.As<IMFMediaSource>()) {
        Ok("Shutdown", [&] { return source->Shutdown(); });
        Ok("Shutdown(again)", [&] { return source->Shutdown(); });
    }
    m_stream.Reset();
    m_source.Reset();
    m_activate.Reset();
    m_factory.Reset();
}

}  // namespace ravlo::faults
