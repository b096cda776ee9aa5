#include "gate/gate_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

#include "unit/wide_text.h"

namespace ravlo {
namespace {

/// Judges a copy that ends with its terminator, so that a checked build notices a step too far.
bool IsGateName(const std::string& ascii) {
    const WideText text = Wide(ascii);
    const auto copy = std::make_unique<WideChar[]>(text.size() + 1);
    std::copy(text.begin(), text.end(), copy.get());
    return RvIsGatePipeName(copy.get());
}

TEST(GateName, IsAFramePipeNameFollowedByItsSuffix) {
    EXPECT_TRUE(IsGateName("\\\\.\\pipe\\Ravlo.gate"));
    EXPECT_TRUE(IsGateName("\\\\.\\pipe\\Ravlo.1.gate"));
    EXPECT_TRUE(IsGateName("\\\\.\\pipe\\Ravlo.4120.gate"));
    EXPECT_TRUE(IsGateName("\\\\.\\pipe\\Ravlo.9999999999.gate"));
}

TEST(GateName, WithoutTheExactSuffixItIsRefused) {
    for (const char* name : {"\\\\.\\pipe\\Ravlo", "\\\\.\\pipe\\Ravlo.1", "\\\\.\\pipe\\Ravlo.Gate",
                             "\\\\.\\pipe\\Ravlo.GATE", "\\\\.\\pipe\\Ravlo.1.gatE", "\\\\.\\pipe\\Ravlo.1.gate ",
                             "\\\\.\\pipe\\Ravlo.1.gates", "\\\\.\\pipe\\Ravlo.1.gat", "\\\\.\\pipe\\Ravlo.1gate",
                             "\\\\.\\pipe\\Ravlogate", "\\\\.\\pipe\\Ravlo_gate"}) {
        EXPECT_FALSE(IsGateName(name)) << name;
    }
}

TEST(GateName, WithAStemThatIsNoFramePipeNameItIsRefused) {
    for (const char* name : {"\\\\.\\pipe\\Other.gate", "\\\\.\\pipe\\ravlo.1.gate", "\\\\.\\pipe\\Ravlo..gate",
                             "\\\\.\\pipe\\Ravlo.0.gate", "\\\\.\\pipe\\Ravlo.01.gate", "\\\\.\\pipe\\Ravlo.1a.gate",
                             "\\\\.\\pipe\\Ravlo.12345678901.gate", "\\\\.\\pipe\\Ravlo.gate.gate",
                             "\\\\.\\pipe\\Ravlo.1.gate.gate", "x.gate"}) {
        EXPECT_FALSE(IsGateName(name)) << name;
    }
}

TEST(GateName, ANameOfFewerThanSixCharactersIsRefused) {
    for (const char* name : {"", "e", "gate", ".gate"}) {
        EXPECT_FALSE(IsGateName(name)) << name;
    }
    EXPECT_FALSE(RvIsGatePipeName(nullptr));
}

TEST(GateName, ALongNameIsRefusedWithoutReadingItToItsEnd) {
    const auto endless = std::make_unique<WideChar[]>(kGateNameCapacity);
    std::fill_n(endless.get(), kGateNameCapacity, static_cast<WideChar>('1'));
    EXPECT_FALSE(RvIsGatePipeName(endless.get()));
    for (std::size_t digits = 11; digits < 60; ++digits) {
        EXPECT_FALSE(IsGateName("\\\\.\\pipe\\Ravlo." + std::string(digits, '1') + ".gate")) << digits;
    }
}

TEST(GateName, IsMadeByAppendingTheSuffixToTheFramePipeName) {
    EXPECT_EQ(Narrow(GateNameFor(PipeNameForPid(0)).text), "\\\\.\\pipe\\Ravlo.gate");
    EXPECT_EQ(Narrow(GateNameFor(PipeNameForPid(4120)).text), "\\\\.\\pipe\\Ravlo.4120.gate");
    EXPECT_EQ(Narrow(GateNameFor(PipeNameForPid(4294967295)).text), "\\\\.\\pipe\\Ravlo.4294967295.gate");
}

TEST(GateName, EveryMadeNameIsValidAndIsNoFramePipeName) {
    for (const std::uint32_t pid : {0U, 1U, 10U, 99999U, 0xFFFFFFFFU}) {
        const GateName gate = GateNameFor(PipeNameForPid(pid));
        EXPECT_TRUE(RvIsGatePipeName(gate.text)) << pid;
        EXPECT_FALSE(RvIsRavloPipeName(gate.text)) << pid;
    }
}

TEST(GateName, HasRoomForAsMuchAsAFramePipeNameCanHold) {
    PipeName full;
    std::fill_n(full.text, 33, static_cast<WideChar>('n'));
    EXPECT_EQ(Narrow(GateNameFor(full).text), std::string(33, 'n') + ".gate");
}

}  // namespace
}  // namespace ravlo
