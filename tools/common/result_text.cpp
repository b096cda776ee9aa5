#include "common/result_text.h"

#include <cstdint>
#include <string_view>

#include "common/result_meaning.h"
#include "common/wide_text.h"

namespace ravlo {

std::string ResultText(HRESULT hr) {
    const auto result = static_cast<std::uint32_t>(hr);
    const std::string_view words = MeaningOf(result).words;
    const std::string number = ResultNumber(result);
    if (!words.empty()) {
        return std::string(words) + " (" + number + ")";
    }
    if (HRESULT_FACILITY(hr) == FACILITY_WIN32) {
        return SystemErrorText(static_cast<unsigned long>(HRESULT_CODE(hr))) + ", result " + number;
    }
    return "result " + number;
}

}  // namespace ravlo
