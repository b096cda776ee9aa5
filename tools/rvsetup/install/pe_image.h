#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace ravlo {

/// Looks at the bytes of a file that shall be installed as the camera, without loading it: loading runs its code. Gives
/// the version of the DLL, such as "1.0.0", which names its folder. When the file is not the camera: nothing, and in
/// `problem` what is wrong with it, to follow the file's name.
std::optional<std::string> InspectCameraDll(std::span<const std::uint8_t> bytes, std::string& problem);

}  // namespace ravlo
