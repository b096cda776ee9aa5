#include "sample_watch.h"

#include <mfapi.h>
#include <mfreadwrite.h>

#include <algorithm>
#include <string>
#include <thread>

#include "platform/com_ptr.h"
#include "stage.h"

namespace ravlo::standin {
namespace {

constexpr DWORD kFarewellMs = 300;

using CreateReaderFunction = HRESULT(WINAPI*)(IMFMediaSource*, IMFAttributes*, IMFSourceReader**);

/// Resolved here, so that programs which only want a sensor profile do not load the source reader.
CreateReaderFunction FindCreateReader() {
    const HMODULE library = LoadLibraryExW(L"mfreadwrite.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    return library == nullptr ? nullptr
                              : reinterpret_cast<CreateReaderFunction>(reinterpret_cast<void*>(
                                    GetProcAddress(library, "MFCreateSourceReaderFromMediaSource")));
}

std::wstring RangeText(const BYTE* begin, const BYTE* end) {
    const auto [least, largest] = std::minmax_element(begin, end);
    return std::to_wstring(*least) + L".." + std::to_wstring(*largest);
}

void RecordSample(IMFSample& sample) {
    ComPtr<IMFMediaBuffer> buffer;
    BYTE* bytes = nullptr;
    DWORD length = 0;
    if (FAILED(sample.ConvertToContiguousBuffer(buffer.Put())) || FAILED(buffer->Lock(&bytes, nullptr, &length))) {
        Record(L"# sample cannot be read");
        return;
    }
    const DWORD luma = length / 3 * 2;
    if (luma != 0) {
        Record(L"# sample bytes=" + std::to_wstring(length) + L" luma=" + RangeText(bytes, bytes + luma) + L" chroma=" +
               RangeText(bytes + luma, bytes + length));
    }
    buffer->Unlock();
}

}  // namespace

SampleWatch::SampleWatch(IMFMediaSource* source) : m_state(std::make_shared<State>()) {
    m_state->finished = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    source->AddRef();
    std::thread([source, state = m_state] {
        Run(source, state);
        SetEvent(state->finished);
    }).detach();
}

SampleWatch::~SampleWatch() {
    m_state->stop.store(true);
    WaitForSingleObject(m_state->finished, kFarewellMs);
}

void SampleWatch::Run(IMFMediaSource* source, const std::shared_ptr<State>& state) {
    const ComPtr<IMFMediaSource> owned = ComPtr<IMFMediaSource>::Attach(source);
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const CreateReaderFunction createReader = FindCreateReader();
    ComPtr<IMFSourceReader> reader;
    HRESULT hr = createReader == nullptr ? E_FAIL : createReader(source, nullptr, reader.Put());
    while (SUCCEEDED(hr) && !state->stop.load()) {
        ComPtr<IMFSample> sample;
        DWORD flags = 0;
        LONGLONG time = 0;
        hr = reader->ReadSample(static_cast<DWORD>(MF_SOURCE_READER_FIRST_VIDEO_STREAM), 0, nullptr, &flags, &time,
                                sample.Put());
        if (sample) {
            RecordSample(*sample.Get());
        }
        if ((flags & (MF_SOURCE_READERF_ERROR | MF_SOURCE_READERF_ENDOFSTREAM)) != 0) {
            break;
        }
    }
    reader.Reset();
    Record(L"# no more samples");
    CoUninitialize();
}

}  // namespace ravlo::standin
