#include "harness/live_camera.h"

#include <mfapi.h>

namespace ravlo::bench {

std::wstring GeometryText(const FrameGeometry& geometry) {
    return std::to_wstring(geometry.width) + L"x" + std::to_wstring(geometry.height) + L"@" +
           std::to_wstring(geometry.rateNumerator) + L"/" + std::to_wstring(geometry.rateDenominator);
}

test::ComPtr<IMFSample> PullSample(IMFMediaStream* stream) {
    test::Require(stream->RequestSample(nullptr), "RequestSample");
    return TakeSample(stream);
}

test::ComPtr<IMFSample> TakeSample(IMFMediaStream* stream) {
    test::ComPtr<IMFMediaEvent> event;
    test::Require(stream->GetEvent(MF_EVENT_FLAG_NO_WAIT, event.Put()), "GetEvent");
    test::PropVariant value;
    test::Require(event->GetValue(value.Put()), "IMFMediaEvent::GetValue");
    if (value.Type() != VT_UNKNOWN) {
        test::ThrowFailed("the event of a sample", E_UNEXPECTED);
    }
    return test::ComPtr<IUnknown>::Share(value->punkVal).As<IMFSample>();
}

FrameStamp StampOfSample(IMFSample* sample, const FrameGeometry& geometry) {
    return LookAtSample(sample, [&](const BYTE* bytes, DWORD length) {
        return length == FrameBytes(geometry) ? ReadStamp(bytes, geometry) : FrameStamp{};
    });
}

}  // namespace ravlo::bench
