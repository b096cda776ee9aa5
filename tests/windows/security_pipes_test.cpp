// Both pipes field by field: what the module passes to the system, what the system then reports of the real pipes, and
// what the module could do with the handles that it has.
#include "security_descriptor.h"

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/pipe_client.h"

#include <gtest/gtest.h>

#include <mutex>
#include <sstream>

namespace ravlo::test {
namespace {

constexpr wchar_t kStranger[] = L"S-1-5-21-111-222-333-1001";
/// Fifteen sub-authorities of ten digits: the longest SID there is, 68 bytes.
constexpr wchar_t kLongestSid[] =
    L"S-1-5-21-4294967295-4294967294-4294967293-4294967292-4294967291-4294967290-4294967289-4294967288-4294967287-"
    L"4294967286-4294967285-4294967284-4294967283-4294967282";

using PipeHook = RAVLO_HOOK(CreateNamedPipeW);
using WaitHook = RAVLO_HOOK(WaitForSingleObject);

/// One creation of a pipe: its arguments, the descriptor while it was there to be read, and the handle.
struct Creation {
    std::wstring name;
    DWORD openMode = 0;
    DWORD pipeMode = 0;
    DWORD instances = 0;
    DWORD outBytes = 0;
    DWORD inBytes = 0;
    DWORD timeoutMs = 0;
    DWORD attributesLength = 0;
    BOOL inheritable = TRUE;
    DescriptorFields descriptor;
    HANDLE pipe = INVALID_HANDLE_VALUE;
};

class SecurityPipes : public ModuleTest {
protected:
    SecurityPipes() : m_pipes(m_module.Handle()), m_waits(m_module.Handle()) {
        m_pipes.Replace([this](LPCWSTR name, DWORD openMode, DWORD pipeMode, DWORD instances, DWORD out, DWORD in,
                               DWORD timeout, LPSECURITY_ATTRIBUTES attributes) -> HANDLE {
            Creation seen{name, openMode, pipeMode, instances, out, in, timeout, 0, TRUE, {}, INVALID_HANDLE_VALUE};
            if (attributes != nullptr) {
                seen.attributesLength = attributes->nLength;
                seen.inheritable = attributes->bInheritHandle;
                seen.descriptor = FieldsOf(attributes->lpSecurityDescriptor);
            }
            seen.pipe = PipeHook::CallOriginal(name, openMode, pipeMode, instances, out, in, timeout, attributes);
            const std::lock_guard<std::mutex> guard(m_lock);
            m_creations.push_back(seen);
            return seen.pipe;
        });
        // The gate looks for the frame pipe every half second.
        m_waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
            return WaitHook::CallOriginal(handle, timeout == 500 ? 10 : timeout);
        });
    }
    /// The frame pipe's creation and the gate's, in this order, once both pipes are there.
    std::vector<Creation> AwaitBoth() {
        EXPECT_TRUE(m_log.WaitForLine("GATE serving ")) << m_log.Text();
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_creations.size() != 2) {
            throw std::runtime_error("not two pipes but " + std::to_string(m_creations.size()));
        }
        return std::exchange(m_creations, {});
    }
    static void ExpectDescriptor(const DescriptorFields& seen, const std::wstring& owner, const std::wstring& user,
                                 DWORD userSidBytes) {
        EXPECT_EQ(1u, seen.revision);
        EXPECT_EQ(owner, seen.owner);
        EXPECT_FALSE(seen.ownerDefaulted);
        EXPECT_TRUE(seen.daclPresent);
        EXPECT_FALSE(seen.daclDefaulted);
        EXPECT_FALSE(seen.daclIsNull) << "a null list would admit everybody";
        EXPECT_FALSE(seen.saclPresent);
        EXPECT_EQ(2u, seen.aclRevision);
        EXPECT_EQ(userSidBytes + 12 + 24, seen.aclSize) << "two SIDs, two entries' heads and the list's";
        // Allowing (0), inherited from and by nobody (0), the user first.
        EXPECT_EQ((std::vector<std::wstring>{L"0 0 0x12019F " + user, L"0 0 0x1F01FF S-1-5-18"}), seen.entries);
    }

    std::mutex m_lock;
    std::vector<Creation> m_creations;
    PipeHook m_pipes;
    WaitHook m_waits;
};

