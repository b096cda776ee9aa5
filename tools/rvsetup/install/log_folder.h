#pragma once

#include <windows.h>

#include <string>

namespace ravlo {

/// Owner and access list of a folder in the system's text form; empty when they cannot be read.
std::string ReadFolderSecurity(const std::string& folder);

/// Makes the folder of the trace log: owned by Administrators, which the camera accepts; the camera's service and the
/// user with this SID may write in it, all users may read. Returns a Win32 error.
DWORD CreateLogFolder(const std::string& folder, const std::string& userSid);

/// Gives the same to a folder that exists, whoever owns it. ERROR_CANT_ACCESS_FILE when it is a link or no folder.
DWORD SecureLogFolder(const std::string& folder, const std::string& userSid);

/// Puts back what ReadFolderSecurity gave.
DWORD RestoreFolderSecurity(const std::string& folder, const std::string& security);

/// Removes the folder with the log in it. ERROR_DIR_NOT_EMPTY when it holds other files.
DWORD RemoveLogFolder(const std::string& folder);

}  // namespace ravlo
