// Stand-in for the system's mfsensorgroup.dll, which Wine does not have: the two functions and two objects that a media
// source needs to publish its sensor profiles. It keeps what it is given and hands it out again. Never shipped.
#include <windows.h>

#include <objbase.h>

#include "platform/sensor_profile.h"

#include "object.h"

#include <cstddef>
#include <map>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

using ravlo::standin::Object;

bool SameProfile(const SENSORPROFILEID& left, const SENSORPROFILEID& right) {
    return IsEqualGUID(left.Type, right.Type) && left.Index == right.Index;
}

class Profile final : public Object<IMFSensorProfile> {
public:
    explicit Profile(const SENSORPROFILEID& id) : m_id(id) {}

    HRESULT STDMETHODCALLTYPE GetProfileId(SENSORPROFILEID* id) override {
        if (!id) {
            return E_POINTER;
        }
        *id = m_id;
        return S_OK;
    }

    // A filter set is a list of parenthesised filters in parentheses.
    HRESULT STDMETHODCALLTYPE AddProfileFilter(UINT32 stream, LPCWSTR filter) override {
        if (!filter) {
            return E_INVALIDARG;
        }
        const std::wstring text = filter;
        if (text.size() < 4 || !text.starts_with(L"((") || !text.ends_with(L"))")) {
            return E_INVALIDARG;
        }
        m_filters[stream] = text;
        return S_OK;
    }

    // Knows the one filter that places no condition; any other would need the whole filter grammar.
    HRESULT STDMETHODCALLTYPE IsMediaTypeSupported(UINT32 stream, IMFMediaType* type, BOOL* supported) override {
        if (!type || !supported) {
            return E_POINTER;
        }
        *supported = FALSE;
        const auto found = m_filters.find(stream);
        if (found == m_filters.end()) {
            return S_OK;
        }
        if (found->second != L"((RES==;FRT==;SUT==))") {
            return E_NOTIMPL;
        }
        *supported = TRUE;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE AddBlockedControl(LPCWSTR control) override {
        if (!control) {
            return E_INVALIDARG;
        }
        m_blockedControls.emplace_back(control);
        return S_OK;
    }

private:
    const SENSORPROFILEID m_id;
    std::map<UINT32, std::wstring> m_filters;
    std::vector<std::wstring> m_blockedControls;
};

class Collection final : public Object<IMFSensorProfileCollection> {
public:
    ~Collection() override {
        for (IMFSensorProfile* profile : m_profiles) {
            profile->Release();
        }
    }

    DWORD STDMETHODCALLTYPE GetProfileCount() override { return static_cast<DWORD>(m_profiles.size()); }

    HRESULT STDMETHODCALLTYPE GetProfile(DWORD index, IMFSensorProfile** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (index >= m_profiles.size()) {
            return E_INVALIDARG;
        }
        return Give(m_profiles[index], out);
    }

    HRESULT STDMETHODCALLTYPE AddProfile(IMFSensorProfile* profile) override {
        SENSORPROFILEID id{};
        if (!profile) {
            return E_INVALIDARG;
        }
        if (const HRESULT hr = profile->GetProfileId(&id); FAILED(hr)) {
            return hr;
        }
        RemoveProfile(&id);
        profile->AddRef();
        m_profiles.push_back(profile);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE FindProfile(SENSORPROFILEID* id, IMFSensorProfile** out) override {
        if (!id || !out) {
            return E_POINTER;
        }
        *out = nullptr;
        const auto found = Find(*id);
        return found == m_profiles.end() ? HRESULT_FROM_WIN32(ERROR_NOT_FOUND) : Give(*found, out);
    }

    void STDMETHODCALLTYPE RemoveProfileByIndex(DWORD index) override {
        if (index >= m_profiles.size()) {
            return;
        }
        m_profiles[index]->Release();
        m_profiles.erase(m_profiles.begin() + static_cast<std::ptrdiff_t>(index));
    }

    void STDMETHODCALLTYPE RemoveProfile(SENSORPROFILEID* id) override {
        if (!id) {
            return;
        }
        const auto found = Find(*id);
        if (found == m_profiles.end()) {
            return;
        }
        (*found)->Release();
        m_profiles.erase(found);
    }

private:
    using Profiles = std::vector<IMFSensorProfile*>;

    static HRESULT Give(IMFSensorProfile* profile, IMFSensorProfile** out) {
        profile->AddRef();
        *out = profile;
        return S_OK;
    }

    Profiles::iterator Find(const SENSORPROFILEID& wanted) {
        auto at = m_profiles.begin();
        for (; at != m_profiles.end(); ++at) {
            SENSORPROFILEID id{};
            if (SUCCEEDED((*at)->GetProfileId(&id)) && SameProfile(id, wanted)) {
                break;
            }
        }
        return at;
    }

    Profiles m_profiles;
};

}  // namespace

extern "C" HRESULT WINAPI MFCreateSensorProfile(REFGUID type, UINT32 index, LPCWSTR constraints,
                                                IMFSensorProfile** out) {
    if (!out) {
        return E_POINTER;
    }
    *out = nullptr;
    if (constraints && *constraints) {
        return E_INVALIDARG;
    }
    *out = new (std::nothrow) Profile({type, index, 0});
    return *out ? S_OK : E_OUTOFMEMORY;
}

extern "C" HRESULT WINAPI MFCreateSensorProfileCollection(IMFSensorProfileCollection** out) {
    if (!out) {
        return E_POINTER;
    }
    *out = new (std::nothrow) Collection;
    return *out ? S_OK : E_OUTOFMEMORY;
}
