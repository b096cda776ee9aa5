#pragma once

#include <windows.h>

#include <mfapi.h>

#include "stream/geometry.h"

namespace ravlo {

/// Builds the NV12 type that the stream advertises for `geometry`. E_POINTER for a null output; E_INVALIDARG, the
/// output left alone, for an invalid geometry; otherwise the platform's result. The caller owns the type.
HRESULT RvCreateVideoMediaType(const FrameGeometry& geometry, IMFMediaType** mediaType) noexcept;

}  // namespace ravlo
