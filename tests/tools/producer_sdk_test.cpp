// The producer library as its users call it: every result of every function, and what goes over the frame pipe.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/handles.h"
#include "support/import_hooks.h"
#include "tools/producer_stage.h"
#include "windows/program_heap.h"

#include <aclapi.h>

namespace ravlo::test {
namespace {

using OpenHook = RAVLO_HOOK(CreateFileW);
using WriteHook = RAVLO_HOOK(WriteFile);

/// Header of a 4x2 picture as the frame-pipe document lays it out, with this number.
std::vector<std::uint8_t> HeaderOf4x2(std::uint8_t sequence) {
    return {0x52, 0x56, 0x4C, 0x4F, 0x02,     0, 0, 0, 0x04, 0, 0, 0, 0x02, 0, 0, 0, 0x0C, 0, 0, 0,
            0x4E, 0x56, 0x31, 0x32, sequence, 0, 0, 0, 0,    0, 0, 0, 0,    0, 0, 0, 0,    0, 0, 0};
}

std::vector<std::uint8_t> Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

class ProducerSdk : public ::testing::Test {
protected:
    void ServeAndConnect() {
        m_camera = std::make_unique<FrameSide>(m_name);
        ASSERT_EQ(RAVLO_OK, ravlo_producer_connect(m_producer.get(), 0));
        ASSERT_TRUE(m_camera->WaitForClient());
    }
    ravlo_status Write4x2(const char* picture = "abcdefghUVXY", std::uint32_t timeoutMs = kPatienceMs) {
        return ravlo_producer_write(m_producer.get(), 4, 2, picture, timeoutMs);
    }
    int IsConnected() const { return ravlo_producer_is_connected(m_producer.get()); }
    std::uint32_t SystemError() const { return ravlo_producer_system_error(m_producer.get()); }

    AnchorGuard m_anchor{CurrentUserSid()};
    const std::wstring m_name = UniquePipeName();
    ProducerHandle m_producer = OpenProducer(m_name);
    std::unique_ptr<FrameSide> m_camera;
};

TEST_F(ProducerSdk, NullIsAnsweredByEveryFunction) {
    ravlo_demand demand{};
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_open(Narrow(m_name).c_str(), nullptr));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_connect(nullptr, 0));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_write(nullptr, 2, 2, "abcdef", 0));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_write_planes(nullptr, 2, 2, "abcd", 2, "ef", 2, 0));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_read_demand(nullptr, &demand));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_read_demand(m_producer.get(), nullptr));
    EXPECT_EQ(0, ravlo_producer_is_connected(nullptr));
    EXPECT_EQ(0U, ravlo_producer_next_sequence(nullptr));
    EXPECT_EQ(0U, ravlo_producer_system_error(nullptr));
    ravlo_producer_disconnect(nullptr);
    ravlo_producer_close(nullptr);
}

TEST_F(ProducerSdk, ANameOutsideTheGrammarMakesNoProducer) {
    for (const char* name :
         {"", "Ravlo", "\\\\.\\pipe\\Other", "\\\\.\\pipe\\ravlo", "\\\\.\\pipe\\Ravlo.", "\\\\.\\pipe\\Ravlo.0",
          "\\\\.\\pipe\\Ravlo.07", "\\\\.\\pipe\\Ravlo.12345678901", "\\\\.\\pipe\\Ravlo.7.gate",
          "\\\\.\\pipe\\Ravlo.7 ", "\\\\.\\pipe\\Ravlo.\xC3\xA4", "\\\\.\\pipe\\Ravlo.1234567890123456789012345"}) {
        ravlo_producer* producer = m_producer.get();
        EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_open(name, &producer)) << name;
        EXPECT_EQ(nullptr, producer) << name;
    }
}