TEST_F(SecurityPipes, TheFramePipesArgumentsAreThese) {
    const Camera camera(m_module);
    const Creation seen = AwaitBoth().at(0);
    EXPECT_EQ(camera.PipeName(), seen.name);
    EXPECT_EQ(0x40080001u, seen.openMode) << "inbound, first instance, overlapped, and nothing else";
    EXPECT_EQ(0u, seen.pipeMode) << "bytes, blocking; whom to let in is the access list's matter alone";
    EXPECT_EQ(1u, seen.instances);
    EXPECT_EQ(1048576u, seen.outBytes);
    EXPECT_EQ(1048576u, seen.inBytes);
    EXPECT_EQ(0u, seen.timeoutMs);
    EXPECT_EQ(24u, seen.attributesLength);
    EXPECT_EQ(FALSE, seen.inheritable);
}

TEST_F(SecurityPipes, TheGatePipesArgumentsAreThese) {
    const Camera camera(m_module);
    const Creation seen = AwaitBoth().at(1);
    EXPECT_EQ(camera.PipeName() + L".gate", seen.name);
    EXPECT_EQ(0x40080002u, seen.openMode) << "outbound, first instance, overlapped, and nothing else";
    EXPECT_EQ(4u, seen.pipeMode) << "written as messages, read as bytes, blocking";
    EXPECT_EQ(1u, seen.instances);
    EXPECT_EQ(4096u, seen.outBytes);
    EXPECT_EQ(0u, seen.inBytes);
    EXPECT_EQ(0u, seen.timeoutMs);
    EXPECT_EQ(24u, seen.attributesLength);
    EXPECT_EQ(FALSE, seen.inheritable);
}

TEST_F(SecurityPipes, BothDescriptorsNameTheAnchorsUserWhoeverHeIs) {
    struct Row {
        std::wstring anchor;
        std::wstring granted;
        DWORD sidBytes;
    };
    const Row rows[] = {
        {CurrentUserSid(), CurrentUserSid(), 28},
        {kStranger, kStranger, 28},
        {L"s-1-5-21-111-222-333-1001", kStranger, 28},
        {L"S-1-5-21-1", L"S-1-5-21-1", 16},
        {L"S-1-12-1-4294967295-2-3-4", L"S-1-12-1-4294967295-2-3-4", 28},
        {kLongestSid, kLongestSid, 68},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(Narrow(row.anchor));
        m_log.Restart();
        m_anchor.Set(row.anchor);
        const Camera camera(m_module);
        for (const Creation& seen : AwaitBoth()) {
            SCOPED_TRACE(Narrow(seen.name));
            ExpectDescriptor(seen.descriptor, CurrentUserSid(), row.granted, row.sidBytes);
            EXPECT_EQ(L"(none)", seen.descriptor.group);
            EXPECT_EQ(SE_DACL_PRESENT, seen.descriptor.control) << "no other mark";
            // The system keeps what it was given.
            ExpectDescriptor(FieldsOfPipe(seen.pipe), CurrentUserSid(), row.granted, row.sidBytes);
        }
    }
}

TEST_F(SecurityPipes, BothPipesBelongToTheAccountThatServesThem) {
    m_anchor.Set(kStranger);
    TokenHook tokens(m_module.Handle());
    for (const wchar_t* const account : {L"S-1-5-19", L"S-1-5-18", L"S-1-5-20"}) {
        SCOPED_TRACE(Narrow(account));
        m_log.Restart();
        PretendToRunAs(tokens, account);
        const Camera camera(m_module);
        for (const Creation& seen : AwaitBoth()) {
            SCOPED_TRACE(Narrow(seen.name));
            ExpectDescriptor(seen.descriptor, account, kStranger, 28);
            ExpectDescriptor(FieldsOfPipe(seen.pipe), account, kStranger, 28);
        }
        EXPECT_TRUE(m_log.Contains("PIPE owner set to " + Narrow(account) + " - rvfeeder.exe accepts only S-1-5-19 "))
            << "the camera says whose pipe it made, an account that no producer trusts included";
    }
}

/// What the system reports of a pipe's end that may be asked.
void ExpectPipe(HANDLE pipe, DWORD flags, DWORD out, DWORD in) {
    DWORD seenFlags = 99;
    DWORD seenOut = 99;
    DWORD seenIn = 99;
    DWORD instances = 99;
    ASSERT_TRUE(GetNamedPipeInfo(pipe, &seenFlags, &seenOut, &seenIn, &instances)) << GetLastError();
    EXPECT_EQ(flags, seenFlags);
    EXPECT_EQ(out, seenOut);
    EXPECT_EQ(in, seenIn);
    EXPECT_EQ(1u, instances);
    DWORD state = 99;
    DWORD current = 99;
    ASSERT_TRUE(GetNamedPipeHandleStateW(pipe, &state, &current, nullptr, nullptr, nullptr, 0)) << GetLastError();
    EXPECT_EQ(static_cast<DWORD>(PIPE_READMODE_BYTE | PIPE_WAIT), state);
    EXPECT_EQ(1u, current);
}

