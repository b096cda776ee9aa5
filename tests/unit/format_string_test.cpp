#include "trace/format_string.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <type_traits>

#include "unit/wide_text.h"

namespace ravlo {
namespace {

/// The platform's GUID, as far as it is known by its members.
struct PlatformGuid {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

struct Other {
    int member;
};

static_assert(KindOfArgument<int>() == TraceArgumentKind::Number32);
static_assert(KindOfArgument<std::uint32_t>() == TraceArgumentKind::Number32);
static_assert(KindOfArgument<std::uint16_t>() == TraceArgumentKind::Number32);
static_assert(KindOfArgument<char>() == TraceArgumentKind::Number32);
static_assert(KindOfArgument<bool>() == TraceArgumentKind::Number32);
static_assert(KindOfArgument<const int&>() == TraceArgumentKind::Number32);
static_assert(KindOfArgument<std::int64_t>() == TraceArgumentKind::Number64);
static_assert(KindOfArgument<std::uint64_t>() == TraceArgumentKind::Number64);
static_assert(KindOfArgument<std::size_t>() == TraceArgumentKind::Number64);
static_assert(KindOfArgument<char*>() == TraceArgumentKind::NarrowString);
static_assert(KindOfArgument<const char*>() == TraceArgumentKind::NarrowString);
static_assert(KindOfArgument<const char (&)[5]>() == TraceArgumentKind::NarrowString);
static_assert(KindOfArgument<WideChar*>() == TraceArgumentKind::WideString);
static_assert(KindOfArgument<const WideChar*>() == TraceArgumentKind::WideString);
static_assert(KindOfArgument<const TraceGuid*>() == TraceArgumentKind::Guid);
static_assert(KindOfArgument<const PlatformGuid*>() == TraceArgumentKind::Guid);
static_assert(KindOfArgument<PlatformGuid*>() == TraceArgumentKind::Guid);
static_assert(KindOfArgument<void*>() == TraceArgumentKind::Pointer);
static_assert(KindOfArgument<const Other*>() == TraceArgumentKind::Pointer);
static_assert(KindOfArgument<char**>() == TraceArgumentKind::Pointer);

/// A format as a template argument, so that whether it compiles can be asked.
template <std::size_t Size>
struct Literal {
    char text[Size]{};

