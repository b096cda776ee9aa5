#include "rvsetup/doctor/module_facts.h"

#include <unknwn.h>

#include <array>
#include <cstdint>
#include <cwchar>

#include "common/result_meaning.h"
#include "common/wide_text.h"
#include "platform/com_ptr.h"
#include "rvsetup/system/text.h"
#include "rvsetup/trace/log_files.h"

namespace ravlo {
namespace {

constexpr GUID kCameraClass = {0x5E3C9A71, 0x0B4D, 0x4F82, {0xA6, 0xC1, 0x7D, 0x2E, 0x8B, 0x90, 0xF1, 0x34}};
/// Far more than a camera has; of a longer file the end is read and found to be no program.
constexpr std::uint64_t kLargestFile = 256ULL * 1024 * 1024;

/// A DLL that this process loaded.
class LoadedModule {
public:
    explicit LoadedModule(const std::wstring& path) noexcept
        : m_module(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH)) {}
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;
    ~LoadedModule() {
        if (m_module != nullptr) {
            FreeLibrary(m_module);
        }
    }

    HMODULE Get() const noexcept { return m_module; }

private:
    HMODULE m_module;
};

bool IsThere(const std::wstring& folder, const std::wstring& name) {
    return SearchPathW(folder.c_str(), name.c_str(), nullptr, 0, nullptr, nullptr) != 0;
}

/// The DLLs that a file needs and that lie neither beside it nor in the system's folder.
std::vector<std::string> MissingImports(const PeImage& file, const std::wstring& folder) {
    std::array<wchar_t, MAX_PATH> system{};
    GetSystemDirectoryW(system.data(), static_cast<UINT>(system.size()));
    std::vector<std::string> missing;
    for (const std::string& name : file.imports) {
        // Sets of the system's interfaces are names only: no file of that name need exist.
        const bool isSet = name.starts_with("api-ms-") || name.starts_with("ext-ms-");
        const std::wstring wide = ToWide(name);
        if (!isSet && !IsThere(folder, wide) && !IsThere(system.data(), wide)) {
            missing.push_back(name);
        }
    }
    return missing;
}

/// Why `module` gives no factory of the camera's class; empty when it does.
std::string WhyNoFactory(HMODULE module) {
    using GetClassObjectFunction = HRESULT(WINAPI*)(REFCLSID, REFIID, void**);
    const auto getClassObject =
        reinterpret_cast<GetClassObjectFunction>(reinterpret_cast<void*>(GetProcAddress(module, "DllGetClassObject")));
    if (getClassObject == nullptr) {
        return "it exports no DllGetClassObject";
    }
    ComPtr<IClassFactory> factory;
    const HRESULT result = getClassObject(kCameraClass, IID_IClassFactory, reinterpret_cast<void**>(factory.Put()));
    return SUCCEEDED(result) && factory
               ? std::string()
               : "it gives no factory of the camera, " + ResultNumber(static_cast<std::uint32_t>(result));
}

}  // namespace

ModuleFacts ReadModuleFacts(const RegisteredModule& registered, HANDLE interrupt) {
    ModuleFacts facts;
    facts.keyExists = registered.error == ERROR_SUCCESS;
    if (!facts.keyExists && registered.error != ERROR_FILE_NOT_FOUND) {
        facts.keyError = SystemErrorText(registered.error);
    }
    facts.path = ToUtf8(registered.path);
    facts.threadingModel = ToUtf8(registered.threadingModel);
    if (!LeadsToFiles(facts.path)) {
        return facts;
    }
    const DWORD attributes = GetFileAttributesW(registered.path.c_str());
    facts.fileExists = attributes != INVALID_FILE_ATTRIBUTES ? (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0
                                                             : GetLastError() == ERROR_ACCESS_DENIED;
    std::string bytes;
    if (facts.fileExists) {
        const auto keep = [&bytes](std::string_view piece) { bytes += piece; };
        const DWORD error = ReadTail(registered.path, kLargestFile, keep, interrupt);
        facts.fileError = error == ERROR_SUCCESS ? std::string() : SystemErrorText(error);
    }
    facts.pe = ReadPeImage(bytes);
    facts.missingImports = MissingImports(facts.pe, FolderOf(registered.path));
    return facts;
}

void TryToLoad(const RegisteredModule& registered, ModuleFacts& facts) {
    if (!facts.pe.is64 || !facts.pe.isDll || !ExportsName(facts.pe, "DllGetClassObject")) {
        return;  // what is no camera is not run either
    }
    // A missing DLL is to be told in our own words and not in a window.
    const UINT before = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    const LoadedModule module(registered.path);
    if (module.Get() == nullptr) {
        facts.loadError = SystemErrorText(GetLastError());
    } else {
        facts.loadError = WhyNoFactory(module.Get());
    }
    SetErrorMode(before);
}

}  // namespace ravlo
