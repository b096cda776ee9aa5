// Sends a moving picture in colour at an even pace, and draws only while somebody watches:
// generated_frames [WIDTH HEIGHT [SECONDS [PIPE]]]
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <thread>
#include <vector>

#include "ravlo/producer.hpp"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kFramesASecond = 30;
constexpr std::uint64_t kIdleAfterMs = 2000;
constexpr double kPi = 3.14159265358979;

/// One packed NV12 picture, drawn anew for each frame.
class Picture {
public:
    Picture(std::uint32_t width, std::uint32_t height)
        : m_width(width), m_height(height), m_nv12(ravlo_frame_bytes(width, height)) {}

    const std::vector<std::uint8_t>& Nv12() const { return m_nv12; }

    /// Diagonal bars that wander, in a colour that goes round once in four seconds.
    void Draw(std::uint64_t frame) {
        auto to = m_nv12.begin();
        for (std::uint32_t y = 0; y < m_height; ++y) {
            for (std::uint32_t x = 0; x < m_width; ++x) {
                const bool isBright = (x + y + 4 * frame) / 64 % 2 == 0;
                *to++ = isBright ? 180 : 90;
            }
        }
        const double hue = 2 * kPi * static_cast<double>(frame) / (4.0 * kFramesASecond);
        const auto blue = static_cast<std::uint8_t>(std::lround(128 + 60 * std::cos(hue)));
        const auto red = static_cast<std::uint8_t>(std::lround(128 + 60 * std::sin(hue)));
        while (to != m_nv12.end()) {
            *to++ = blue;
            *to++ = red;
        }
    }

private:
    std::uint32_t m_width;
    std::uint32_t m_height;
    std::vector<std::uint8_t> m_nv12;
};

/// A camera that says that nobody has asked for a picture for a while; one that says nothing wants every picture.
bool IsIdle(ravlo::Producer& camera) {
    const std::optional<ravlo_demand> demand = camera.ReadDemand();
    return demand && demand->idle_ms >= kIdleAfterMs;
}

int Send(std::uint32_t width, std::uint32_t height, std::uint64_t frames, const char* pipe) {
    if (ravlo_frame_bytes(width, height) == 0) {
        std::fprintf(stderr, "no camera has this size: width and height are even, from 2 to 16384\n");
        return 2;
    }
    ravlo::Producer camera(pipe);
    Picture picture(width, height);
    std::uint64_t sent = 0;
    std::uint64_t spared = 0;
    Clock::time_point due = Clock::now();
    for (std::uint64_t frame = 0; frame < frames; ++frame) {
        if (!camera.IsConnected()) {
            if (const ravlo_status status = camera.Connect(5s); status != RAVLO_OK) {
                std::fprintf(stderr, "giving up: %s\n", ravlo_status_text(status));
                return 1;
            }
            due = Clock::now();
        }
        if (IsIdle(camera)) {
            ++spared;
        } else {
            picture.Draw(frame);
            const ravlo_status status = camera.Write(width, height, picture.Nv12(), 500ms);
            if (status == RAVLO_OK) {
                ++sent;
            } else {
                std::fprintf(stderr, "a frame is lost: %s\n", ravlo_status_text(status));
            }
        }
        // From one due time to the next, so that the time for drawing does not add up; a late frame delays all others
        // rather than let them follow in a burst.
        due += std::chrono::duration_cast<Clock::duration>(1s) / kFramesASecond;
        if (due < Clock::now()) {
            due = Clock::now();
        }
        std::this_thread::sleep_until(due);
    }
    std::printf("%llu frames sent, %llu spared because nobody watched\n", static_cast<unsigned long long>(sent),
                static_cast<unsigned long long>(spared));
    return 0;
}

std::uint32_t Number(const char* text) {
    return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 || argc > 5) {
        std::fprintf(stderr, "usage: generated_frames [WIDTH HEIGHT [SECONDS [PIPE]]]\n");
        return 2;
    }
    try {
        const std::uint32_t width = argc > 2 ? Number(argv[1]) : 1280;
        const std::uint32_t height = argc > 2 ? Number(argv[2]) : 720;
        const std::uint64_t seconds = argc > 3 ? Number(argv[3]) : 10;
        return Send(width, height, seconds * kFramesASecond, argc > 4 ? argv[4] : nullptr);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "giving up: %s\n", error.what());
        return 1;
    }
}
