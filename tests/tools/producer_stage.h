// What a camera's two pipes look like to the producer library, without a camera.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <sddl.h>

#include "pipe/pipe_endpoint.h"
#include "platform/local_memory.h"
#include "platform/unique_handle.h"
#include "ravlo/producer.h"
#include "support/camera.h"
#include "support/registry.h"
#include "support/wait.h"

namespace ravlo::test {

inline HMODULE ThisProgram() {
    return GetModuleHandleW(nullptr);
}

/// A pipe name as the producer library takes it; it has ASCII characters only.
inline std::string Narrow(const std::wstring& name) {
    std::string result;
    for (const wchar_t unit : name) {
        result += static_cast<char>(unit);
    }
    return result;
}

struct ProducerCloser {
    void operator()(ravlo_producer* producer) const { ravlo_producer_close(producer); }
};
using ProducerHandle = std::unique_ptr<ravlo_producer, ProducerCloser>;

inline ProducerHandle OpenProducer(const std::wstring& name) {
    ravlo_producer* producer = nullptr;
    if (ravlo_producer_open(Narrow(name).c_str(), &producer) != RAVLO_OK) {
        throw std::runtime_error("no producer");
    }
    return ProducerHandle(producer);
}

/// The camera's side of a frame pipe, as the module itself serves it.
class FrameSide {
public:
    explicit FrameSide(const std::wstring& name) : m_stop(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        if (!endpoint.Create(name.c_str(), CurrentUserSid())) {
            throw std::runtime_error("no frame pipe, error " + std::to_string(endpoint.LastError()));
        }
    }

    bool WaitForClient() { return endpoint.WaitForClient(kPatienceMs); }

    /// Drops the producer and listens again.
    void Drop() {
        endpoint.DisconnectClient();
        endpoint.PollListen();
    }

    /// The next `count` bytes, or fewer when the producer closes the pipe before.
    std::vector<std::uint8_t> Take(std::uint32_t count) {
        std::vector<std::uint8_t> bytes(count);
        std::uint32_t done = 0;
        endpoint.ReadExact(bytes.data(), count, m_stop.Get(), done);
        bytes.resize(done);
        return bytes;
    }

    PipeEndpoint endpoint;

private:
    UniqueObject m_stop;
};

/// A server of a test's own making, with an owner of its choice; it sends any bytes and reads none.
class RawServer {
public:
    RawServer(const std::wstring& name, const wchar_t* sddl, DWORD access)
        : m_event(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
        LocalMemory<PSECURITY_DESCRIPTOR> descriptor;
        ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl, SDDL_REVISION_1, descriptor.Put(), nullptr);
        SECURITY_ATTRIBUTES attributes{sizeof attributes, descriptor.Get(), FALSE};
        m_pipe.Reset(CreateNamedPipeW(name.c_str(), access | FILE_FLAG_OVERLAPPED, 0, 1, kBufferBytes, kBufferBytes, 0,
                                      &attributes));
        if (descriptor.Get() == nullptr || !m_pipe) {
            throw std::runtime_error("no pipe, error " + std::to_string(GetLastError()));
        }
    }

    static constexpr DWORD kBufferBytes = 4096;

    /// Sends what fits into the pipe's buffer.
    bool Send(std::string_view bytes) {
        OVERLAPPED operation{};
        operation.hEvent = m_event.Get();
        DWORD done = 0;
        if (!WriteFile(m_pipe.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, &operation) &&
            GetLastError() != ERROR_IO_PENDING) {
            return false;
        }
        if (WaitForSingleObject(m_event.Get(), kPatienceMs) != WAIT_OBJECT_0) {
            CancelIoEx(m_pipe.Get(), &operation);
        }
        return GetOverlappedResult(m_pipe.Get(), &operation, &done, TRUE) && done == bytes.size();
    }

    /// Drops the client and lets the next one in.
    void Drop() {
        DisconnectNamedPipe(m_pipe.Get());
        m_listen = OVERLAPPED{};
        m_listen.hEvent = m_event.Get();
        ConnectNamedPipe(m_pipe.Get(), &m_listen);
    }

    /// Waits until a client has come after Drop.
    bool WaitForClient() const { return WaitForSingleObject(m_event.Get(), kPatienceMs) == WAIT_OBJECT_0; }

    DWORD BytesUnread() const {
        DWORD waiting = 0;
        PeekNamedPipe(m_pipe.Get(), nullptr, 0, nullptr, &waiting, nullptr);
        return waiting;
    }

private:
    UniqueObject m_event;
    OVERLAPPED m_listen{};
    UniqueFile m_pipe;
};

inline constexpr wchar_t kOwnedBySystem[] = L"O:SYD:(A;;GA;;;WD)";
inline constexpr wchar_t kOwnedByAdministrators[] = L"O:BAD:(A;;GA;;;WD)";

}  // namespace ravlo::test
