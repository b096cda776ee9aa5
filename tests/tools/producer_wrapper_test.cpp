// ravlo::Producer, the C++ face of the producer library, beside the headers of the module that share its namespace.
#include "ravlo/producer.hpp"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "gate/gate_pipe.h"
#include "pipe/pipe_producer.h"
#include "support/import_hooks.h"
#include "tools/producer_stage.h"

#include <aclapi.h>

namespace ravlo::test {
namespace {

using namespace std::chrono_literals;

using OpenHook = RAVLO_HOOK(CreateFileW);
using OwnerHook = RAVLO_HOOK(GetSecurityInfo);

static_assert(std::is_nothrow_move_constructible_v<Producer> && std::is_nothrow_move_assignable_v<Producer>);
static_assert(!std::is_copy_constructible_v<Producer>);

std::span<const std::uint8_t> Span(const std::string& text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

class ProducerWrapper : public ::testing::Test {
protected:
    void ServeAndConnect() {
        m_camera = std::make_unique<FrameSide>(m_name);
        ASSERT_EQ(RAVLO_OK, m_producer.Connect(0ms));
        ASSERT_TRUE(m_camera->WaitForClient());
    }
    std::string TakePicture(std::uint32_t bytes) {
        m_camera->Take(40);
        const std::vector<std::uint8_t> taken = m_camera->Take(bytes);
        return {taken.begin(), taken.end()};
    }

    AnchorGuard m_anchor{CurrentUserSid()};
    const std::wstring m_name = UniquePipeName();
    Producer m_producer{Narrow(m_name).c_str()};
    std::unique_ptr<FrameSide> m_camera;
};

TEST_F(ProducerWrapper, OnlyTheConstructorThrowsAndSaysWhy) {
    try {
        const Producer producer("\\\\.\\pipe\\Other");
        FAIL() << "a name outside the grammar was taken";
    } catch (const ProducerError& error) {
        EXPECT_EQ(RAVLO_INVALID_ARGUMENT, error.Status());
        EXPECT_STREQ("an argument is wrong", error.what());
    }
}

TEST_F(ProducerWrapper, APackedPictureArrives) {
    ServeAndConnect();
    EXPECT_TRUE(m_producer.IsConnected());
    EXPECT_EQ(RAVLO_OK, m_producer.Write(4, 2, Span("abcdefghUVXY"), 5s));
    EXPECT_EQ("abcdefghUVXY", TakePicture(12));
    EXPECT_EQ(2U, m_producer.NextSequence());
}

TEST_F(ProducerWrapper, APictureOfAnotherLengthIsRefusedUnread) {
    ServeAndConnect();
    for (const char* wrong : {"abcdefghUVX", "abcdefghUVXYZ", ""}) {
        EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(4, 2, Span(wrong), 5s)) << wrong;
    }
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(0, 0, {}, 5s));
    EXPECT_EQ(1U, m_producer.NextSequence());
    EXPECT_TRUE(m_producer.IsConnected());
}

TEST_F(ProducerWrapper, PlanesMayEndWithTheirLastPixelButNoSooner) {
    ServeAndConnect();
    EXPECT_EQ(RAVLO_OK, m_producer.Write(4, 2, {Span("abcd##efgh"), 6}, {Span("UVXY"), 4}, 5s));
    EXPECT_EQ("abcdefghUVXY", TakePicture(12));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(4, 2, {Span("abcd##efg"), 6}, {Span("UVXY"), 4}, 5s));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(4, 2, {Span("abcdefgh"), 4}, {Span("UVX"), 4}, 5s));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(4, 2, {Span("abcdefgh"), 0}, {Span("UVXY"), 4}, 5s));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(4, 2, {Span("abcdefgh"), 3}, {Span("UVXY"), 4}, 5s));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(4, 2, {Span("abcdefgh"), SIZE_MAX}, {Span("UVXY"), 4}, 5s));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(4, 0, {Span("abcdefgh"), 4}, {Span("UVXY"), 4}, 5s));
    EXPECT_EQ(2U, m_producer.NextSequence());
}

