#include "source/sensor_profiles.h"

#include <atomic>
#include <bit>

#include "platform/com_ptr.h"
#include "platform/mf_ids.h"
#include "platform/sensor_profile.h"
#include "trace/trace.h"

namespace ravlo {
namespace {

constexpr UINT32 kStreamId = 0;
constexpr UINT32 kProfileIndex = 0;
/// No condition on resolution, frame rate or subtype.
constexpr wchar_t kFilterSet[] = L"((RES==;FRT==;SUT==))";

struct SensorProfileFunctions {
    CreateSensorProfileFunction createProfile = nullptr;
    CreateSensorProfileCollectionFunction createCollection = nullptr;
};

constinit std::atomic<HMODULE> g_library{nullptr};

/// The library, from the system directory only. Loaded once and never freed: the profile objects live in an attribute
/// store that clients may hold longer than this module is loaded, and their code must not go away before them.
HMODULE LoadSensorGroupLibrary() noexcept {
    HMODULE library = g_library.load();
    if (library == nullptr) {
        library = LoadLibraryExW(L"mfsensorgroup.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        HMODULE none = nullptr;
        if (library != nullptr && !g_library.compare_exchange_strong(none, library)) {
            FreeLibrary(library);
            library = none;
        }
    }
    return library;
}

template <class Function>
bool Resolve(HMODULE library, const char* name, Function& function) noexcept {
    function = std::bit_cast<Function>(GetProcAddress(library, name));
    return function != nullptr;
}

/// Both functions, resolved at run time because they are younger than the rest of the platform: an import would keep
/// the module from loading where they are missing. False leaves the reason in `error`.
bool ResolveFunctions(SensorProfileFunctions& functions, DWORD& error) noexcept {
    const HMODULE library = LoadSensorGroupLibrary();
    if (library != nullptr && Resolve(library, "MFCreateSensorProfileCollection", functions.createCollection) &&
        Resolve(library, "MFCreateSensorProfile", functions.createProfile)) {
        return true;
    }
    error = GetLastError();
    return false;
}

}  // namespace

HRESULT PublishSensorProfileCollection(IMFAttributes* sourceAttributes) noexcept {
    if (sourceAttributes == nullptr) {
        return E_UNEXPECTED;
    }
    SensorProfileFunctions functions;
    DWORD error = ERROR_SUCCESS;
    if (!ResolveFunctions(functions, error)) {
        RvTrace(
            "WARN SRC.Initialize mfsensorgroup.dll offers no sensor profiles on this system (err=%lu) - the source "
            "goes on without a profile collection",
            error);
        return S_OK;
    }
    ComPtr<IMFSensorProfileCollection> collection;
    ComPtr<IMFSensorProfile> profile;
    HRESULT hr = functions.createCollection(collection.Put());
    if (SUCCEEDED(hr)) {
        hr = functions.createProfile(kLegacyCameraProfile, kProfileIndex, nullptr, profile.Put());
    }
    if (SUCCEEDED(hr)) {
        hr = profile->AddProfileFilter(kStreamId, kFilterSet);
    }
    if (SUCCEEDED(hr)) {
        hr = collection->AddProfile(profile.Get());
    }
    if (SUCCEEDED(hr)) {
        hr = sourceAttributes->SetUnknown(kSensorProfileCollection, collection.Get());
    }
    return hr;
}

}  // namespace ravlo
