#include "rvhost/camera.h"

#include <mfapi.h>
#include <unknwn.h>

#include "common/parse_text.h"
#include "common/result_text.h"
#include "common/wide_text.h"
#include "ravlo/ids.h"

namespace ravlo {
namespace {

constexpr DWORD kFirstVideoStream = static_cast<DWORD>(MF_SOURCE_READER_FIRST_VIDEO_STREAM);

std::string WithResult(const std::string& what, HRESULT hr) {
    return what + ": " + ResultText(hr);
}

/// For what fails inside a camera that is installed.
void Check(HRESULT hr, const char* what) {
    if (FAILED(hr)) {
        throw ProgramError(ExitCode::Failure, WithResult(what, hr) + "; rvsetup doctor tells what is wrong");
    }
}

/// For a camera that is not there, or is something else: what helps is to install it.
void CheckInstalled(HRESULT hr, const std::string& what, const std::string& advice) {
    if (FAILED(hr)) {
        throw ProgramError(ExitCode::NotInstalled, WithResult(what, hr) + advice);
    }
}

ComPtr<IMFActivate> CreateRegistered() {
    ComPtr<IMFActivate> activate;
    const HRESULT hr =
        CoCreateInstance(kMediaSourceClassId, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(activate.Put()));
    if (hr == REGDB_E_CLASSNOTREG) {
        throw ProgramError(ExitCode::NotInstalled,
                           "the camera is not registered: run rvsetup install as administrator, or name its file with "
                           "--dll");
    }
    CheckInstalled(hr, "the camera is registered but cannot be created",
                   "; run rvsetup install again; rvsetup doctor tells what is wrong");
    return activate;
}

/// The loader asks for a full path; what the user gives may start at the current folder.
std::wstring FullPath(const std::string& text) {
    const std::wstring path = ToWide(text);
    std::wstring full(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr), L'\0');
    const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (length == 0 || length >= full.size()) {
        throw ProgramError(ExitCode::NotInstalled, "\"" + text + "\" is no path; name the camera's file with --dll");
    }
    full.resize(length);
    return full;
}

ComPtr<IMFActivate> CreateFromDll(const std::string& file) {
    constexpr const char* kAdvice = "; give the path of rvmediasource.dll, or run rvsetup install and leave --dll out";
    const std::wstring path = FullPath(file);
    const std::string name = ToUtf8(path);
    // Never unloaded: the reader may let go of the last objects on threads of its own.
    const HMODULE module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (module == nullptr) {
        const DWORD error = GetLastError();
        throw ProgramError(ExitCode::NotInstalled, "cannot load " + name + ": " + SystemErrorText(error) + kAdvice);
    }
    const auto getClassObject = reinterpret_cast<decltype(&DllGetClassObject)>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    if (getClassObject == nullptr) {
        throw ProgramError(ExitCode::NotInstalled,
                           name + " is no COM server, it exports no DllGetClassObject" + kAdvice);
    }
    ComPtr<IClassFactory> factory;
    CheckInstalled(getClassObject(kMediaSourceClassId, IID_PPV_ARGS(factory.Put())),
                   name + " does not hold the camera's class", kAdvice);
    ComPtr<IMFActivate> activate;
    Check(factory->CreateInstance(nullptr, IID_PPV_ARGS(activate.Put())), "the camera cannot be created");
    return activate;
}

FrameGeometry ReadGeometry(IMFSourceReader& reader) {
    ComPtr<IMFMediaType> type;
    Check(reader.GetCurrentMediaType(kFirstVideoStream, type.Put()), "the camera shows no media type");
    GUID subtype{};
    Check(type->GetGUID(MF_MT_SUBTYPE, &subtype), "the camera's media type has no subtype");
    if (subtype != MFVideoFormat_NV12) {
        throw ProgramError(ExitCode::Failure, "the camera does not deliver NV12");
    }
    FrameGeometry geometry{};
    Check(MFGetAttributeSize(type.Get(), MF_MT_FRAME_SIZE, &geometry.width, &geometry.height),
          "the camera's media type has no frame size");
    Check(MFGetAttributeRatio(type.Get(), MF_MT_FRAME_RATE, &geometry.rateNumerator, &geometry.rateDenominator),
          "the camera's media type has no frame rate");
    return geometry;
}

/// A camera is its own activation object, and what it holds is given back by Shutdown, not by the last Release.
class CameraGuard {
public:
    explicit CameraGuard(IMFActivate* camera) noexcept : m_camera(camera) {}
    CameraGuard(const CameraGuard&) = delete;
    CameraGuard& operator=(const CameraGuard&) = delete;
    ~CameraGuard() {
        ComPtr<IMFMediaSource> source;
        if (m_camera != nullptr && SUCCEEDED(m_camera->QueryInterface(IID_PPV_ARGS(source.Put())))) {
            source->Shutdown();
        }
    }

    /// Somebody else shuts it down from now on.
    void Dismiss() noexcept { m_camera = nullptr; }

private:
    IMFActivate* m_camera;
};

}  // namespace

Camera::Camera(const CameraOptions& options) {
    const ComPtr<IMFActivate> activate = options.dll.empty() ? CreateRegistered() : CreateFromDll(options.dll);
    CameraGuard guard(activate.Get());
    if (options.geometry) {
        Check(activate->SetString(RV_GEOMETRY_ATTRIBUTE, ToWide(GeometryText(*options.geometry)).c_str()),
              "the geometry cannot be set");
    }
    if (!options.pipeName.empty()) {
        Check(activate->SetString(kPipeNameAttribute, ToWide(options.pipeName).c_str()), "the pipe name cannot be set");
    }
    ComPtr<IMFMediaSource> source;
    Check(activate->ActivateObject(IID_PPV_ARGS(source.Put())), "the camera cannot be activated");
    Check(MFCreateSourceReaderFromMediaSource(source.Get(), nullptr, m_reader.Put()),
          "the system's source reader refuses the camera");
    guard.Dismiss();
    m_geometry = ReadGeometry(*m_reader.Get());
    if (options.geometry && m_geometry != *options.geometry) {
        throw ProgramError(ExitCode::Failure,
                           "the camera did not take the requested geometry; it offers " + GeometryText(m_geometry));
    }
}

ComPtr<IMFSample> Camera::ReadSample() {
    DWORD flags = 0;
    LONGLONG time = 0;
    ComPtr<IMFSample> sample;
    Check(m_reader->ReadSample(kFirstVideoStream, 0, nullptr, &flags, &time, sample.Put()),
          "the camera's stream has failed");
    if ((flags & (MF_SOURCE_READERF_ERROR | MF_SOURCE_READERF_ENDOFSTREAM)) != 0) {
        throw ProgramError(ExitCode::Failure, "the camera's stream has ended; rvsetup doctor tells what is wrong");
    }
    return sample;
}

}  // namespace ravlo
