#include "support/module.h"

#include "support/wait.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace ravlo::test {
namespace {

constexpr DWORD kUnloadPatienceMs = 2000;

std::wstring FileNameOf(HMODULE module) {
    std::wstring path(1040, L'\0');
    path.resize(GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size())));
    return path;
}

template <class F>
void Resolve(HMODULE module, const char* name, F& function) {
    function = reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(module, name)));
    if (!function) {
        FreeLibrary(module);
        throw std::runtime_error(std::string("rvmediasource.dll does not export ") + name);
    }
}

}  // namespace

std::wstring ProgramDirectory() {
    const std::wstring path = FileNameOf(nullptr);
    return path.substr(0, path.rfind(L'\\'));
}

ModuleUnderTest::ModuleUnderTest() {
    const std::wstring path = ProgramDirectory() + L"\\rvmediasource.dll";
    m_module = LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (!m_module) {
        const DWORD error = GetLastError();
        throw std::runtime_error("rvmediasource.dll beside the test program does not load, error " +
                                 std::to_string(error));
    }
    Resolve(m_module, "DllGetClassObject", m_getClassObject);
    Resolve(m_module, "DllCanUnloadNow", m_canUnloadNow);
    Resolve(m_module, "DllRegisterServer", m_registerServer);
    Resolve(m_module, "DllUnregisterServer", m_unregisterServer);
}

ModuleUnderTest::ModuleUnderTest(const LoadHooks& hooks) : ModuleUnderTest() {
    // The delegated constructor is complete here, so the destructor unloads when this throws.
    if (hooks.Loads() == 0) {
        throw std::runtime_error("the module was loaded already, so hooks for its load came too late");
    }
    if (!hooks.Missing().empty()) {
        throw std::runtime_error("the module does not import " + hooks.Missing());
    }
}

ModuleUnderTest::~ModuleUnderTest() {
    if (m_keepLoaded) {
        return;
    }
    // References may be dropped on threads of the platform a moment after the last call.
    if (!WaitUntil([&] { return CanUnloadNow() == S_OK; }, kUnloadPatienceMs)) {
        ADD_FAILURE() << "objects of the module are still alive at its unload: DllCanUnloadNow gives S_FALSE";
        return;
    }
    FreeLibrary(m_module);
}

std::wstring ModuleUnderTest::Path() const {
    return FileNameOf(m_module);
}

ComPtr<IClassFactory> ModuleUnderTest::Factory() const {
    ComPtr<IClassFactory> factory;
    Require(GetClassObject(kSourceClassId, IID_IClassFactory, factory.PutVoid()), "DllGetClassObject");
    return factory;
}

HRESULT ModuleUnderTest::CreateSource(REFIID interfaceId, void** out) const {
    return Factory()->CreateInstance(nullptr, interfaceId, out);
}

}  // namespace ravlo::test
