#include "ravlo/producer.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <optional>
#include <vector>

#include "demand_reader.h"
#include "pipe/frame_header.h"
#include "pipe/overlapped_io.h"
#include "pipe/pipe_name.h"
#include "pipe/pipe_producer.h"
#include "ravlo/version.h"

struct ravlo_producer {
    explicit ravlo_producer(const ravlo::PipeName& pipeName) noexcept : name(pipeName), demand(pipeName) {}

    const ravlo::PipeName name;
    ravlo::PipeProducer frames;
    ravlo::DemandReader demand;
    std::uint64_t nextSequence = 1;
    DWORD systemError = ERROR_SUCCESS;
    std::vector<std::uint8_t> packed;  ///< the last picture that came in planes; kept for the next
};

namespace {

using namespace ravlo;

constexpr DWORD kRetryMs = 50;

/// The one grammar has ASCII letters only, so every byte of a right name is a character, and any other is wrong.
bool ParseName(const char* text, PipeName& name) noexcept {
    if (text == nullptr) {
        name = PipeNameForPid(0);
        return true;
    }
    const std::size_t length = strnlen(text, kPipeNameCapacity);
    if (length == kPipeNameCapacity) {
        return false;
    }
    std::transform(text, text + length, name.text,
                   [](char unit) { return static_cast<WideChar>(static_cast<unsigned char>(unit)); });
    name.text[length] = 0;
    return RvIsRavloPipeName(name.text);
}

ravlo_status StatusOfOpenError(DWORD error) noexcept {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_BROKEN_PIPE:
        case ERROR_NO_DATA:
        case ERROR_PIPE_NOT_CONNECTED:
            return RAVLO_NO_CAMERA;
        case ERROR_PIPE_BUSY:
            return RAVLO_BUSY;
        case ERROR_ACCESS_DENIED:
            return RAVLO_ACCESS_DENIED;
        case ERROR_INVALID_OWNER:
            return RAVLO_UNTRUSTED_OWNER;
        default:
            return RAVLO_SYSTEM_ERROR;
    }
}

ravlo_status StatusOfWrite(WriteOutcome outcome) noexcept {
    switch (outcome) {
        case WriteOutcome::Ok:
            return RAVLO_OK;
        case WriteOutcome::PeerClosed:
            return RAVLO_DISCONNECTED;
        case WriteOutcome::DeadlineExpired:
            return RAVLO_TIMED_OUT;
        default:
            return RAVLO_SYSTEM_ERROR;
    }
}

ravlo_status Fail(ravlo_producer& producer, ravlo_status status, DWORD error = ERROR_SUCCESS) noexcept {
    producer.systemError = error;
    return status;
}

/// Runs the body of an entry; no exception crosses into C.
template <class Body>
ravlo_status Guarded(ravlo_producer& producer, Body body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return Fail(producer, RAVLO_OUT_OF_MEMORY);
    } catch (...) {
        return Fail(producer, RAVLO_SYSTEM_ERROR);
    }
}

/// A camera has one reader of its demand: whoever sends it no frames must not keep the place.
void Disconnect(ravlo_producer& producer) noexcept {
    producer.frames.Disconnect();
    producer.demand.Leave();
}

/// Why the last try to connect has failed.
DWORD OpenError(const PipeProducer& frames) noexcept {
    // A camera that hangs up while its owner is being read is one that restarts, and no stranger.
    return IsPeerGone(frames.OwnerError()) ? frames.OwnerError() : frames.LastError();
}

ravlo_status Connect(ravlo_producer& producer, std::uint32_t timeoutMs) {
    Disconnect(producer);
    const std::uint64_t start = GetTickCount64();
    for (;;) {
        if (producer.frames.ConnectToServer(producer.name.text, 0)) {
            return RAVLO_OK;
        }
        const DWORD error = OpenError(producer.frames);
        const ravlo_status status = StatusOfOpenError(error);
        const std::uint64_t waited = GetTickCount64() - start;
        if ((status != RAVLO_NO_CAMERA && status != RAVLO_BUSY) || waited >= timeoutMs) {
            return Fail(producer, status, error);
        }
        Sleep(static_cast<DWORD>(std::min<std::uint64_t>(kRetryMs, timeoutMs - waited)));
    }
}

ravlo_status Write(ravlo_producer& producer, std::uint32_t width, std::uint32_t height, const void* nv12,
                   std::uint32_t timeoutMs) {
    const FrameHeader header = MakeFrameHeader(width, height, producer.nextSequence);
    ++producer.nextSequence;
    const WriteOutcome outcome = producer.frames.WriteFrame(header, nv12, timeoutMs);
    if (outcome == WriteOutcome::Ok) {
        return RAVLO_OK;
    }
    Disconnect(producer);
    return Fail(producer, StatusOfWrite(outcome), producer.frames.LastError());
}

std::uint8_t* PackRows(const void* plane, std::size_t stride, std::size_t width, std::size_t rows,
                       std::uint8_t* to) noexcept {
    const auto* from = static_cast<const std::uint8_t*>(plane);
    for (std::size_t row = 0; row < rows; ++row) {
        to = std::copy_n(from + row * stride, width, to);
    }
    return to;
}

}  // namespace

