#pragma once

#include <windows.h>

#include <string>

#include "rvsetup/system/camera_names.h"

namespace ravlo {

/// What is registered for the camera's class, in the 64-bit view of the machine's registry.
struct RegisteredModule {
    DWORD error = ERROR_SUCCESS;  ///< ERROR_FILE_NOT_FOUND when the class is not registered
    std::wstring friendlyName;
    std::wstring path;            ///< of the DLL; empty when none is registered
    std::wstring threadingModel;  ///< empty when none is registered
};

RegisteredModule ReadRegisteredModule();

/// The folder of a file, without a backslash at its end; empty when `path` names none.
std::wstring FolderOf(const std::wstring& path);

}  // namespace ravlo
