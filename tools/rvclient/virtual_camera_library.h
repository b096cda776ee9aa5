#pragma once

#include "platform/com_ptr.h"
#include "rvclient/options.h"
#include "rvclient/virtual_camera_api.h"

namespace ravlo {

/// The system's functions for virtual cameras, which older systems lack.
class VirtualCameraLibrary {
public:
    /// Throws ProgramError with ExitCode::UnsupportedSystem where there are no virtual cameras.
    VirtualCameraLibrary();

    /// The camera of this identity: the one that exists, or a new one that is not started yet. COM and Media Foundation
    /// must be up. Throws ProgramError.
    ComPtr<IMFVirtualCamera> Open(const CameraIdentity& identity) const;

private:
    CreateVirtualCameraFunction m_create = nullptr;
};

}  // namespace ravlo
