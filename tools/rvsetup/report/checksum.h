#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ravlo {

/// CRC-32 as in zip files.
std::uint32_t Crc32(std::string_view bytes) noexcept;

/// SHA-256 as 64 lower-case hexadecimal digits.
std::string Sha256Text(std::string_view bytes);

}  // namespace ravlo
