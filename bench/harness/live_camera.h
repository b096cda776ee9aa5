#pragma once

#include <mfidl.h>

#include <string>

#include "harness/frame_writer.h"
#include "support/camera.h"
#include "support/com.h"
#include "support/module.h"
#include "support/registry.h"

namespace ravlo::bench {

/// What a process needs before it loads the module: an anchor that names its own user, in a registry of its own.
struct CameraGround {
    test::PrivateLocalMachine registry;
    test::AnchorGuard anchor{test::CurrentUserSid()};
};

/// The geometry as the camera's activation attribute wants it: "1920x1080@60/1".
std::wstring GeometryText(const FrameGeometry& geometry);

/// One RequestSample and the event that it queued, without a look at the picture. Throws on failure.
test::ComPtr<IMFSample> PullSample(IMFMediaStream* stream);

/// The sample of the MEMediaSample event that a stream has queued. Throws when there is none.
test::ComPtr<IMFSample> TakeSample(IMFMediaStream* stream);

/// What `look` makes of a sample's bytes where they lie: called with their address and number. Throws on failure.
template <class Look>
auto LookAtSample(IMFSample* sample, Look&& look) {
    test::ComPtr<IMFMediaBuffer> buffer;
    test::Require(sample->GetBufferByIndex(0, buffer.Put()), "GetBufferByIndex");
    BYTE* bytes = nullptr;
    DWORD length = 0;
    test::Require(buffer->Lock(&bytes, nullptr, &length), "IMFMediaBuffer::Lock");
    const auto seen = look(static_cast<const BYTE*>(bytes), length);
    buffer->Unlock();
    return seen;
}

/// What a sample holds: its stamp, or number 0 for the test pattern or anything that is not one whole frame.
FrameStamp StampOfSample(IMFSample* sample, const FrameGeometry& geometry);

}  // namespace ravlo::bench