TEST_F(SecurityPipes, TheRealPipesAreWhatWasAskedFor) {
    const Camera camera(m_module);
    const std::vector<Creation> both = AwaitBoth();
    GateClient gate;
    ASSERT_TRUE(gate.Connect(camera.PipeName()));
    {
        SCOPED_TRACE("frame pipe, server's end");
        ExpectPipe(both[0].pipe, PIPE_SERVER_END | PIPE_TYPE_BYTE, 1048576, 1048576);
    }
    {
        SCOPED_TRACE("gate pipe, client's end");
        ExpectPipe(gate.Handle(), PIPE_CLIENT_END | PIPE_TYPE_MESSAGE, 4096, 0);
    }
    for (const Creation& seen : both) {
        DWORD flags = 99;
        ASSERT_TRUE(GetHandleInformation(seen.pipe, &flags));
        EXPECT_EQ(0u, flags & HANDLE_FLAG_INHERIT) << "no child process gets the server's end";
    }
}

TEST_F(SecurityPipes, NobodyReadsTheFramePipeOrWritesTheGate) {
    const Camera camera(m_module);
    AwaitBoth();
    struct Row {
        std::wstring name;
        DWORD access;
    };
    const Row rows[] = {{camera.PipeName(), GENERIC_READ},
                        {camera.PipeName(), GENERIC_READ | GENERIC_WRITE},
                        {camera.PipeName() + L".gate", GENERIC_WRITE},
                        {camera.PipeName() + L".gate", GENERIC_READ | GENERIC_WRITE}};
    for (const Row& row : rows) {
        PipeEnd client;
        EXPECT_FALSE(client.Connect(row.name, row.access, 0)) << Narrow(row.name) << " " << row.access;
        EXPECT_EQ(static_cast<DWORD>(ERROR_ACCESS_DENIED), client.LastError());
    }
}

TEST_F(SecurityPipes, NothingThatTheModuleMakesHasANameThatSomebodyCouldTakeFirst) {
    RAVLO_HOOK(CreateEventW) events(m_module.Handle());
    RAVLO_HOOK(CreateWaitableTimerExW) timers(m_module.Handle());
    RAVLO_HOOK(CreateThread) threads(m_module.Handle());
    {
        Camera camera(m_module);
        AwaitBoth();
        camera.Start();
        camera.Pull();
    }
    EXPECT_GE(events.Count(), 5u);
    for (const auto& call : events.Calls()) {
        EXPECT_EQ(nullptr, std::get<0>(call)) << "no descriptor of its own, and not inheritable";
        EXPECT_EQ(L"", std::get<3>(call));
    }
    EXPECT_GE(timers.Count(), 1u);
    for (const auto& call : timers.Calls()) {
        EXPECT_EQ(nullptr, std::get<0>(call));
        EXPECT_EQ(L"", std::get<1>(call));
    }
    EXPECT_EQ(2u, threads.Count());
    for (const auto& call : threads.Calls()) {
        EXPECT_EQ(nullptr, std::get<0>(call));
        EXPECT_EQ(0u, std::get<4>(call));
    }
}

/// A slot that can be patched exists only for a function that the module imports.
bool Imports(HMODULE module, const char* function) {
    ImportSlot slot;
    const bool found = slot.Install(module, function, reinterpret_cast<void*>(&Imports));
    slot.Restore();
    return found;
}

TEST(SecuritySurface, TheModuleImportsNothingThatActsForOthersOrReachesOut) {
    const HMODULE module =
        LoadLibraryExW((ProgramDirectory() + L"\\rvmediasource.dll").c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    ASSERT_NE(nullptr, module);
    ASSERT_TRUE(Imports(module, "CreateNamedPipeW")) << "what it does import is found";
    std::istringstream forbidden(
        "ImpersonateNamedPipeClient ImpersonateLoggedOnUser ImpersonateSelf SetThreadToken DuplicateTokenEx "
        "AdjustTokenPrivileges LogonUserW CreateProcessW CreateProcessA CreateProcessAsUserW ShellExecuteW WinExec "
        "SetSecurityInfo SetNamedSecurityInfoW SetKernelObjectSecurity SetFileSecurityW SetHandleInformation "
        "WriteProcessMemory LoadLibraryA RegConnectRegistryW WSAStartup socket connect CallNamedPipeW "
        "TransactNamedPipe CreateFileMappingW DeleteFileW MoveFileExW");
    for (std::string function; forbidden >> function;) {
        EXPECT_FALSE(Imports(module, function.c_str())) << function;
    }
    FreeLibrary(module);
}

}  // namespace
}  // namespace ravlo::test