TEST_F(ProducerSdk, NullNamesTheOneCameraOfTheMachine) {
    ravlo_producer* opened = nullptr;
    ASSERT_EQ(RAVLO_OK, ravlo_producer_open(nullptr, &opened));
    const ProducerHandle producer(opened);
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RAVLO_NO_CAMERA, ravlo_producer_connect(opened, 0));
    ASSERT_EQ(1U, opens.Count());
    EXPECT_EQ(L"\\\\.\\pipe\\Ravlo", std::get<0>(opens.Calls()[0]));
}

TEST_F(ProducerSdk, WithoutMemoryThereIsNoProducer) {
    const std::string name = Narrow(m_name);
    ravlo_producer* producer = m_producer.get();
    ProgramHeap heap;
    heap.FailNth(1);
    const ravlo_status status = ravlo_producer_open(name.c_str(), &producer);
    heap.PassOn();
    EXPECT_EQ(RAVLO_OUT_OF_MEMORY, status);
    EXPECT_EQ(nullptr, producer);
}

TEST_F(ProducerSdk, WithoutACameraOneTryEndsAtOnceAndATimeoutIsSpentInTriesEvery50Milliseconds) {
    OpenHook opens(ThisProgram());
    EXPECT_EQ(RAVLO_NO_CAMERA, ravlo_producer_connect(m_producer.get(), 0));
    EXPECT_EQ(2U, SystemError());
    EXPECT_EQ(1U, opens.Count());
    const std::uint64_t start = GetTickCount64();
    EXPECT_EQ(RAVLO_NO_CAMERA, ravlo_producer_connect(m_producer.get(), 120));
    EXPECT_GE(GetTickCount64() - start, 120U);
    EXPECT_GE(opens.Count(), 3U);
    EXPECT_LE(opens.Count(), 6U);
    EXPECT_EQ(0, IsConnected());
}

TEST_F(ProducerSdk, ACameraThatIsTakenIsBusyAndWaitedFor) {
    ServeAndConnect();
    const ProducerHandle second = OpenProducer(m_name);
    EXPECT_EQ(RAVLO_BUSY, ravlo_producer_connect(second.get(), 0));
    EXPECT_EQ(231U, ravlo_producer_system_error(second.get()));
    OpenHook opens(ThisProgram());
    std::size_t tries = 0;
    opens.Replace([&](LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes, DWORD disposition,
                      DWORD flags, HANDLE pattern) -> HANDLE {
        if (++tries == 2) {
            ravlo_producer_disconnect(m_producer.get());
            m_camera->Drop();
        }
        return OpenHook::CallOriginal(name, access, share, attributes, disposition, flags, pattern);
    });
    EXPECT_EQ(RAVLO_OK, ravlo_producer_connect(second.get(), kPatienceMs));
    EXPECT_EQ(2U, tries);
    EXPECT_EQ(1, ravlo_producer_is_connected(second.get()));
    EXPECT_EQ(0, IsConnected());
}

