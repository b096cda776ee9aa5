// What the reader makes of the anchor: refusals that are told once per run of failures, a warning, and the way back.
#include <gtest/gtest.h>

#include "account_lookups.h"
#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/heap_faults.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

using WaitHook = RAVLO_HOOK(WaitForSingleObject);

constexpr wchar_t kStranger[] = L"S-1-5-21-111-222-333-1001";
constexpr char kNotResolvable[] =
    "WARN PIPE could not resolve the anchor SID to an account name from session 0; proceeding on the value-based check alone";

std::string Unusable(const std::string& reason) {
    return "FAIL PIPE no usable authorization anchor (" + reason +
           ") at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will NOT be created; serving the test pattern. Run "
           "rvsetup.exe --install <SID> as administrator. Absence of an anchor is refusal, not permission.";
}

std::string NotAUser(const std::string& use) {
    return "FAIL PIPE the anchor at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid names " + use +
           ", NOT a user account - the pipe will NOT be created; serving the test pattern. A group SID in the pipe ACE would "
           "grant every member of that group.";
}

/// Cuts the reader's waits of a second short and counts them.
class ReaderAnchor : public ModuleTest {
protected:
    ReaderAnchor() : m_waits(m_module.Handle()) {
        m_waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
            return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout);
        });
    }
    bool WaitForRetries(std::size_t more) {
        const auto retries = [&] {
            std::size_t count = 0;
            for (const auto& call : m_waits.Calls()) {
                count += std::get<1>(call) == 1000 ? 1 : 0;
            }
            return count;
        };
        const std::size_t wanted = retries() + more;
        return WaitUntil([&] { return retries() >= wanted; });
    }
    void ExpectRefusedOnce(const std::string& line) {
        EXPECT_TRUE(m_log.WaitForLine("FAIL PIPE ")) << m_log.Text();
        EXPECT_TRUE(WaitForRetries(3));
        EXPECT_TRUE(m_log.HasMessage(line)) << line << "\n" << m_log.Text();
        EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE "));
        EXPECT_FALSE(m_log.Contains("PIPE created "));
        EXPECT_FALSE(m_log.Contains("PIPE authorized user read"));
    }

    WaitHook m_waits;
};

TEST_F(ReaderAnchor, WithoutAnAnchorThereIsNoPipeUntilOneIsWritten) {
    m_anchor.DeleteKey();
    const std::wstring name = UniquePipeName();
    Camera camera(m_module, {.pipeName = name});
    ExpectRefusedOnce(Unusable("ABSENT"));
    PipeClient client;
    EXPECT_FALSE(client.Connect(name, 0));
    EXPECT_EQ(static_cast<DWORD>(ERROR_FILE_NOT_FOUND), client.LastError());

    m_anchor.Set(CurrentUserSid());
    EXPECT_TRUE(m_log.WaitForLine("PIPE created " + Narrow(name))) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("PIPE authorized user read from HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid: " +
                                 Narrow(CurrentUserSid())));
    EXPECT_TRUE(client.Connect(name));
}

TEST_F(ReaderAnchor, EveryReasonHasItsWordInTheLine) {
    struct Row {
        const char* word;
        DWORD type;
        std::wstring text;
    };
    for (const Row& row : {Row{"WRONG_TYPE", REG_DWORD, L"12"}, Row{"TOO_LARGE", REG_SZ, std::wstring(513, L'1')},
                           Row{"MALFORMED", REG_SZ, L"X-1-5-21-1"}, Row{"MALFORMED", REG_SZ, L""},
                           Row{"NOT_A_USER", REG_SZ, L"S-1-5-32-544"}}) {
        m_log.Restart();
        m_anchor.SetRaw(row.type, std::as_bytes(std::span(row.text.c_str(), row.text.size())));
        Camera camera(m_module);
        ExpectRefusedOnce(Unusable(row.word));
    }
}

TEST_F(ReaderAnchor, ARegistryFailureIsAFailedRead) {
    RAVLO_HOOK(RegQueryValueExW) queries(m_module.Handle());
    queries.FailEvery(ERROR_ACCESS_DENIED);
    Camera camera(m_module);
    ExpectRefusedOnce(Unusable("READ_FAILED"));
}

TEST_F(ReaderAnchor, OneRunOfFailuresHasOneLineWhateverTheReason) {
    m_anchor.DeleteKey();
    Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine(Unusable("ABSENT"))) << m_log.Text();
    m_anchor.Set(L"X-1");
    ASSERT_TRUE(WaitForRetries(3));
    m_anchor.Set(L"S-1-5-18");
    ASSERT_TRUE(WaitForRetries(3));
    EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE ")) << m_log.Text();
}

TEST_F(ReaderAnchor, AnAccountThatIsNoUserIsRefusedByTheNameOfItsKind) {
    LookupHook lookups(m_module.Handle());
    struct Row {
        SID_NAME_USE use;
        const char* word;
    };
    for (const Row& row : {Row{SidTypeGroup, "SidTypeGroup"}, Row{SidTypeAlias, "SidTypeAlias"},
                           Row{SidTypeDomain, "SidTypeDomain"}, Row{SidTypeWellKnownGroup, "SidTypeWellKnownGroup"},
                           Row{SidTypeDeletedAccount, "SidTypeDeletedAccount"}, Row{SidTypeInvalid, "SidTypeInvalid"},
                           Row{SidTypeUnknown, "SidTypeUnknown"}, Row{SidTypeComputer, "SidTypeComputer"},
                           Row{SidTypeLabel, "SidTypeLabel"}, Row{static_cast<SID_NAME_USE>(11), "SidTypeLogonSession"},
                           Row{static_cast<SID_NAME_USE>(12), "SidType(unrecognised)"}}) {
        m_log.Restart();
        AnswerLookups(lookups, row.use);
        m_anchor.Set(kStranger);
        Camera camera(m_module);
        EXPECT_TRUE(m_log.WaitForLine("FAIL PIPE ")) << m_log.Text();
        EXPECT_TRUE(m_log.HasMessage(NotAUser(row.word))) << row.word << "\n" << m_log.Text();
    }
}

TEST_F(ReaderAnchor, ADomainGroupIsRefusedOnceAndAUserThenAccepted) {
    LookupHook lookups(m_module.Handle());
    AnswerLookups(lookups, SidTypeGroup);
    m_anchor.Set(kStranger);
    Camera camera(m_module);
    ExpectRefusedOnce(NotAUser("SidTypeGroup"));
    AnswerLookups(lookups, SidTypeUser);
    EXPECT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    EXPECT_FALSE(m_log.Contains("WARN PIPE could not resolve"));
}

TEST_F(ReaderAnchor, ARealAccountThatIsNoUserIsRefused) {
    m_anchor.Set(L"S-1-5-18");  // passes the check by value; the account database knows better
    Camera camera(m_module);
    ExpectRefusedOnce(NotAUser("SidTypeWellKnownGroup"));
}

TEST_F(ReaderAnchor, AUserWhomNobodyCanResolveIsServedWithAWarning) {
    m_anchor.Set(kStranger);
    Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    EXPECT_EQ(1u, m_log.CountLines("WARN PIPE"));
    EXPECT_TRUE(m_log.HasMessage(kNotResolvable)) << m_log.Text();
    EXPECT_TRUE(
        m_log.HasMessage("PIPE authorized user read from HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid: "
                         "S-1-5-21-111-222-333-1001"));
    EXPECT_LT(m_log.Find("WARN PIPE"), m_log.Find("PIPE authorized user read"));
    EXPECT_TRUE(m_log.WaitForLine("DACL grants S-1-5-21-111-222-333-1001 and LOCAL SYSTEM, nobody else"));
}

TEST_F(ReaderAnchor, AnAnchorOnceReadHoldsForTheLifeOfThePipe) {
    RAVLO_HOOK(CreateNamedPipeW) pipes(m_module.Handle());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_PIPE_BUSY);
    Camera camera(m_module);
    ASSERT_TRUE(m_log.WaitForLine("FAIL PIPE could not create ")) << m_log.Text();
    m_anchor.DeleteKey();
    RAVLO_HOOK(RegOpenKeyExW) opens(m_module.Handle());
    ASSERT_TRUE(WaitForRetries(3));
    pipes.PassOn();
    EXPECT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
    EXPECT_EQ(0u, opens.Count());
}

/// Answers every lookup with a user whose names fill both buffers of 256 characters.
void AnswerWithLongNames(LookupHook& lookups) {
    lookups.Replace([](LPCWSTR, PSID, LPWSTR name, LPDWORD, LPWSTR domain, LPDWORD, PSID_NAME_USE found) -> BOOL {
        for (int i = 0; i < 255; ++i) {
            name[i] = L'n';
            domain[i] = L'd';
        }
        name[255] = domain[255] = 0;
        *found = SidTypeUser;
        return TRUE;
    });
}

TEST_F(ReaderAnchor, NamesThatFillTheirBuffersAreTaken) {
    LookupHook lookups(m_module.Handle());
    AnswerWithLongNames(lookups);
    Camera camera(m_module);
    EXPECT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
}

TEST_F(ReaderAnchor, ALookupWithoutMemoryIsAFailedReadUntilThereIsSome) {
    LookupHook lookups(m_module.Handle());
    AnswerWithLongNames(lookups);
    // The reader stands before the anchor while the camera is made: only the lookup's names shall find no memory.
    RAVLO_HOOK(RegOpenKeyExW) opens(m_module.Handle());
    using OpenHook = RAVLO_HOOK(RegOpenKeyExW);
    const std::shared_ptr<UniqueObject> made = std::make_shared<UniqueObject>(MakeEvent());
    opens.Replace([made](HKEY root, LPCWSTR name, DWORD options, REGSAM access, PHKEY key) -> LSTATUS {
        WaitForSingleObject(made->Get(), kPatienceMs);
        return OpenHook::CallOriginal(root, name, options, access, key);
    });
    HeapFaults heap(m_module.Handle());
    Camera camera(m_module);
    heap.FailFromSize(500);
    SetEvent(made->Get());
    ExpectRefusedOnce(Unusable("READ_FAILED"));
    EXPECT_TRUE(heap.Hit());
    heap.PassOn();
    EXPECT_TRUE(m_log.WaitForLine("PIPE created ")) << m_log.Text();
}

TEST(ReaderAnchorRetry, AnAnchorWrittenLaterIsPickedUpWithinAboutASecond) {
    const PrivateLocalMachine localMachine;
    AnchorGuard anchor(CurrentUserSid());
    TraceLog log;
    const ModuleUnderTest module;
    anchor.Delete();
    const Camera camera(module);
    ASSERT_TRUE(log.WaitForLine("FAIL PIPE no usable authorization anchor (ABSENT)")) << log.Text();
    const ULONGLONG start = GetTickCount64();
    anchor.Set(CurrentUserSid());
    ASSERT_TRUE(log.WaitForLine("PIPE created ")) << log.Text();
    EXPECT_LT(GetTickCount64() - start, 1400u);
}

TEST_F(ReaderAnchor, EveryStreamReportsItsOwnRunOfFailures) {
    for (std::size_t run = 1; run <= 2; ++run) {
        m_anchor.Delete();
        const Camera camera(m_module);
        EXPECT_TRUE(m_log.WaitForCount("FAIL PIPE no usable authorization anchor (ABSENT)", run)) << m_log.Text();
        m_anchor.Set(CurrentUserSid());
        EXPECT_TRUE(m_log.WaitForCount("PIPE created ", run)) << m_log.Text();
    }
    EXPECT_EQ(2u, m_log.CountLines("FAIL PIPE "));
}

}  // namespace
}  // namespace ravlo::test
