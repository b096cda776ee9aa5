// A producer that dies in the middle of a frame, for the demo: half_frame PIPE WIDTHxHEIGHT. It connects, writes a
// right header and half of the payload, and ends its own process as a crash would: nothing is flushed or closed in
// order.
#include "ravlo/wire.h"

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

constexpr UINT kDeathCode = 9;
constexpr DWORD kConnectMs = 5000;
constexpr DWORD kRetryMs = 20;
constexpr std::uint8_t kBright = 235;  // would be plain to see if any of it were shown

HANDLE Connect(const char* name) {
    const ULONGLONG deadline = GetTickCount64() + kConnectMs;
    for (;;) {
        const HANDLE pipe = CreateFileA(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                        SECURITY_SQOS_PRESENT | SECURITY_IDENTIFICATION, nullptr);
        if (pipe != INVALID_HANDLE_VALUE || GetTickCount64() >= deadline) {
            return pipe;
        }
        Sleep(kRetryMs);
    }
}

bool WriteAll(HANDLE pipe, const void* bytes, DWORD length) {
    DWORD written = 0;
    return WriteFile(pipe, bytes, length, &written, nullptr) && written == length;
}

}  // namespace

int main(int argc, char** argv) {
    ravlo::FrameHeader header{};
    unsigned width = 0;
    unsigned height = 0;
    if (argc != 3 || std::sscanf(argv[2], "%ux%u", &width, &height) != 2) {
        std::fprintf(stderr, "usage: half_frame PIPE WIDTHxHEIGHT\n");
        return 2;
    }
    header.magic = ravlo::kFrameMagic;
    header.version = ravlo::kFrameVersion;
    header.width = width;
    header.height = height;
    header.bytes = width * height / 2 * 3;
    header.format = ravlo::kFourccNv12;
    header.seq = 1;
    const HANDLE pipe = Connect(argv[1]);
    if (pipe == INVALID_HANDLE_VALUE) {
        std::fprintf(stderr, "half_frame: cannot connect, error %lu\n", GetLastError());
        return 1;
    }
    const std::vector<std::uint8_t> half(header.bytes / 2, kBright);
    if (!WriteAll(pipe, &header, sizeof header) || !WriteAll(pipe, half.data(), static_cast<DWORD>(half.size()))) {
        std::fprintf(stderr, "half_frame: cannot write, error %lu\n", GetLastError());
        return 1;
    }
    TerminateProcess(GetCurrentProcess(), kDeathCode);
    return 1;
}
