#pragma once

#include <windows.h>

#include <mfobjects.h>

#include <array>
#include <cstdint>

#include "harness/page_buffer.h"
#include "platform/unique_handle.h"
#include "stream/geometry.h"
#include "support/com.h"

namespace ravlo::bench {

/// The floor of the camera's clock: a high-resolution timer armed for the remaining time and a wait for any of three
/// handles, again and again until the time has come. The other two are those that the camera's own wait has beside its
/// timer, so that each arriving frame ends this wait too.
class BareWait {
public:
    BareWait();

    /// Waits until `due` (MFGetSystemTime, 100 ns) and returns the time at which the last wait came back; 0 when `due`
    /// had passed before the first began.
    std::int64_t WaitUntil(std::int64_t due, const std::array<HANDLE, 2>& others);

private:
    UniqueObject m_timer;
};

/// The floor of building a sample (BuildBareSample), from a frame of its own.
class BareSample {
public:
    explicit BareSample(const FrameGeometry& geometry);

    test::ComPtr<IMFSample> Build(std::int64_t time);

    /// Writes the frame that Build copies anew, as the module's reader writes a slot between two samples: both find
    /// their frame in the same state of the caches.
    void RenewFrame(IMFSample* from);

private:
    FrameGeometry m_geometry;
    PageBuffer m_frame;
};

}  // namespace ravlo::bench
