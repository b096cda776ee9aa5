#include "rvsetup/install/machine.h"

#include <windows.h>

#include <cstdint>
#include <utility>
#include <vector>

#include "common/wide_text.h"
#include "platform/registry_names.h"
#include "rvsetup/install/camera_dll.h"
#include "rvsetup/install/file_work.h"
#include "rvsetup/install/locations.h"
#include "rvsetup/install/log_folder.h"
#include "rvsetup/install/registry_tree.h"
#include "rvsetup/system/camera_names.h"

namespace ravlo {
namespace {

constexpr const char* kPrograms[] = {"rvsetup.exe", "rvhost.exe", "rvfeeder.exe", "rvclient.exe"};

/// False, and a sentence, when there is a record that cannot be used.
bool ReadRecord(const Places& places, std::optional<Journal>& journal, std::string& problem) {
    DWORD error = ERROR_SUCCESS;
    const auto bytes = ReadWholeFile(places.RecordPath(), error);
    if (!bytes) {
        const bool isAbsent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        problem = "cannot read " + places.RecordPath() + ": " + SystemErrorText(error);
        return isAbsent;
    }
    journal = JournalFromText({reinterpret_cast<const char*>(bytes->data()), bytes->size()});
    problem = places.RecordPath() +
              ", which tells what was there before the install, is damaged or of another version of rvsetup; move it "
              "away to go on without it";
    return journal.has_value();
}

std::string FullPath(const std::string& path) {
    constexpr DWORD kLongestPath = 32768;
    std::wstring full(kLongestPath, L'\0');
    full.resize(GetFullPathNameW(ToWide(path).c_str(), kLongestPath, full.data(), nullptr));
    return full.empty() ? path : ToUtf8(full);
}

}  // namespace

std::optional<MachineState> ReadMachine(const Places& places, std::string& problem) {
    MachineState state;
    if (!ReadRecord(places, state.journal, problem)) {
        return std::nullopt;
    }
    LSTATUS error = ERROR_SUCCESS;
    state.anchorKeyExists = KeyExists(kAnchorKeyName, error);
    if (state.anchorKeyExists) {
        state.anchor = ReadValue(kAnchorKeyName, kAnchorValueName, error);
    }
    if (error != ERROR_SUCCESS) {
        problem = "cannot read HKLM\\SOFTWARE\\Ravlo: " + SystemErrorText(static_cast<DWORD>(error));
        return std::nullopt;
    }
    state.anchorSid = state.anchor ? TextOf(*state.anchor) : std::string();
    state.classKey = ReadTree(kCameraClassKey, error);
    if (error != ERROR_SUCCESS) {
        problem = "cannot read the camera's class in the registry: " + SystemErrorText(static_cast<DWORD>(error));
        return std::nullopt;
    }
    state.serverPath = ServerPath(state.classKey);
    if (state.journal && state.journal->classKey) {
        state.serverPathBefore = ServerPath(state.journal->classKey->before);
    }
    state.logFolderExists = PathExists(places.logFolder);
    state.logSecurity = state.logFolderExists ? ReadFolderSecurity(places.logFolder) : std::string();
    state.exists = PathExists;
    state.haveSameContent = HaveSameContent;
    return state;
}

InstallRequest FindFiles(const Places& places, const std::string& namedDll, std::string& problem) {
    InstallRequest request;
    const std::string dll = namedDll.empty() ? OwnFolder() + "\\" + kDllName : FullPath(namedDll);
    DWORD error = ERROR_SUCCESS;
    const auto bytes = ReadWholeFile(dll, error);
    if (!bytes) {
        const bool isAbsent = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        problem = isAbsent ? "there is no " + dll : "cannot read " + dll + ": " + SystemErrorText(error);
        return request;
    }
    const auto version = InspectCameraDll({reinterpret_cast<const char*>(bytes->data()), bytes->size()}, problem);
    if (!version) {
        problem = dll + " " + problem;
        return request;
    }
    request.version = *version;
    request.files.push_back({kDllName, dll});
    for (const char* program : kPrograms) {
        const std::string path = OwnFolder() + "\\" + program;
        if (PathExists(path)) {
            request.files.push_back({program, path});
        }
    }
    request.wantedClass = CameraClass(places.programFolder + "\\" + request.version + "\\" + kDllName);
    return request;
}

}  // namespace ravlo
