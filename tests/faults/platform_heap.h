// The heap of the Media Foundation library, where the platform's objects live.
#pragma once

namespace ravlo::faults {

/// Enters every block that the library allocates from now on into g_platformHeap, until it is freed: an object on which
/// somebody kept a reference stays there.
void WatchPlatformHeap();

}  // namespace ravlo::faults
