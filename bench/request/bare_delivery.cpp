#include "request/bare_delivery.h"

#include <mfapi.h>

#include <cstring>
#include <stdexcept>

#include "harness/bare_sample.h"
#include "harness/live_camera.h"
#include "platform/timer_flags.h"

namespace ravlo::bench {
namespace {

constexpr std::int64_t kUnitsPerMs = 10'000;
/// The wait's own time-out is a net, well behind the timer.
constexpr DWORD kNetMs = 20;

}  // namespace

BareWait::BareWait()
    : m_timer(CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                     SYNCHRONIZE | TIMER_MODIFY_STATE)) {
    if (!m_timer) {
        throw std::runtime_error("the timer of the bare wait cannot be created");
    }
}

std::int64_t BareWait::WaitUntil(std::int64_t due, const std::array<HANDLE, 2>& others) {
    if (others[0] == nullptr || others[1] == nullptr) {
        throw std::runtime_error("the camera has not waited yet");
    }
    const HANDLE handles[] = {others[0], others[1], m_timer.Get()};
    std::int64_t wokenAt = 0;
    for (;;) {
        const std::int64_t remainder = due - MFGetSystemTime();
        if (remainder <= 0) {
            return wokenAt;
        }
        LARGE_INTEGER dueTime{};
        dueTime.QuadPart = -remainder;  // negative: relative to now
        if (!SetWaitableTimer(m_timer.Get(), &dueTime, 0, nullptr, nullptr, FALSE)) {
            throw std::runtime_error("the timer of the bare wait cannot be armed");
        }
        WaitForMultipleObjects(3, handles, FALSE, static_cast<DWORD>(remainder / kUnitsPerMs) + kNetMs);
        wokenAt = MFGetSystemTime();
    }
}

BareSample::BareSample(const FrameGeometry& geometry) : m_geometry(geometry), m_frame(FrameBytes(geometry)) {
}

test::ComPtr<IMFSample> BareSample::Build(std::int64_t time) {
    return BuildBareSample(m_geometry, m_frame.Data(), time);
}

void BareSample::RenewFrame(IMFSample* from) {
    LookAtSample(from, [this](const BYTE* bytes, DWORD) { return std::memcpy(m_frame.Data(), bytes, m_frame.Size()); });
}

}  // namespace ravlo::bench
