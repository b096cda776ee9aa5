// The client of the camera in a play: every call is a step whose result is compared with that of a play without fault.
#pragma once

#include "faults/scenario.h"
#include "support/com.h"

#include <windows.h>

#include <mfidl.h>
#include <mfobjects.h>

#include <cstdint>
#include <functional>
#include <string>

namespace ravlo::faults {

/// What a sample shows.
enum class Picture { None, Live, Pattern, Mixture };

class CameraClient {
public:
    explicit CameraClient(Outcome& outcome);
    ~CameraClient();
    CameraClient(const CameraClient&) = delete;
    CameraClient& operator=(const CameraClient&) = delete;

    const std::wstring& PipeName() const { return m_pipeName; }
    /// The picture that the camera advertises: what was asked for, unless the request could not be read.
    std::uint32_t Width() const { return m_width; }
    std::uint32_t Height() const { return m_height; }
    LONGLONG SampleDuration() const { return m_duration; }

    bool Load();
    void Unload();
    bool CanUnload() const { return m_canUnload() == S_OK; }

    void Register();
    bool Create();
    bool Activate();
    bool Start();
    /// Every method that neither changes the state nor delivers a picture.
    void UseFaces();
    /// One sample: requested, taken out of the queue, and looked at.
    Picture PullPicture(LONGLONG* time = nullptr);
    void Restart();
    void Finish();

private:
    using Call = std::function<HRESULT()>;
    /// Runs a call that gives `expected` when nothing fails. A call that a staged failure made fail is tried again as
    /// often as `tries` says, and must then give what was expected.
    bool Step(const char* name, HRESULT expected, const Call& call, int tries = 1);
    bool Ok(const char* name, const Call& call) { return Ok(name, 1, call); }
    bool Ok(const char* name, int tries, const Call& call) { return Step(name, S_OK, call, tries); }

    void UseAttributes(IMFAttributes* attributes);
    void UseControlSurface();
    void UseSourceEvents();
    void UseStreamFaces();
    bool TakeStartEvents();
    void ReadGeometry();
    test::ComPtr<IMFMediaEvent> TakeEvent(IMFMediaEventGenerator* generator, MediaEventType type);

    Outcome& m_outcome;
    std::wstring m_pipeName;
    std::uint32_t m_width = 320;
    std::uint32_t m_height = 180;
    LONGLONG m_duration = 333'333;
    HMODULE m_module = nullptr;
    HRESULT(WINAPI* m_getClassObject)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(WINAPI* m_canUnload)() = nullptr;
    HRESULT(WINAPI* m_register)() = nullptr;
    HRESULT(WINAPI* m_unregister)() = nullptr;
    test::ComPtr<IClassFactory> m_factory;
    test::ComPtr<IMFActivate> m_activate;
    test::ComPtr<IMFMediaSourceEx> m_source;
    test::ComPtr<IMFPresentationDescriptor> m_presentation;
    test::ComPtr<IMFMediaStream> m_stream;
};

}  // namespace ravlo::faults
