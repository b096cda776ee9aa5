#pragma once

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include "rvfeeder/byte_source.h"

namespace ravlo {

/// A source whose first bytes can be looked at before they are read, even where nothing can be read twice.
class PeekedSource final : public ByteSource {
public:
    static constexpr std::size_t kMostPeeked = 16;

    /// Waits for the first bytes. Throws InputError.
    explicit PeekedSource(std::unique_ptr<ByteSource> source)
        : m_source(std::move(source)), m_peeked(m_source->ReadFully(m_first.data(), m_first.size())) {}

    /// The first kMostPeeked bytes; fewer only when there are no more.
    std::span<const std::uint8_t> FirstBytes() const noexcept { return {m_first.data(), m_peeked}; }

    std::size_t Read(std::uint8_t* buffer, std::size_t length) override {
        const std::size_t got = std::min(length, m_peeked - m_given);
        if (got == 0) {
            return m_source->Read(buffer, length);
        }
        std::memcpy(buffer, m_first.data() + m_given, got);
        m_given += got;
        return got;
    }

    std::optional<std::uint64_t> TotalBytes() const noexcept override { return m_source->TotalBytes(); }

private:
    std::unique_ptr<ByteSource> m_source;
    std::array<std::uint8_t, kMostPeeked> m_first{};
    std::size_t m_peeked;
    std::size_t m_given = 0;
};

}  // namespace ravlo
