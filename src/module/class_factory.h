#pragma once

#include <windows.h>

#include <unknwn.h>

#include <atomic>

#include "module/module_count.h"

namespace ravlo {

/// Makes media sources. A new one is handed out for every request; reference count 1 after construction.
class RvClassFactory final : public IClassFactory {
public:
    RvClassFactory() noexcept = default;

    STDMETHODIMP QueryInterface(REFIID riid, void** object) noexcept override;
    STDMETHODIMP_(ULONG) AddRef() noexcept override;
    STDMETHODIMP_(ULONG) Release() noexcept override;
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** object) noexcept override;
    STDMETHODIMP LockServer(BOOL lock) noexcept override;

private:
    ~RvClassFactory() = default;

    const ModuleReference m_moduleReference;
    std::atomic<LONG> m_refCount{1};
};

}  // namespace ravlo
