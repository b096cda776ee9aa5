#pragma once

#include <cstdint>
#include <memory>

namespace ravlo {

/// A growable byte buffer that is reused from frame to frame. It only ever grows, and a new size leaves the bytes as
/// they are: zeroing what the next read overwrites would cost a pass over memory for every change of size.
class ReceiveBuffer {
public:
    /// Makes the buffer `size` bytes long with unspecified contents. Throws std::bad_alloc, and is then empty, when it
    /// cannot grow.
    void Resize(std::uint32_t size) {
        if (size > m_capacity) {
            // The old storage goes first: nothing in it is needed any more, and there need never be two large blocks.
            m_size = 0;
            m_capacity = 0;
            m_storage.reset();
            m_storage = std::make_unique_for_overwrite<std::uint8_t[]>(size);
            m_capacity = size;
        }
        m_size = size;
    }

    std::uint8_t* Data() noexcept { return m_storage.get(); }
    const std::uint8_t* Data() const noexcept { return m_storage.get(); }
    std::uint32_t Size() const noexcept { return m_size; }
    std::uint32_t Capacity() const noexcept { return m_capacity; }

private:
    std::unique_ptr<std::uint8_t[]> m_storage;
    std::uint32_t m_size = 0;
    std::uint32_t m_capacity = 0;
};

}  // namespace ravlo
