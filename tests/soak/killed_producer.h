// A producer in a process of its own that is ended from outside, as a crash would end it. For one file of a program.
#pragma once

#include "soak/sample_judge.h"
#include "support/frames.h"
#include "support/pipe_client.h"
#include "support/process.h"

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ravlo::test {

/// Arguments: pipe name, first signature, whole frames, milliseconds after each. After them it sends half a frame.
RAVLO_ROLE(SoakProducer) {
    constexpr DWORD kStandStillMs = 60000;  // it ends by itself when nobody is left to kill it
    const auto number = [&](std::size_t i) {
        return static_cast<std::uint32_t>(std::wcstoul(arguments.at(i).c_str(), nullptr, 10));
    };
    PipeClient client;
    if (!client.Connect(arguments.at(0))) {
        return 1;
    }
    std::uint32_t signature = number(1);
    for (const std::uint32_t end = signature + number(2); signature < end; ++signature) {
        if (!client.SendFrame(kWidth, kHeight, signature)) {
            return 1;
        }
        std::printf("sent %u\n", signature);
        std::fflush(stdout);
        Sleep(number(3));
    }
    const std::vector<std::uint8_t> frame = MakeFrame(kWidth, kHeight, signature);
    client.SendHeader(HeaderFor(kWidth, kHeight, signature));
    client.SendBytes(frame.data(), frame.size() / 2);
    std::printf("half\n");
    std::fflush(stdout);
    Sleep(kStandStillMs);
    return 0;
}

/// Lets such a producer send `frames` frames from this signature on, and kills it: within the frame after them, or,
/// where `afterMs` is given, that long after the first. Returns the last signature that it is known to have sent whole;
/// nothing when there is none.
inline std::optional<std::uint32_t> LiveUntilKilled(const std::wstring& pipeName, std::uint32_t firstSignature,
                                                    std::uint32_t frames, std::optional<DWORD> afterMs) {
    ChildProcess child =
        StartRole("SoakProducer", {pipeName, std::to_wstring(firstSignature), std::to_wstring(frames), L"3"});
    child.WaitForOutput(afterMs ? "sent" : "half");
    Sleep(afterMs.value_or(0));
    child.Kill();
    const std::string output = child.Output();
    constexpr std::string_view kSent = "sent ";
    const std::size_t last = output.rfind(kSent);
    if (last == std::string::npos) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(std::strtoul(&output[last + kSent.size()], nullptr, 10));
}

}  // namespace ravlo::test
