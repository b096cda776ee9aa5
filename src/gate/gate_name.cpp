#include "gate/gate_name.h"

#include <algorithm>
#include <iterator>

namespace ravlo {
namespace {

constexpr char kSuffix[] = ".gate";
constexpr std::size_t kSuffixLength = std::size(kSuffix) - 1;

}  // namespace

bool RvIsGatePipeName(const WideChar* name) noexcept {
    if (name == nullptr) {
        return false;
    }
    const WideChar* const limit = name + kGateNameCapacity;
    const WideChar* end = name;
    while (end != limit && *end != 0) {
        ++end;
    }
    const auto length = static_cast<std::size_t>(end - name);
    if (end == limit || length <= kSuffixLength) {
        return false;
    }
    const WideChar* const suffix = end - kSuffixLength;
    if (!std::equal(kSuffix, kSuffix + kSuffixLength, suffix,
                    [](char expected, WideChar unit) { return static_cast<WideChar>(expected) == unit; })) {
        return false;
    }
    const std::size_t stemLength = length - kSuffixLength;
    PipeName stem;
    if (stemLength >= kPipeNameCapacity) {
        return false;
    }
    std::copy(name, suffix, stem.text);
    stem.text[stemLength] = 0;
    return RvIsRavloPipeName(stem.text);
}

GateName GateNameFor(const PipeName& framePipe) noexcept {
    GateName gate;
    WideChar* cursor = gate.text;
    for (const WideChar* from = framePipe.text; *from != 0; ++from) {
        *cursor++ = *from;
    }
    cursor = std::copy_n(kSuffix, kSuffixLength, cursor);
    *cursor = 0;
    return gate;
}

}  // namespace ravlo
