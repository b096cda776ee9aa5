#include "pipe/pipe_name.h"

#include <algorithm>
#include <iterator>

namespace ravlo {
namespace {

constexpr char kBase[] = "\\\\.\\pipe\\Ravlo";
static_assert(std::size(kBase) - 1 == kPipeBaseLength);
constexpr std::size_t kMaxDigits = 10;

bool IsDigit(WideChar unit) noexcept {
    return unit >= '0' && unit <= '9';
}

}  // namespace

bool RvIsRavloPipeName(const WideChar* name) noexcept {
    if (name == nullptr) {
        return false;
    }
    for (std::size_t i = 0; i < kPipeBaseLength; ++i) {
        if (name[i] != static_cast<WideChar>(kBase[i])) {
            return false;
        }
    }
    const WideChar* cursor = name + kPipeBaseLength;
    if (*cursor == 0) {
        return true;
    }
    if (cursor[0] != '.' || !IsDigit(cursor[1]) || cursor[1] == '0') {
        return false;
    }
    ++cursor;
    std::size_t digits = 0;
    while (IsDigit(cursor[digits])) {
        if (++digits > kMaxDigits) {
            return false;
        }
    }
    return cursor[digits] == 0;
}

PipeName PipeNameForPid(std::uint32_t pid) noexcept {
    PipeName name;
    WideChar* cursor = std::copy_n(kBase, kPipeBaseLength, name.text);
    if (pid != 0) {
        WideChar reversed[kMaxDigits];
        std::size_t count = 0;
        for (; pid != 0; pid /= 10) {
            reversed[count++] = static_cast<WideChar>('0' + pid % 10);
        }
        *cursor++ = '.';
        cursor = std::reverse_copy(reversed, reversed + count, cursor);
    }
    *cursor = 0;
    return name;
}

ExplicitName JudgeExplicitName(WideChar (&text)[kPipeNameCapacity], std::uint32_t reportedLength,
                               PipeName& name) noexcept {
    text[kPipeNameCapacity - 1] = 0;
    const auto counted = static_cast<std::size_t>(std::find(text, text + kPipeNameCapacity, WideChar{0}) - text);
    if (reportedLength < counted || reportedLength > kPipeNameCapacity || !RvIsRavloPipeName(text)) {
        return ExplicitName::Refused;
    }
    std::copy_n(text, counted + 1, name.text);
    return ExplicitName::Accepted;
}

PipeNameRoute ChoosePipeNameRoute(ExplicitName explicitName, std::uint32_t hostPid, std::uint64_t waitedMs) noexcept {
    if (explicitName == ExplicitName::Accepted) {
        return PipeNameRoute::Explicit;
    }
    if (hostPid != 0 && waitedMs >= kHostPidGraceMs) {
        return PipeNameRoute::HostPid;
    }
    return waitedMs < kSingletonGraceMs ? PipeNameRoute::NotYet : PipeNameRoute::Singleton;
}

}  // namespace ravlo
