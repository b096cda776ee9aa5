// The examples of the producer library, run as programs.
#include <gtest/gtest.h>

#include <vector>

#include "gate/gate_pipe.h"
#include "tools/producer_stage.h"
#include "tools/program.h"

namespace ravlo::test {
namespace {

class Examples : public ::testing::Test {
protected:
    AnchorGuard m_anchor{CurrentUserSid()};
    const std::wstring m_name = UniquePipeName();
};

TEST_F(Examples, TheMinimalProducerSendsARampThatMovesAndComesBackAfterADrop) {
    FrameSide camera(m_name);
    ChildProcess example = StartProgram(L"minimal_producer", {L"8", L"2", L"600", m_name});
    ASSERT_TRUE(camera.WaitForClient()) << example.Output();
    const std::vector<std::uint8_t> header = camera.Take(40);
    ASSERT_EQ(40U, header.size());
    EXPECT_EQ(8, header[8]);
    EXPECT_EQ(2, header[12]);
    EXPECT_EQ(24, header[16]);
    const std::vector<std::uint8_t> first = camera.Take(24);
    EXPECT_EQ((std::vector<std::uint8_t>{16, 17, 18, 19, 20,  21,  22,  23,  16,  17,  18,  19,
                                         20, 21, 22, 23, 128, 128, 128, 128, 128, 128, 128, 128}),
              first);
    camera.Take(40);
    EXPECT_EQ(18, camera.Take(24).front());
    camera.Drop();
    ASSERT_TRUE(camera.WaitForClient()) << example.Output();
    EXPECT_EQ(40U, camera.Take(40).size());
    example.Kill();
    EXPECT_NE(example.Output().find(" is lost: the camera has closed the connection, or there was none"),
              std::string::npos)
        << example.Output();
}

TEST_F(Examples, TheGeneratedFramesAreDrawnOnlyWhileSomebodyWatches) {
    FrameSide camera(m_name);
    RvGatePipe gate;
    ASSERT_TRUE(RvGatePipeCreate(gate, CurrentUserSid(), (m_name + L".gate").c_str()));
    ChildProcess example = StartProgram(L"generated_frames", {L"64", L"64", L"1", m_name});
    ASSERT_TRUE(camera.WaitForClient()) << example.Output();
    EXPECT_EQ(40U, camera.Take(40).size());
    EXPECT_EQ(6144U, camera.Take(6144).size());
    ASSERT_TRUE(WaitUntil([&] { return RvGatePipePublish(gate, 2000, 1); }));
    EXPECT_EQ(0U, example.Wait().value_or(99)) << example.Output();
    RvGatePipeClose(gate);
    const std::string output = example.Output();
    unsigned sent = 0;
    unsigned spared = 0;
    ASSERT_EQ(2, std::sscanf(output.c_str(), "%u frames sent, %u spared because nobody watched", &sent, &spared))
        << output;
    EXPECT_EQ(30U, sent + spared);
    EXPECT_GE(sent, 1U);
    EXPECT_GE(spared, 1U) << output;
}

TEST_F(Examples, WrongUsageAndAPipeOfAStrangerAreSaidInASentence) {
    const struct {
        const wchar_t* program;
        Arguments arguments;
        int code;
        const char* output;
    } cases[] = {
        {L"minimal_producer", {L"3", L"2"}, 1, "giving up: an argument is wrong"},
        {L"minimal_producer", {L"8", L"2", L"1", L"camera"}, 1, "giving up: an argument is wrong"},
        {L"generated_frames", {L"64"}, 2, "usage: generated_frames [WIDTH HEIGHT [SECONDS [PIPE]]]"},
        {L"generated_frames", {L"64", L"64", L"1", m_name, L"x"}, 2, "usage: generated_frames "},
        {L"generated_frames", {L"64", L"63"}, 2, "no camera has this size: width and height are even, from 2 to 16384"},
        {L"generated_frames", {L"64", L"64", L"1", L"camera"}, 1, "giving up: an argument is wrong"},
        {L"minimal_producer",
         {L"64", L"64", L"1", m_name},
         1,
         "giving up: the camera's pipe belongs to an account that is not trusted"},
        {L"generated_frames",
         {L"64", L"64", L"1", m_name},
         1,
         "giving up: the camera's pipe belongs to an account that is not trusted"},
    };
    for (const auto& wrong : cases) {
        const RawServer stranger(m_name, kOwnedByAdministrators, PIPE_ACCESS_INBOUND);
        ChildProcess example = StartProgram(wrong.program, wrong.arguments);
        EXPECT_EQ(static_cast<DWORD>(wrong.code), example.Wait(2 * kPatienceMs).value_or(99)) << wrong.output;
        EXPECT_EQ(wrong.output, example.Output().substr(0, std::string(wrong.output).size()));
    }
}

}  // namespace
}  // namespace ravlo::test
