// Child processes, among them parts of the test program that must run in a process of their own.
//
//     RAVLO_ROLE(WriteOneLine) {                      // in any test file; `arguments` are those of StartRole
//         ModuleUnderTest module;
//         EXPECT_EQ(1u, arguments.size());             // a failed expectation makes the exit code 1
//         return 0;
//     }
//     TEST(...) {
//         ChildProcess child = StartRole("WriteOneLine", {L"x"});
//         EXPECT_EQ(0u, child.Wait()) << child.Output();
//     }
#pragma once

#include "support/wait.h"

#include <windows.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ravlo::test {

using Arguments = std::vector<std::wstring>;

/// A running program whose standard output and error go to a temporary file. Ended when the object goes.
class ChildProcess {
public:
    /// `program` is a full path. Throws std::runtime_error when it does not start.
    ChildProcess(const std::wstring& program, const Arguments& arguments);
    ChildProcess(ChildProcess&& other) noexcept;
    ChildProcess& operator=(ChildProcess&&) = delete;
    ~ChildProcess();

    DWORD Pid() const { return m_pid; }
    /// The exit code; nothing when the process still runs after `timeoutMs`.
    std::optional<DWORD> Wait(DWORD timeoutMs = 20000);
    /// Ends the process at once, as a crash would, and waits until it is gone. Its exit code is then 9.
    void Kill();
    /// What the process has written so far, with LF line ends.
    std::string Output() const;
    /// Waits until the output contains `text`: how a child tells that it got somewhere.
    bool WaitForOutput(std::string_view text, DWORD timeoutMs = 20000) const;

private:
    HANDLE m_process = nullptr;
    DWORD m_pid = 0;
    std::wstring m_outputPath;
};

/// A function that main runs instead of the tests when the program is started with --role=NAME.
using Role = int (*)(const Arguments& arguments);

/// Adds a role to the program; used through RAVLO_ROLE.
class RoleRegistration {
public:
    RoleRegistration(const char* name, Role role);

private:
    friend std::optional<int> RunRole(const Arguments& commandLine);
    const char* m_name;
    Role m_role;
    const RoleRegistration* m_next;
};

/// Defines a role: RAVLO_ROLE(Name) { ...; return exitCode; }
#define RAVLO_ROLE(name)                                                                     \
    static int Role##name(const ::ravlo::test::Arguments& arguments);                        \
    static const ::ravlo::test::RoleRegistration kRoleRegistration##name(#name, Role##name); \
    static int Role##name([[maybe_unused]] const ::ravlo::test::Arguments& arguments)

/// Starts this program in a role.
ChildProcess StartRole(const std::string& name, const Arguments& arguments = {});

/// For main: runs the role that the command line (without the program's name) asks for and returns its exit
/// code, 2 for an unknown one; nothing when no role is asked for.
std::optional<int> RunRole(const Arguments& commandLine);

/// Starts this program as a producer of test frames with rising signatures from 1 on, one every `intervalMs`,
/// that runs until it is killed. It prints "connected" when it has a pipe and "sent N" after frame N.
ChildProcess StartProducer(const std::wstring& pipeName, unsigned width, unsigned height, unsigned intervalMs);
/// The same, but after `frames` whole frames it sends a header and half a payload, prints "half" and stands
/// still.
ChildProcess StartHalfwayProducer(const std::wstring& pipeName, unsigned width, unsigned height, unsigned frames);

}  // namespace ravlo::test
