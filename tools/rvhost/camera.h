#pragma once

#include <windows.h>

#include <mfidl.h>
#include <mfobjects.h>
#include <mfreadwrite.h>

#include <optional>
#include <stdexcept>
#include <string>

#include "common/exit_codes.h"
#include "platform/com_ptr.h"
#include "stream/geometry.h"

namespace ravlo {

/// Why the camera cannot be used: a sentence for the user and the code to end with.
class CameraError : public std::runtime_error {
public:
    CameraError(ExitCode code, const std::string& sentence) : std::runtime_error(sentence), m_code(code) {}
    ExitCode Code() const noexcept { return m_code; }

private:
    ExitCode m_code;
};

/// What to activate.
struct CameraOptions {
    std::optional<FrameGeometry> geometry;  ///< the camera's own default without it
    std::wstring pipeName;                  ///< empty: the camera finds its own name
    std::wstring dll;                       ///< empty: the registered class
};

/// The camera, activated in this process and read through the platform's source reader. The thread that makes it must
/// have initialised COM and Media Foundation, and is the one that uses it.
class Camera {
public:
    /// Activates the camera. Throws CameraError.
    explicit Camera(const CameraOptions& options);

    /// The geometry that the camera advertises.
    const FrameGeometry& Geometry() const noexcept { return m_geometry; }

    /// Waits for the next sample; null when the reader reports something else than a sample. Throws CameraError when
    /// the stream has ended or failed.
    ComPtr<IMFSample> ReadSample();

private:
    ComPtr<IMFSourceReader> m_reader;
    FrameGeometry m_geometry{};
};

}  // namespace ravlo
