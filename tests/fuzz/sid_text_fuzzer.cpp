#include "platform/sid_text.h"

#include "fuzz/fuzz_support.h"

// Input: the text of a SID as units (see Input::WideRest).

namespace ravlo::fuzz {
namespace {

/// True for digits whose number is at most `largest`, which is written without leading zeros. Compares texts, so that
/// no number is too long for it.
bool IsDecimalUpTo(WideText text, const WideText& largest) {
    if (!IsAllDigits(text)) {
        return false;
    }
    text.erase(0, text.find_first_not_of(u'0'));
    return text.size() < largest.size() || (text.size() == largest.size() && text <= largest);
}

/// "0x" and hexadecimal digits, at most twelve of them behind leading zeros.
bool IsHexadecimalOfSixBytes(const WideText& text) {
    if (text.size() < 3 || text[0] != u'0' || (text[1] != u'x' && text[1] != u'X') ||
        text.find_first_not_of(u"0123456789abcdefABCDEF", 2) != WideText::npos) {
        return false;
    }
    const std::size_t first = text.find_first_not_of(u'0', 2);
    return first == WideText::npos || text.size() - first <= 12;
}

bool ReferenceIsSid(const WideText& text) {
    const std::vector<WideText> parts = Split(text, u'-');
    if (parts.size() < 4 || parts.size() > 18 || (parts[0] != u"S" && parts[0] != u"s") || parts[1] != u"1") {
        return false;
    }
    return (IsDecimalUpTo(parts[2], u"281474976710655") || IsHexadecimalOfSixBytes(parts[2])) &&
           std::all_of(parts.begin() + 3, parts.end(),
                       [](const WideText& part) { return IsDecimalUpTo(part, u"4294967295"); });
}

void Judge(Input input) {
    const WideText text = UpToTerminator(input.WideRest());
    const bool strict = IsStrictSidText(Terminated(text).data());

    Require(strict == ReferenceIsSid(text), "plainly a SID is exactly what it should be");
    if (strict) {
        Require(std::all_of(text.begin(), text.end(), [](WideChar unit) { return unit > 32 && unit < 127; }),
                "an accepted text is plain ASCII without a blank");
        Require(!IsStrictSidText(Terminated(text + u"-").data()) && !IsStrictSidText(Terminated(text + u" ").data()),
                "nothing may follow an accepted text");
    }
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Judge(ravlo::fuzz::Input(data, size));
    return 0;
}
