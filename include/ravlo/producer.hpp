#ifndef RAVLO_PRODUCER_HPP
#define RAVLO_PRODUCER_HPP

/*
 * The C API of ravlo/producer.h for C++20: header only, no Windows header.
 *
 *     ravlo::Producer camera;
 *     for (;;) {
 *         if (!camera.IsConnected()) (void)camera.Connect(1s);
 *         else if (ravlo_status status = camera.Write(1280, 720, picture, 500ms)) ... ravlo_status_text(status) ...
 *         ... wait for the next frame's time ...
 *     }
 *
 * Only the constructor throws; everything that may go wrong while a camera comes and goes is a returned ravlo_status,
 * of which RAVLO_OK alone is false. One thread uses a producer at a time; different producers are independent.
 */

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>

#include "ravlo/producer.h"

namespace ravlo {

/// Why a producer could not be made.
class ProducerError : public std::runtime_error {
public:
    explicit ProducerError(ravlo_status status) : std::runtime_error(ravlo_status_text(status)), m_status(status) {}

    /// RAVLO_INVALID_ARGUMENT (the name is no frame-pipe name) or RAVLO_OUT_OF_MEMORY.
    ravlo_status Status() const noexcept { return m_status; }

private:
    ravlo_status m_status;
};

/// One plane of a picture whose rows begin `stride` bytes apart; the last row may end with its last pixel.
struct PlaneView {
    std::span<const std::uint8_t> bytes;
    std::size_t stride = 0;
};

/// The connection to one camera, kept or not yet made; closed with the object. One that was moved from answers
/// everything with RAVLO_INVALID_ARGUMENT, or as if it were not connected, and may be assigned to.
class Producer {
public:
    /// For the camera that serves `pipeName`, such as "\\\\.\\pipe\\Ravlo.7", or "\\\\.\\pipe\\Ravlo" for null. Does
    /// not look for the camera yet. Throws ProducerError.
    explicit Producer(const char* pipeName = nullptr) {
        ravlo_producer* opened = nullptr;
        if (const ravlo_status status = ravlo_producer_open(pipeName, &opened); status != RAVLO_OK) {
            throw ProducerError(status);
        }
        m_producer.reset(opened);
    }

    /// Connects, trying every 50 ms until `timeout` has passed; zero tries once. Only what may change by itself
    /// (RAVLO_NO_CAMERA, RAVLO_BUSY) is waited for.
    [[nodiscard]] ravlo_status Connect(std::chrono::milliseconds timeout) noexcept {
        return ravlo_producer_connect(Get(), Milliseconds(timeout));
    }

    void Disconnect() noexcept { ravlo_producer_disconnect(Get()); }

    /// A camera that has gone away is noticed by the next write, not by this.
    bool IsConnected() const noexcept { return ravlo_producer_is_connected(Get()) != 0; }

    /// Sends one packed NV12 picture of exactly ravlo_frame_bytes(width, height) bytes; any other length is
    /// RAVLO_INVALID_ARGUMENT. After any other failure the connection is closed.
    [[nodiscard]] ravlo_status Write(std::uint32_t width, std::uint32_t height, std::span<const std::uint8_t> nv12,
                                     std::chrono::milliseconds timeout) noexcept {
        if (nv12.size() != ravlo_frame_bytes(width, height)) {
            return RAVLO_INVALID_ARGUMENT;
        }
        return ravlo_producer_write(Get(), width, height, nv12.data(), Milliseconds(timeout));
    }

    /// The same from two planes. One that is too short for its stride and rows is RAVLO_INVALID_ARGUMENT.
    [[nodiscard]] ravlo_status Write(std::uint32_t width, std::uint32_t height, const PlaneView& luma,
                                     const PlaneView& chroma, std::chrono::milliseconds timeout) noexcept {
        if (!Holds(luma, width, height) || !Holds(chroma, width, height / 2)) {
            return RAVLO_INVALID_ARGUMENT;
        }
        return ravlo_producer_write_planes(Get(), width, height, luma.bytes.data(), luma.stride, chroma.bytes.data(),
                                           chroma.stride, Milliseconds(timeout));
    }

    /// The newest record of the camera's demand. Without one, and while not connected, nothing is known and every
    /// picture is wanted. Never waits; call it a few times a second or with every picture.
    std::optional<ravlo_demand> ReadDemand() noexcept {
        ravlo_demand demand{};
        if (ravlo_producer_read_demand(Get(), &demand) != RAVLO_OK) {
            return std::nullopt;
        }
        return demand;
    }

    /// Number of the next picture, as the camera's log shows it.
    std::uint64_t NextSequence() const noexcept { return ravlo_producer_next_sequence(Get()); }

    /// The operating system's error code behind the last result that was not RAVLO_OK; 0 when there is none.
    std::uint32_t SystemError() const noexcept { return ravlo_producer_system_error(Get()); }

    /// For the functions of ravlo/producer.h; the producer stays this object's.
    ravlo_producer* Get() const noexcept { return m_producer.get(); }

private:
    struct Closer {
        void operator()(ravlo_producer* producer) const noexcept { ravlo_producer_close(producer); }
    };

    static std::uint32_t Milliseconds(std::chrono::milliseconds timeout) noexcept {
        constexpr std::int64_t kLongest = (std::numeric_limits<std::uint32_t>::max)();
        return static_cast<std::uint32_t>(std::clamp<std::int64_t>(timeout.count(), 0, kLongest));
    }

    static bool Holds(const PlaneView& plane, std::size_t width, std::size_t rows) noexcept {
        // Divided rather than multiplied: no stride is large enough to wrap around.
        return rows != 0 && plane.stride != 0 && plane.bytes.size() >= width &&
               (plane.bytes.size() - width) / plane.stride >= rows - 1;
    }

    std::unique_ptr<ravlo_producer, Closer> m_producer;
};

}  // namespace ravlo

#endif
