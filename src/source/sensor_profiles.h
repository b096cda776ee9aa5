#pragma once

#include <windows.h>

#include <mfobjects.h>

namespace ravlo {

/// Puts the camera's sensor profile collection (one legacy profile without conditions) into `sourceAttributes`.
/// E_UNEXPECTED for a null store, else the first failure. A system that has no sensor profiles is no failure: it is
/// noted in the log.
HRESULT PublishSensorProfileCollection(IMFAttributes* sourceAttributes) noexcept;

}  // namespace ravlo
