// The DLL under test, loaded as a host would load it.
#pragma once

#include "support/com.h"
#include "support/import_hooks.h"

#include <windows.h>

#include <string>

namespace ravlo::test {

/// The one class of the module.
inline constexpr GUID kSourceClassId = {0x5E3C9A71, 0x0B4D, 0x4F82, {0xA6, 0xC1, 0x7D, 0x2E, 0x8B, 0x90, 0xF1, 0x34}};

/// The directory of this test program, without a trailing backslash. The DLL lies in it.
std::wstring ProgramDirectory();

/// rvmediasource.dll for the life of the object. A new load is a new module: its globals, the choice of the
/// log's location among them, begin afresh. Set the authorization anchor before, or the log moves to its last
/// resort.
class ModuleUnderTest {
public:
    /// Throws std::runtime_error when the DLL, or one of its four exports, is missing.
    ModuleUnderTest();
    /// As above; throws also when the module lacks an import that `hooks` should have replaced.
    explicit ModuleUnderTest(const LoadHooks& hooks);
    /// Fails the running test when DllCanUnloadNow does not become S_OK within 2 s, and then leaves the
    /// module loaded, because objects of it are alive; otherwise unloads it.
    ~ModuleUnderTest();
    ModuleUnderTest(const ModuleUnderTest&) = delete;
    ModuleUnderTest& operator=(const ModuleUnderTest&) = delete;

    HMODULE Handle() const { return m_module; }
    /// Full path of the DLL.
    std::wstring Path() const;

    HRESULT GetClassObject(REFCLSID classId, REFIID interfaceId, void** out) const {
        return m_getClassObject(classId, interfaceId, out);
    }
    HRESULT CanUnloadNow() const { return m_canUnloadNow(); }
    HRESULT RegisterServer() const { return m_registerServer(); }
    HRESULT UnregisterServer() const { return m_unregisterServer(); }

    /// A new class factory; throws on failure.
    ComPtr<IClassFactory> Factory() const;
    /// A new source through a factory, with the result of CreateInstance.
    HRESULT CreateSource(REFIID interfaceId, void** out) const;
    /// A new source; throws on failure.
    template <class I>
    ComPtr<I> CreateSource() const {
        ComPtr<I> source;
        Require(CreateSource(__uuidof(I), source.PutVoid()), "CreateInstance of the source");
        return source;
    }

    /// For tests that end with an object which is never destroyed: no unload check, and the DLL stays loaded.
    void KeepLoaded() { m_keepLoaded = true; }

private:
    HMODULE m_module = nullptr;
    bool m_keepLoaded = false;
    HRESULT(WINAPI* m_getClassObject)(REFCLSID, REFIID, void**) = nullptr;
    HRESULT(WINAPI* m_canUnloadNow)() = nullptr;
    HRESULT(WINAPI* m_registerServer)() = nullptr;
    HRESULT(WINAPI* m_unregisterServer)() = nullptr;
};

}  // namespace ravlo::test
