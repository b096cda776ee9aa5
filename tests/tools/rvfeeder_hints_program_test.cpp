// rvfeeder.exe when a camera does not take what it is given, or nobody may write to it.
#include "tools/feeder_stage.h"

#include <gtest/gtest.h>

#include <memory>

namespace ravlo::test {
namespace {

/// The camera that nobody asks for a picture, which the program sees only after five seconds. They pass while the other
/// tests run.
class UnwatchedCamera {
public:
    UnwatchedCamera()
        : m_feeder(StartProgram(L"rvfeeder", {m_folder.Write(L"film.y4m", Film(26, 20)), L"--loop", L"--always",
                                              L"--pipe", m_camera.Name(), L"--frames", L"130"})) {}

    /// When the program has sent its last picture.
    ProgramResult Finish() { return FinishProgram(m_feeder); }
    std::size_t Count() const { return m_camera.Count(); }
    bool WaitForCount(std::size_t count) const { return m_camera.WaitForCount(count); }

private:
    AnchorGuard m_anchor{CurrentUserSid()};
    TemporaryFolder m_folder;
    FrameTaker m_camera;
    Gate m_gate{m_camera.Name(), Gate::kNever};
    ChildProcess m_feeder;
};

class RvFeederHints : public RvFeeder {
protected:
    static void SetUpTestSuite() { s_unwatched = std::make_unique<UnwatchedCamera>(); }
    static void TearDownTestSuite() { s_unwatched.reset(); }

    static std::unique_ptr<UnwatchedCamera> s_unwatched;
};

std::unique_ptr<UnwatchedCamera> RvFeederHints::s_unwatched;

std::size_t CountOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

TEST_F(RvFeederHints, AProducerThatIsDroppedThreeTimesAtOnceIsToldWhyAndTriesLessOften) {
    FrameServer server;
    ChildProcess feeder = StartProgram(L"rvfeeder", {L"--loop", m_folder.Write(L"film.y4m", Film(26, 50)), L"--pipe",
                                                     server.Name(), L"--seconds", L"30"});
    std::int64_t dropped = 0;
    for (int k = 0; k < 3; ++k) {
        ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
        ASSERT_EQ(server.Receive(1).size(), 1U) << feeder.Output();
        server.DropClient();
        dropped = SteadyTicks();
    }
    ASSERT_TRUE(
        feeder.WaitForOutput("rvfeeder: the camera drops every connection at once: most likely its pictures are "
                             "smaller than the 4x2 sent here"))
        << feeder.Output();
    ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
    EXPECT_GT(SteadyTicks() - dropped, 8'000'000) << "once a second from now on";
    server.DropClient();
    ASSERT_TRUE(server.WaitForClient());
    const std::string output = feeder.Output();
    EXPECT_EQ(CountOf(output, "the camera drops every connection at once"), 1U) << output;
    EXPECT_EQ(CountOf(output, "connected to "), 3U) << "what repeats itself is no news: " << output;
    EXPECT_NE(output.find("\"rvsetup doctor\""), std::string::npos);
    EXPECT_NE(output.find("--expect WxH"), std::string::npos);
}

TEST_F(RvFeederHints, APipeThatDoesNotTrustTheUserIsSaidOnceAndTriedOn) {
    // Owned by the administrators, who are nobody that may own a camera's pipe.
    const std::wstring name = UniquePipeName();
    RawServer stranger(name, kOwnedByAdministrators, PIPE_ACCESS_INBOUND);
    ChildProcess feeder = StartProgram(
        L"rvfeeder", {m_folder.Write(L"film.y4m", Film(1)), L"--pipe", name, L"--json", L"--seconds", L"1.5"});
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 4) << result.output;
    EXPECT_EQ(CountOf(result.output,
                      " is owned by an account that is neither the camera service nor the authorized "
                      "user; no frame is sent to it."),
              1U)
        << result.output;
    EXPECT_NE(result.output.find("\"state\":\"untrusted_owner\""), std::string::npos) << result.output;
    EXPECT_EQ(stranger.BytesUnread(), 0U);
}

TEST_F(RvFeederHints, ACameraThatReadsNothingIsLeftWhenTheWriteHasTakenTooLong) {
    FrameServer server;
    ChildProcess feeder = StartProgram(L"rvfeeder", {L"--test-card", L"--size", L"1920x1080", L"--pipe", server.Name(),
                                                     L"--write-timeout-ms", L"100", L"--timeout", L"0.5"});
    ASSERT_TRUE(server.WaitForClient()) << feeder.Output();
    EXPECT_TRUE(
        feeder.WaitForOutput("rvfeeder: lost the camera: it has not taken a picture within 100 ms; connecting again\n"))
        << feeder.Output();
    server.DropClient();
    EXPECT_TRUE(server.WaitForClient()) << "and connected anew: " << feeder.Output();
}

// The last, because what it looks at takes longest.
TEST_F(RvFeederHints, WithAlwaysNothingIsHeldBackAndTheUserIsToldOnceThatNobodyAsks) {
    const ProgramResult result = s_unwatched->Finish();
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(s_unwatched->WaitForCount(130)) << s_unwatched->Count() << " pictures\n" << result.output;
    const std::string hint = " has been asked for no picture so far. Open it in a program that shows cameras. ";
    const std::size_t at = result.output.find(hint);
    ASSERT_NE(at, std::string::npos) << result.output;
    EXPECT_NE(result.output.find("its pictures are not 4x2 (\"geometry mismatch\" in the camera's log;", at),
              std::string::npos);
    EXPECT_EQ(result.output.find(hint, at + 1), std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("nobody watches"), std::string::npos) << result.output;
}

}  // namespace
}  // namespace ravlo::test
