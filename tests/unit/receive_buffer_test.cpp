#include "pipe/receive_buffer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>

#include "pipe/frame_receive.h"

namespace {

/// Array allocations of at least this many bytes fail.
std::atomic<std::size_t> g_smallestFailingArray{SIZE_MAX};

/// Makes large array allocations fail while it lives.
struct LargeArraysFail {
    explicit LargeArraysFail(std::size_t smallest) { g_smallestFailingArray = smallest; }
    ~LargeArraysFail() { g_smallestFailingArray = SIZE_MAX; }
    LargeArraysFail(const LargeArraysFail&) = delete;
    LargeArraysFail& operator=(const LargeArraysFail&) = delete;
};

}  // namespace

// The program's own array allocation, so that a failure can be staged. All four go together, since a sanitizer compares
// who gave a block with who takes it; and none is inlined, since the compiler would compare likewise and not see both.

[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return size < g_smallestFailingArray.load(std::memory_order_relaxed) ? ::operator new(size, std::nothrow) : nullptr;
}

[[gnu::noinline]] void* operator new[](std::size_t size) {
    void* const storage = ::operator new[](size, std::nothrow);
    if (storage == nullptr) {
        throw std::bad_alloc();
    }
    return storage;
}

[[gnu::noinline]] void operator delete[](void* storage) noexcept {
    ::operator delete(storage);
}

[[gnu::noinline]] void operator delete[](void* storage, std::size_t) noexcept {
    ::operator delete(storage);
}

namespace ravlo {
namespace {

TEST(ReceiveBuffer, StartsWithoutStorage) {
    const ReceiveBuffer buffer;
    EXPECT_EQ(buffer.Data(), nullptr);
    EXPECT_EQ(buffer.Size(), 0U);
    EXPECT_EQ(buffer.Capacity(), 0U);
}

TEST(ReceiveBuffer, IsExactlyAsLongAsAskedFor) {
    ReceiveBuffer buffer;
    buffer.Resize(3110400);
    ASSERT_NE(buffer.Data(), nullptr);
    EXPECT_EQ(buffer.Size(), 3110400U);
    EXPECT_EQ(buffer.Capacity(), 3110400U);
    std::memset(buffer.Data(), 0xA5, buffer.Size());
    EXPECT_EQ(buffer.Data()[3110399], 0xA5);
}

TEST(ReceiveBuffer, AlternatingSizesReuseOneStorageAndLeaveItsBytes) {
    ReceiveBuffer buffer;
    buffer.Resize(1000);
    const std::uint8_t* const storage = buffer.Data();
    std::memset(buffer.Data(), 0xA5, 1000);
    for (const std::uint32_t size : {10U, 1000U, 0U, 999U, 1U, 1000U}) {
        buffer.Resize(size);
        EXPECT_EQ(buffer.Size(), size);
        EXPECT_EQ(buffer.Capacity(), 1000U);
        EXPECT_EQ(buffer.Data(), storage);
    }
    for (std::size_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(buffer.Data()[i], 0xA5) << i;
    }
}

TEST(ReceiveBuffer, GrowsWhenMoreIsAskedForThanItEverHad) {
    ReceiveBuffer buffer;
    buffer.Resize(10);
    buffer.Resize(11);
    EXPECT_EQ(buffer.Size(), 11U);
    EXPECT_EQ(buffer.Capacity(), 11U);
    buffer.Data()[10] = 1;
    EXPECT_EQ(buffer.Data()[10], 1);
}

TEST(ReceiveBuffer, IsEmptyAfterItCouldNotGrowAndGrowsLater) {
    ReceiveBuffer buffer;
    buffer.Resize(100);
    {
        const LargeArraysFail fail(200);
        EXPECT_THROW(buffer.Resize(200), std::bad_alloc);
        EXPECT_EQ(buffer.Data(), nullptr);
        EXPECT_EQ(buffer.Size(), 0U);
        EXPECT_EQ(buffer.Capacity(), 0U);
    }
    buffer.Resize(200);
    ASSERT_NE(buffer.Data(), nullptr);
    EXPECT_EQ(buffer.Size(), 200U);
    EXPECT_EQ(buffer.Capacity(), 200U);
}

TEST(ReceiveBuffer, NeedsNoAllocationForASizeItAlreadyHas) {
    ReceiveBuffer buffer;
    buffer.Resize(200);
    const LargeArraysFail fail(0);
    EXPECT_NO_THROW(buffer.Resize(10));
    EXPECT_NO_THROW(buffer.Resize(200));
    EXPECT_EQ(buffer.Size(), 200U);
}

/// Delivers one good 640x480 header and counts what is read.
class HeaderOnly final : public FrameSource {
public:
    ReadOutcome ReadBytes(void* buffer, std::uint32_t length) override {
        ++reads;
        const FrameHeader header = MakeFrameHeader(640, 480, 1);
        std::memcpy(buffer, &header, length < sizeof(header) ? length : sizeof(header));
        return ReadOutcome::Complete;
    }

    int reads = 0;
};

TEST(FrameReceive, ABufferThatCannotGrowLeavesTheStatusIoFaultAndThePayloadUnread) {
    HeaderOnly source;
    FrameHeader header{};
    ReceiveBuffer buffer;
    RecvStatus status = RecvStatus::Ok;
    HeaderVerdict verdict = HeaderVerdict::Ok;
    const LargeArraysFail fail(460800);
    EXPECT_THROW(ReceiveFrame(source, header, buffer, 460800, status, verdict), std::bad_alloc);
    EXPECT_EQ(status, RecvStatus::IoFault);
    EXPECT_EQ(source.reads, 1);
    EXPECT_EQ(buffer.Size(), 0U);
}

TEST(FrameReceive, AnOversizedFrameIsRefusedBeforeAnyAllocation) {
    HeaderOnly source;
    FrameHeader header{};
    ReceiveBuffer buffer;
    RecvStatus status = RecvStatus::Ok;
    HeaderVerdict verdict = HeaderVerdict::Ok;
    const LargeArraysFail fail(0);
    EXPECT_NO_THROW(ReceiveFrame(source, header, buffer, 460799, status, verdict));
    EXPECT_EQ(status, RecvStatus::Oversized);
    EXPECT_EQ(source.reads, 1);
}

}  // namespace
}  // namespace ravlo
