// A source between its creation and its activation.
#pragma once

#include "support/fixtures.h"

namespace ravlo::test {

/// Shuts its source down at the end.
class ActivationTest : public ModuleTest {
protected:
    static constexpr const wchar_t* kSmall = L"64x36@60/1";

    ~ActivationTest() override {
        if (m_source) {
            m_source->Shutdown();
        }
    }

    /// A source with its attributes set, not activated.
    void Create(const wchar_t* geometry = kSmall) {
        m_activate = m_module.CreateSource<IMFActivate>();
        m_source = m_activate.As<IMFMediaSourceEx>();
        Require(m_activate->SetString(kGeometryAttribute, geometry), "SetString");
        Require(m_activate->SetString(kPipeNameAttribute, UniquePipeName().c_str()), "SetString");
    }

    HRESULT Activate() {
        ComPtr<IMFMediaSource> source;
        const HRESULT hr = m_activate->ActivateObject(IID_IMFMediaSource, source.PutVoid());
        EXPECT_EQ(SUCCEEDED(hr), source.Get() != nullptr);
        return hr;
    }

    ComPtr<IMFActivate> m_activate;
    ComPtr<IMFMediaSourceEx> m_source;
};

}  // namespace ravlo::test
