#include <windows.h>

#include <objbase.h>

#include <atomic>
#include <new>

#include "module/class_factory.h"
#include "module/module_count.h"
#include "module/registration.h"
#include "ravlo/ids.h"
#include "trace/debugger_line.h"
#include "trace/trace.h"

// The module's entry point and its four exports.
namespace {

// Constant-initialised: the loader attaches the module before any constructor of ours should have to run.
constinit std::atomic<HMODULE> g_module{nullptr};

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    // Runs under the loader lock: nothing here may wait.
    switch (reason) {
        case DLL_PROCESS_ATTACH:
            g_module.store(instance);
            ravlo::RvSetTraceModule(instance);
            ravlo::RvTrace("ATTACH DLL_PROCESS_ATTACH hInstance=%p", instance);
            // Refused where the static runtime has a TLS directory; the thread notices that then arrive do nothing.
            DisableThreadLibraryCalls(instance);
            break;
        case DLL_PROCESS_DETACH:
            ravlo::RvTrace("ATTACH DLL_PROCESS_DETACH hInstance=%p", instance);
            break;
        default:
            break;
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID rclsid, REFIID riid, LPVOID* ppv) {
    const ravlo::GuidText classText(rclsid, L"{unknown-clsid}");
    const ravlo::GuidText interfaceText(riid, L"{unknown-iid}");
    // Before any check: even a call that is refused shows on the debugger channel.
    ravlo::RvDebuggerLine("RAVLO-ACT: DllGetClassObject rclsid=%ls riid=%ls\n", classText.Get(), interfaceText.Get());
    ravlo::RvTrace("DLLGCO enter rclsid=%G riid=%G", &rclsid, &riid);
    if (ppv == nullptr) {
        ravlo::RvTrace("FAIL DLLGCO hr=0x%08X (ppv==NULL)", E_POINTER);
        return E_POINTER;
    }
    *ppv = nullptr;
    if (rclsid != ravlo::kMediaSourceClassId) {
        ravlo::RvTraceGuidHr("FAIL DLLGCO wrong clsid", &rclsid, CLASS_E_CLASSNOTAVAILABLE);
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    auto* const factory = new (std::nothrow) ravlo::RvClassFactory();
    if (factory == nullptr) {
        ravlo::RvTrace("FAIL DLLGCO hr=0x%08X (factory alloc)", E_OUTOFMEMORY);
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = factory->QueryInterface(riid, ppv);
    factory->Release();
    ravlo::RvTraceGuidHr(FAILED(hr) ? "FAIL DLLGCO riid" : "RET DLLGCO riid", &riid, hr);
    return hr;
}

STDAPI DllCanUnloadNow() {
    return ravlo::ModuleCount::IsZero() ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    return ravlo::RegisterClassKeys(g_module.load());
}

STDAPI DllUnregisterServer() {
    return ravlo::UnregisterClassKeys();
}
