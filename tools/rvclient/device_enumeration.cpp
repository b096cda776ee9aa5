#include "rvclient/device_enumeration.h"

#include <windows.h>

#include <mfapi.h>
#include <mfidl.h>
#include <objbase.h>

#include <span>

#include "common/wide_text.h"
#include "platform/com_ptr.h"
#include "rvclient/client_error.h"

namespace ravlo {
namespace {

/// What MFEnumDeviceSources gives: memory with one reference for each device.
class DeviceArray {
public:
    DeviceArray() = default;
    DeviceArray(const DeviceArray&) = delete;
    DeviceArray& operator=(const DeviceArray&) = delete;
    ~DeviceArray() {
        for (IMFActivate* device : Devices()) {
            device->Release();
        }
        CoTaskMemFree(m_devices);
    }

    HRESULT Fill(IMFAttributes* wanted) noexcept { return MFEnumDeviceSources(wanted, &m_devices, &m_count); }
    std::span<IMFActivate*> Devices() const noexcept { return {m_devices, m_count}; }

private:
    IMFActivate** m_devices = nullptr;
    UINT32 m_count = 0;
};

/// A text attribute in UTF-8; empty when the device lacks it.
std::string TextOf(IMFActivate& device, REFGUID key) {
    UINT32 length = 0;
    if (FAILED(device.GetStringLength(key, &length))) {
        return {};
    }
    std::wstring text(length + std::size_t{1}, L'\0');
    if (FAILED(device.GetString(key, text.data(), length + 1, &length))) {
        return {};
    }
    text.resize(length);
    return ToUtf8(text);
}

}  // namespace

std::vector<ListedCamera> EnumerateCameras() {
    ComPtr<IMFAttributes> wanted;
    HRESULT hr = MFCreateAttributes(wanted.Put(), 1);
    if (SUCCEEDED(hr)) {
        hr = wanted->SetGUID(MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_GUID);
    }
    DeviceArray devices;
    if (SUCCEEDED(hr)) {
        hr = devices.Fill(wanted.Get());
    }
    if (FAILED(hr)) {
        throw FailedResult("Windows does not list its cameras", hr);
    }
    std::vector<ListedCamera> cameras;
    for (IMFActivate* device : devices.Devices()) {
        cameras.push_back({TextOf(*device, MF_DEVSOURCE_ATTRIBUTE_FRIENDLY_NAME),
                           TextOf(*device, MF_DEVSOURCE_ATTRIBUTE_SOURCE_TYPE_VIDCAP_SYMBOLIC_LINK)});
    }
    return cameras;
}

}  // namespace ravlo
