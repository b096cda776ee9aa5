#include "harness/bare_sample.h"

#include <mfapi.h>

#include <cstring>

#include "platform/mf_ids.h"

namespace ravlo::bench {

test::ComPtr<IMFSample> BuildBareSample(const FrameGeometry& geometry, const std::uint8_t* frame, std::int64_t time) {
    const auto bytes = static_cast<DWORD>(FrameBytes(geometry));
    test::ComPtr<IMFSample> sample;
    test::ComPtr<IMFMediaBuffer> buffer;
    test::Require(MFCreateSample(sample.Put()), "MFCreateSample");
    test::Require(MFCreateMemoryBuffer(bytes, buffer.Put()), "MFCreateMemoryBuffer");
    BYTE* data = nullptr;
    test::Require(buffer->Lock(&data, nullptr, nullptr), "IMFMediaBuffer::Lock");
    std::memcpy(data, frame, bytes);
    test::Require(buffer->Unlock(), "IMFMediaBuffer::Unlock");
    test::Require(buffer->SetCurrentLength(bytes), "SetCurrentLength");
    test::Require(sample->AddBuffer(buffer.Get()), "AddBuffer");
    test::Require(sample->SetSampleTime(time), "SetSampleTime");
    test::Require(sample->SetSampleDuration(SampleDuration(geometry)), "SetSampleDuration");
    test::Require(sample->SetUINT32(MFSampleExtension_CleanPoint, TRUE), "SetUINT32");
    return sample;
}

}  // namespace ravlo::bench
