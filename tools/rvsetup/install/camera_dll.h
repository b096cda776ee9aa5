#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ravlo {

/// Looks at the bytes of a file that shall be installed as the camera, without loading it: loading runs its code. Gives
/// the version of the DLL, such as "1.0.0", which names its folder. When the file is not the camera: nothing, and in
/// `problem` what is wrong with it, to follow the file's name.
std::optional<std::string> InspectCameraDll(std::string_view bytes, std::string& problem);

}  // namespace ravlo
