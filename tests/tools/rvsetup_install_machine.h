#pragma once

#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/command_line.h"
#include "common/messages.h"
#include "common/wide_text.h"
#include "rvsetup/install/install_command.h"
#include "rvsetup/install/uninstall_command.h"
#include "support/import_hooks.h"
#include "support/registry.h"
#include "tools/program.h"

namespace ravlo::test {

inline constexpr wchar_t kProgramFolder[] = L"C:\\Program Files\\Ravlo";
inline constexpr wchar_t kLogFolder[] = L"C:\\ProgramData\\Ravlo";
inline constexpr wchar_t kAnchorKey[] = L"SOFTWARE\\Ravlo";
inline constexpr wchar_t kClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";

/// Every file with its bytes, every registry value with its type and bytes, by name.
using Snapshot = std::map<std::wstring, std::string>;

inline std::string FileBytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    std::string bytes(file ? static_cast<std::size_t>(file.tellg()) : 0, '\0');
    file.seekg(0);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

inline void WriteBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

inline void SnapshotFiles(const std::wstring& folder, Snapshot& snapshot) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        snapshot[entry.path().wstring()] = entry.is_directory() ? "folder" : FileBytes(entry.path());
    }
}

inline void SnapshotKey(const std::wstring& path, Snapshot& snapshot) {
    HKEY key = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ | KEY_WOW64_64KEY, &key) != ERROR_SUCCESS) {
        return;
    }
    snapshot[path] = "key";
    wchar_t name[256];
    BYTE bytes[4096];
    DWORD length = 256;
    DWORD size = sizeof bytes;
    DWORD type = 0;
    for (DWORD i = 0; RegEnumValueW(key, i, name, &length, nullptr, &type, bytes, &size) == ERROR_SUCCESS; ++i) {
        snapshot[path + L" " + name] = std::to_string(type) + ":" + std::string(reinterpret_cast<char*>(bytes), size);
        length = 256;
        size = sizeof bytes;
    }
    for (DWORD i = 0; RegEnumKeyW(key, i, name, 256) == ERROR_SUCCESS; ++i) {
        SnapshotKey(path + L"\\" + name, snapshot);
    }
    RegCloseKey(key);
}

/// All that install may change.
inline Snapshot TakeSnapshot() {
    Snapshot snapshot;
    SnapshotFiles(L"C:\\Program Files", snapshot);
    SnapshotFiles(L"C:\\ProgramData", snapshot);
    SnapshotKey(kAnchorKey, snapshot);
    SnapshotKey(kClassKey, snapshot);
    return snapshot;
}

/// What differs, one name a line; empty when nothing does.
inline std::string Difference(const Snapshot& before, const Snapshot& after) {
    std::string names;
    for (const auto& [name, content] : before) {
        if (after.count(name) == 0) {
            names += "gone: " + ToUtf8(name) + "\n";
        } else if (after.at(name) != content) {
            names += "changed: " + ToUtf8(name) + "\n";
        }
    }
    for (const auto& [name, content] : after) {
        if (before.count(name) == 0) {
            names += "new: " + ToUtf8(name) + "\n";
        }
    }
    return names;
}

inline void SetClassValue(const wchar_t* key, const wchar_t* name, DWORD type, const void* bytes, std::size_t size) {
    const std::wstring path = std::wstring(kClassKey) + key;
    HKEY opened = nullptr;
    ASSERT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &opened, nullptr),
              ERROR_SUCCESS);
    EXPECT_EQ(RegSetValueExW(opened, name, 0, type, static_cast<const BYTE*>(bytes), static_cast<DWORD>(size)),
              ERROR_SUCCESS);
    RegCloseKey(opened);
}

/// The value of the anchor or of the class; empty when there is none.
inline std::wstring RegistryText(const wchar_t* key, const wchar_t* name) {
    wchar_t text[512]{};
    DWORD size = sizeof text - sizeof(wchar_t);
    RegGetValueW(HKEY_LOCAL_MACHINE, key, name, RRF_RT_REG_SZ, nullptr, text, &size);
    return text;
}

inline std::wstring RegisteredDll() {
    return RegistryText((std::wstring(kClassKey) + L"\\InprocServer32").c_str(), nullptr);
}

inline std::wstring BuiltDll() {
    return ProgramDirectory() + L"\\rvmediasource.dll";
}

