#pragma once

#include <windows.h>

#include <mfidl.h>

#include <atomic>
#include <memory>

namespace ravlo::standin {

/// Pulls samples from a source on a thread of its own and records each: its size and the least and largest value of its
/// luma and of its chroma bytes. A picture of one colour so tells that it arrived whole.
class SampleWatch {
public:
    explicit SampleWatch(IMFMediaSource* source);
    SampleWatch(const SampleWatch&) = delete;
    SampleWatch& operator=(const SampleWatch&) = delete;
    /// Waits a moment for the sample on its way; a thread that stays in a read is left to the end of the process.
    ~SampleWatch();

private:
    struct State {
        std::atomic<bool> stop{false};
        HANDLE finished = nullptr;
        ~State() { CloseHandle(finished); }
    };
    static void Run(IMFMediaSource* source, const std::shared_ptr<State>& state);

    std::shared_ptr<State> m_state;
};

}  // namespace ravlo::standin
