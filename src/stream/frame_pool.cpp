#include "stream/frame_pool.h"

#include <algorithm>
#include <utility>

#include "stream/frame_copy.h"

namespace ravlo {
namespace {

/// A read that is a read-modify-write whenever the value is `expected`, and a sequentially consistent load otherwise.
template <class T>
T InterlockedLook(std::atomic<T>& value, T expected) noexcept {
    T seen = expected;
    value.compare_exchange_strong(seen, expected);
    return seen;
}

std::uint64_t BytesAtStride(const CopyDescriptor& copy) noexcept {
    const auto stride = static_cast<std::uint64_t>(copy.destinationStride);
    return stride * copy.height + std::uint64_t{copy.height / 2} * stride;
}

/// Copies `rows` rows of a packed plane. False when the plane does not lie wholly inside `view`.
bool CopyPlane(FrameView view, std::uint64_t offset, std::uint64_t planeBytes, std::uint8_t* destination,
               std::uint32_t rows, const CopyDescriptor& copy) noexcept {
    if (offset > view.length || planeBytes > view.length - offset || std::uint64_t{rows} * copy.rowBytes > planeBytes) {
        return false;
    }
    const std::uint8_t* source = view.data + offset;
    if (copy.destinationStride == static_cast<std::int64_t>(copy.rowBytes)) {
        CopyFrameBytes(destination, source, std::size_t{rows} * copy.rowBytes);
        return true;
    }
    for (std::uint32_t row = 0; row < rows; ++row) {
        CopyFrameBytes(destination, source, copy.rowBytes);
        destination += copy.destinationStride;
        source += copy.rowBytes;
    }
    return true;
}

bool CopyFrame(FrameView view, const CopyDescriptor& copy) noexcept {
    if (copy.lumaBytes > view.length || copy.chromaBytes > view.length - copy.lumaBytes) {
        return false;
    }
    std::uint8_t* const chroma = copy.destination + static_cast<std::int64_t>(copy.height) * copy.destinationStride;
    return CopyPlane(view, 0, copy.lumaBytes, copy.destination, copy.height, copy) &&
           CopyPlane(view, copy.lumaBytes, copy.chromaBytes, chroma, copy.height / 2, copy);
}

}  // namespace

CopyDescriptor DescribeCopy(const FrameGeometry& geometry, std::uint8_t* destination, std::uint32_t length,
                            std::int32_t stride) noexcept {
    return {destination, length, stride, geometry.height, geometry.width, LumaBytes(geometry), ChromaBytes(geometry)};
}

bool CanReceiveFrame(const CopyDescriptor& copy) noexcept {
    return copy.destination != nullptr && copy.destinationStride >= 0 &&
           static_cast<std::uint32_t>(copy.destinationStride) >= copy.rowBytes &&
           copy.destinationLength >= BytesAtStride(copy);
}

bool FramePool::Allocate(std::uint64_t capacity) noexcept {
    if (capacity == 0) {
        return false;
    }
    // Zeroing by hand would be a page fault for every 4 KiB while the camera is being activated, most of them for bytes
    // that a picture smaller than the largest never uses. calloc knows that fresh pages are zero.
    // NOLINTBEGIN(cppcoreguidelines-no-malloc)
    Storage first(static_cast<std::uint8_t*>(std::calloc(capacity, 1)));
    Storage second(static_cast<std::uint8_t*>(std::calloc(capacity, 1)));
    // NOLINTEND(cppcoreguidelines-no-malloc)
    if (!first || !second) {
        return false;
    }
    m_slots[0].storage = std::move(first);
    m_slots[1].storage = std::move(second);
    m_capacity = capacity;
    return true;
}

void FramePool::TouchSlots(std::uint64_t bytes) noexcept {
    constexpr std::uint64_t kPageBytes = 4096;
    const std::uint64_t end = std::min(bytes, m_capacity);
    for (Slot& slot : m_slots) {
        if (slot.length.load(std::memory_order_relaxed) != 0) {
            continue;  // it has held a frame: its pages are there, and a reader may be in the middle of a copy
        }
        // Volatile: a store of the value that is there already, for the page fault alone.
        volatile std::uint8_t* const bytesOfSlot = slot.storage.get();
        for (std::uint64_t offset = 0; offset < end; offset += kPageBytes) {
            bytesOfSlot[offset] = 0;
        }
    }
}

bool FramePool::Publish(FrameView frame, std::uint64_t stamp) noexcept {
    if (m_capacity == 0 || !frame.IsUsable() || frame.length > m_capacity) {
        m_refusedPublishes.fetch_add(1);
        return false;
    }
    Slot& slot = m_slots[m_writeIndex];
    slot.sequence.fetch_add(1);  // odd: being written
    CopyFrameBytes(slot.storage.get(), frame.data, frame.length);
    slot.length.store(frame.length, std::memory_order_relaxed);
    slot.stamp.store(stamp, std::memory_order_relaxed);
    slot.sequence.fetch_add(1);  // even: at rest
    m_published.exchange(m_writeIndex);
    m_writeIndex = 1 - m_writeIndex;
    return true;
}

FramePool::ReadStatus FramePool::TryRead(std::uint64_t now, std::uint64_t freshness, Attempt& attempt) noexcept {
    if (m_capacity == 0) {
        return ReadStatus::NotAvailable;
    }
    attempt.index = InterlockedLook(m_published, kNothingPublished);
    if (attempt.index != 0 && attempt.index != 1) {
        return ReadStatus::NotAvailable;
    }
    Slot& slot = m_slots[attempt.index];
    attempt.sequence = InterlockedLook(slot.sequence, 0U);
    if (attempt.sequence % 2 != 0) {
        return ReadStatus::Busy;
    }
    attempt.stamp = slot.stamp.load(std::memory_order_relaxed);
    const std::uint64_t length = slot.length.load(std::memory_order_relaxed);
    if (attempt.stamp < now && now - attempt.stamp > freshness) {
        return ReadStatus::Stale;
    }
    if (length == 0 || length > m_capacity) {
        return ReadStatus::Busy;
    }
    attempt.view = {slot.storage.get(), length};
    return ReadStatus::Ready;
}

bool FramePool::Validate(const Attempt& attempt) noexcept {
    // Succeeding writes the value it found, which makes it a read-modify-write: the copy before it cannot move behind
    // it.
    if (InterlockedLook(m_slots[attempt.index].sequence, attempt.sequence) == attempt.sequence) {
        return true;
    }
    m_tornReads.fetch_add(1);
    return false;
}

bool FramePool::Peek(std::uint64_t now, std::uint64_t freshness, std::uint64_t& stamp) noexcept {
    for (int i = 0; i < kAttempts; ++i) {
        Attempt attempt{};
        const ReadStatus status = TryRead(now, freshness, attempt);
        if (status == ReadStatus::Ready && Validate(attempt)) {
            stamp = attempt.stamp;
            return true;
        }
        if (status == ReadStatus::NotAvailable || status == ReadStatus::Stale) {
            return false;
        }
    }
    return false;
}

bool FramePool::Consume(std::uint64_t now, std::uint64_t freshness, std::uint64_t expectedStamp,
                        std::uint64_t requiredLength, const CopyDescriptor& copy) noexcept {
    for (int i = 0; i < kAttempts; ++i) {
        Attempt attempt{};
        const ReadStatus status = TryRead(now, freshness, attempt);
        if (status == ReadStatus::Busy) {
            continue;
        }
        if (status != ReadStatus::Ready) {
            return false;
        }
        if (attempt.stamp < expectedStamp) {
            // An older frame than the one that was promised for this sample: the picture never goes back in time.
            Validate(attempt);
            return false;
        }
        if (attempt.view.length != requiredLength) {
            m_wrongLengthFrames.fetch_add(1);
            Validate(attempt);
            continue;
        }
        if (!CopyFrame(attempt.view, copy)) {
            Validate(attempt);
            return false;
        }
        if (Validate(attempt)) {
            return true;
        }
    }
    return false;
}

void FramePool::Reset() noexcept {
    m_published.exchange(kNothingPublished);
}

}  // namespace ravlo
