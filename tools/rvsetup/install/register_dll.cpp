#include "rvsetup/install/register_dll.h"

#include <windows.h>

#include <cstdint>

#include "common/result_meaning.h"
#include "common/wide_text.h"

namespace ravlo {
namespace {

class LoadedLibrary {
public:
    explicit LoadedLibrary(const std::string& path)
        : m_module(LoadLibraryExW(ToWide(path).c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {}
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    ~LoadedLibrary() {
        if (m_module != nullptr) {
            FreeLibrary(m_module);
        }
    }
    HMODULE Get() const noexcept { return m_module; }

private:
    HMODULE m_module;
};

std::string ResultText(HRESULT hr) {
    if (HRESULT_FACILITY(hr) == FACILITY_WIN32) {
        return SystemErrorText(static_cast<DWORD>(HRESULT_CODE(hr)));
    }
    return "result " + ResultNumber(static_cast<std::uint32_t>(hr));
}

}  // namespace

std::string RegisterDll(const std::string& path) {
    const LoadedLibrary library(path);
    if (library.Get() == nullptr) {
        const DWORD error = GetLastError();
        if (error == ERROR_MOD_NOT_FOUND) {
            return "a DLL that it needs is missing: this Windows lacks a part of Media Foundation. On an N edition "
                   "install the Media Feature Pack (Settings, Optional features)";
        }
        return "it cannot be loaded: " + SystemErrorText(error);
    }
    using Entry = HRESULT(STDAPICALLTYPE*)();
    const auto enter =
        reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(library.Get(), "DllRegisterServer")));
    if (enter == nullptr) {
        return "it exports no DllRegisterServer";
    }
    const HRESULT hr = enter();
    return FAILED(hr) ? "it refused: " + ResultText(hr) : std::string();
}

}  // namespace ravlo
