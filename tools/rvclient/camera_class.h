#pragma once

#include <string>

namespace ravlo {

/// The camera's class as text with braces, as the class store and the virtual camera functions want it.
std::wstring CameraClassIdText();

/// Whether the camera is registered on this machine. The camera service looks at the machine's registration only, never
/// at a user's own.
bool IsCameraClassRegistered();

}  // namespace ravlo
