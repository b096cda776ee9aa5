#include "stream/media_type_attributes.h"

#include "platform/com_ptr.h"

namespace ravlo {

HRESULT MediaTypeAttribute::SetOn(IMFAttributes* attributes) const noexcept {
    switch (m_kind) {
        case Kind::Guid:
            return attributes->SetGUID(m_key, m_guid);
        case Kind::Number:
            return attributes->SetUINT32(m_key, static_cast<UINT32>(m_value));
        default:
            return attributes->SetUINT64(m_key, m_value);
    }
}

HRESULT CreateMediaType(std::span<const MediaTypeAttribute> attributes, IMFMediaType** mediaType) noexcept {
    *mediaType = nullptr;
    ComPtr<IMFMediaType> created;
    HRESULT hr = MFCreateMediaType(created.Put());
    for (const MediaTypeAttribute& attribute : attributes) {
        if (FAILED(hr)) {
            return hr;
        }
        hr = attribute.SetOn(created.Get());
    }
    if (SUCCEEDED(hr)) {
        *mediaType = created.Detach();
    }
    return hr;
}

}  // namespace ravlo
