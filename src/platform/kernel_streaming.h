#pragma once

#include <windows.h>

#include <mfapi.h>
#include <mfidl.h>

// Declares IKsControl with its identifier. Behind the Media Foundation headers: they bring in DirectShow's, which must
// see some structures before the kernel-streaming headers define them again.
#include <devicetopology.h>
