#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "rvfeeder/byte_source.h"

namespace ravlo::test {

/// Bytes from memory, at most `chunk` of them a read, as a pipe delivers them.
class MemorySource final : public ByteSource {
public:
    explicit MemorySource(std::string bytes, std::size_t chunk = 1000) : m_bytes(std::move(bytes)), m_chunk(chunk) {}

    std::size_t Read(std::uint8_t* buffer, std::size_t length) override {
        const std::size_t got = std::min({length, m_chunk, m_bytes.size() - m_position});
        std::memcpy(buffer, m_bytes.data() + m_position, got);
        m_position += got;
        return got;
    }

private:
    std::string m_bytes;
    std::size_t m_chunk;
    std::size_t m_position = 0;
};

/// What an action that must fail says to the user; empty when it does not fail.
template <class Action>
std::string InputErrorOf(Action&& action) {
    try {
        action();
    } catch (const InputError& error) {
        return error.what();
    }
    return {};
}

}  // namespace ravlo::test
