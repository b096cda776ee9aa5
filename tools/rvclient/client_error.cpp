#include "rvclient/client_error.h"

#include <cstdint>

#include "common/wide_text.h"
#include "rvclient/result_meaning.h"

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

ProgramError FailedResult(const std::string& what, HRESULT hr) {
    return {MeaningOf(static_cast<std::uint32_t>(hr)).code, what + ": " + ResultText(hr)};
}

ProgramError CameraFailure(const char* what, const CameraIdentity& identity, HRESULT hr) {
    ProgramError error = FailedResult("the camera \"" + identity.name + "\" " + what, hr);
    if (error.Code() != ExitCode::AccessDenied) {
        return error;
    }
    const char* const advice =
        identity.allUsers
            ? "; a camera for all users needs an administrator: use a console that was opened with \"Run as "
              "administrator\", or leave out --all-users"
            : "; look whether camera access is off: Settings > Privacy & security > Camera, \"Camera access\" and "
              "\"Let desktop apps access your camera\"";
    return {ExitCode::AccessDenied, error.what() + std::string(advice)};
}

}  // namespace ravlo
