#include "stream/activation_names.h"

#include <mferror.h>

#include <algorithm>

#include "ravlo/ids.h"

namespace ravlo {

ExplicitName ReadExplicitPipeName(IMFAttributes* attributes, wchar_t* buffer, std::size_t capacity) noexcept {
    if (buffer == nullptr || capacity < kPipeNameCapacity) {
        if (buffer != nullptr && capacity > 0) {
            buffer[0] = L'\0';
        }
        return ExplicitName::Absent;
    }
    buffer[0] = L'\0';
    if (attributes == nullptr) {
        return ExplicitName::Absent;
    }
    // A buffer of our own: whatever the store writes is judged before the caller sees a character of it.
    wchar_t text[kPipeNameCapacity]{};
    UINT32 length = 0;
    if (FAILED(attributes->GetString(kPipeNameAttribute, text, static_cast<UINT32>(kPipeNameCapacity), &length))) {
        return ExplicitName::Absent;
    }
    PipeName name;
    const ExplicitName outcome = JudgeExplicitName(text, length, name);
    if (outcome == ExplicitName::Accepted) {
        std::copy_n(name.text, kPipeNameCapacity, buffer);
    }
    return outcome;
}

HRESULT ReadHostPid(IMFAttributes* attributes, std::uint32_t* pid) noexcept {
    if (pid == nullptr) {
        return E_POINTER;
    }
    *pid = 0;
    if (attributes == nullptr) {
        return E_POINTER;
    }
    UINT32 value = 0;
    const HRESULT hr = attributes->GetUINT32(kHostProcessIdAttribute, &value);
    if (hr == MF_E_ATTRIBUTENOTFOUND || (SUCCEEDED(hr) && value == 0)) {
        return S_FALSE;
    }
    if (FAILED(hr)) {
        return hr;
    }
    *pid = value;
    return S_OK;
}

ExplicitName StreamActivationNames::ReadNames(PipeName& name, std::uint32_t& hostPid) noexcept {
    const ComPtr<IMFAttributes> attributes = m_store.ReferenceActivationStore();
    hostPid = 0;
    const ExplicitName outcome = ReadExplicitPipeName(attributes.Get(), name.text, kPipeNameCapacity);
    if (outcome != ExplicitName::Accepted) {
        ReadHostPid(attributes.Get(), &hostPid);
    }
    return outcome;
}

}  // namespace ravlo
