#include "module/class_factory.h"

#include "source/media_source.h"
#include "trace/debugger_line.h"
#include "trace/trace.h"

namespace ravlo {

HRESULT RvClassFactory::QueryInterface(REFIID riid, void** object) noexcept {
    if (object == nullptr) {
        return E_POINTER;
    }
    *object = nullptr;
    if (riid != IID_IUnknown && riid != IID_IClassFactory) {
        return E_NOINTERFACE;
    }
    AddRef();
    *object = static_cast<IClassFactory*>(this);
    return S_OK;
}

ULONG RvClassFactory::AddRef() noexcept {
    return static_cast<ULONG>(m_refCount.fetch_add(1) + 1);
}

ULONG RvClassFactory::Release() noexcept {
    const LONG count = m_refCount.fetch_sub(1) - 1;
    if (count == 0) {
        delete this;
    }
    return static_cast<ULONG>(count);
}

HRESULT RvClassFactory::CreateInstance(IUnknown* outer, REFIID riid, void** object) noexcept {
    const GuidText interfaceText(riid, L"{unknown-iid}");
    RvDebuggerLine("RAVLO-ACT: RvClassFactory::CreateInstance riid=%ls pUnkOuter=%p\n", interfaceText.Get(), outer);
    RvTrace("FACTORY CreateInstance riid=%G pUnkOuter=%p", &riid, outer);
    if (object == nullptr) {
        RvTrace("FAIL FACTORY CreateInstance hr=0x%08X (ppv==NULL)", E_POINTER);
        return E_POINTER;
    }
    *object = nullptr;
    if (outer != nullptr) {
        RvTrace("FAIL FACTORY CreateInstance hr=0x%08X (aggregation refused)", CLASS_E_NOAGGREGATION);
        return CLASS_E_NOAGGREGATION;
    }
    const HRESULT hr = RvMediaSource::CreateInstance(riid, object);
    RvTraceGuidHr(FAILED(hr) ? "FAIL FACTORY CreateInstance riid" : "RET FACTORY CreateInstance riid", &riid, hr);
    return hr;
}

HRESULT RvClassFactory::LockServer(BOOL lock) noexcept {
    if (lock) {
        ModuleCount::Raise();
        return S_OK;
    }
    return ModuleCount::LowerIfPositive() ? S_OK : E_UNEXPECTED;
}

}  // namespace ravlo