    consteval Literal(const char (&from)[Size]) {
        for (std::size_t i = 0; i < Size; ++i) {
            text[i] = from[i];
        }
    }
};

template <bool>
struct Evaluated;

template <Literal Format, class... Arguments>
using Check = Evaluated<(static_cast<void>(TraceFormat<Arguments...>(Format.text)), true)>;

template <Literal Format, class... Arguments>
concept Fits = requires {
    typename Check<Format, Arguments...>;  // a format that does not fit is no constant expression
};

using Narrows = const char*;
using Wides = const WideChar*;
using Guids = const TraceGuid*;

static_assert(Fits<"">);
static_assert(Fits<"text only">);
static_assert(Fits<"100%%">);
static_assert(!Fits<"text only", int>, "an argument that nothing prints");
static_assert(!Fits<"%u">, "a conversion without an argument");
static_assert(!Fits<"%u %u", int>);
static_assert(!Fits<"%u", int, int>);
static_assert(!Fits<"%%u", int>, "a percent sign takes no argument");

static_assert(Fits<"%d %i %u %x %X %c", int, int, std::uint32_t, std::uint32_t, std::uint32_t, char>);
static_assert(Fits<"%08X %lu %ld %5u", std::uint32_t, std::uint32_t, int, std::uint16_t>);
static_assert(Fits<"%I64u %I64d %llu %020llX", std::uint64_t, std::int64_t, std::uint64_t, std::uint64_t>);
static_assert(!Fits<"%u", std::uint64_t>, "a 64-bit number would be cut");
static_assert(!Fits<"%lu", std::uint64_t>, "one l does not widen");
static_assert(!Fits<"%I64u", std::uint32_t>);
static_assert(!Fits<"%lld", int>);
static_assert(!Fits<"%u", Narrows>);
static_assert(!Fits<"%I64u", Narrows>);
static_assert(!Fits<"%c", std::uint64_t>);

static_assert(Fits<"%s %ls %S %G", Narrows, Wides, Wides, Guids>);
static_assert(Fits<"%G", const PlatformGuid*>);
static_assert(!Fits<"%s", Wides>);
static_assert(!Fits<"%ls", Narrows>);
static_assert(!Fits<"%S", Narrows>);
static_assert(!Fits<"%s", int>);
static_assert(!Fits<"%s", std::uint64_t>);
static_assert(!Fits<"%s", Guids>);
static_assert(!Fits<"%G", Narrows>);
static_assert(!Fits<"%G", const Other*>);
static_assert(!Fits<"%s", const Other*>);

static_assert(Fits<"%p", void*>);
static_assert(Fits<"%p %p %p %p", const Other*, Narrows, Wides, Guids>);
static_assert(!Fits<"%p", std::uint64_t>);
static_assert(!Fits<"%p", int>);

static_assert(Fits<"%s read %zu", Narrows, std::size_t>);
static_assert(Fits<"%u of %zu and %zu", int, std::size_t, std::size_t>);
static_assert(!Fits<"%zu">, "the count that a %zu stands for is missing");
static_assert(!Fits<"%zu %u", std::size_t, int>, "%u would print what %zu left lying");

static_assert(!Fits<"%">);
static_assert(!Fits<"%", int>);
static_assert(!Fits<"%5", int>);
static_assert(!Fits<"%I64", std::uint64_t>);
static_assert(!Fits<"%l", int>);
static_assert(!Fits<"%q">);
static_assert(!Fits<"%q", int>);
static_assert(!Fits<"%-5d", int>);
static_assert(!Fits<"%+d", int>);
static_assert(!Fits<"%.3u", int>);
static_assert(!Fits<"%#x", int>);
static_assert(!Fits<"%hd", int>);

TEST(FormatString, KeepsItsText) {
    constexpr const char* kText = "PIPE delivering live frames %ux%u seq=%I64u";
    const TraceFormat<std::uint32_t, std::uint32_t, std::uint64_t> format(kText);
    EXPECT_EQ(format.Text(), kText);
}

TEST(FormatString, SignedNumbersAreSignExtendedIntoTheirSlot) {
    EXPECT_EQ(ToTraceSlot(-1), 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(ToTraceSlot(std::int16_t{-2}), 0xFFFFFFFFFFFFFFFEU);
    EXPECT_EQ(ToTraceSlot(std::int64_t{-3}), 0xFFFFFFFFFFFFFFFDU);
    EXPECT_EQ(ToTraceSlot(5), 5U);
}

TEST(FormatString, UnsignedNumbersAreZeroExtendedIntoTheirSlot) {
    EXPECT_EQ(ToTraceSlot(std::uint32_t{0xFFFFFFFF}), 0xFFFFFFFFU);
    EXPECT_EQ(ToTraceSlot(std::uint16_t{0xFFFF}), 0xFFFFU);
    EXPECT_EQ(ToTraceSlot(std::uint64_t{0xFFFFFFFFFFFFFFFF}), 0xFFFFFFFFFFFFFFFFU);
    EXPECT_EQ(ToTraceSlot(true), 1U);
}

TEST(FormatString, PointersAreAddressesInTheirSlot) {
    const char* const text = "text";
    EXPECT_EQ(ToTraceSlot(text), static_cast<TraceSlot>(reinterpret_cast<std::uintptr_t>(text)));
    EXPECT_EQ(ToTraceSlot(static_cast<void*>(nullptr)), 0U);
}

TEST(FormatString, AStructWithTheMembersOfAPlatformGuidPrintsAsAGuid) {
    const PlatformGuid guid{0x5E3C9A71, 0x0B4D, 0x4F82, {0xA6, 0xC1, 0x7D, 0x2E, 0x8B, 0x90, 0xF1, 0x34}};
    const TraceFormat<const PlatformGuid*> format("%G");
    char storage[64];
    RvLineBuffer line(storage, sizeof(storage));
    const TraceSlot slots[] = {ToTraceSlot(&guid)};
    RvFormat(line, format.Text(), slots, 1);
    EXPECT_STREQ(storage, "{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}");
}

}  // namespace
}  // namespace ravlo
