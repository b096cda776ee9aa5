#include "rvclient/virtual_camera_library.h"

#include <string>

#include "common/wide_text.h"
#include "rvclient/camera_class.h"
#include "rvclient/client_error.h"

namespace ravlo {
namespace {

constexpr wchar_t kLibrary[] = L"mfsensorgroup.dll";

ProgramError Unsupported(const std::string& reason) {
    return {ExitCode::UnsupportedSystem,
            "this system has no virtual cameras (" + reason +
                "): they need Windows 11, build 22000 or later; rvhost runs the camera on older systems"};
}

template <class Function>
Function Find(HMODULE library, const char* name) {
    const auto function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(library, name)));
    if (function == nullptr) {
        throw Unsupported(std::string("mfsensorgroup.dll offers no ") + name);
    }
    return function;
}

}  // namespace

VirtualCameraLibrary::VirtualCameraLibrary() {
    // Never unloaded: cameras may have threads of its code at work until the process ends.
    const HMODULE library = LoadLibraryExW(kLibrary, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    if (library == nullptr) {
        const DWORD error = GetLastError();
        throw Unsupported("mfsensorgroup.dll cannot be loaded: " + SystemErrorText(error));
    }
    m_create = Find<CreateVirtualCameraFunction>(library, "MFCreateVirtualCamera");
    const auto isSupported = Find<IsVirtualCameraTypeSupportedFunction>(library, "MFIsVirtualCameraTypeSupported");
    BOOL supported = FALSE;
    const HRESULT hr = isSupported(VirtualCameraType::SoftwareCameraSource, &supported);
    if (FAILED(hr)) {
        throw FailedResult("Windows does not say whether it supports virtual cameras", hr);
    }
    if (!supported) {
        throw Unsupported("Windows says that it does not support them");
    }
}

ComPtr<IMFVirtualCamera> VirtualCameraLibrary::Open(const CameraIdentity& identity) const {
    ComPtr<IMFVirtualCamera> camera;
    // No categories: the system then takes those of a video camera.
    const HRESULT hr = m_create(VirtualCameraType::SoftwareCameraSource,
                                identity.session ? VirtualCameraLifetime::Session : VirtualCameraLifetime::System,
                                identity.allUsers ? VirtualCameraAccess::AllUsers : VirtualCameraAccess::CurrentUser,
                                ToWide(identity.name).c_str(), CameraClassIdText().c_str(), nullptr, 0, camera.Put());
    if (FAILED(hr)) {
        throw CameraFailure("cannot be created", identity, hr);
    }
    if (!camera) {
        throw CameraFailure("cannot be created", identity, E_POINTER);
    }
    return camera;
}

}  // namespace ravlo
