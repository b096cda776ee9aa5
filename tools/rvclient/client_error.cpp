#include "rvclient/client_error.h"

#include <cstdint>

#include "common/result_meaning.h"
#include "common/result_text.h"

namespace ravlo {
namespace {

/// What the user can do about it; empty when nobody knows.
std::string AdviceAbout(const CameraIdentity& identity, HRESULT hr) {
    if (hr == REGDB_E_CLASSNOTREG) {
        return "; run rvsetup install as administrator";
    }
    if (hr == HRESULT_FROM_WIN32(ERROR_SERVICE_DISABLED)) {
        return "; start the service \"Windows Camera Frame Server\" in services.msc, as administrator";
    }
    if (MeaningOf(static_cast<std::uint32_t>(hr)).code != ExitCode::AccessDenied) {
        return {};
    }
    if (identity.allUsers) {
        return "; a camera for all users needs an administrator: use a console that was opened with \"Run as "
               "administrator\", or leave out --all-users";
    }
    return std::string(
               "; look whether camera access is off: Settings > Privacy & security > Camera, \"Camera access\" and "
               "\"Let desktop apps access your camera\"; if both are on, use a console that was opened with \"Run as "
               "administrator\"") +
           (identity.session ? "" : ", or a camera with --session");
}

}  // namespace

ProgramError FailedResult(const std::string& what, HRESULT hr) {
    return {MeaningOf(static_cast<std::uint32_t>(hr)).code, what + ": " + ResultText(hr)};
}

ProgramError CameraFailure(const char* what, const CameraIdentity& identity, HRESULT hr) {
    const ProgramError error = FailedResult("the camera \"" + identity.name + "\" " + what, hr);
    return {error.Code(), error.what() + AdviceAbout(identity, hr)};
}

}  // namespace ravlo
