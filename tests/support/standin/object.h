#pragma once

#include <windows.h>

#include <objbase.h>

#include <atomic>

namespace ravlo::standin {

/// IUnknown for one interface; the object is born with one reference.
template <class Interface>
class Object : public Interface {
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (!IsEqualGUID(iid, __uuidof(IUnknown)) && !IsEqualGUID(iid, __uuidof(Interface))) {
            return E_NOINTERFACE;
        }
        *out = static_cast<Interface*>(this);
        this->AddRef();
        return S_OK;
    }

    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }

    ULONG STDMETHODCALLTYPE Release() override {
        const ULONG left = --m_references;
        if (left == 0) {
            delete this;
        }
        return left;
    }

private:
    std::atomic<ULONG> m_references{1};
};

}  // namespace ravlo::standin
