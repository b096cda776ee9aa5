#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

namespace ravlo::bench {

/// Bytes that begin at a page, each page touched: what a careful program would copy from and to.
class PageBuffer {
public:
    explicit PageBuffer(std::size_t size)
        : m_size(size), m_bytes(static_cast<std::uint8_t*>(::operator new(size, kPage))) {
        std::memset(Data(), 1, size);
    }

    std::uint8_t* Data() noexcept { return m_bytes.get(); }
    const std::uint8_t* Data() const noexcept { return m_bytes.get(); }
    std::size_t Size() const noexcept { return m_size; }

private:
    static constexpr std::align_val_t kPage{4096};

    struct Free {
        void operator()(std::uint8_t* bytes) const noexcept { ::operator delete(bytes, kPage); }
    };

    std::size_t m_size;
    std::unique_ptr<std::uint8_t, Free> m_bytes;
};

}  // namespace ravlo::bench
