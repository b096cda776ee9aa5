#include "pipe/pipe_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "unit/wide_text.h"

namespace ravlo {
namespace {

/// Judges a copy that ends with its terminator, so that a checked build notices a step too far.
bool IsPipeName(const std::string& ascii) {
    const WideText text = Wide(ascii);
    const auto copy = std::make_unique<WideChar[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    return RvIsRavloPipeName(copy.get());
}

TEST(PipeName, TheBaseNameAloneIsValid) {
    EXPECT_TRUE(IsPipeName("\\\\.\\pipe\\Ravlo"));
}

TEST(PipeName, ADotAndUpToTenDigitsMayFollow) {
    for (const char* name :
         {"\\\\.\\pipe\\Ravlo.1", "\\\\.\\pipe\\Ravlo.9", "\\\\.\\pipe\\Ravlo.10", "\\\\.\\pipe\\Ravlo.4294967295",
          "\\\\.\\pipe\\Ravlo.1234567890", "\\\\.\\pipe\\Ravlo.9999999999", "\\\\.\\pipe\\Ravlo.1000000000"}) {
        EXPECT_TRUE(IsPipeName(name)) << name;
    }
}

TEST(PipeName, EverythingElseBehindTheBaseIsRefused) {
    for (const char* name : {"\\\\.\\pipe\\Ravlo.",
                             "\\\\.\\pipe\\Ravlo.0",
                             "\\\\.\\pipe\\Ravlo.01",
                             "\\\\.\\pipe\\Ravlo.12a",
                             "\\\\.\\pipe\\Ravlo.a",
                             "\\\\.\\pipe\\Ravlo.12345678901",
                             "\\\\.\\pipe\\Ravlo.gate",
                             "\\\\.\\pipe\\Ravlo.1.gate",
                             "\\\\.\\pipe\\Ravlo..1",
                             "\\\\.\\pipe\\Ravlo.1.",
                             "\\\\.\\pipe\\Ravlo.1.2",
                             "\\\\.\\pipe\\Ravlo.-1",
                             "\\\\.\\pipe\\Ravlo.+1",
                             "\\\\.\\pipe\\Ravlo. 1",
                             "\\\\.\\pipe\\Ravlo.1 ",
                             "\\\\.\\pipe\\Ravlo ",
                             "\\\\.\\pipe\\Ravlo1",
                             "\\\\.\\pipe\\Ravlo\\1",
                             "\\\\.\\pipe\\Ravlos",
                             "\\\\.\\pipe\\Ravlo.1/",
                             "\\\\.\\pipe\\Ravlo.1:",
                             "\\\\.\\pipe\\Ravlo./",
                             "\\\\.\\pipe\\Ravlo.:",
                             "\\\\.\\pipe\\Ravlo.1234567890a",
                             "\\\\.\\pipe\\Ravlo.123456789012345678901234567890"}) {
        EXPECT_FALSE(IsPipeName(name)) << name;
    }
}

TEST(PipeName, AnotherBaseIsRefused) {
    for (const char* name :
         {"", "\\\\.\\pipe\\ravlo", "\\\\.\\pipe\\ravlo.1", "\\\\.\\PIPE\\Ravlo", "\\\\.\\pipe\\RAVLO",
          "\\\\.\\pipe\\Ravl", "\\\\.\\pipe\\", "\\\\server\\pipe\\Ravlo", "\\\\?\\pipe\\Ravlo", "//./pipe/Ravlo",
          "Ravlo", "Ravlo.1", " \\\\.\\pipe\\Ravlo", "\\.\\pipe\\Ravlo"}) {
        EXPECT_FALSE(IsPipeName(name)) << name;
    }
    EXPECT_FALSE(RvIsRavloPipeName(nullptr));
}

TEST(PipeName, EveryCharacterOfTheBaseCounts) {
    for (std::size_t i = 0; i < 14; ++i) {
        std::string name = "\\\\.\\pipe\\Ravlo";
        name[i] = '_';
        EXPECT_FALSE(IsPipeName(name)) << name;
        EXPECT_FALSE(IsPipeName(std::string("\\\\.\\pipe\\Ravlo").substr(0, i))) << "cut at " << i;
    }
}

TEST(PipeName, UnitsThatOnlyLookLikeAsciiInTheirLowByteAreRefused) {
    WideText name = Wide("\\\\.\\pipe\\Ravlo.1");
    name[9] = 0x0152;
    EXPECT_FALSE(RvIsRavloPipeName(name.c_str()));
    name = Wide("\\\\.\\pipe\\Ravlo.1");
    name[15] = 0x0131;
    EXPECT_FALSE(RvIsRavloPipeName(name.c_str()));
    name[15] = 0xFF11;  // a full-width digit one
    EXPECT_FALSE(RvIsRavloPipeName(name.c_str()));
}

TEST(PipeName, AProcessIdIsAppendedInDecimal) {
    EXPECT_EQ(Narrow(PipeNameForPid(0).text), "\\\\.\\pipe\\Ravlo");
    EXPECT_EQ(Narrow(PipeNameForPid(1).text), "\\\\.\\pipe\\Ravlo.1");
    EXPECT_EQ(Narrow(PipeNameForPid(4120).text), "\\\\.\\pipe\\Ravlo.4120");
    EXPECT_EQ(Narrow(PipeNameForPid(1000000000).text), "\\\\.\\pipe\\Ravlo.1000000000");
    EXPECT_EQ(Narrow(PipeNameForPid(4294967295).text), "\\\\.\\pipe\\Ravlo.4294967295");
}

TEST(PipeName, EveryNameMadeFromAProcessIdIsValid) {
    for (const std::uint32_t pid : {0U, 1U, 9U, 10U, 99999U, 100000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        EXPECT_TRUE(RvIsRavloPipeName(PipeNameForPid(pid).text)) << pid;
    }
}

TEST(PipeName, StartsEmptyAndCanBeCleared) {
    PipeName name;
    EXPECT_TRUE(name.IsEmpty());
    name = PipeNameForPid(5);
    EXPECT_FALSE(name.IsEmpty());
    name.Clear();
    EXPECT_TRUE(name.IsEmpty());
    EXPECT_EQ(Narrow(name.text), "");
}

/// What an attribute store left in the buffer: the name, its terminator and then `filler`.
struct StoredName {
    WideChar text[34];

    explicit StoredName(const std::string& ascii, char filler = '\0') {
        std::fill(std::begin(text), std::end(text), static_cast<WideChar>(filler));
        const WideText wide = Wide(ascii);
        const std::size_t count = std::min<std::size_t>(wide.size(), 34);
        std::copy_n(wide.begin(), count, text);
        if (count < 34) {
            text[count] = 0;
        }
    }
};

TEST(ExplicitPipeName, AValidNameIsAcceptedWithItsLength) {
    StoredName stored("\\\\.\\pipe\\Ravlo.42", 'x');
    PipeName name;
    EXPECT_EQ(JudgeExplicitName(stored.text, 17, name), ExplicitName::Accepted);
    EXPECT_EQ(Narrow(name.text), "\\\\.\\pipe\\Ravlo.42");
}

TEST(ExplicitPipeName, TheBaseNameIsAccepted) {
    StoredName stored("\\\\.\\pipe\\Ravlo");
    PipeName name = PipeNameForPid(4294967295);
    EXPECT_EQ(JudgeExplicitName(stored.text, 14, name), ExplicitName::Accepted);
    EXPECT_EQ(Narrow(name.text), "\\\\.\\pipe\\Ravlo");
}

TEST(ExplicitPipeName, AReportedLengthBelowTheCountedOneIsRefused) {
    for (const std::uint32_t reported : {0U, 1U, 16U}) {
        StoredName stored("\\\\.\\pipe\\Ravlo.42");
        PipeName name = PipeNameForPid(7);
        EXPECT_EQ(JudgeExplicitName(stored.text, reported, name), ExplicitName::Refused) << reported;
        EXPECT_EQ(Narrow(name.text), "\\\\.\\pipe\\Ravlo.7") << "a refused name leaves no trace";
    }
}

TEST(ExplicitPipeName, AReportedLengthUpTo34IsAcceptedAndFrom35OnRefused) {
    for (const std::uint32_t reported : {17U, 18U, 33U, 34U}) {
        StoredName stored("\\\\.\\pipe\\Ravlo.42");
        PipeName name;
        EXPECT_EQ(JudgeExplicitName(stored.text, reported, name), ExplicitName::Accepted) << reported;
    }
    for (const std::uint32_t reported : {35U, 36U, 0xFFFFFFFFU}) {
        StoredName stored("\\\\.\\pipe\\Ravlo.42");
        PipeName name;
        EXPECT_EQ(JudgeExplicitName(stored.text, reported, name), ExplicitName::Refused) << reported;
        EXPECT_TRUE(name.IsEmpty()) << reported;
    }
}

TEST(ExplicitPipeName, ANameOutsideTheGrammarIsRefused) {
    for (const char* ascii : {"", "\\\\.\\pipe\\Other", "\\\\.\\pipe\\Ravlo.0", "\\\\.\\pipe\\Ravlo.gate",
                              "\\\\.\\pipe\\ravlo.1", "\\\\.\\pipe\\Ravlo.12345678901"}) {
        StoredName stored(ascii);
        PipeName name;
        EXPECT_EQ(JudgeExplicitName(stored.text, static_cast<std::uint32_t>(std::string(ascii).size()), name),
                  ExplicitName::Refused)
            << ascii;
        EXPECT_TRUE(name.IsEmpty()) << ascii;
    }
}

TEST(ExplicitPipeName, ATextWithoutATerminatorIsCutAtTheLastCharacterAndRefused) {
    StoredName stored(std::string(34, '1'));
    PipeName name;
    EXPECT_EQ(JudgeExplicitName(stored.text, 34, name), ExplicitName::Refused);
    EXPECT_EQ(stored.text[33], 0);
}

TEST(PipeNameRoute, AnAcceptedExplicitNameWinsAtAnyTime) {
    for (const std::uint64_t waited : {0U, 249U, 250U, 1500U, 2000U, 100000U}) {
        EXPECT_EQ(ChoosePipeNameRoute(ExplicitName::Accepted, 0, waited), PipeNameRoute::Explicit) << waited;
        EXPECT_EQ(ChoosePipeNameRoute(ExplicitName::Accepted, 4120, waited), PipeNameRoute::Explicit) << waited;
    }
}

TEST(PipeNameRoute, AHostPidIsTakenAfter250MillisecondsAndNeverEarlier) {
    for (const ExplicitName missing : {ExplicitName::Absent, ExplicitName::Refused}) {
        EXPECT_EQ(ChoosePipeNameRoute(missing, 4120, 0), PipeNameRoute::NotYet);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 4120, 249), PipeNameRoute::NotYet);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 4120, 250), PipeNameRoute::HostPid);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 4120, 1999), PipeNameRoute::HostPid);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 4120, 2000), PipeNameRoute::HostPid);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 4120, 1000000), PipeNameRoute::HostPid);
    }
}

TEST(PipeNameRoute, WithoutAHostPidTheBaseNameIsTakenAfter2000Milliseconds) {
    for (const ExplicitName missing : {ExplicitName::Absent, ExplicitName::Refused}) {
        EXPECT_EQ(ChoosePipeNameRoute(missing, 0, 0), PipeNameRoute::NotYet);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 0, 250), PipeNameRoute::NotYet) << "a host pid of 0 counts as absent";
        EXPECT_EQ(ChoosePipeNameRoute(missing, 0, 1999), PipeNameRoute::NotYet);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 0, 2000), PipeNameRoute::Singleton);
        EXPECT_EQ(ChoosePipeNameRoute(missing, 0, 1000000), PipeNameRoute::Singleton);
    }
}

TEST(PipeNameRoute, TheAnswersOfAnExplicitReadHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(ExplicitName::Accepted), 0);
    EXPECT_EQ(static_cast<int>(ExplicitName::Absent), 1);
    EXPECT_EQ(static_cast<int>(ExplicitName::Refused), 2);
}

}  // namespace
}  // namespace ravlo
