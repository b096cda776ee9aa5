// rvfeeder.exe with a real camera: the built module in this process, its pipe and its gate.
#include <gtest/gtest.h>

#include <optional>

#include "common/clock.h"
#include "common/test_card_stamp.h"
#include "support/camera.h"
#include "support/registry.h"
#include "support/trace_log.h"
#include "tools/program.h"

namespace ravlo::test {
namespace {

constexpr std::int64_t kSecond = 10'000'000;

/// The anchor is the real one: the program, which is another process, looks there too.
class RvFeederCamera : public ::testing::Test {
protected:
    /// Pulls until a picture of the test card comes whose number is greater than `last`; its number.
    static std::optional<std::uint32_t> PullCard(Camera& camera, std::uint32_t last = 0) {
        std::optional<TestCardStamp> stamp;
        camera.PullUntil([&stamp, last](const Sample& sample) {
            stamp = ReadTestCardStamp(sample.bytes, {640, 360, 30, 1});
            return stamp && stamp->frame > last;
        });
        return stamp ? std::optional(stamp->frame) : std::nullopt;
    }

    AnchorGuard m_anchor{CurrentUserSid()};
    TraceLog m_log;
    ModuleUnderTest m_module;
};

TEST_F(RvFeederCamera, ItRestsWhileNoSampleIsAskedForAndIsBackWithinOneRecord) {
    Camera camera(m_module, {.geometry = L"640x360@30/1"});
    ChildProcess feeder = StartProgram(L"rvfeeder", {L"--test-card", L"--size", L"640x360", L"--rate", L"30", L"--pipe",
                                                     camera.PipeName(), L"--idle-after", L"0.5"});
    camera.Start();
    const auto first = PullCard(camera);
    ASSERT_TRUE(first) << feeder.Output() << m_log.Text();
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: nobody watches the camera: the input waits\n")) << feeder.Output();
    const std::int64_t back = SteadyTicks();
    // The camera may still hold the last picture from before the rest; the one after that was sent after it.
    const auto held = PullCard(camera, *first);
    ASSERT_TRUE(held) << feeder.Output();
    ASSERT_TRUE(PullCard(camera, *held)) << feeder.Output();
    EXPECT_LT(SteadyTicks() - back, 3 * kSecond) << "a record comes every 500 to 1000 ms";
    EXPECT_TRUE(feeder.WaitForOutput("rvfeeder: pictures are wanted again: sending\n")) << feeder.Output();
}

TEST_F(RvFeederCamera, PicturesOfAnotherSizeAreTakenAndTheCameraKeepsItsPattern) {
    Camera camera(m_module, {.geometry = L"640x360@30/1"});
    ChildProcess feeder = StartProgram(
        L"rvfeeder", {L"--test-card", L"--size", L"320x180", L"--rate", L"30", L"--pipe", camera.PipeName()});
    camera.Start();
    EXPECT_TRUE(m_log.WaitForLine("PIPE geometry mismatch: wire 320x180, advertised 640x360 - pattern"))
        << m_log.Text();
    EXPECT_EQ(feeder.Output().find("lost the camera"), std::string::npos) << feeder.Output();
}

TEST_F(RvFeederCamera, PicturesThatAreTooLongGetTheProducerDroppedAndToldWhy) {
    Camera camera(m_module, {.geometry = L"320x180@30/1"});
    ChildProcess feeder = StartProgram(
        L"rvfeeder", {L"--test-card", L"--size", L"640x360", L"--rate", L"30", L"--pipe", camera.PipeName()});
    camera.Start();
    EXPECT_TRUE(
        feeder.WaitForOutput("rvfeeder: the camera drops every connection at once: most likely its pictures are "
                             "smaller than the 640x360 sent here"))
        << feeder.Output();
    EXPECT_TRUE(m_log.Contains("oversized frame refused before allocation: wire declared 345600 bytes (640x360)"))
        << m_log.Text();
}

}  // namespace
}  // namespace ravlo::test
