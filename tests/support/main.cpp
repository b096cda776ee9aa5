// Entry of every Windows test program: a role in a child process, or the tests under a watchdog.
#include "support/com.h"
#include "support/process.h"
#include "support/watchdog.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <exception>

#include <shellapi.h>

namespace {

/// The command line without the program's name, in UTF-16: the narrow one has lost what the code page lacks.
ravlo::test::Arguments CommandLineArguments() {
    int count = 0;
    LPWSTR* const list = CommandLineToArgvW(GetCommandLineW(), &count);
    const ravlo::test::Arguments arguments(list + 1, list + count);
    LocalFree(list);
    return arguments;
}

}  // namespace

int main(int argc, char** argv) {
    const ravlo::test::ComApartment apartment;
    try {
        if (const std::optional<int> exitCode = ravlo::test::RunRole(CommandLineArguments())) {
            // Expectations in a role belong to no test; GoogleTest keeps them aside.
            const bool failed = ::testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed();
            return failed && *exitCode == 0 ? 1 : *exitCode;
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "the role failed: %s\n", error.what());
        return 1;
    }
    ::testing::InitGoogleTest(&argc, argv);
    ravlo::test::InstallWatchdog();
    return RUN_ALL_TESTS();
}
