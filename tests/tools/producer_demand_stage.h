// A producer that listens for a camera's demand, and a clock for it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "gate/gate_pipe.h"
#include "support/import_hooks.h"
#include "tools/producer_stage.h"

namespace ravlo::test {

using OpenHook = RAVLO_HOOK(CreateFileW);
using ClockHook = RAVLO_HOOK(GetTickCount64);
using ReadHook = RAVLO_HOOK(ReadFile);

/// Record number 42, 12 ms after the 1260th request, as the frame-pipe document has it.
inline constexpr std::string_view kRecord42{"GATE\x01\0\0\0\x2A\0\0\0\0\0\0\0\x0C\0\0\0\0\0\0\0\xEC\x04\0\0\0\0\0\0",
                                            32};

/// A producer that is connected to a camera, whose gate each test stages for itself.
class ProducerDemand : public ::testing::Test {
protected:
    ProducerDemand() : m_clock(ThisProgram()) { RunClock(); }
    ~ProducerDemand() override { RvGatePipeClose(m_gate); }

    /// A camera that takes the producer's connection, without which nothing is asked about its demand.
    void ServeFramesAndConnect() {
        m_camera = std::make_unique<FrameSide>(m_name);
        ASSERT_EQ(RAVLO_OK, ravlo_producer_connect(m_producer.get(), 0));
        ASSERT_TRUE(m_camera->WaitForClient());
    }
    void SetUp() override { ServeFramesAndConnect(); }
    void Serve() { ASSERT_TRUE(RvGatePipeCreate(m_gate, CurrentUserSid(), m_gateName.c_str())) << m_gate.lastError; }
    bool Publish(std::uint64_t idleMs, std::uint64_t requests) { return RvGatePipePublish(m_gate, idleMs, requests); }
    /// Lets time go by for the library, and a little more than needed for this program's own waits.
    void Pass(std::uint64_t milliseconds) { m_passed += milliseconds; }
    /// From now on only Pass moves the time; no wait of this program may be left.
    void StopClock() {
        m_clock.Replace([this, now = ClockHook::CallOriginal()] { return now + m_passed; });
    }
    void RunClock() {
        m_clock.Replace([this] { return ClockHook::CallOriginal() + m_passed; });
    }

    ravlo_status Read() { return ravlo_producer_read_demand(m_producer.get(), &m_demand); }
    bool WaitForRecord(std::uint64_t sequence) {
        return WaitUntil([&] { return Read() == RAVLO_OK && m_demand.sequence == sequence; });
    }
    /// The same where the clock stands still.
    bool ReadSoon() {
        for (int i = 0; i < 1000; ++i) {
            if (Read() == RAVLO_OK) {
                return true;
            }
            Sleep(1);
        }
        return false;
    }
    std::uint32_t SystemError() const { return ravlo_producer_system_error(m_producer.get()); }
    void ExpectNothingKnown(std::uint32_t systemError) {
        m_demand = {7, 7, 7, 7};
        EXPECT_EQ(RAVLO_NO_DEMAND, Read());
        EXPECT_EQ(systemError, SystemError());
        EXPECT_EQ(0U, m_demand.sequence + m_demand.idle_ms + m_demand.requests + m_demand.age_ms);
    }

    AnchorGuard m_anchor{CurrentUserSid()};
    const std::wstring m_name = UniquePipeName();
    const std::wstring m_gateName = m_name + L".gate";
    std::uint64_t m_passed = 0;
    ClockHook m_clock;
    std::unique_ptr<FrameSide> m_camera;
    RvGatePipe m_gate;
    ProducerHandle m_producer = OpenProducer(m_name);
    ravlo_demand m_demand{};
};

}  // namespace ravlo::test
