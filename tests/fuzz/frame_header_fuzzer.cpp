#include "pipe/frame_header.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/fuzz_support.h"
#include "fuzz/wire_reference.h"

// Input: one byte whose bits 0..3 put magic, version, format and byte count right, then the 40 bytes of a header.

namespace ravlo::fuzz {
namespace {

constexpr std::size_t kWidthOffset = 8;
constexpr std::size_t kHeightOffset = 12;
constexpr std::size_t kBytesOffset = 16;
constexpr std::size_t kFormatOffset = 20;
constexpr std::size_t kSeqOffset = 24;

/// Leaves to chance only the fields that are left unset in `repairs`: four right guesses at once are rare.
Bytes MakeHeader(Input& input) {
    const unsigned repairs = input.Byte();
    Bytes wire = input.Take(kFrameHeaderBytes);
    wire.resize(kFrameHeaderBytes);
    const auto width = static_cast<std::uint32_t>(LittleEndian(wire.data() + kWidthOffset, 4));
    const auto height = static_cast<std::uint32_t>(LittleEndian(wire.data() + kHeightOffset, 4));
    const Bytes good = GoodHeader(width, height, 0);
    const auto repair = [&](unsigned bit, std::size_t offset) {
        if ((repairs >> bit & 1U) != 0) {
            std::copy_n(good.begin() + static_cast<std::ptrdiff_t>(offset), 4,
                        wire.begin() + static_cast<std::ptrdiff_t>(offset));
        }
    };
    repair(0, 0);
    repair(1, 4);
    repair(2, kFormatOffset);
    repair(3, kBytesOffset);
    return wire;
}

FrameHeader Load(const Bytes& wire) {
    FrameHeader header;
    std::memcpy(&header, wire.data(), sizeof(header));
    return header;
}

void RequireRightSizeRule(std::uint32_t width, std::uint32_t height) {
    const std::uint64_t bytes = WireFrameBytes(width, height);
    if (width > 16384 || height > 16384) {
        Require(bytes == 0, "a size beyond the wire's has no bytes");
        return;
    }
    const std::uint64_t rows = (3 * std::uint64_t{height} - height % 2) / 2;
    Require(bytes == rows * width, "the size rule counts every row of luma and every second one for chroma");
}

void RequireAcceptedFieldsInRange(const FrameHeader& header) {
    Require(header.magic == 0x4F4C5652 && header.version == 2 && header.format == 0x3231564E,
            "an accepted header has the three constants");
    Require(header.width >= 2 && header.width <= 16384 && header.width % 2 == 0, "an accepted width is even, 2..16384");
    Require(header.height >= 2 && header.height <= 16384 && header.height % 2 == 0,
            "an accepted height is even, 2..16384");
    Require(header.bytes >= 6 && header.bytes <= 402653184, "an accepted byte count is one that a picture can have");
    Require(header.bytes == WireFrameBytes(header.width, header.height), "an accepted byte count is the picture's");
}

/// What is never judged must not matter.
void RequireSameVerdictWithOtherFreeFields(Bytes wire, HeaderVerdict verdict) {
    for (std::size_t i = kSeqOffset; i < wire.size(); ++i) {
        wire[i] = static_cast<std::uint8_t>(~wire[i]);
    }
    Require(ValidateFrameHeader(Load(wire)) == verdict, "neither sequence number nor reserved bytes are judged");
}

const char* WordOf(HeaderVerdict verdict) {
    switch (verdict) {
        case HeaderVerdict::Ok:
            return "OK";
        case HeaderVerdict::Magic:
            return "MAGIC";
        case HeaderVerdict::Version:
            return "VERSION";
        case HeaderVerdict::PixelFormat:
            return "PIXEL_FORMAT";
        case HeaderVerdict::Geometry:
            return "GEOMETRY";
        case HeaderVerdict::ByteCount:
            return "BYTE_COUNT";
    }
    return "UNKNOWN";
}

void Judge(Input input) {
    const Bytes wire = MakeHeader(input);
    const FrameHeader header = Load(wire);
    const HeaderVerdict verdict = ValidateFrameHeader(header);
    const ReferenceHeader reference(wire.data());

    Require(verdict == reference.Verdict(), "the verdict is the one of the first failing check");
    Require(IsFrameHeaderValid(header) == (verdict == HeaderVerdict::Ok), "valid means OK");
    Require(std::string(WordOf(verdict)) == HeaderVerdictWord(verdict), "every verdict has its word");
    Require(HeaderVerdictWord(static_cast<HeaderVerdict>(header.width)) ==
                std::string(WordOf(static_cast<HeaderVerdict>(header.width))),
            "every number has a word");
    if (verdict == HeaderVerdict::Ok) {
        RequireAcceptedFieldsInRange(header);
        const FrameHeader made = MakeFrameHeader(header.width, header.height, header.seq);
        Require(std::memcmp(&made, wire.data(), 32) == 0, "the producer's side makes the header that is accepted");
    }
    RequireSameVerdictWithOtherFreeFields(wire, verdict);
    RequireRightSizeRule(header.width, header.height);

    const FrameHeader made = MakeFrameHeader(header.width, header.height, header.seq);
    const bool fits = ReferenceHeader::IsDimension(header.width) && ReferenceHeader::IsDimension(header.height);
    Require(ValidateFrameHeader(made) == (fits ? HeaderVerdict::Ok : HeaderVerdict::Geometry),
            "a made header is refused for its geometry or not at all");
    Require(made.seq == header.seq, "a made header carries the sequence number");
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Judge(ravlo::fuzz::Input(data, size));
    return 0;
}