/// The built DLL with version 1.1.0 in its resource.
inline std::string DllOfAnotherVersion() {
    std::string bytes = FileBytes(BuiltDll());
    const std::size_t info = bytes.find("\xBD\x04\xEF\xFE");
    if (info == std::string::npos) {
        throw std::runtime_error("the DLL has no version resource");
    }
    bytes.at(info + 8) = 1;
    return bytes;
}

/// A machine on which nothing of Ravlo is installed; what other tests left is back afterwards.
class InstallTest : public ::testing::Test {
protected:
    InstallTest() {
        Clean();
        m_anchor.DeleteKey();
        std::filesystem::remove_all(kKept);
        if (std::filesystem::exists(kLogFolder)) {
            std::filesystem::rename(kLogFolder, kKept);
        }
    }
    ~InstallTest() override {
        Clean();
        std::error_code ignored;
        std::filesystem::remove_all(kLogFolder, ignored);
        if (std::filesystem::exists(kKept)) {
            std::filesystem::rename(kKept, kLogFolder);
        }
    }

    static void Clean() {
        std::error_code ignored;
        for (const wchar_t* end : {L"", L".new", L".old"}) {
            std::filesystem::remove_all(std::wstring(kProgramFolder) + end, ignored);
        }
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, kClassKey);
    }

    /// A foreign registration, an anchor of another type, a log folder and files where install puts its own.
    void MakeUsedMachine() {
        constexpr wchar_t kOther[] = L"E:\\other\\camera.dll";
        constexpr BYTE kOddBytes[] = {1, 2, 3};
        m_anchor.SetRaw(REG_BINARY, std::as_bytes(std::span(kOddBytes)));
        SetClassValue(L"", nullptr, REG_SZ, L"Other", 12);
        SetClassValue(L"\\InprocServer32", nullptr, REG_SZ, kOther, sizeof kOther);
        SetClassValue(L"\\InprocServer32", L"Extra", REG_BINARY, kOddBytes, sizeof kOddBytes);
        SetClassValue(L"\\TypeLib", L"Number", REG_DWORD, L"ab", 4);
        std::filesystem::create_directories(std::wstring(kProgramFolder) + L"\\1.0.0");
        WriteBytes(std::wstring(kProgramFolder) + L"\\notes.txt", "mine");
        WriteBytes(std::wstring(kProgramFolder) + L"\\1.0.0\\rvmediasource.dll", "my own build");
        std::filesystem::create_directories(kLogFolder);
        WriteBytes(std::wstring(kLogFolder) + L"\\other.txt", "mine too");
    }

    AnchorGuard m_anchor;

private:
    static constexpr wchar_t kKept[] = L"C:\\ProgramData\\Ravlo.kept";
};

/// A folder to install from with little in it, which makes hundreds of installs bearable.
class SmallSource {
public:
    SmallSource() {
        std::filesystem::copy_file(ProgramDirectory() + L"\\rvmediasource.dll", m_folder.File(L"rvmediasource.dll"),
                                   std::filesystem::copy_options::overwrite_existing);
        m_folder.Write(L"rvsetup.exe", "a program");
    }

    std::wstring Program() const { return m_folder.File(L"rvsetup.exe"); }

private:
    TemporaryFolder m_folder;
};

/// Lets this program seem to be another file, for what lies beside it. Not while a role is started.
class PretendedPath {
public:
    explicit PretendedPath(std::wstring path) : m_names(GetModuleHandleW(nullptr)) {
        m_names.Replace([path = std::move(path)](HMODULE module, LPWSTR buffer, DWORD capacity) -> DWORD {
            if (module != nullptr || path.size() >= capacity) {
                return RAVLO_HOOK(GetModuleFileNameW)::CallOriginal(module, buffer, capacity);
            }
            path.copy(buffer, path.size());
            return static_cast<DWORD>(path.size());
        });
    }

private:
    RAVLO_HOOK(GetModuleFileNameW) m_names;
};

struct SetupResult {
    ExitCode code;
    std::string messages;
};

/// The commands in this process, where their calls of the system can be made to fail.
inline SetupResult RunSetup(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "rvsetup");
    CommandLine line("rvsetup", "", "");
    InstallCommand install(line);
    UninstallCommand uninstall(line);
    NameMessages("rvsetup", WriteMessage);
    ::testing::internal::CaptureStderr();
    ExitCode code = line.Parse(arguments).value_or(ExitCode::Ok);
    if (code == ExitCode::Ok) {
        code = line.ChosenCommand() == "uninstall" ? uninstall.Run() : install.Run();
    }
    std::fflush(stderr);
    return {code, ::testing::internal::GetCapturedStderr()};
}

inline bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace ravlo::test
