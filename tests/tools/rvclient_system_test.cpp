// What rvclient asks of the system in its own process: the list of cameras, and a camera as the stand-in makes it.
#include "rvclient/camera_actions.h"
#include "rvclient/camera_class.h"
#include "rvclient/client_error.h"
#include "rvclient/device_enumeration.h"
#include "rvclient/virtual_camera_library.h"

#include <gtest/gtest.h>

#include <mfapi.h>
#include <mferror.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "common/exit_codes.h"
#include "support/com.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "tools/rvclient_test_stage.h"

namespace ravlo::test {
namespace {

class CameraEnumeration : public ModuleTest {
protected:
    /// An activation object such as the system lists; a null text leaves its attribute unset.
    ComPtr<IMFActivate> Device(const wchar_t* name, const wchar_t* link) const {
        auto device = m_module.CreateSource<IMFActivate>();
        device->DeleteAllItems();
        if (name) {
            Require(device->SetString(MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME, name), "SetString");
        }
        if (link) {
            Require(device->SetString(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK, link), "SetString");
        }
        return device;
    }

    MediaFoundation m_mediaFoundation;
    using EnumerationHook = RAVLO_HOOK(MFEnumDeviceSources);
    EnumerationHook m_enumeration{GetModuleHandleW(nullptr)};
};

TEST_F(CameraEnumeration, NamesAndLinksComeInTheSystemsOrderAndNothingIsKept) {
    const std::vector<ComPtr<IMFActivate>> devices{Device(L"K\u00FCche", L"\\\\?\\usb#1"),
                                                   Device(nullptr, L"\\\\?\\swd#vcamdevapi#2"), Device(L"", nullptr)};
    m_enumeration.Replace([&](IMFAttributes* wanted, IMFActivate*** list, UINT32* count) -> HRESULT {
        GUID type{};
        EXPECT_EQ(wanted->GetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, &type), S_OK);
        EXPECT_EQ(type, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID);
        *list = static_cast<IMFActivate**>(CoTaskMemAlloc(devices.size() * sizeof(IMFActivate*)));
        *count = static_cast<UINT32>(devices.size());
        for (std::size_t i = 0; i < devices.size(); ++i) {
            (*list)[i] = ComPtr<IMFActivate>(devices[i]).Detach();
        }
        return S_OK;
    });
    const std::vector<ListedCamera> cameras = EnumerateCameras();
    ASSERT_EQ(cameras.size(), 3U);
    EXPECT_EQ(cameras[0].name,
              "K\xC3\xBC"
              "che");
    EXPECT_EQ(cameras[0].link, "\\\\?\\usb#1");
    EXPECT_EQ(cameras[1].name, "");
    EXPECT_EQ(cameras[1].link, "\\\\?\\swd#vcamdevapi#2");
    EXPECT_EQ(cameras[2].name, "");
    EXPECT_EQ(cameras[2].link, "");
    for (const ComPtr<IMFActivate>& device : devices) {
        EXPECT_EQ(ReferenceCount(device.Get()), 1U);
    }
}

TEST_F(CameraEnumeration, AListThatTheSystemDoesNotGiveIsAFailureWithItsReason) {
    m_enumeration.FailEvery(E_ACCESSDENIED);
    try {
        EnumerateCameras();
        FAIL() << "there is no list";
    } catch (const ProgramError& error) {
        EXPECT_EQ(error.Code(), ExitCode::AccessDenied);
        EXPECT_STREQ(error.what(), "Windows does not list its cameras: access is denied (0x80070005)");
    }
}

TEST(CameraClass, IsWhatTheModuleRegistersForTheMachine) {
    EXPECT_EQ(CameraClassIdText(), L"{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}");
    const PrivateLocalMachine localMachine;
    const AnchorGuard anchor(CurrentUserSid());
    const ModuleUnderTest module;
    EXPECT_FALSE(IsCameraClassRegistered());
    ASSERT_EQ(module.RegisterServer(), S_OK);
    EXPECT_TRUE(IsCameraClassRegistered());
    ASSERT_EQ(module.UnregisterServer(), S_OK);
    EXPECT_FALSE(IsCameraClassRegistered());
}

TEST_F(CameraEnumeration, AStartWarnsOfACameraThatHasTheNameAlready) {
    const RegisteredCamera registered;
    const auto earlier = Device(L"Mine (Windows Virtual Camera)", L"\\\\?\\swd#vcamdevapi#1");
    m_enumeration.Replace([&](IMFAttributes*, IMFActivate*** list, UINT32* count) -> HRESULT {
        *list = static_cast<IMFActivate**>(CoTaskMemAlloc(sizeof(IMFActivate*)));
        **list = ComPtr<IMFActivate>(earlier).Detach();
        *count = 1;
        return S_OK;
    });
    const EnvironmentVariable failures(L"RAVLO_STANDIN_FAIL", L"Start=80070490");
    StartRequest request;
    request.geometry = "320x180@30/1";
    const auto start = [&](const char* name) {
        request.camera.name = name;
        ::testing::internal::CaptureStderr();
        EXPECT_THROW(StartCamera(request, nullptr), ProgramError);
        return ::testing::internal::GetCapturedStderr();
    };
    EXPECT_EQ(start("Mine"),
              "ravlo: the camera \"Mine\" is there already; if it was started with another size or pipe, use rvclient "
              "remove first\n");
    EXPECT_EQ(start("Another"), "");
    m_enumeration.FailEvery(E_FAIL);
    EXPECT_EQ(start("Mine"), "");
}

/// The stand-in is only worth something when it does what the system's documentation promises.
class StandInCamera : public ::testing::Test {
protected:
    AnchorGuard m_anchor{CurrentUserSid()};
    RegisteredCamera m_class;
    CameraRecord m_record;
    MediaFoundation m_mediaFoundation;
};

TEST_F(StandInCamera, IsASetOfAttributes) {
    const auto camera = VirtualCameraLibrary().Open({});
    ASSERT_EQ(camera->SetUINT32(kHostPidAttribute, 7), S_OK);
    ComPtr<IMFAttributes> attributes;
    ASSERT_EQ(camera->QueryInterface(__uuidof(IMFAttributes), attributes.PutVoid()), S_OK);
    UINT32 value = 0;
    EXPECT_EQ(attributes->GetUINT32(kHostPidAttribute, &value), S_OK);
    EXPECT_EQ(value, 7U);
    ComPtr<IMFVirtualCamera> again;
    EXPECT_EQ(attributes->QueryInterface(__uuidof(IMFVirtualCamera), again.PutVoid()), S_OK);
    EXPECT_EQ(again.Get(), camera.Get());
    EXPECT_EQ(camera->Shutdown(), S_OK);
}

TEST_F(StandInCamera, HandsOutTheSourceThatItActivatedWithItsAttributes) {
    const auto camera = VirtualCameraLibrary().Open({});
    ComPtr<IMFMediaSource> source;
    EXPECT_EQ(camera->GetMediaSource(source.Put()), MF_E_INVALIDREQUEST);
    ASSERT_EQ(camera->SetString(kGeometryAttribute, L"640x480@25/1"), S_OK);
    ASSERT_EQ(camera->SetString(kPipeNameAttribute, UniquePipeName().c_str()), S_OK);
    ASSERT_EQ(camera->Start(nullptr), S_OK);
    ASSERT_EQ(camera->GetMediaSource(source.Put()), S_OK);
    UINT32 width = 0;
    UINT32 height = 0;
    EXPECT_EQ(MFGetAttributeSize(MediaTypeOf(source.Get()).Get(), MF_MT_FRAME_SIZE, &width, &height), S_OK);
    EXPECT_EQ(width, 640U);
    EXPECT_EQ(height, 480U);
    // What the source itself has published is still there.
    std::array<wchar_t, 32> name{};
    const auto activate = source.As<IMFActivate>();
    EXPECT_EQ(activate->GetString(MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME, name.data(), 32, nullptr), S_OK);
    EXPECT_STREQ(name.data(), L"Ravlo Source");
    EXPECT_EQ(camera->Stop(), S_OK);
    ComPtr<IMFPresentationDescriptor> presentation;
    EXPECT_EQ(source->CreatePresentationDescriptor(presentation.Put()), MF_E_SHUTDOWN);
    EXPECT_EQ(camera->Shutdown(), S_OK);
    EXPECT_EQ(camera->Start(nullptr), MF_E_SHUTDOWN);
}

}  // namespace
}  // namespace ravlo::test
