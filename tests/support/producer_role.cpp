// The producer that StartProducer and StartHalfwayProducer run in a process of its own.
#include "support/frames.h"
#include "support/pipe_client.h"
#include "support/process.h"

#include <cstdio>
#include <cwchar>

namespace ravlo::test {
namespace {

constexpr unsigned kEndless = 0xFFFFFFFF;
/// A producer that stands still ends by itself when the test that should kill it has crashed.
constexpr DWORD kStandStillMs = 120000;

unsigned Number(const std::wstring& text) {
    return static_cast<unsigned>(std::wcstoul(text.c_str(), nullptr, 10));
}

void Say(const char* format, unsigned number = 0) {
    std::printf(format, number);
    std::fflush(stdout);
}

/// Arguments: pipe name, width, height, milliseconds between frames, whole frames before the half one.
int Produce(const Arguments& arguments) {
    const unsigned width = Number(arguments.at(1));
    const unsigned height = Number(arguments.at(2));
    const unsigned intervalMs = Number(arguments.at(3));
    const unsigned frames = Number(arguments.at(4));
    PipeClient pipe;
    if (!pipe.Connect(arguments.at(0))) {
        std::printf("no connection, error %lu\n", pipe.LastError());
        return 1;
    }
    Say("connected\n");
    for (unsigned number = 1; number <= frames; ++number) {
        if (!pipe.SendFrame(width, height, number)) {
            std::printf("frame %u was not taken, error %lu\n", number, pipe.LastError());
            return 1;
        }
        Say("sent %u\n", number);
        Sleep(intervalMs);
    }
    const std::vector<std::uint8_t> frame = MakeFrame(width, height, frames + 1);
    if (!pipe.SendHeader(HeaderFor(width, height, frames + 1)) || !pipe.SendBytes(frame.data(), frame.size() / 2)) {
        std::printf("half a frame was not taken, error %lu\n", pipe.LastError());
        return 1;
    }
    Say("half\n");
    Sleep(kStandStillMs);
    return 0;
}

const RoleRegistration kProducer("support.producer", Produce);

ChildProcess Start(const std::wstring& pipeName, unsigned width, unsigned height, unsigned intervalMs,
                   unsigned frames) {
    return StartRole("support.producer", {pipeName, std::to_wstring(width), std::to_wstring(height),
                                          std::to_wstring(intervalMs), std::to_wstring(frames)});
}

}  // namespace

// These stand in the same file as the registration, so that a program which starts a producer also links the
// role.
ChildProcess StartProducer(const std::wstring& pipeName, unsigned width, unsigned height, unsigned intervalMs) {
    return Start(pipeName, width, height, intervalMs, kEndless);
}

ChildProcess StartHalfwayProducer(const std::wstring& pipeName, unsigned width, unsigned height, unsigned frames) {
    return Start(pipeName, width, height, 0, frames);
}

}  // namespace ravlo::test
