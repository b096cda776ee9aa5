#include "common/result_meaning.h"

#include <array>
#include <cstdio>

namespace ravlo {
namespace {

struct KnownResult {
    std::uint32_t result;
    ResultMeaning meaning;
};

constexpr std::array kKnownResults{
    KnownResult{0x80004001, {"this Windows does not implement it", ExitCode::UnsupportedSystem}},
    KnownResult{0x80040154, {"the camera's class is not registered", ExitCode::NotInstalled}},
    KnownResult{0x80070002, {"something that it needs is missing", ExitCode::Failure}},
    KnownResult{0x80070005, {"access is denied", ExitCode::AccessDenied}},
    KnownResult{0x8007000E, {"out of memory", ExitCode::Failure}},
    KnownResult{0x80070032, {"this Windows does not support it", ExitCode::UnsupportedSystem}},
    KnownResult{0x80070057, {"Windows does not take one of the values", ExitCode::Failure}},
    KnownResult{0x8007007E, {"a library that it needs is missing", ExitCode::Failure}},
    KnownResult{0x800700B7, {"there is one already", ExitCode::Failure}},
    KnownResult{0x80070422, {"the camera service is disabled", ExitCode::Failure}},
    KnownResult{0x80070490, {"there is no such camera", ExitCode::Failure}},
    KnownResult{0x800704EC, {"a policy of this machine forbids it", ExitCode::AccessDenied}},
    KnownResult{0x800706BA, {"the camera service does not answer", ExitCode::Failure}},
    KnownResult{0xC00D36B2, {"the camera is not in a state for it", ExitCode::Failure}},
    KnownResult{0xC00D3E85, {"the camera has been shut down", ExitCode::Failure}},
};

}  // namespace

ResultMeaning MeaningOf(std::uint32_t result) noexcept {
    for (const KnownResult& known : kKnownResults) {
        if (known.result == result) {
            return known.meaning;
        }
    }
    return {};
}

std::string ResultNumber(std::uint32_t result) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", static_cast<unsigned>(result));
    return text.data();
}

}  // namespace ravlo
