#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace ravlo {

/// CRC-32 as in zip files.
std::uint32_t Crc32(std::string_view bytes) noexcept;

/// SHA-256 of bytes that arrive piece by piece.
class Sha256 {
public:
    void Add(std::string_view bytes);

    /// 64 lower-case hexadecimal digits. Nothing can be added afterwards.
    std::string Text();

private:
    /// The first 32 bits of the fractional parts of the square roots of the first eight primes.
    std::array<std::uint32_t, 8> m_state{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                         0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::uint64_t m_bytes = 0;
    std::string m_rest;  ///< less than a block
};

}  // namespace ravlo
