// The system's functions for virtual cameras, and how rvclient finds that they are not there.
#include "rvclient/virtual_camera_library.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "common/exit_codes.h"
#include "rvclient/client_error.h"
#include "rvclient/virtual_camera_api.h"
#include "support/import_hooks.h"

namespace ravlo::test {
namespace {

HMODULE ThisProgram() {
    return GetModuleHandleW(nullptr);
}

/// What keeps the library from being used; code Ok and no sentence when nothing does.
struct Refusal {
    ExitCode code = ExitCode::Ok;
    std::string sentence;
};

Refusal TryToLoad() {
    try {
        const VirtualCameraLibrary library;
        return {};
    } catch (const ProgramError& error) {
        return {error.Code(), error.what()};
    }
}

constexpr char kNeeds[] = "): they need Windows 11, build 22000 or later; rvhost runs the camera on older systems";

TEST(VirtualCameraLibrary, IsLookedForInTheSystemDirectoryOnly) {
    RAVLO_HOOK(LoadLibraryExW) loads(ThisProgram());
    EXPECT_EQ(TryToLoad().sentence, "");
    ASSERT_EQ(loads.Count(), 1U);
    EXPECT_EQ(std::get<0>(loads.Calls()[0]), L"mfsensorgroup.dll");
    EXPECT_EQ(std::get<2>(loads.Calls()[0]), 0x00000800U);  // LOAD_LIBRARY_SEARCH_SYSTEM32
}

TEST(VirtualCameraLibrary, ASystemWithoutItIsUnsupported) {
    RAVLO_HOOK(LoadLibraryExW) loads(ThisProgram());
    loads.FailEvery(nullptr, ERROR_MOD_NOT_FOUND);
    const Refusal refusal = TryToLoad();
    EXPECT_EQ(refusal.code, ExitCode::UnsupportedSystem);
    EXPECT_TRUE(
        refusal.sentence.starts_with("this system has no virtual cameras (mfsensorgroup.dll cannot be loaded: "))
        << refusal.sentence;
    EXPECT_TRUE(refusal.sentence.ends_with(std::string("(error 126)") + kNeeds)) << refusal.sentence;
}

TEST(VirtualCameraLibrary, ALibraryWithoutOneOfTheFunctionsIsUnsupported) {
    for (const char* missing : {"MFCreateVirtualCamera", "MFIsVirtualCameraTypeSupported"}) {
        RAVLO_HOOK(GetProcAddress) lookups(ThisProgram());
        lookups.FailWhen([missing](HMODULE, LPCSTR name) { return std::strcmp(name, missing) == 0; }, nullptr,
                         ERROR_PROC_NOT_FOUND);
        const Refusal refusal = TryToLoad();
        EXPECT_EQ(refusal.code, ExitCode::UnsupportedSystem);
        EXPECT_EQ(refusal.sentence,
                  std::string("this system has no virtual cameras (mfsensorgroup.dll offers no ") + missing + kNeeds);
    }
}

TEST(VirtualCameraLibrary, ASuccessWithoutACameraIsAFailure) {
    RAVLO_HOOK(GetProcAddress) lookups(ThisProgram());
    lookups.Replace([](HMODULE module, LPCSTR name) -> FARPROC {
        if (std::strcmp(name, "MFCreateVirtualCamera") != 0) {
            return decltype(lookups)::CallOriginal(module, name);
        }
        const CreateVirtualCameraFunction createNothing = [](VirtualCameraType, VirtualCameraLifetime,
                                                             VirtualCameraAccess, LPCWSTR, LPCWSTR, const GUID*, ULONG,
                                                             IMFVirtualCamera**) -> HRESULT { return S_OK; };
        return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(createNothing));
    });
    const VirtualCameraLibrary library;
    EXPECT_THROW(library.Open({}), ProgramError);
}

}  // namespace
}  // namespace ravlo::test
