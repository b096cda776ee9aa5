// What rvfeeder.exe sees of the world, staged by a test: the serving ends of a frame pipe and of its gate, and films.
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/clock.h"
#include "pipe/pipe_endpoint.h"
#include "platform/unique_handle.h"
#include "support/camera.h"
#include "support/registry.h"
#include "tools/producer_stage.h"
#include "tools/program.h"

namespace ravlo::test {

struct ReceivedFrame {
    FrameHeader header;
    std::string payload;
    std::int64_t arrived;  ///< steady, 100 ns
};

/// The camera's side of a frame pipe, without a camera.
class FrameServer {
public:
    FrameServer() : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (!m_endpoint.Create(m_name.c_str(), CurrentUserSid())) {
            throw std::runtime_error("the frame pipe cannot be created");
        }
    }

    const std::wstring& Name() const { return m_name; }
    bool WaitForClient(DWORD timeoutMs = kPatienceMs) { return m_endpoint.WaitForClient(timeoutMs); }
    void DropClient() { m_endpoint.DisconnectClient(); }

    /// Takes frames until `count` have come, the client is gone or Stop is called.
    std::vector<ReceivedFrame> Receive(std::size_t count) {
        std::vector<ReceivedFrame> frames;
        while (frames.size() < count) {
            FrameHeader header{};
            if (!RecvFrame(m_endpoint, header, m_buffer, 5'000'000, m_stop.Get())) {
                break;
            }
            frames.push_back({header, std::string(m_buffer.Data(), m_buffer.Data() + m_buffer.Size()), SteadyTicks()});
        }
        return frames;
    }

    void Stop() { SetEvent(m_stop.Get()); }

private:
    std::wstring m_name = UniquePipeName();
    UniqueObject m_stop;
    PipeEndpoint m_endpoint;
    ReceiveBuffer m_buffer;
};

/// A camera that takes every frame of one producer after another, and keeps them.
class FrameTaker {
public:
    FrameTaker() : m_thread([this] { Run(); }) {}
    FrameTaker(const FrameTaker&) = delete;
    FrameTaker& operator=(const FrameTaker&) = delete;
    ~FrameTaker() {
        m_stopped = true;
        m_server.Stop();
        m_thread.join();
    }

    const std::wstring& Name() const { return m_server.Name(); }

    std::vector<ReceivedFrame> Frames() const {
        const std::lock_guard lock(m_mutex);
        return m_frames;
    }
    std::size_t Count() const {
        const std::lock_guard lock(m_mutex);
        return m_frames.size();
    }
    bool WaitForCount(std::size_t count, DWORD timeoutMs = kPatienceMs) const {
        return WaitUntil([&] { return Count() >= count; }, timeoutMs);
    }

private:
    static constexpr DWORD kLookUpMs = 50;

    void Run() {
        while (!m_stopped) {
            if (!m_server.WaitForClient(kLookUpMs)) {
                continue;
            }
            for (auto frame = m_server.Receive(1); !frame.empty(); frame = m_server.Receive(1)) {
                const std::lock_guard lock(m_mutex);
                m_frames.push_back(std::move(frame.front()));
            }
            m_server.DropClient();
        }
    }

    FrameServer m_server;
    mutable std::mutex m_mutex;
    std::vector<ReceivedFrame> m_frames;
    std::atomic<bool> m_stopped{false};
    std::thread m_thread;
};

/// The gate of a camera, with records byte for byte as a camera writes them, one every 100 ms while it runs.
class Gate {
public:
    static constexpr std::uint64_t kNever = 3'600'000;

    /// Says from the beginning that the last request is `idleMs` ago.
    Gate(const std::wstring& framePipe, std::uint64_t idleMs)
        : m_server(framePipe + L".gate", kOwnedBySystem, PIPE_ACCESS_OUTBOUND),
          m_idleMs(idleMs),
          m_thread([this] { Run(); }) {}
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate() {
        m_stopped = true;
        m_thread.join();
    }

