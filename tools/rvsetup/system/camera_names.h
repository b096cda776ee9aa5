#pragma once

namespace ravlo {

// What the camera is called in the registry and on disk; narrow and wide spellings stand side by side.

/// In every registration of the camera, so in the DLL that registers it: it tells the camera from other COM servers.
inline constexpr char kCameraClassId[] = "{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";

/// The key of the camera's class below HKEY_LOCAL_MACHINE.
inline constexpr char kCameraClassPath[] = "SOFTWARE\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";
inline constexpr wchar_t kCameraClassKey[] = L"SOFTWARE\\Classes\\CLSID\\{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}";

inline constexpr char kDllName[] = "rvmediasource.dll";

/// The folder of the trace log, as the camera itself has it: this path and no other, whatever the system calls its data
/// folder.
inline constexpr char kCameraLogFolder[] = "C:\\ProgramData\\Ravlo";
inline constexpr wchar_t kCameraLogFolderWide[] = L"C:\\ProgramData\\Ravlo";

}  // namespace ravlo
