// Ctrl+C, in a process with a console of its own.
#include "common/interrupt.h"

#include <gtest/gtest.h>

#include <optional>

#include "support/process.h"

namespace ravlo::test {
namespace {

constexpr DWORD kEndedByCtrlC = 0xC000013A;
constexpr DWORD kEndedByCtrlCUnderWine = 0;
constexpr int kReachedItsEnd = 7;

RAVLO_ROLE(RaiseCtrlC) {
    FreeConsole();
    if (!AllocConsole()) {
        return 3;
    }
    const Interrupt interrupt;
    EXPECT_FALSE(interrupt.IsRaised());
    for (const std::wstring& argument : arguments) {
        EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
        if (argument == L"once") {
            EXPECT_TRUE(interrupt.WaitForMs(kPatienceMs));
            continue;
        }
        Sleep(kPatienceMs);  // cut short by the end of this process
    }
    return kReachedItsEnd;
}

TEST(Interrupt, TheFirstCtrlCIsAnEventAndTheProcessGoesOn) {
    ChildProcess child = StartRole("RaiseCtrlC", {L"once"});
    EXPECT_EQ(child.Wait(), kReachedItsEnd) << child.Output();
}

TEST(Interrupt, TheSecondCtrlCEndsTheProcessAtOnce) {
    ChildProcess child = StartRole("RaiseCtrlC", {L"once", L"twice"});
    const std::optional<DWORD> code = child.Wait(kPatienceMs - 1000);
    EXPECT_TRUE(code == kEndedByCtrlC || code == kEndedByCtrlCUnderWine) << code.value_or(0) << child.Output();
}

}  // namespace
}  // namespace ravlo::test
