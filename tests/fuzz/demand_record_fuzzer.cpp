#include "gate/demand_record.h"

#include <cstring>

#include "fuzz/fuzz_support.h"
#include "fuzz/wire_reference.h"

// Input: one byte whose bits 0 and 1 put magic and version of the record right, then the 32 bytes of a record, then the
// present tick and the tick of the last request (8 bytes each). The record also serves as the numbers to encode.

namespace ravlo::fuzz {
namespace {

constexpr std::uint64_t kHour = 3'600'000;
constexpr std::uint8_t kPrefix[8] = {'G', 'A', 'T', 'E', 1, 0, 0, 0};

DemandRecordBytes MakeRecord(Input& input) {
    const unsigned repairs = input.Byte();
    DemandRecordBytes wire{};
    for (std::uint8_t& byte : wire) {
        byte = input.Byte();
    }
    if ((repairs & 1U) != 0) {
        std::memcpy(wire.data(), kPrefix, 4);
    }
    if ((repairs & 2U) != 0) {
        std::memcpy(wire.data() + 4, kPrefix + 4, 4);
    }
    return wire;
}

/// Whatever comes over the wire: ours or not, and then the numbers in it.
void Decode(const DemandRecordBytes& wire) {
    constexpr DemandRecord kUntouched{101, 102, 103};
    DemandRecord record = kUntouched;
    const bool accepted = DecodeDemandRecord(wire, record);
    Require(accepted == (std::memcmp(wire.data(), kPrefix, sizeof(kPrefix)) == 0),
            "a record is ours by its first eight bytes");
    if (!accepted) {
        Require(record.sequence == 101 && record.idleMs == 102 && record.requestCount == 103,
                "a foreign record leaves nothing behind");
        return;
    }
    Require(record.sequence == LittleEndian(wire.data() + 8, 8), "the sequence number is at 8");
    Require(record.idleMs == LittleEndian(wire.data() + 16, 8), "the idle time is at 16");
    Require(record.requestCount == LittleEndian(wire.data() + 24, 8), "the request count is at 24");
    DemandRecordBytes again;
    EncodeDemandRecord(record, again);
    Require((again == wire) == (record.idleMs <= kHour), "a record with a possible idle time comes back as it was");
}

/// Whatever is to be sent: what arrives is the same, with the idle time cut.
void Encode(const DemandRecord& record) {
    struct {
        DemandRecordBytes wire;
        std::uint8_t guard[8];
    } room;
    std::memset(&room, 0xA5, sizeof(room));
    EncodeDemandRecord(record, room.wire);
    Require(LittleEndian(room.guard, 8) == 0xA5A5A5A5A5A5A5A5, "no more than a record is written");
    Require(std::memcmp(room.wire.data(), kPrefix, sizeof(kPrefix)) == 0, "a record begins with magic and version");
    DemandRecord arrived{};
    Require(DecodeDemandRecord(room.wire, arrived), "what was encoded is a record");
    Require(arrived.sequence == record.sequence && arrived.requestCount == record.requestCount,
            "sequence and count arrive");
    Require(arrived.idleMs == (record.idleMs > kHour ? kHour : record.idleMs),
            "the idle time arrives, at most an hour");
}

void Idle(std::uint64_t now, std::uint64_t last) {
    const std::uint64_t idle = DemandIdleMs(now, last);
    Require(idle <= kHour, "nothing is idle for more than an hour");
    const bool isMoreThanAnHour = last == 0 || (now > kHour && last < now - kHour);
    if (isMoreThanAnHour) {
        Require(idle == kHour, "no request, or none for an hour, is an hour");
    } else {
        Require(last >= now ? idle == 0 : last + idle == now, "idle is from the last request to now");
    }
}

void Try(Input input) {
    const DemandRecordBytes wire = MakeRecord(input);
    Decode(wire);
    const std::uint64_t numbers[3] = {LittleEndian(wire.data() + 8, 8), LittleEndian(wire.data() + 16, 8),
                                      LittleEndian(wire.data() + 24, 8)};
    Encode({numbers[0], numbers[1], numbers[2]});
    Encode({numbers[0], numbers[1] % (2 * kHour), numbers[2]});
    const std::uint64_t now = input.Number64();
    const std::uint64_t last = input.Number64();
    Idle(now, last);
    Idle(now, now - last % (2 * kHour));
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Try(ravlo::fuzz::Input(data, size));
    return 0;
}
