#include "rvsetup/report/checksum.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>

namespace ravlo {
namespace {

constexpr std::size_t kBlockBytes = 64;

constexpr std::array<std::uint32_t, 256> MakeCrcTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1) != 0 ? 0xEDB88320U ^ (value >> 1) : value >> 1;
        }
        table[i] = value;
    }
    return table;
}

constexpr std::array<std::uint32_t, 256> kCrcTable = MakeCrcTable();

/// The first 32 bits of the fractional parts of the cube roots of the first 64 primes.
constexpr std::array<std::uint32_t, 64> kRoundConstants = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

using State = std::array<std::uint32_t, 8>;

void HashBlock(State& state, const char* block) noexcept {
    std::array<std::uint32_t, 64> words{};
    for (std::size_t i = 0; i < 16; ++i) {
        for (std::size_t k = 0; k < 4; ++k) {
            words[i] = (words[i] << 8) | static_cast<unsigned char>(block[4 * i + k]);
        }
    }
    for (std::size_t i = 16; i < words.size(); ++i) {
        const std::uint32_t early = words[i - 15];
        const std::uint32_t late = words[i - 2];
        words[i] = words[i - 16] + words[i - 7] + (std::rotr(early, 7) ^ std::rotr(early, 18) ^ (early >> 3)) +
                   (std::rotr(late, 17) ^ std::rotr(late, 19) ^ (late >> 10));
    }
    auto [a, b, c, d, e, f, g, h] = state;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::uint32_t first = h + (std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25)) + ((e & f) ^ (~e & g)) +
                                    kRoundConstants[i] + words[i];
        const std::uint32_t second =
            (std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
        h = g;
        g = f;
        f = e;
        e = d + first;
        d = c;
        c = b;
        b = a;
        a = first + second;
    }
    const State added = {a, b, c, d, e, f, g, h};
    for (std::size_t i = 0; i < state.size(); ++i) {
        state[i] += added[i];
    }
}

}  // namespace

std::uint32_t Crc32(std::string_view bytes) noexcept {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const char byte : bytes) {
        crc = kCrcTable[(crc ^ static_cast<unsigned char>(byte)) & 0xFF] ^ (crc >> 8);
    }
    return ~crc;
}

void Sha256::Add(std::string_view bytes) {
    m_bytes += bytes.size();
    if (!m_rest.empty()) {
        const std::size_t missing = std::min(kBlockBytes - m_rest.size(), bytes.size());
        m_rest += bytes.substr(0, missing);
        bytes.remove_prefix(missing);
        if (m_rest.size() < kBlockBytes) {
            return;
        }
        HashBlock(m_state, m_rest.data());
        m_rest.clear();
    }
    for (; bytes.size() >= kBlockBytes; bytes.remove_prefix(kBlockBytes)) {
        HashBlock(m_state, bytes.data());
    }
    m_rest = bytes;
}

std::string Sha256::Text() {
    // The rest, a one bit, zeros, and the length in bits at the end of the last block.
    const std::uint64_t bits = m_bytes * 8;
    std::string padding(1, '\x80');
    while ((m_rest.size() + padding.size() + 8) % kBlockBytes != 0) {
        padding += '\0';
    }
    for (int shift = 56; shift >= 0; shift -= 8) {
        padding += static_cast<char>(bits >> shift);
    }
    Add(padding);
    std::string text;
    for (const std::uint32_t word : m_state) {
        for (int shift = 28; shift >= 0; shift -= 4) {
            text += "0123456789abcdef"[(word >> shift) & 0xF];
        }
    }
    return text;
}

}  // namespace ravlo