TEST_F(ProducerSdk, ARefusedAccountIsToldAtOnce) {
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_ACCESS_DENIED);
    EXPECT_EQ(RAVLO_ACCESS_DENIED, ravlo_producer_connect(m_producer.get(), 60'000));
    EXPECT_EQ(5U, SystemError());
    EXPECT_EQ(1U, opens.Count());
}

TEST_F(ProducerSdk, AStrangersPipeIsLeftAtOnceAndGetsNothing) {
    const RawServer stranger(m_name, kOwnedByAdministrators, PIPE_ACCESS_INBOUND);
    OpenHook opens(ThisProgram());
    EXPECT_EQ(RAVLO_UNTRUSTED_OWNER, ravlo_producer_connect(m_producer.get(), 60'000));
    EXPECT_EQ(1307U, SystemError());
    EXPECT_EQ(1U, opens.Count());
    EXPECT_EQ(RAVLO_DISCONNECTED, Write4x2());
    EXPECT_EQ(0U, stranger.BytesUnread());
}

TEST_F(ProducerSdk, ACameraThatHangsUpWhileItsOwnerIsReadIsAbsentAndWaitedFor) {
    RawServer camera(m_name, kOwnedBySystem, PIPE_ACCESS_INBOUND);
    RAVLO_HOOK(GetSecurityInfo) owners(ThisProgram());
    for (const DWORD gone : {DWORD{ERROR_BROKEN_PIPE}, DWORD{ERROR_NO_DATA}, DWORD{ERROR_PIPE_NOT_CONNECTED}}) {
        owners.FailEvery(gone);
        EXPECT_EQ(RAVLO_NO_CAMERA, ravlo_producer_connect(m_producer.get(), 0));
        EXPECT_EQ(gone, SystemError());
        camera.Drop();
    }
    owners.FailEvery(ERROR_ACCESS_DENIED);
    EXPECT_EQ(RAVLO_UNTRUSTED_OWNER, ravlo_producer_connect(m_producer.get(), 60'000));
    EXPECT_EQ(1307U, SystemError());
}

TEST_F(ProducerSdk, AnyOtherRefusalIsTheSystems) {
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_TOO_MANY_OPEN_FILES);
    EXPECT_EQ(RAVLO_SYSTEM_ERROR, ravlo_producer_connect(m_producer.get(), 60'000));
    EXPECT_EQ(4U, SystemError());
    EXPECT_EQ(1U, opens.Count());
}

TEST_F(ProducerSdk, WhereverMemoryRunsOutWhileConnectingIsSaidAndLeavesNothingBehind) {
    const PrivateLocalMachine empty;
    RawServer camera(m_name, kOwnedBySystem, PIPE_ACCESS_INBOUND);
    ProgramHeap heap;
    int failures = 0;
    for (long n = 1;; ++n) {
        heap.FailNth(n);
        const ravlo_status status = ravlo_producer_connect(m_producer.get(), 0);
        const bool wasHit = heap.Hit();
        heap.PassOn();
        if (!wasHit) {
            EXPECT_EQ(RAVLO_OK, status);
            break;
        }
        ++failures;
        EXPECT_EQ(RAVLO_OUT_OF_MEMORY, status) << "allocation " << n;
        EXPECT_EQ(0, IsConnected());
        camera.Drop();
    }
    EXPECT_GE(failures, 1);
}

TEST_F(ProducerSdk, TheFirstFrameOf1080pIsTheOneOfTheDocument) {
    ServeAndConnect();
    const std::vector<std::uint8_t> picture(3110400, 0x5A);
    ravlo_status status = RAVLO_SYSTEM_ERROR;
    std::thread writer(
        [&] { status = ravlo_producer_write(m_producer.get(), 1920, 1080, picture.data(), kPatienceMs); });
    const std::vector<std::uint8_t> header = m_camera->Take(40);
    const std::vector<std::uint8_t> taken = m_camera->Take(3110400);
    writer.join();
    EXPECT_EQ(RAVLO_OK, status);
    EXPECT_EQ(
        (std::vector<std::uint8_t>{0x52, 0x56, 0x4C, 0x4F, 0x02, 0x00, 0x00, 0x00, 0x80, 0x07, 0x00, 0x00, 0x38, 0x04,
                                   0x00, 0x00, 0x00, 0x76, 0x2F, 0x00, 0x4E, 0x56, 0x31, 0x32, 0x01, 0x00, 0x00, 0x00,
                                   0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}),
        header);
    EXPECT_EQ(picture, taken);
}

TEST_F(ProducerSdk, ASizeThatNoCameraHasIsRefusedAndTheConnectionStays) {
    ServeAndConnect();
    const std::vector<std::uint8_t> picture(64);
    const struct {
        std::uint32_t width;
        std::uint32_t height;
    } wrong[] = {{0, 2}, {4, 0}, {3, 2}, {4, 1}, {16386, 2}, {2, 16386}, {0xFFFFFFFE, 2}, {0x80000000, 0x80000000}};
    for (const auto& size : wrong) {
        EXPECT_EQ(0U, ravlo_frame_bytes(size.width, size.height)) << size.width << "x" << size.height;
        EXPECT_EQ(RAVLO_INVALID_ARGUMENT,
                  ravlo_producer_write(m_producer.get(), size.width, size.height, picture.data(), kPatienceMs));
        EXPECT_EQ(RAVLO_INVALID_ARGUMENT,
                  ravlo_producer_write_planes(m_producer.get(), size.width, size.height, picture.data(), SIZE_MAX,
                                              picture.data(), SIZE_MAX, kPatienceMs));
    }
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, Write4x2(nullptr));
    const char* const p = "abcdefghUVXY";
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_write_planes(m_producer.get(), 4, 2, nullptr, 4, p, 4, 1));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_write_planes(m_producer.get(), 4, 2, p, 4, nullptr, 4, 1));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_write_planes(m_producer.get(), 4, 2, p, 3, p, 4, 1));
    EXPECT_EQ(RAVLO_INVALID_ARGUMENT, ravlo_producer_write_planes(m_producer.get(), 4, 2, p, 4, p, 3, 1));
    EXPECT_EQ(0U, SystemError());
    EXPECT_EQ(1, IsConnected());
    EXPECT_EQ(RAVLO_OK, Write4x2());
    EXPECT_EQ(HeaderOf4x2(1), m_camera->Take(40)) << "what was refused took no number";
}

TEST(ProducerSdkFacts, AFrameHasOneAndAHalfBytesAPixel) {
    EXPECT_EQ(6U, ravlo_frame_bytes(2, 2));
    EXPECT_EQ(3110400U, ravlo_frame_bytes(1920, 1080));
    EXPECT_EQ(402653184U, ravlo_frame_bytes(16384, 16384));
}

TEST_F(ProducerSdk, PlanesArriveWithoutTheGapsBetweenTheirRows) {
    ServeAndConnect();
    ASSERT_EQ(RAVLO_OK, ravlo_producer_write_planes(m_producer.get(), 4, 2, "abcd##efgh", 6, "UVXY", 5, kPatienceMs));
    ASSERT_EQ(RAVLO_OK,
              ravlo_producer_write_planes(m_producer.get(), 2, 4, "ab#cd#ef#gh", 3, "UV##XY", 4, kPatienceMs));
    EXPECT_EQ(HeaderOf4x2(1), m_camera->Take(40));
    EXPECT_EQ(Bytes("abcdefghUVXY"), m_camera->Take(12));
    m_camera->Take(40);
    EXPECT_EQ(Bytes("abcdefghUVXY"), m_camera->Take(12));
}

TEST_F(ProducerSdk, PlanesForWhichThereIsNoMemoryLeaveTheConnectionAsItWas) {
    ServeAndConnect();
    const std::vector<std::uint8_t> plane(64 * 64);
    ProgramHeap heap;
    heap.FailFromSize(6144);
    const ravlo_status status =
        ravlo_producer_write_planes(m_producer.get(), 64, 64, plane.data(), 64, plane.data(), 64, kPatienceMs);
    heap.PassOn();
    EXPECT_EQ(RAVLO_OUT_OF_MEMORY, status);
    EXPECT_EQ(RAVLO_OK, Write4x2());
    EXPECT_EQ(HeaderOf4x2(1), m_camera->Take(40));
}

TEST_F(ProducerSdk, WithoutAConnectionNothingIsWrittenAndNoNumberIsTaken) {
    EXPECT_EQ(RAVLO_DISCONNECTED, Write4x2());
    EXPECT_EQ(RAVLO_DISCONNECTED, ravlo_producer_write_planes(m_producer.get(), 2, 2, "abcd", 2, "ef", 2, 1));
    EXPECT_EQ(0U, SystemError());
    EXPECT_EQ(1U, ravlo_producer_next_sequence(m_producer.get()));
}

TEST_F(ProducerSdk, ACameraThatHangsUpIsNoticedByTheWriteAndTheProducerGoesOnWithItsNumbers) {
    ServeAndConnect();
    EXPECT_EQ(RAVLO_OK, Write4x2());
    m_camera->Drop();
    EXPECT_EQ(1, IsConnected());
    EXPECT_EQ(RAVLO_DISCONNECTED, Write4x2());
    EXPECT_EQ(233U, SystemError());
    EXPECT_EQ(0, IsConnected());
    EXPECT_EQ(RAVLO_DISCONNECTED, Write4x2());
    EXPECT_EQ(3U, ravlo_producer_next_sequence(m_producer.get()));
    ASSERT_EQ(RAVLO_OK, ravlo_producer_connect(m_producer.get(), kPatienceMs));
    ASSERT_TRUE(m_camera->WaitForClient());
    EXPECT_EQ(RAVLO_OK, Write4x2());
    EXPECT_EQ(HeaderOf4x2(3), m_camera->Take(40));
}

TEST_F(ProducerSdk, ACameraThatDoesNotReadEndsTheConnectionAtTheDeadline) {
    const RawServer camera(m_name, kOwnedBySystem, PIPE_ACCESS_INBOUND);
    ASSERT_EQ(RAVLO_OK, ravlo_producer_connect(m_producer.get(), 0));
    const std::vector<std::uint8_t> picture(6144);
    const std::uint64_t start = GetTickCount64();
    EXPECT_EQ(RAVLO_TIMED_OUT, ravlo_producer_write(m_producer.get(), 64, 64, picture.data(), 100));
    EXPECT_GE(GetTickCount64() - start, 80U);
    EXPECT_EQ(258U, SystemError());
    EXPECT_EQ(0, IsConnected());
}

TEST_F(ProducerSdk, NoTimeAtAllIsNeverEnough) {
    ServeAndConnect();
    EXPECT_EQ(RAVLO_TIMED_OUT, Write4x2("abcdefghUVXY", 0));
    EXPECT_EQ(0, IsConnected());
    EXPECT_EQ(2U, ravlo_producer_next_sequence(m_producer.get()));
}

TEST_F(ProducerSdk, AWriteThatTheSystemRefusesClosesTheConnection) {
    ServeAndConnect();
    {
        WriteHook writes(ThisProgram());
        writes.FailEvery(FALSE, ERROR_NO_SYSTEM_RESOURCES);
        EXPECT_EQ(RAVLO_SYSTEM_ERROR, Write4x2());
    }
    EXPECT_EQ(1450U, SystemError());
    EXPECT_EQ(0, IsConnected());
}

TEST_F(ProducerSdk, DisconnectingShowsTheCameraTheEnd) {
    ServeAndConnect();
    EXPECT_EQ(1, IsConnected());
    ravlo_producer_disconnect(m_producer.get());
    ravlo_producer_disconnect(m_producer.get());
    EXPECT_EQ(0, IsConnected());
    EXPECT_TRUE(m_camera->Take(1).empty());
}

TEST_F(ProducerSdk, ConnectingAgainBeginsWithLettingGo) {
    ServeAndConnect();
    OpenHook opens(ThisProgram());
    opens.FailEvery(INVALID_HANDLE_VALUE, ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(RAVLO_NO_CAMERA, ravlo_producer_connect(m_producer.get(), 0));
    EXPECT_EQ(0, IsConnected());
    EXPECT_TRUE(m_camera->Take(1).empty());
}

TEST_F(ProducerSdk, ClosingLeavesNoHandle) {
    ServeAndConnect();
    ravlo_producer_disconnect(m_producer.get());
    m_camera->Drop();
    const std::size_t before = SettledHandles();
    ASSERT_EQ(RAVLO_OK, ravlo_producer_connect(m_producer.get(), kPatienceMs));
    m_producer.reset();
    EXPECT_TRUE(HandlesSettleAt(before));
}

}  // namespace
}  // namespace ravlo::test
