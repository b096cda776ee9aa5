// The reference counting of COM objects that the tests implement themselves.
#pragma once

#include <windows.h>
#include <unknwn.h>

#include <atomic>

namespace ravlo::test {

/// IUnknown for one interface; born with one reference. Also counts the objects of its interface, to tell whether
/// somebody kept one.
template <class Interface>
class Counted : public Interface {
public:
    Counted() { ++s_alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    virtual ~Counted() { --s_alive; }

    /// How many objects of this interface live, of all classes.
    static long Alive() { return s_alive; }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        *out = nullptr;
        if (iid != IID_IUnknown && iid != __uuidof(Interface)) {
            return E_NOINTERFACE;
        }
        AddRef();
        *out = static_cast<Interface*>(this);
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
    static inline std::atomic<long> s_alive{0};
    std::atomic<ULONG> m_references{1};
};

}  // namespace ravlo::test
