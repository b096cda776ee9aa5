#include "stream/sample_builder.h"

#include <mfapi.h>

#include "platform/com_ptr.h"
#include "stream/test_pattern.h"

namespace ravlo {
namespace {

bool TryCopyLiveFrame(const PacingDecision& decision, const FrameGeometry& geometry, FramePool& pool, BYTE* data,
                      DWORD length) noexcept {
    const std::uint64_t frameBytes = FrameBytes(geometry);
    const CopyDescriptor copy =
        DescribeCopy(geometry, data, length, static_cast<std::int32_t>(DefaultStride(geometry)));
    return CanReceiveFrame(copy) && pool.Capacity() >= frameBytes &&
           pool.Consume(GetTickCount64(), kFreshnessMs, decision.liveStamp, frameBytes, copy);
}

HRESULT FillPicture(const PacingDecision& decision, const FrameGeometry& geometry, FramePool& pool, BYTE* data,
                    DWORD length) noexcept {
    if (decision.kind == PacingKind::Live && TryCopyLiveFrame(decision, geometry, pool, data, length)) {
        return S_OK;
    }
    switch (PaintTestPattern(decision.sampleIndex, data, length, static_cast<std::int32_t>(DefaultStride(geometry)),
                             geometry)) {
        case PatternResult::Painted:
            return S_OK;
        case PatternResult::NullBuffer:
            return E_POINTER;
        default:
            return E_INVALIDARG;
    }
}

HRESULT FillBuffer(const PacingDecision& decision, const FrameGeometry& geometry, FramePool& pool,
                   IMFMediaBuffer* buffer) noexcept {
    BYTE* data = nullptr;
    DWORD maxLength = 0;
    HRESULT hr = buffer->Lock(&data, &maxLength, nullptr);
    if (FAILED(hr)) {
        return hr;
    }
    hr = maxLength < FrameBytes(geometry) ? E_UNEXPECTED : FillPicture(decision, geometry, pool, data, maxLength);
    const HRESULT unlocked = buffer->Unlock();
    return SUCCEEDED(hr) ? unlocked : hr;
}

}  // namespace

HRESULT BuildSample(const PacingDecision& decision, const FrameGeometry& geometry, FramePool& pool,
                    IMFSample** sample) noexcept {
    *sample = nullptr;
    const auto frameBytes = static_cast<DWORD>(FrameBytes(geometry));
    ComPtr<IMFSample> built;
    ComPtr<IMFMediaBuffer> buffer;
    HRESULT hr = MFCreateSample(built.Put());
    if (SUCCEEDED(hr)) {
        hr = MFCreateMemoryBuffer(frameBytes, buffer.Put());
    }
    if (SUCCEEDED(hr)) {
        hr = FillBuffer(decision, geometry, pool, buffer.Get());
    }
    if (SUCCEEDED(hr)) {
        hr = buffer->SetCurrentLength(frameBytes);
    }
    if (SUCCEEDED(hr)) {
        hr = built->AddBuffer(buffer.Get());
    }
    if (SUCCEEDED(hr)) {
        hr = built->SetSampleTime(decision.sampleTime);
    }
    if (SUCCEEDED(hr)) {
        hr = built->SetSampleDuration(SampleDuration(geometry));
    }
    if (SUCCEEDED(hr)) {
        hr = built->SetUINT32(MFSampleExtension_CleanPoint, TRUE);
    }
    if (SUCCEEDED(hr)) {
        *sample = built.Detach();
    }
    return hr;
}

}  // namespace ravlo
