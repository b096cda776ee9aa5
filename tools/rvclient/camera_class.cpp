#include "rvclient/camera_class.h"

#include <windows.h>

#include <objbase.h>

#include <array>

#include "platform/registry_key.h"
#include "ravlo/ids.h"

namespace ravlo {

std::wstring CameraClassIdText() {
    constexpr int kGuidTextCapacity = 39;  // with its terminator
    std::array<wchar_t, kGuidTextCapacity> text{};
    StringFromGUID2(kMediaSourceClassId, text.data(), kGuidTextCapacity);
    return text.data();
}

bool IsCameraClassRegistered() {
    const std::wstring name = L"SOFTWARE\\Classes\\CLSID\\" + CameraClassIdText() + L"\\InprocServer32";
    RegistryKey key;
    return RegOpenKeyExW(HKEY_LOCAL_MACHINE, name.c_str(), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, key.Put()) ==
           ERROR_SUCCESS;
}

}  // namespace ravlo