ravlo_status ravlo_producer_open(const char* pipe_name, ravlo_producer** producer) {
    if (producer == nullptr) {
        return RAVLO_INVALID_ARGUMENT;
    }
    *producer = nullptr;
    PipeName name;
    if (!ParseName(pipe_name, name)) {
        return RAVLO_INVALID_ARGUMENT;
    }
    *producer = new (std::nothrow) ravlo_producer(name);
    return *producer != nullptr ? RAVLO_OK : RAVLO_OUT_OF_MEMORY;
}

void ravlo_producer_close(ravlo_producer* producer) {
    delete producer;
}

ravlo_status ravlo_producer_connect(ravlo_producer* producer, uint32_t timeout_ms) {
    if (producer == nullptr) {
        return RAVLO_INVALID_ARGUMENT;
    }
    return Guarded(*producer, [&] { return Connect(*producer, timeout_ms); });
}

void ravlo_producer_disconnect(ravlo_producer* producer) {
    if (producer != nullptr) {
        Disconnect(*producer);
    }
}

int ravlo_producer_is_connected(const ravlo_producer* producer) {
    return producer != nullptr && producer->frames.IsConnected() ? 1 : 0;
}

ravlo_status ravlo_producer_write(ravlo_producer* producer, uint32_t width, uint32_t height, const void* nv12,
                                  uint32_t timeout_ms) {
    if (producer == nullptr) {
        return RAVLO_INVALID_ARGUMENT;
    }
    if (nv12 == nullptr || ravlo_frame_bytes(width, height) == 0) {
        return Fail(*producer, RAVLO_INVALID_ARGUMENT);
    }
    if (!producer->frames.IsConnected()) {
        return Fail(*producer, RAVLO_DISCONNECTED);
    }
    return Guarded(*producer, [&] { return Write(*producer, width, height, nv12, timeout_ms); });
}

ravlo_status ravlo_producer_write_planes(ravlo_producer* producer, uint32_t width, uint32_t height, const void* luma,
                                         size_t luma_stride, const void* chroma, size_t chroma_stride,
                                         uint32_t timeout_ms) {
    if (producer == nullptr) {
        return RAVLO_INVALID_ARGUMENT;
    }
    const std::size_t bytes = ravlo_frame_bytes(width, height);
    if (luma == nullptr || chroma == nullptr || bytes == 0 || luma_stride < width || chroma_stride < width) {
        return Fail(*producer, RAVLO_INVALID_ARGUMENT);
    }
    if (!producer->frames.IsConnected()) {
        return Fail(*producer, RAVLO_DISCONNECTED);
    }
    return Guarded(*producer, [&] {
        producer->packed.resize(bytes);
        std::uint8_t* const end = PackRows(luma, luma_stride, width, height, producer->packed.data());
        PackRows(chroma, chroma_stride, width, height / 2, end);
        return Write(*producer, width, height, producer->packed.data(), timeout_ms);
    });
}

uint64_t ravlo_producer_next_sequence(const ravlo_producer* producer) {
    return producer != nullptr ? producer->nextSequence : 0;
}

ravlo_status ravlo_producer_read_demand(ravlo_producer* producer, ravlo_demand* demand) {
    if (demand != nullptr) {
        *demand = ravlo_demand{};
    }
    if (producer == nullptr) {
        return RAVLO_INVALID_ARGUMENT;
    }
    if (demand == nullptr) {
        return Fail(*producer, RAVLO_INVALID_ARGUMENT);
    }
    if (!producer->frames.IsConnected()) {
        return Fail(*producer, RAVLO_NO_DEMAND, ERROR_PIPE_NOT_CONNECTED);
    }
    return Guarded(*producer, [&] {
        const std::optional<HeardDemand> heard = producer->demand.Poll();
        if (!heard) {
            return Fail(*producer, RAVLO_NO_DEMAND, producer->demand.LastError());
        }
        *demand = {heard->record.sequence, heard->record.idleMs, heard->record.requestCount, heard->ageMs};
        return RAVLO_OK;
    });
}

uint32_t ravlo_producer_system_error(const ravlo_producer* producer) {
    return producer != nullptr ? producer->systemError : 0;
}

const char* ravlo_status_text(ravlo_status status) {
    static constexpr const char* kTexts[] = {
        "done",
        "an argument is wrong",
        "there is not enough memory",
        "no camera serves this pipe",
        "another producer is connected to the camera",
        "the camera's pipe does not admit this account",
        "the camera's pipe belongs to an account that is not trusted",
        "the camera has closed the connection, or there was none",
        "the camera did not take the picture in time",
        "the camera says nothing about its demand",
        "the operating system refused",
    };
    const auto index = static_cast<std::size_t>(status);
    return index < std::size(kTexts) ? kTexts[index] : "unknown result";
}

size_t ravlo_frame_bytes(uint32_t width, uint32_t height) {
    const bool isPossible = width != 0 && height != 0 && width % 2 == 0 && height % 2 == 0 &&
                            width <= kMaxFrameDimension && height <= kMaxFrameDimension;
    return isPossible ? static_cast<std::size_t>(WireFrameBytes(width, height)) : 0;
}

const char* ravlo_producer_version(void) {
    return RAVLO_VERSION;
}
