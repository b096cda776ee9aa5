#include "gate/demand_record.h"

#include <algorithm>
#include <cstddef>

namespace ravlo {
namespace {

constexpr std::size_t kMagicOffset = 0;
constexpr std::size_t kVersionOffset = 4;
constexpr std::size_t kSequenceOffset = 8;
constexpr std::size_t kIdleOffset = 16;
constexpr std::size_t kCountOffset = 24;
static_assert(kCountOffset + sizeof(std::uint64_t) == kDemandRecordBytes);

template <class T>
void PutLittleEndian(DemandRecordBytes& bytes, std::size_t offset, T value) noexcept {
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
}

template <class T>
T GetLittleEndian(const DemandRecordBytes& bytes, std::size_t offset) noexcept {
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        value |= static_cast<T>(bytes[offset + i]) << (8 * i);
    }
    return value;
}

}  // namespace

void EncodeDemandRecord(const DemandRecord& record, DemandRecordBytes& bytes) noexcept {
    PutLittleEndian(bytes, kMagicOffset, kDemandMagic);
    PutLittleEndian(bytes, kVersionOffset, kDemandVersion);
    PutLittleEndian(bytes, kSequenceOffset, record.sequence);
    PutLittleEndian(bytes, kIdleOffset, std::min(record.idleMs, kDemandIdleLimitMs));
    PutLittleEndian(bytes, kCountOffset, record.requestCount);
}

bool DecodeDemandRecord(const DemandRecordBytes& bytes, DemandRecord& record) noexcept {
    if (GetLittleEndian<std::uint32_t>(bytes, kMagicOffset) != kDemandMagic ||
        GetLittleEndian<std::uint32_t>(bytes, kVersionOffset) != kDemandVersion) {
        return false;
    }
    record.sequence = GetLittleEndian<std::uint64_t>(bytes, kSequenceOffset);
    record.idleMs = GetLittleEndian<std::uint64_t>(bytes, kIdleOffset);
    record.requestCount = GetLittleEndian<std::uint64_t>(bytes, kCountOffset);
    return true;
}

std::uint64_t DemandIdleMs(std::uint64_t now, std::uint64_t lastRequest) noexcept {
    if (lastRequest == 0) {
        return kDemandIdleLimitMs;
    }
    return lastRequest < now ? std::min(now - lastRequest, kDemandIdleLimitMs) : 0;
}

}  // namespace ravlo
