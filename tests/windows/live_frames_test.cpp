#include <gtest/gtest.h>

#include "support/camera.h"
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/pattern.h"
#include "support/pipe_client.h"

namespace ravlo::test {
namespace {

class LiveFrames : public ModuleTest {};

TEST_F(LiveFrames, AFrameOfTheProducerComesOutOfTheCameraByteForByte) {
    Camera camera(m_module, {.geometry = L"320x180@30/1"});
    PipeClient producer;
    ASSERT_TRUE(producer.Connect(camera.PipeName())) << m_log.Text();
    camera.Start();
    ASSERT_TRUE(producer.SendFrame(320, 180, 77));
    ASSERT_TRUE(m_log.WaitForLine("PIPE delivering live frames 320x180 seq=77")) << m_log.Text();
    EXPECT_EQ(camera.Pull().bytes, MakeFrame(320, 180, 77));
}

TEST_F(LiveFrames, WithoutAProducerTheCameraServesTheMovingTestPattern) {
    Camera camera(m_module, {.geometry = L"320x180@30/1"});
    camera.Start();
    for (std::uint32_t index = 0; index < 10; ++index) {
        EXPECT_EQ(camera.Pull().bytes, TestPattern(index, 320, 180)) << index;
    }
}

}  // namespace
}  // namespace ravlo::test
