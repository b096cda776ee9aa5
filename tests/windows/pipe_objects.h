// What the tests of the pipe objects share: these live in the test program itself, not in the DLL, so hooks on them go
// on the program's own import table.
#pragma once

#include "gate/gate_name.h"
#include "pipe/frame_reader.h"
#include "pipe/pipe_endpoint.h"
#include "platform/unique_handle.h"

#include "support/camera.h"
#include "support/handles.h"
#include "support/pipe_client.h"
#include "support/registry.h"
#include "support/wait.h"

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>

namespace ravlo::test {

/// The module whose imports the objects under test use.
inline HMODULE ThisProgram() {
    return GetModuleHandleW(nullptr);
}

/// A manual-reset event.
inline UniqueObject MakeEvent(bool signalled = false) {
    return UniqueObject(CreateEventW(nullptr, TRUE, signalled ? TRUE : FALSE, nullptr));
}

/// A SID's text in bytes, for expected log lines; SIDs and pipe names are plain ASCII.
inline std::string Narrow(const std::wstring& text) {
    std::string result;
    for (const wchar_t character : text) {
        result += static_cast<char>(character);
    }
    return result;
}

/// The number behind the dot of a name of UniquePipeName, which fits 32 bits.
inline std::uint32_t NumberOf(const std::wstring& pipeName) {
    return static_cast<std::uint32_t>(std::stoul(pipeName.substr(pipeName.rfind(L'.') + 1)));
}

/// The names as types of the product.
inline PipeName ToPipeName(const std::wstring& text) {
    PipeName name;
    text.copy(name.text, kPipeNameCapacity - 1);
    return name;
}

/// A pipe endpoint with its producer connected, on a name of its own.
struct ConnectedPipe {
    ConnectedPipe() {
        if (!endpoint.Create(name.c_str(), CurrentUserSid())) {
            throw std::runtime_error("the pipe cannot be created, error " + std::to_string(endpoint.LastError()));
        }
        if (!client.Connect(name) || !endpoint.WaitForClient(kPatienceMs)) {
            throw std::runtime_error("the producer does not get into the pipe");
        }
    }
    std::wstring name = UniquePipeName();
    PipeEndpoint endpoint;
    PipeClient client;
};

/// Activation attributes that publish one fixed name.
class FixedName final : public ActivationNames {
public:
    explicit FixedName(const std::wstring& name) : m_name(ToPipeName(name)) {}
    ExplicitName ReadNames(PipeName& name, std::uint32_t& hostPid) noexcept override {
        ++reads;
        hostPid = 0;
        name = m_name;
        return ExplicitName::Accepted;
    }
    std::atomic<int> reads{0};

private:
    PipeName m_name;
};

/// Counts what a reader publishes.
class CountingSink final : public FrameSink {
public:
    void PublishFrame(const FrameHeader& header, const std::uint8_t*, std::uint32_t length) noexcept override {
        lastSeq = header.seq;
        lastLength = length;
        ++published;
    }
    void RearmLiveAnnouncement() noexcept override { ++rearmed; }
    std::atomic<int> published{0};
    std::atomic<int> rearmed{0};
    std::atomic<std::uint64_t> lastSeq{0};
    std::atomic<std::uint32_t> lastLength{0};
};

/// A frame reader running on a thread of the test, for one geometry of 64x36.
class RunningReader {
public:
    explicit RunningReader(const std::wstring& pipeName, const AdvertisedSize& size = {64, 36, 3456})
        : names(pipeName), reader(names, sink, size) {}
    ~RunningReader() { Stop(); }
    RunningReader(const RunningReader&) = delete;
    RunningReader& operator=(const RunningReader&) = delete;

    void Start() {
        ResetEvent(m_stop.Get());
        m_thread = std::thread([this] { reader.Run(m_stop.Get()); });
    }
    /// Ends the loop and waits for it.
    void Stop() {
        SetEvent(m_stop.Get());
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

    FixedName names;
    CountingSink sink;
    FrameReader reader;

private:
    UniqueObject m_stop = MakeEvent();
    std::thread m_thread;
};

}  // namespace ravlo::test
