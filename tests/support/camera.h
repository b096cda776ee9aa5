// A source from the module under test, driven the way a host drives it.
#pragma once

#include "support/media.h"
#include "support/module.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace ravlo::test {

/// Wide string "WxH@N/D": the wanted geometry.
inline constexpr GUID kGeometryAttribute = {
    0x3F6B1D28, 0x94C7, 0x4E0A, {0xB5, 0xD3, 0x61, 0xA8, 0xC2, 0xE7, 0xF9, 0x04}};
/// Wide string: the frame pipe's name.
inline constexpr GUID kPipeNameAttribute = {
    0x7C41E2D9, 0x5A06, 0x4B3F, {0x8E, 0x17, 0xC2, 0xA9, 0xD4, 0xF0, 0x6B, 0x58}};
/// UINT32: the process from which a pipe name may be derived.
inline constexpr GUID kHostPidAttribute = {
    0x5F8D322E, 0x0FE4, 0x43E4, {0x9E, 0x50, 0xD8, 0x3E, 0xCD, 0x9F, 0xC2, 0xB8}};

/// A frame pipe name of this process that no other call of this function returns; names are shared by all
/// processes of a Wine prefix, so every test serves a pipe of its own.
std::wstring UniquePipeName();

/// What a Camera sets before it activates the source. An empty string leaves the attribute unset.
struct CameraOptions {
    std::wstring geometry = L"320x180@30/1";
    std::wstring pipeName = UniquePipeName();
};

/// One source: created, given its attributes and activated. Shuts it down when it goes.
/// The pipe and the gate come up on threads of the module after construction; WaitForPipe waits for them.
class Camera {
public:
    /// Throws when creation or activation fails.
    explicit Camera(const ModuleUnderTest& module, CameraOptions options = {});
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    IMFMediaSourceEx* Source() const { return m_source.Get(); }
    ComPtr<IMFActivate> Activate() const { return m_source.As<IMFActivate>(); }
    const std::wstring& PipeName() const { return m_pipeName; }

    /// Starts the source at an empty position and takes the events of the start (MENewStream or
    /// MEUpdatedStream and MESourceStarted, then MEStreamStarted) out of the queues. Throws on failure.
    void Start();
    /// Stops the source and takes MEStreamStopped and MESourceStopped out of the queues. Throws on failure.
    void Stop();
    /// The source's own Shutdown; the references stay.
    HRESULT Shutdown() { return m_source->Shutdown(); }
    /// Lets go of the source and the stream without Shutdown.
    void ReleaseAll();

    /// The stream; empty before the first Start.
    IMFMediaStream* Stream() const { return m_stream.Get(); }
    /// One sample of the started stream. Throws on failure.
    Sample Pull(IUnknown* token = nullptr) { return RequestSample(m_stream.Get(), token); }
    /// Pulls samples until `wanted` accepts one; nothing when none was accepted within `timeoutMs`.
    std::optional<Sample> PullUntil(const std::function<bool(const Sample&)>& wanted, DWORD timeoutMs = kPatienceMs);

private:
    ComPtr<IMFMediaSourceEx> m_source;
    ComPtr<IMFMediaStream> m_stream;
    std::wstring m_pipeName;
};

/// A copy of the source's presentation descriptor. Throws on failure.
ComPtr<IMFPresentationDescriptor> PresentationOf(IMFMediaSource* source);
/// The media type that the source advertises on its one stream. Throws on failure.
ComPtr<IMFMediaType> MediaTypeOf(IMFMediaSource* source);

/// Waits until a pipe server of that name exists (a busy one counts), without connecting to it.
bool WaitForPipe(const std::wstring& name, DWORD timeoutMs = kPatienceMs);

}  // namespace ravlo::test
