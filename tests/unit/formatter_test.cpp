#include "trace/formatter.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "trace/format_string.h"
#include "unit/wide_text.h"

namespace ravlo {
namespace {

/// Expands into a buffer of `capacity` bytes and checks on the way that nothing behind it was written.
std::string FormatInto(std::uint32_t capacity, const char* format, std::initializer_list<TraceSlot> slots) {
    char storage[512];
    std::memset(storage, '~', sizeof(storage));
    RvLineBuffer line(storage, capacity);
    RvFormat(line, format, slots.begin(), slots.size());
    EXPECT_EQ(static_cast<std::size_t>(line.length), std::strlen(storage));
    EXPECT_EQ(storage[capacity], '~');
    return storage;
}

template <class... Arguments>
std::string Format(const char* format, Arguments... arguments) {
    return FormatInto(500, format, {ToTraceSlot(arguments)...});
}

constexpr TraceGuid kGuid{0x5E3C9A71, 0x0B4D, 0x4F82, {0xA6, 0xC1, 0x7D, 0x2E, 0x8B, 0x90, 0xF1, 0x34}};
const char* const kNoString = nullptr;
const WideChar* const kNoWideString = nullptr;
const TraceGuid* const kNoGuid = nullptr;

TEST(Formatter, CopiesWhatIsNoConversion) {
    EXPECT_EQ(Format(""), "");
    EXPECT_EQ(Format("GATE serving - 100 of 100"), "GATE serving - 100 of 100");
}

TEST(Formatter, TwoPercentSignsGiveOneAndTakeNoArgument) {
    EXPECT_EQ(Format("100%% of %u", 7U), "100% of 7");
    EXPECT_EQ(Format("%%%%"), "%%");
    EXPECT_EQ(Format("%%u", 7U), "%u");
}

TEST(Formatter, PrintsSignedDecimals) {
    EXPECT_EQ(Format("%d", 0), "0");
    EXPECT_EQ(Format("%d", -1), "-1");
    EXPECT_EQ(Format("%i", 42), "42");
    EXPECT_EQ(Format("%d", 2147483647), "2147483647");
    EXPECT_EQ(Format("%d", std::numeric_limits<std::int32_t>::min()), "-2147483648");
}

TEST(Formatter, PrintsUnsignedDecimals) {
    EXPECT_EQ(Format("%u", 0U), "0");
    EXPECT_EQ(Format("%u", 4294967295U), "4294967295");
    EXPECT_EQ(Format("%u", -1), "4294967295");
}

TEST(Formatter, PrintsHexadecimalsInTheCaseOfTheConversion) {
    EXPECT_EQ(Format("%x", 0xDEADBEEFU), "deadbeef");
    EXPECT_EQ(Format("%X", 0xDEADBEEFU), "DEADBEEF");
    EXPECT_EQ(Format("%x", 0U), "0");
    EXPECT_EQ(Format("%X", 0U), "0");
}

TEST(Formatter, PrintsResultCodesWithEightDigits) {
    EXPECT_EQ(Format("hr=0x%08X", 0x80004005U), "hr=0x80004005");
    EXPECT_EQ(Format("hr=0x%08X", static_cast<std::int32_t>(0x80004005U)), "hr=0x80004005");
    EXPECT_EQ(Format("hr=0x%08X", 5), "hr=0x00000005");
}

TEST(Formatter, BothSizePrefixesMakeANumber64Bit) {
    EXPECT_EQ(Format("%I64u", 18446744073709551615U), "18446744073709551615");
    EXPECT_EQ(Format("%llu", 18446744073709551615U), "18446744073709551615");
    EXPECT_EQ(Format("%I64d", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(Format("%lld", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(Format("%I64i", std::int64_t{-5'000'000'000}), "-5000000000");
    EXPECT_EQ(Format("%I64x", 0x123456789ABCDEF0U), "123456789abcdef0");
    EXPECT_EQ(Format("%llX", 0x123456789ABCDEF0U), "123456789ABCDEF0");
    EXPECT_EQ(Format("%020I64u", 5'000'000'000U), "00000000005000000000");
}

TEST(Formatter, WithoutASizePrefixOnlyTheLow32BitsCount) {
    EXPECT_EQ(FormatInto(500, "%u", {0xFFFFFFFF00000005}), "5");
    EXPECT_EQ(FormatInto(500, "%d", {0x00000001FFFFFFFF}), "-1");
    EXPECT_EQ(FormatInto(500, "%d", {0xFFFFFFFF7FFFFFFF}), "2147483647");
    EXPECT_EQ(FormatInto(500, "%x", {0xABCDABCD00000010}), "10");
    EXPECT_EQ(FormatInto(500, "%X", {0xABCDABCD00000010}), "10");
}

TEST(Formatter, ASingleLDoesNotWidenANumber) {
    EXPECT_EQ(FormatInto(500, "%lu", {0xFFFFFFFF00000005}), "5");
    EXPECT_EQ(FormatInto(500, "%ld", {0x00000001FFFFFFFF}), "-1");
    EXPECT_EQ(FormatInto(500, "%lX", {0xABCDABCD00000010}), "10");
    EXPECT_EQ(FormatInto(500, "%lc", {'q'}), "q");
    EXPECT_EQ(FormatInto(500, "%lG", {ToTraceSlot(&kGuid)}), "{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}");
}

TEST(Formatter, PadsWithBlanksOrZerosUpToTheWidth) {
    EXPECT_EQ(Format("[%5u]", 42U), "[   42]");
    EXPECT_EQ(Format("[%05u]", 42U), "[00042]");
    EXPECT_EQ(Format("[%4x]", 0xABU), "[  ab]");
    EXPECT_EQ(Format("[%04X]", 0xABU), "[00AB]");
    EXPECT_EQ(Format("[%05d]", 42), "[00042]");
    EXPECT_EQ(Format("[%12I64u]", 5'000'000'000U), "[  5000000000]");
    EXPECT_EQ(Format("[%10u]", 0U), "[         0]");
    EXPECT_EQ(Format("[%00005u]", 42U), "[00042]");
}

TEST(Formatter, AWidthNeverCutsANumber) {
    EXPECT_EQ(Format("%2u", 12345U), "12345");
    EXPECT_EQ(Format("%02u", 12345U), "12345");
    EXPECT_EQ(Format("%5u", 12345U), "12345");
    EXPECT_EQ(Format("%0u", 7U), "7");
}

TEST(Formatter, TheSignStandsOutsideTheWidth) {
    EXPECT_EQ(Format("%5d", -5), "-    5");
    EXPECT_EQ(Format("%05d", -5), "-00005");
    EXPECT_EQ(Format("%5d", 5), "    5");
    EXPECT_EQ(Format("%05I64d", std::int64_t{-5}), "-00005");
    EXPECT_EQ(Format("%1d", -5), "-5");
}

TEST(Formatter, PadsANumberToAtMost32Characters) {
    EXPECT_EQ(Format("%32u", 7U), "                               7");
    EXPECT_EQ(Format("%33u", 7U), "                               7");
    EXPECT_EQ(Format("%040u", 7U), "00000000000000000000000000000007");
    EXPECT_EQ(Format("%040x", 7U), "00000000000000000000000000000007");
    EXPECT_EQ(Format("%040d", -7), "-00000000000000000000000000000007");
    EXPECT_EQ(Format("%031u", 7U), "0000000000000000000000000000007");
}

TEST(Formatter, AnAbsurdWidthDoesNotWrapAround) {
    EXPECT_EQ(Format("%04294967297u", 7U), "00000000000000000000000000000007");
    EXPECT_EQ(Format("%099999999999999999999999u!", 7U), "00000000000000000000000000000007!");
}

TEST(Formatter, PrintsAPointerAs16UpperCaseDigitsWhateverTheWidth) {
    EXPECT_EQ(FormatInto(500, "%p", {0x00007FF6ABCDEF01}), "00007FF6ABCDEF01");
    EXPECT_EQ(FormatInto(500, "%4p", {0x00007FF6ABCDEF01}), "00007FF6ABCDEF01");
    EXPECT_EQ(FormatInto(500, "%30p", {0x00007FF6ABCDEF01}), "00007FF6ABCDEF01");
    EXPECT_EQ(FormatInto(500, "%020p", {0xFEDCBA9876543210}), "FEDCBA9876543210");
    EXPECT_EQ(FormatInto(500, "%p", {0}), "0000000000000000");
}

TEST(Formatter, PrintsTheLowByteAsACharacter) {
    EXPECT_EQ(Format("%c%c", 'o', 'k'), "ok");
    EXPECT_EQ(Format("%c", 0x141), "A");
    EXPECT_EQ(Format("%5c|", 'x'), "x|");
}

TEST(Formatter, PrintsNarrowStringsWithoutRegardToAWidth) {
    EXPECT_EQ(Format("<%s>", "RvMediaSource"), "<RvMediaSource>");
    EXPECT_EQ(Format("<%s>", ""), "<>");
    EXPECT_EQ(Format("<%9s>", "ab"), "<ab>");
    EXPECT_EQ(Format("<%s>", kNoString), "<(null)>");
    EXPECT_EQ(Format("%s", "50%u"), "50%u") << "an argument is not a format";
}

TEST(Formatter, PrintsWideStringsAsAscii) {
    const WideText name = Wide("\\\\.\\pipe\\Ravlo.42");
    EXPECT_EQ(Format("PIPE name %ls - route", name.c_str()), "PIPE name \\\\.\\pipe\\Ravlo.42 - route");
    EXPECT_EQ(Format("%S", name.c_str()), "\\\\.\\pipe\\Ravlo.42");
    EXPECT_EQ(Format("%lS", name.c_str()), "\\\\.\\pipe\\Ravlo.42");
    EXPECT_EQ(Format("<%ls><%9ls>", Wide("").c_str(), Wide("ab").c_str()), "<><ab>");
    EXPECT_EQ(Format("%ls %S", kNoWideString, kNoWideString), "(null) (null)");
}

TEST(Formatter, PrintsAQuestionMarkForEveryUnitOutsidePrintableAscii) {
    const WideChar units[] = {'a', 0xE9, '\t', 0x1F, 0x20, 0x7E, 0x7F, 0x80, 0xD83D, 0xDE00, 0xFFFF, 0x141, 'z', 0};
    EXPECT_EQ(Format("%ls", static_cast<const WideChar*>(units)), "a??? ~??????z");
    EXPECT_EQ(Format("%S", static_cast<const WideChar*>(units)), "a??? ~??????z");
}

TEST(Formatter, NarrowStringsAreCopiedByteForByte) {
    EXPECT_EQ(Format("%s", "a\t\xC3\xA9"), "a\t\xC3\xA9");
}

TEST(Formatter, PrintsGuidsInBraces) {
    EXPECT_EQ(Format("%G", &kGuid), "{5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134}");
    constexpr TraceGuid kSmall{0x1, 0x2, 0x3, {0, 1, 2, 3, 4, 5, 6, 7}};
    EXPECT_EQ(Format("%G", &kSmall), "{00000001-0002-0003-0001-020304050607}");
    EXPECT_EQ(Format("%60G|", &kSmall), "{00000001-0002-0003-0001-020304050607}|");
    EXPECT_EQ(Format("%G", kNoGuid), "{null-guid}");
}

TEST(Formatter, PrintsTheSharedMessageShapes) {
    EXPECT_EQ(Format("%s %G hr=0x%08X", "CALL SRC.ActivateObject riid", &kGuid, 0),
              "CALL SRC.ActivateObject riid {5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} hr=0x00000000");
    EXPECT_EQ(Format("%s %s hr=0x%08X", "FAIL", "SRC.Pause", 0xC00D3E82U), "FAIL SRC.Pause hr=0xC00D3E82");
}

TEST(Formatter, PrintsAnUnknownConversionAsItStandsAndTakesNoArgument) {
    EXPECT_EQ(Format("%q %u", 7U), "%q 7");
    EXPECT_EQ(Format("%D%U%P%f%n %u", 7U), "%D%U%P%f%n 7");
    EXPECT_EQ(Format("%hd %u", 7U), "%hd 7");
    EXPECT_EQ(Format("%5q|%u", 7U), "%q|7") << "a width that leads nowhere is swallowed";
    EXPECT_EQ(Format("%I64q|%u", 7U), "%q|7");
}

TEST(Formatter, FlagsAndPrecisionAreUnknownConversions) {
    EXPECT_EQ(Format("%-5d", 7), "%-5d");
    EXPECT_EQ(Format("%+d", 7), "%+d");
    EXPECT_EQ(Format("% d", 7), "% d");
    EXPECT_EQ(Format("%#x", 7), "%#x");
    EXPECT_EQ(Format("%.3u", 7U), "%.3u");
    EXPECT_EQ(Format("%5.3u", 7U), "%.3u");
    EXPECT_EQ(Format("%*u", 7U), "%*u");
    EXPECT_EQ(Format("%I32u", 7U), "%I32u");
}

TEST(Formatter, ZuIsTextAndLeavesItsArgumentToTheNextConversion) {
    EXPECT_EQ(Format("%zu"), "%zu");
    EXPECT_EQ(Format("%zu bytes, %u frames", 11U, 22U), "%zu bytes, 11 frames");
    EXPECT_EQ(Format("%u of %zu", 11U, std::uint64_t{22}), "11 of %zu");
}

TEST(Formatter, APercentSignAtTheEndPrintsNothing) {
    EXPECT_EQ(Format("done %"), "done ");
    EXPECT_EQ(Format("%"), "");
    EXPECT_EQ(Format("%%%"), "%");
}

TEST(Formatter, AFormatThatEndsInsideAConversionStopsThere) {
    for (const char* format : {"a%0", "a%5", "a%05", "a%I64", "a%ll", "a%l", "a%08I64", "a%08ll", "a%12l"}) {
        EXPECT_EQ(Format(format, 7U), "a") << format;
    }
}

TEST(Formatter, AnArgumentThatIsNotThereReadsAsZero) {
    EXPECT_EQ(Format("%u %s %ls %G", 7U), "7 (null) (null) {null-guid}");
    EXPECT_EQ(Format("%d|%I64u|%p"), "0|0|0000000000000000");
}

TEST(Formatter, TakesArgumentsInOrder) {
    EXPECT_EQ(Format("%ux%u @%u/%u source=%s", 1280U, 720U, 30000U, 1001U, "client-attribute"),
              "1280x720 @30000/1001 source=client-attribute");
}

TEST(Formatter, AppendsToWhatIsThere) {
    char storage[32];
    RvLineBuffer line(storage, sizeof(storage));
    line.Append("PIPE ");
    const TraceSlot slots[] = {3};
    RvFormat(line, "%u frames", slots, 1);
    EXPECT_STREQ(storage, "PIPE 3 frames");
}

TEST(Formatter, FillsTheBufferToItsLastCharacterAndCutsBehindIt) {
    EXPECT_EQ(FormatInto(6, "abcde", {}), "abcde");
    EXPECT_EQ(FormatInto(6, "abcdef", {}), "abcde");
    EXPECT_EQ(FormatInto(6, "%s", {ToTraceSlot("abcde")}), "abcde");
    EXPECT_EQ(FormatInto(6, "%s", {ToTraceSlot("abcdef")}), "abcde");
    EXPECT_EQ(FormatInto(6, "%u", {12345}), "12345");
    EXPECT_EQ(FormatInto(6, "%u", {123456789}), "12345");
    EXPECT_EQ(FormatInto(6, "%d", {ToTraceSlot(-123456)}), "-1234");
    EXPECT_EQ(FormatInto(6, "%G", {ToTraceSlot(&kGuid)}), "{5E3C");
    EXPECT_EQ(FormatInto(6, "%ls", {ToTraceSlot(kNoWideString)}), "(null");
    EXPECT_EQ(FormatInto(6, "abcd%%%%", {}), "abcd%");
    EXPECT_EQ(FormatInto(6, "abcd%q", {}), "abcd%");
    EXPECT_EQ(FormatInto(1, "%u", {5}), "");
}

/// Expects what the runtime library prints for the same padding, width and conversion.
#define EXPECT_AS_PRINTF(pad, ours, theirs, width, value)                            \
    do {                                                                             \
        char expected[128];                                                          \
        std::snprintf(expected, sizeof(expected), "%" pad "*" theirs, width, value); \
        const std::string format = "%" pad + std::to_string(width) + (ours);         \
        ASSERT_EQ(Format(format.c_str(), value), expected) << format;                \
    } while (false)

TEST(Formatter, ACapacityOfZeroIsLeftAlone) {
    RvLineBuffer line(nullptr, 0);
    const TraceSlot slots[] = {7};
    RvFormat(line, "text %u", slots, 1);
    EXPECT_EQ(line.length, 0);
}

TEST(Formatter, AFullLineStaysAsItIs) {
    char storage[8];
    RvLineBuffer line(storage, 5);
    line.Append("four");
    const TraceSlot slots[] = {7};
    RvFormat(line, "%u more", slots, 1);
    EXPECT_STREQ(storage, "four");
    EXPECT_EQ(line.length, 4);
}

TEST(Formatter, ANumberIsCutWhereverTheLineEnds) {
    const std::string whole = "[00000000000000000000000000000042]";
    for (std::uint32_t room = 0; room <= whole.size(); ++room) {
        EXPECT_EQ(FormatInto(room + 1, "[%032u]", {42}), whole.substr(0, room)) << room;
    }
}

TEST(Formatter, TextOfEveryLengthIsCopied) {
    for (std::size_t length = 0; length <= 64; ++length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) {
            text += static_cast<char>('A' + i % 53);
        }
        EXPECT_EQ(Format((text + "%u" + text).c_str(), 7U), text + "7" + text) << length;
    }
}

TEST(Formatter, PowersOfTenAndTheNumbersBeforeThemHaveTheirDigits) {
    EXPECT_EQ(Format("%llu %llu %llu", 9ULL, 10ULL, 99ULL), "9 10 99");
    EXPECT_EQ(Format("%llu %llu %llu", 100ULL, 999ULL, 1000ULL), "100 999 1000");
    EXPECT_EQ(Format("%llu %llu", 4294967295ULL, 4294967296ULL), "4294967295 4294967296");
    EXPECT_EQ(Format("%llu %llu", 9999999999ULL, 10000000000ULL), "9999999999 10000000000");
    EXPECT_EQ(Format("%llu %llu", 999999999999999999ULL, 1000000000000000000ULL),
              "999999999999999999 1000000000000000000");
    EXPECT_EQ(Format("%llu %llu", 9999999999999999999ULL, 10000000000000000000ULL),
              "9999999999999999999 10000000000000000000");
    EXPECT_EQ(Format("%llu", 18446744073709551615ULL), "18446744073709551615");
}

/// Strings come from outside, and what lies behind the part that fits need not be readable.
TEST(Formatter, NothingIsReadBehindWhatFits) {
    const std::vector<char> narrow(3, 'n');
    const std::vector<WideChar> wide(3, WideChar{'w'});
    EXPECT_EQ(FormatInto(4, "%s", {ToTraceSlot(narrow.data())}), "nnn");
    EXPECT_EQ(FormatInto(4, "%ls", {ToTraceSlot(wide.data())}), "www");
}

TEST(Formatter, AgreesWithTheRuntimeLibraryWhereBothKnowTheConversion) {
    std::mt19937_64 random(20240229);
    for (int round = 0; round < 20'000; ++round) {
        // Shifted by a random distance, so that numbers of every length come up.
        const std::uint64_t wide = random() >> (random() % 64);
        const auto narrow = static_cast<std::uint32_t>(wide);
        const auto positive = static_cast<std::int32_t>(narrow & 0x7FFFFFFF);
        const auto widePositive = static_cast<std::int64_t>(wide & 0x7FFFFFFFFFFFFFFF);
        const int width = 1 + static_cast<int>(random() % 32);
        EXPECT_AS_PRINTF("", "u", PRIu32, width, narrow);
        EXPECT_AS_PRINTF("0", "u", PRIu32, width, narrow);
        EXPECT_AS_PRINTF("", "lu", PRIu32, width, narrow);
        EXPECT_AS_PRINTF("", "x", PRIx32, width, narrow);
        EXPECT_AS_PRINTF("0", "x", PRIx32, width, narrow);
        EXPECT_AS_PRINTF("", "X", PRIX32, width, narrow);
        EXPECT_AS_PRINTF("0", "X", PRIX32, width, narrow);
        EXPECT_AS_PRINTF("", "d", PRId32, width, positive);
        EXPECT_AS_PRINTF("0", "i", PRIi32, width, positive);
        EXPECT_AS_PRINTF("", "I64u", PRIu64, width, wide);
        EXPECT_AS_PRINTF("0", "llu", PRIu64, width, wide);
        EXPECT_AS_PRINTF("", "llx", PRIx64, width, wide);
        EXPECT_AS_PRINTF("0", "I64X", PRIX64, width, wide);
        EXPECT_AS_PRINTF("", "I64d", PRId64, width, widePositive);
        EXPECT_AS_PRINTF("0", "lld", PRId64, width, widePositive);
    }
}

TEST(Formatter, AgreesWithTheRuntimeLibraryOnNegativeNumbersWithoutAWidth) {
    std::mt19937_64 random(19700101);
    for (int round = 0; round < 20'000; ++round) {
        const auto wide = -1 - static_cast<std::int64_t>((random() & 0x7FFFFFFFFFFFFFFF) >> (random() % 63));
        const auto narrow = static_cast<std::int32_t>(wide >> 32);
        char expected[128];
        std::snprintf(expected, sizeof(expected), "%" PRId32 " %" PRId64 " %c", narrow, wide, 'a' + round % 26);
        ASSERT_EQ(Format("%d %I64d %c", narrow, wide, 'a' + round % 26), expected);
    }
}

}  // namespace
}  // namespace ravlo
