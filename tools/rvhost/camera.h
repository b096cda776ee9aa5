#pragma once

#include <windows.h>

#include <mfidl.h>
#include <mfobjects.h>
#include <mfreadwrite.h>

#include <optional>
#include <string>

#include "platform/com_ptr.h"
#include "common/program_error.h"
#include "stream/geometry.h"

namespace ravlo {

/// What to activate.
struct CameraOptions {
    std::optional<FrameGeometry> geometry;  ///< the camera's own default without it
    std::string pipeName;                   ///< UTF-8; empty: the camera finds its own name
    std::string dll;                        ///< UTF-8; empty: the registered class
};

/// The camera, activated in this process and read through the platform's source reader. The thread that makes it must
/// have initialised COM and Media Foundation, and is the one that uses it.
class Camera {
public:
    /// Activates the camera. Throws ProgramError.
    explicit Camera(const CameraOptions& options);

    /// The geometry that the camera advertises.
    const FrameGeometry& Geometry() const noexcept { return m_geometry; }

    /// Waits for the next sample; null when the reader reports something else than a sample. Throws ProgramError when
    /// the stream has ended or failed.
    ComPtr<IMFSample> ReadSample();

private:
    ComPtr<IMFSourceReader> m_reader;
    FrameGeometry m_geometry{};
};

}  // namespace ravlo
