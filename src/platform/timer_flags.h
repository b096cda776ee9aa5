#pragma once

#include <windows.h>

// Windows 10 1803 and later; older toolchain headers lack it.
#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif
