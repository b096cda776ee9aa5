// Failures of the reader that follow each other: one line a run for each kind, whatever the reason; and a client that
// comes between the reader's two looks at its listen.
#include <gtest/gtest.h>

#include "pipe_objects.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/import_hooks.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

using WaitHook = RAVLO_HOOK(WaitForSingleObject);
using PipeHook = RAVLO_HOOK(CreateNamedPipeW);
using ListenHook = RAVLO_HOOK(ConnectNamedPipe);

constexpr char kAnchorLine[] = "FAIL PIPE no usable authorization anchor (ABSENT)";
constexpr char kCreateLine[] = "FAIL PIPE could not create ";
constexpr char kListenLine[] = "FAIL PIPE the listen could not be armed, GetLastError=1450 - retrying once a second";

/// Cuts the reader's waits of a second short and counts them.
class FailureRuns : public ModuleTest {
protected:
    FailureRuns() : m_waits(m_module.Handle()) {
        m_waits.Replace([](HANDLE handle, DWORD timeout) -> DWORD {
            return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout);
        });
    }
    std::size_t Retries() const {
        std::size_t count = 0;
        for (const auto& call : m_waits.Calls()) {
            count += std::get<1>(call) == 1000 ? 1 : 0;
        }
        return count;
    }
    bool WaitForMoreRetries(std::size_t more) {
        const std::size_t wanted = Retries() + more;
        return WaitUntil([&] { return Retries() >= wanted; });
    }

    const std::wstring m_name = UniquePipeName();
    WaitHook m_waits;
};

TEST_F(FailureRuns, TwoErrorsInOneRunOfFailingListensHaveOneLine) {
    ListenHook listens(m_module.Handle());
    listens.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
    const Camera camera(m_module, {.pipeName = m_name});
    ASSERT_TRUE(m_log.WaitForLine(kListenLine)) << m_log.Text();
    listens.FailEvery(FALSE, ERROR_NOT_ENOUGH_MEMORY);
    ASSERT_TRUE(WaitForMoreRetries(3));
    EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE ")) << m_log.Text();
}

TEST_F(FailureRuns, AnchorCreationAndListenHaveALineEach) {
    m_anchor.Delete();
    PipeHook pipes(m_module.Handle());
    pipes.FailEvery(INVALID_HANDLE_VALUE, ERROR_PIPE_BUSY);
    ListenHook listens(m_module.Handle());
    listens.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
    const Camera camera(m_module, {.pipeName = m_name});
    ASSERT_TRUE(m_log.WaitForLine(kAnchorLine)) << m_log.Text();
    ASSERT_TRUE(WaitForMoreRetries(2));
    m_anchor.Set(CurrentUserSid());
    ASSERT_TRUE(m_log.WaitForLine(kCreateLine + Narrow(m_name) + ", GetLastError=231 - serving the test pattern"))
        << m_log.Text();
    ASSERT_TRUE(WaitForMoreRetries(2));
    pipes.PassOn();
    ASSERT_TRUE(m_log.WaitForLine(kListenLine)) << m_log.Text();
    ASSERT_TRUE(WaitForMoreRetries(2));
    EXPECT_EQ(1u, m_log.CountLines(kAnchorLine));
    EXPECT_EQ(1u, m_log.CountLines(kCreateLine));
    EXPECT_EQ(1u, m_log.CountLines(kListenLine));
    EXPECT_EQ(3u, m_log.CountLines("FAIL PIPE ")) << m_log.Text();
}

TEST_F(FailureRuns, AClientThatComesBetweenTheTwoLooksAtAListenIsAClientAndNoFailure) {
    ListenHook listens(m_module.Handle());
    PipeClient producer;
    std::atomic<int> tries{0};
    m_waits.Replace([&](HANDLE handle, DWORD timeout) -> DWORD {
        if (timeout != 100 || tries.exchange(1) != 0) {
            return WaitHook::CallOriginal(handle, timeout);
        }
        // The listen's wait runs out, and then somebody comes before the reader looks again.
        EXPECT_TRUE(producer.Connect(m_name, 0));
        EXPECT_EQ(DWORD{WAIT_OBJECT_0}, WaitHook::CallOriginal(handle, kPatienceMs));
        return WAIT_TIMEOUT;
    });
    {
        Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(m_log.WaitForLine("PIPE client connected - admitted by the DACL for ")) << m_log.Text();
        ASSERT_TRUE(producer.SendFrame(320, 180, 4));
        EXPECT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=4")) << m_log.Text();
        EXPECT_EQ(1u, m_log.CountLines("PIPE client connected"));
        EXPECT_FALSE(m_log.Contains("FAIL PIPE")) << m_log.Text();
        EXPECT_FALSE(m_log.Contains("listen recovered"));
        EXPECT_EQ(0u, Retries()) << "nothing was waited for";
    }
    m_waits.PassOn();
}

TEST_F(FailureRuns, AListenThatRecoversWithItsClientAlreadyThereIsToldOnce) {
    ListenHook listens(m_module.Handle());
    PipeClient producer;
    std::atomic<DWORD> reader{0};
    m_waits.Replace([&](HANDLE handle, DWORD timeout) -> DWORD {
        if (timeout == 1000) {
            reader = GetCurrentThreadId();
        }
        return WaitHook::CallOriginal(handle, timeout == 1000 ? 10 : timeout);
    });
    std::atomic<bool> recovered{false};
    std::atomic<bool> connected{false};
    // The gate's connects pass here as well; the client belongs to the reader's.
    listens.Replace([&](HANDLE pipe, LPOVERLAPPED operation) -> BOOL {
        if (!recovered) {
            SetLastError(ERROR_NO_SYSTEM_RESOURCES);
            return FALSE;
        }
        if (GetCurrentThreadId() == reader && !connected.exchange(true)) {
            EXPECT_TRUE(producer.Connect(m_name, 0));
        }
        return ListenHook::CallOriginal(pipe, operation);
    });
    {
        const Camera camera(m_module, {.pipeName = m_name});
        ASSERT_TRUE(m_log.WaitForLine(kListenLine)) << m_log.Text();
        ASSERT_TRUE(WaitUntil([&] { return reader != 0; }));
        recovered = true;
        ASSERT_TRUE(m_log.WaitForLine("PIPE client connected - ")) << m_log.Text();
        EXPECT_EQ(1u, m_log.CountLines("PIPE the listen recovered"));
        EXPECT_EQ(1u, m_log.CountLines("PIPE client connected"));
        EXPECT_EQ(1u, m_log.CountLines("FAIL PIPE ")) << m_log.Text();
    }
    listens.PassOn();
    m_waits.PassOn();
}

}  // namespace
}  // namespace ravlo::test