TEST_F(ProducerWrapper, ATimeOutOfTheWrongSignIsNoneAndALongOneIsTheLongestThereIs) {
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RAVLO_NO_CAMERA, m_producer.Connect(-1h));
    EXPECT_EQ(1U, opens.Count());
    opens.Replace([&](LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) -> HANDLE {
        SetLastError(opens.Count() < 4 ? ERROR_FILE_NOT_FOUND : ERROR_ACCESS_DENIED);
        return INVALID_HANDLE_VALUE;
    });
    // 2^32 ms: cut to 32 bits it would be none at all.
    EXPECT_EQ(RAVLO_ACCESS_DENIED, m_producer.Connect(4294967296ms));
    EXPECT_EQ(5U, m_producer.SystemError());
}

TEST_F(ProducerWrapper, ACameraThatRestartsAllTheTimeIsNeverTakenForAStranger) {
    FrameSide camera(m_name);
    std::atomic<bool> isOver{false};
    std::thread restarting([&] {
        while (!isOver) {
            camera.Drop();
        }
    });
    // Time enough between the opening and the look at the owner for the camera to go.
    OwnerHook owners(ThisProgram());
    owners.Replace([](HANDLE pipe, SE_OBJECT_TYPE type, SECURITY_INFORMATION what, PSID* owner, PSID* group, PACL* dacl,
                      PACL* sacl, PSECURITY_DESCRIPTOR* descriptor) -> DWORD {
        Sleep(1);
        return OwnerHook::CallOriginal(pipe, type, what, owner, group, dacl, sacl, descriptor);
    });
    unsigned hungUp = 0;
    const std::uint64_t end = GetTickCount64() + 300;
    while (GetTickCount64() < end) {
        const ravlo_status status = m_producer.Connect(0ms);
        EXPECT_TRUE(status == RAVLO_OK || status == RAVLO_NO_CAMERA || status == RAVLO_BUSY)
            << ravlo_status_text(status) << ", error " << m_producer.SystemError();
        hungUp += m_producer.SystemError() == 233 ? 1 : 0;
        m_producer.Disconnect();
    }
    isOver = true;
    restarting.join();
    EXPECT_GE(hungUp, 1U);
}

TEST_F(ProducerWrapper, DemandIsARecordOrNothing) {
    EXPECT_FALSE(m_producer.ReadDemand().has_value());
    EXPECT_EQ(233U, m_producer.SystemError());
    RvGatePipe gate;
    ASSERT_TRUE(RvGatePipeCreate(gate, CurrentUserSid(), (m_name + L".gate").c_str()));
    ServeAndConnect();
    EXPECT_FALSE(m_producer.ReadDemand().has_value());
    EXPECT_EQ(0U, m_producer.SystemError());
    ASSERT_TRUE(WaitUntil([&] { return RvGatePipePublish(gate, 33, 5); }));
    std::optional<ravlo_demand> demand;
    ASSERT_TRUE(WaitUntil([&] { return (demand = m_producer.ReadDemand()).has_value(); }));
    EXPECT_EQ(1U, demand->sequence);
    EXPECT_EQ(33U, demand->idle_ms);
    EXPECT_EQ(5U, demand->requests);
    RvGatePipeClose(gate);
}

TEST_F(ProducerWrapper, OneThatWasMovedFromIsEmptyAndMayBeFilledAgain) {
    ServeAndConnect();
    Producer moved = std::move(m_producer);
    EXPECT_TRUE(moved.IsConnected());
    EXPECT_EQ(nullptr, m_producer.Get());  // NOLINT(bugprone-use-after-move): that is what is tested
    EXPECT_FALSE(m_producer.IsConnected());
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Connect(0ms));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, m_producer.Write(2, 2, Span("abcdUV"), 0ms));
    EXPECT_FALSE(m_producer.ReadDemand().has_value());
    EXPECT_EQ(0U, m_producer.SystemError());
    m_producer.Disconnect();
    m_producer = std::move(moved);
    EXPECT_EQ(RAVLO_OK, m_producer.Write(2, 2, Span("abcdUV"), 5s));
    EXPECT_EQ("abcdUV", TakePicture(6));
    m_producer.Disconnect();
    EXPECT_FALSE(m_producer.IsConnected());
    EXPECT_TRUE(m_camera->Take(1).empty());
}

}  // namespace
}  // namespace ravlo::test
