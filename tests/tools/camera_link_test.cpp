// The connection to a camera, in this process: what the user is told when the system refuses it.
#include "rvfeeder/camera_link.h"

#include <gtest/gtest.h>

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/clock.h"
#include "common/messages.h"
#include "support/import_hooks.h"
#include "tools/producer_stage.h"

namespace ravlo::test {
namespace {

constexpr std::int64_t kSecond = 10'000'000;

std::vector<std::string>* g_messages = nullptr;

void KeepMessage(std::string_view, std::string_view text) noexcept {
    g_messages->emplace_back(text);
}

class CameraLinkTest : public ::testing::Test {
protected:
    CameraLinkTest() {
        g_messages = &m_messages;
        NameMessages("test", KeepMessage);
    }
    ~CameraLinkTest() override { NameMessages("test", WriteMessage); }

    AnchorGuard m_anchor{CurrentUserSid()};
    std::vector<std::string> m_messages;
    std::wstring m_name = UniquePipeName();
    CameraLink m_link{Narrow(m_name), 500};
    std::int64_t m_now = SteadyTicks();
};

TEST_F(CameraLinkTest, ARefusedAccountIsToldOnceWhatToDoAndTriedAgainUntilItIsAdmitted) {
    FrameSide camera(m_name);
    RAVLO_HOOK(CreateFileW) open(ThisProgram());
    open.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(m_link.TryConnect(m_now + i * kSecond));
    }
    EXPECT_EQ(open.Count(), 10U) << "it is tried on";
    EXPECT_EQ(m_link.LastConnectStatus(), RAVLO_ACCESS_DENIED);
    EXPECT_EQ(m_messages,
              std::vector<std::string>{
                  Narrow(m_name) + " does not admit this account; \"rvsetup install --me\", run as administrator, "
                                   "makes it the authorized user, and \"rvsetup doctor\" tells who is. Trying again "
                                   "until it does"});
    open.PassOn();
    EXPECT_TRUE(m_link.TryConnect(m_now + 20 * kSecond));
    EXPECT_EQ(m_messages.back(), "connected to " + Narrow(m_name));
    EXPECT_EQ(m_link.LastConnectStatus(), RAVLO_OK);
}

TEST_F(CameraLinkTest, AMissingCameraIsSaidOnlyWhenItStaysAway) {
    EXPECT_FALSE(m_link.TryConnect(m_now));
    EXPECT_FALSE(m_link.TryConnect(m_now + kSecond / 10));
    EXPECT_TRUE(m_messages.empty());
    for (int i = 1; i < 5; ++i) {
        EXPECT_FALSE(m_link.TryConnect(m_now + i * kSecond));
    }
    EXPECT_EQ(m_messages,
              std::vector<std::string>{"waiting for the camera: nothing serves " + Narrow(m_name) + " yet"});
    EXPECT_GE(m_link.AbsentFor(m_now + 4 * kSecond), 3 * kSecond);
    m_link.RestartAbsence(m_now + 4 * kSecond);
    EXPECT_EQ(m_link.AbsentFor(m_now + 5 * kSecond), kSecond);
}

TEST_F(CameraLinkTest, AStrangersPipeIsSaidAtOnceAndNotTakenBackWhileItIsBusy) {
    RawServer stranger(m_name, kOwnedByAdministrators, PIPE_ACCESS_INBOUND);
    EXPECT_FALSE(m_link.TryConnect(m_now));
    ASSERT_EQ(m_messages.size(), 1U);
    EXPECT_TRUE(m_messages.front().starts_with(Narrow(m_name) + " is owned by an account that is neither the camera"))
        << m_messages.front();
    RAVLO_HOOK(CreateFileW) open(ThisProgram());
    open.FailEvery(INVALID_HANDLE_VALUE, ERROR_PIPE_BUSY);
    EXPECT_FALSE(m_link.TryConnect(m_now + kSecond));
    EXPECT_EQ(m_link.LastConnectStatus(), RAVLO_UNTRUSTED_OWNER);
    EXPECT_EQ(m_messages.size(), 1U);
}

TEST_F(CameraLinkTest, ATryEarlierThanDueIsNone) {
    RAVLO_HOOK(CreateFileW) open(ThisProgram());
    EXPECT_FALSE(m_link.TryConnect(m_now));
    EXPECT_FALSE(m_link.TryConnect(m_now + 499'999));
    EXPECT_EQ(open.Count(), 1U);
    EXPECT_FALSE(m_link.TryConnect(m_now + 500'000));
    EXPECT_EQ(open.Count(), 2U);
}

TEST_F(CameraLinkTest, ACameraThatMayHaveGoneIsLeftAndTriedAtOnce) {
    FrameSide camera(m_name);
    ASSERT_TRUE(m_link.TryConnect(m_now));
    m_link.Leave(m_now + 1);
    EXPECT_FALSE(m_link.IsConnected());
    camera.Drop();
    EXPECT_TRUE(m_link.TryConnect(m_now + 1));
    EXPECT_EQ(m_link.Connections(), 2U);
}

}  // namespace
}  // namespace ravlo::test
