#pragma once

#include <string>
#include <vector>

namespace ravlo {

/// A camera as the system lists it; texts are UTF-8.
struct ListedCamera {
    std::string name;  ///< shown to users
    std::string link;  ///< the symbolic link, the system's own name for the device
};

/// True for a camera that a program has made, as opposed to a device.
bool IsVirtualCamera(const ListedCamera& camera);

/// True for a virtual camera that was started as `startedName`. The system may add words of its own behind that name.
bool IsNamedCamera(const ListedCamera& camera, const std::string& startedName);

/// Two lines a camera: its name and what it is, then its link. Empty for no camera.
std::string CameraListText(const std::vector<ListedCamera>& cameras, const std::string& startedName);

/// One object in one line: {"cameras":[{"name":..,"link":..,"virtual":..,"ravlo":..}]}.
std::string CameraListJson(const std::vector<ListedCamera>& cameras, const std::string& startedName);

}  // namespace ravlo
