#pragma once

#include "fuzz/fuzz_support.h"
#include "pipe/pipe_name.h"

/// The grammar of pipe names once more, in other words than the module's, for comparison with it.
namespace ravlo::fuzz {

/// \\.\pipe\Ravlo, or that and "." and 1 to 10 digits of which the first is not 0.
inline bool ReferenceIsPipeName(const WideText& name) {
    const std::vector<WideText> parts = Split(name, u'\\');
    if (parts.size() != 5 || !parts[0].empty() || !parts[1].empty() || parts[2] != u"." || parts[3] != u"pipe") {
        return false;
    }
    const std::vector<WideText> words = Split(parts[4], u'.');
    if (words.size() > 2 || words[0] != u"Ravlo") {
        return false;
    }
    return words.size() == 1 || (IsAllDigits(words[1]) && words[1].size() <= 10 && words[1][0] != u'0');
}

/// A frame-pipe name and ".gate".
inline bool ReferenceIsGateName(const WideText& name) {
    const std::size_t dot = name.rfind(u'.');
    return dot != WideText::npos && name.substr(dot) == u".gate" && ReferenceIsPipeName(name.substr(0, dot));
}

/// What a name holds, which must end within its room.
template <std::size_t kCapacity>
WideText TextOf(const WideChar (&name)[kCapacity]) {
    const WideChar* const end = std::find(name, name + kCapacity, WideChar{0});
    Require(end != name + kCapacity, "a name is terminated");
    return WideText(name, end);
}

}  // namespace ravlo::fuzz