    /// Somebody asks for a sample now and again from now on.
    void Watch() {
        m_watched = true;
        m_idleMs = 12;
    }
    /// Nobody has asked for `idleMs`.
    void Leave(std::uint64_t idleMs) {
        m_watched = false;
        m_idleMs = idleMs;
    }
    /// No more records; the pipe stays.
    void FallSilent() { m_silent = true; }

    /// Steady time of the last record that went out.
    std::int64_t LastRecord() const { return m_lastRecord; }

private:
    static constexpr DWORD kPeriodMs = 100;

    static void Append(std::string& bytes, std::uint64_t value, int count) {
        for (int i = 0; i < count; ++i) {
            bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
        }
    }

    void Run() {
        while (!m_stopped) {
            if (!m_silent) {
                m_requests += m_watched ? 3 : 0;
                std::string record = "GATE";
                Append(record, 1, 4);
                Append(record, m_sequence + 1, 8);
                Append(record, m_idleMs, 8);
                Append(record, m_requests, 8);
                if (m_server.Send(record)) {
                    ++m_sequence;
                    m_lastRecord = SteadyTicks();
                }
            }
            Sleep(kPeriodMs);  // the records' own pace
        }
    }

    RawServer m_server;
    std::atomic<std::uint64_t> m_idleMs;
    std::atomic<bool> m_watched{false};
    std::atomic<bool> m_silent{false};
    std::atomic<bool> m_stopped{false};
    std::atomic<std::int64_t> m_lastRecord{0};
    std::uint64_t m_sequence = 0;
    std::uint64_t m_requests = 0;
    std::thread m_thread;
};

/// A film that the test hands out bit by bit.
class FilmPipe {
public:
    FilmPipe()
        : m_written(CreateEventW(nullptr, TRUE, FALSE, nullptr)),
          m_pipe(CreateNamedPipeW(m_name.c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_OVERLAPPED, 0, 1, 4096, 4096, 0,
                                  nullptr)) {
        if (!m_written || !m_pipe) {
            throw std::runtime_error("the film's pipe cannot be created");
        }
    }

    const std::wstring& Name() const { return m_name; }

    bool WaitForReader() {
        OVERLAPPED operation = Operation();
        return ConnectNamedPipe(m_pipe.Get(), &operation) || GetLastError() == ERROR_PIPE_CONNECTED ||
               IsCompleted(operation);
    }

    bool Write(const std::string& bytes) {
        OVERLAPPED operation = Operation();
        return WriteFile(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &operation) ||
               IsCompleted(operation);
    }

private:
    OVERLAPPED Operation() const {
        OVERLAPPED operation{};
        operation.hEvent = m_written.Get();
        return operation;
    }

    bool IsCompleted(OVERLAPPED& operation) {
        DWORD bytes = 0;
        if (GetLastError() != ERROR_IO_PENDING) {
            return false;
        }
        if (WaitForSingleObject(m_written.Get(), kPatienceMs) != WAIT_OBJECT_0) {
            CancelIoEx(m_pipe.Get(), &operation);
        }
        return GetOverlappedResult(m_pipe.Get(), &operation, &bytes, TRUE) != FALSE;
    }

    std::wstring m_name = UniquePipeName() + L"-film";
    UniqueObject m_written;
    UniqueFile m_pipe;
};

/// `count` pictures of 4x2 at `rate` a second; picture k repeats the k-th letter of the alphabet.
inline std::string Film(int count, int rate = 20) {
    std::string film = "YUV4MPEG2 W4 H2 F" + std::to_string(rate) + ":1 Ip C420\n";
    for (int k = 0; k < count; ++k) {
        film += "FRAME\n" + std::string(8, static_cast<char>('a' + k)) + "UVXY";
    }
    return film;
}

class RvFeeder : public ::testing::Test {
protected:
    AnchorGuard m_anchor{CurrentUserSid()};
    TemporaryFolder m_folder;
};

}  // namespace ravlo::test
