#include "rvclient/camera_actions.h"

#include <cstdint>
#include <string>
#include <vector>

#include "common/clock.h"
#include "common/console.h"
#include "common/media_platform.h"
#include "common/messages.h"
#include "common/wide_text.h"
#include "platform/com_ptr.h"
#include "ravlo/ids.h"
#include "rvclient/camera_class.h"
#include "rvclient/camera_list.h"
#include "rvclient/client_error.h"
#include "rvclient/device_enumeration.h"
#include "rvclient/virtual_camera_library.h"

namespace ravlo {
namespace {

void Check(HRESULT hr, const char* what, const CameraIdentity& identity) {
    if (FAILED(hr)) {
        throw CameraFailure(what, identity, hr);
    }
}

std::string Quoted(const CameraIdentity& identity) {
    return "the camera \"" + identity.name + "\"";
}

/// With what its producer has to know.
std::string Described(const StartRequest& request) {
    return Quoted(request.camera) + " (" + request.geometry + ", " + ToUtf8(request.pipe.text) + ")";
}

/// What is set now may not reach a camera that runs already.
void WarnOfEarlierCamera(const CameraIdentity& identity) {
    try {
        for (const ListedCamera& listed : EnumerateCameras()) {
            if (IsNamedCamera(listed, identity.name)) {
                Say(Quoted(identity) +
                    " is there already; if it was started with another size or pipe, use rvclient remove first");
                return;
            }
        }
    } catch (const ProgramError&) {
        return;  // only a warning is lost; what keeps the list away also fails the start, which tells it
    }
}

/// What is set before the start reaches the activation of the source.
void SetActivationAttributes(IMFVirtualCamera& camera, const StartRequest& request) {
    Check(camera.SetString(RV_GEOMETRY_ATTRIBUTE, ToWide(request.geometry).c_str()), "does not take its geometry",
          request.camera);
    Check(camera.SetString(kPipeNameAttribute, request.pipe.text), "does not take its pipe name", request.camera);
}

std::string SecondsText(std::int64_t ticks) {
    const std::int64_t seconds = ticks / kTicksPerSecond;
    return std::to_string(seconds) + (seconds == 1 ? " second" : " seconds");
}

ExitCode KeepUntilInterrupted(IMFVirtualCamera& camera, const StartRequest& request, HANDLE interrupted) {
    const CameraIdentity& identity = request.camera;
    const std::int64_t start = SteadyTicks();
    Say(Described(request) + " is there until Ctrl+C");
    WaitForSingleObject(interrupted, INFINITE);
    Say("taking " + Quoted(identity) + " away");
    const HRESULT stopped = camera.Stop();
    camera.Remove();  // whatever it gives: a session camera is gone when its program is, and this is only to be sure
    const HRESULT shutDown = camera.Shutdown();
    Check(stopped, "cannot be stopped", identity);
    Check(shutDown, "cannot be shut down", identity);
    Say(Quoted(identity) + " is gone; it was there for " + SecondsText(SteadyTicks() - start));
    return ExitCode::Interrupted;
}

}  // namespace

ExitCode StartCamera(const StartRequest& request, HANDLE interrupted) {
    const MediaPlatform platform;
    const VirtualCameraLibrary library;
    if (!IsCameraClassRegistered()) {
        throw ProgramError(ExitCode::NotInstalled, "the camera is not installed: run rvsetup install as administrator");
    }
    WarnOfEarlierCamera(request.camera);
    const ComPtr<IMFVirtualCamera> camera = library.Open(request.camera);
    SetActivationAttributes(*camera.Get(), request);
    Check(camera->Start(nullptr), "cannot be started", request.camera);
    if (request.camera.session) {
        return KeepUntilInterrupted(*camera.Get(), request, interrupted);
    }
    // No Shutdown here: the camera is to outlive this object.
    Say(Described(request) + " is started and stays until rvclient remove");
    return ExitCode::Ok;
}

ExitCode StopCamera(const CameraIdentity& identity) {
    const MediaPlatform platform;
    const ComPtr<IMFVirtualCamera> camera = VirtualCameraLibrary().Open(identity);
    const HRESULT hr = camera->Stop();
    camera->Shutdown();
    Check(hr, "cannot be stopped", identity);
    Say(Quoted(identity) + " is stopped; rvclient start shows it again");
    return ExitCode::Ok;
}

ExitCode RemoveCamera(const CameraIdentity& identity) {
    const MediaPlatform platform;
    const ComPtr<IMFVirtualCamera> camera = VirtualCameraLibrary().Open(identity);
    const HRESULT hr = camera->Remove();
    camera->Shutdown();
    Check(hr, "cannot be removed", identity);
    Say(Quoted(identity) + " is removed");
    return ExitCode::Ok;
}

ExitCode ListCameras(const ListRequest& request) {
    const MediaPlatform platform;
    const std::vector<ListedCamera> cameras = EnumerateCameras();
    const std::string text =
        request.json ? CameraListJson(cameras, request.name) : CameraListText(cameras, request.name);
    if (!WriteOutput(text)) {
        throw ProgramError(ExitCode::Failure, "the list cannot be written to standard output");
    }
    if (cameras.empty() && !request.json) {
        Say("there is no camera");
    }
    return ExitCode::Ok;
}

}  // namespace ravlo
