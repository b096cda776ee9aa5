#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "stream/geometry.h"

namespace ravlo {

/// A packed NV12 frame in somebody else's memory. Usable when neither field is zero.
struct FrameView {
    const std::uint8_t* data = nullptr;
    std::uint64_t length = 0;  ///< bytes

    bool IsUsable() const noexcept { return data != nullptr && length != 0; }
};

/// Where a consumer wants the frame: both planes at one stride, chroma behind `height` rows of luma.
struct CopyDescriptor {
    std::uint8_t* destination = nullptr;
    std::uint32_t destinationLength = 0;  ///< bytes
    std::int32_t destinationStride = 0;   ///< bytes from row to row
    std::uint32_t height = 0;             ///< luma rows
    std::uint32_t rowBytes = 0;           ///< bytes copied of each row: the width
    std::uint64_t lumaBytes = 0;          ///< bytes of the packed luma plane
    std::uint64_t chromaBytes = 0;        ///< bytes of the packed chroma plane
};

/// The copy of a whole frame of `geometry` into `length` bytes at `destination`.
CopyDescriptor DescribeCopy(const FrameGeometry& geometry, std::uint8_t* destination, std::uint32_t length,
                            std::int32_t stride) noexcept;

/// True when the destination exists and is large enough for the frame it is described for.
bool CanReceiveFrame(const CopyDescriptor& copy) noexcept;

/// Two slots between one writer and any number of readers, without a lock. The writer fills the slot that is not
/// published and then publishes it, so it never waits; a reader whose slot was overwritten under its copy notices by
/// the slot's sequence number (odd while being written, changed afterwards) and tries again, three times at most.
///
/// What the language promises: on the writer's side a copy lies between two sequentially consistent increments of the
/// sequence; on the reader's side between a sequentially consistent look at it and the confirming compare-exchange,
/// which is a read-modify-write whenever the copy is kept. Acquire keeps a copy from starting early, release keeps it
/// from ending late, so a confirmed copy saw the slot at rest. That holds for the string instruction too: it may store
/// its bytes out of order among themselves, never across the locked instructions on both sides of it. Lengths and
/// stamps are relaxed atomics. What it does not promise: copying bytes while they are being written is a data race by
/// the letter of the standard, even though the result is discarded; every compiler and processor that the module is
/// built for reads some mixture of old and new bytes and nothing worse.
class FramePool {
public:
    /// Allocates both slots zero-filled. False when `capacity` (bytes a slot) is 0 or there is no memory. Fast: the
    /// zeros are those of pages that the system has not handed out yet. See TouchSlots.
    bool Allocate(std::uint64_t capacity) noexcept;

    /// Has the system hand out the pages of the first `bytes` of both slots now, so that the first frames do not wait
    /// for them. Skips a slot that has held a frame. Writer thread only.
    void TouchSlots(std::uint64_t bytes) noexcept;

    /// Makes `frame` the newest frame, stamped with `stamp` (ms tick of its arrival). Writer thread only. False, and
    /// counted as refused, when the frame is empty or larger than a slot; the previous frame then stays published.
    bool Publish(FrameView frame, std::uint64_t stamp) noexcept;

    /// True when a complete frame no older than `freshness` ms is there; `stamp` receives its tick. Any thread.
    /// A look may see a frame an instant before it is published, and the next look the one before it.
    bool Peek(std::uint64_t now, std::uint64_t freshness, std::uint64_t& stamp) noexcept;

    /// Copies the newest frame. True when it was copied whole and untorn. Refuses a frame older than `freshness` ms,
    /// one stamped before `expectedStamp`, and one whose length is not `requiredLength` (counted). Any thread.
    bool Consume(std::uint64_t now, std::uint64_t freshness, std::uint64_t expectedStamp, std::uint64_t requiredLength,
                 const CopyDescriptor& copy) noexcept;

    /// Unpublishes the newest frame, so that nothing is there to be read. Counters, sequences and storage stay, because
    /// a reader may still be in the middle of a copy. Only while no writer runs.
    void Reset() noexcept;

    std::uint64_t Capacity() const noexcept { return m_capacity; }
    /// Read attempts that were overwritten mid-copy.
    std::int32_t TornReads() const noexcept { return m_tornReads.load(); }
    /// Publishes that the pool did not accept.
    std::int32_t RefusedPublishes() const noexcept { return m_refusedPublishes.load(); }
    /// Read attempts that met a frame of another length than the stream's.
    std::int32_t WrongLengthFrames() const noexcept { return m_wrongLengthFrames.load(); }

private:
    enum class ReadStatus { Ready, NotAvailable, Busy, Stale };

    struct FreeBlock {
        // NOLINTNEXTLINE(cppcoreguidelines-no-malloc): the counterpart of calloc
        void operator()(std::uint8_t* block) const noexcept { std::free(block); }
    };
    using Storage = std::unique_ptr<std::uint8_t, FreeBlock>;

    struct Slot {
        Storage storage;
        std::atomic<std::uint32_t> sequence{0};
        std::atomic<std::uint64_t> stamp{0};
        std::atomic<std::uint64_t> length{0};
    };

    struct Attempt {
        std::int32_t index;
        std::uint32_t sequence;
        std::uint64_t stamp;
        FrameView view;
    };

    ReadStatus TryRead(std::uint64_t now, std::uint64_t freshness, Attempt& attempt) noexcept;
    bool Validate(const Attempt& attempt) noexcept;

    static constexpr int kAttempts = 3;
    static constexpr std::int32_t kNothingPublished = -1;

    Slot m_slots[2];
    std::atomic<std::int32_t> m_published{kNothingPublished};
    std::int32_t m_writeIndex = 0;
    std::uint64_t m_capacity = 0;
    std::atomic<std::int32_t> m_tornReads{0};
    std::atomic<std::int32_t> m_refusedPublishes{0};
    std::atomic<std::int32_t> m_wrongLengthFrames{0};
};

}  // namespace ravlo
