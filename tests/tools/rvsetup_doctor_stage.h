// What the tests of rvsetup's doctor, report and trace put on the machine. The programs run as processes of their own, so
// it is the real machine's registry, and each of these puts it back.
#pragma once

#include <windows.h>

#include <sddl.h>

#include <stdexcept>
#include <string>

#include "platform/local_memory.h"
#include "platform/unique_handle.h"
#include "rvsetup/doctor/registered_module.h"
#include "support/module.h"
#include "support/registry.h"

namespace ravlo::test {

/// The camera's class, registered as the installer does it.
class RegisteredClass {
public:
    explicit RegisteredClass(const std::wstring& dll, const std::wstring& threadingModel = L"Both") {
        if (ReadRegisteredModule().error != ERROR_FILE_NOT_FOUND) {
            throw std::runtime_error("a camera is registered on this machine already");
        }
        const std::wstring server = std::wstring(kCameraClassKey) + L"\\InprocServer32";
        Set(kCameraClassKey, nullptr, L"Ravlo Source");
        Set(server, nullptr, dll);
        if (!threadingModel.empty()) {
            Set(server, L"ThreadingModel", threadingModel);
        }
    }
    RegisteredClass(const RegisteredClass&) = delete;
    RegisteredClass& operator=(const RegisteredClass&) = delete;
    ~RegisteredClass() { RegDeleteTreeW(HKEY_LOCAL_MACHINE, kCameraClassKey); }

private:
    static void Set(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
        if (RegSetKeyValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, REG_SZ, text.c_str(),
                            static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))) != ERROR_SUCCESS) {
            throw std::runtime_error("the class cannot be registered");
        }
    }
};

inline std::wstring BuiltDll() {
    return ProgramDirectory() + L"\\rvmediasource.dll";
}

/// A pipe of a name that a camera could have, owned by `owner` (two letters as in SDDL).
inline UniqueFile PipeOwnedBy(const std::wstring& name, const wchar_t* owner) {
    LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
    const std::wstring sddl = L"O:" + std::wstring(owner) + L"D:(A;;GA;;;WD)";
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1, descriptor.Put(),
                                                              nullptr)) {
        throw std::runtime_error("the descriptor cannot be made");
    }
    SECURITY_ATTRIBUTES security{sizeof security, descriptor.Get(), FALSE};
    return UniqueFile(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_BYTE, 1, 4096, 4096, 0, &security));
}

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/// The line of a program's output that begins with `begin`; empty when there is none.
inline std::string LineWith(const std::string& output, const std::string& begin) {
    const std::size_t at = ("\n" + output).find("\n" + begin);
    return at == std::string::npos ? std::string() : output.substr(at, output.find('\n', at) - at);
}

}  // namespace ravlo::test
