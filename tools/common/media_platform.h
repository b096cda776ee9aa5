#pragma once

#include <windows.h>

#include <mfapi.h>
#include <objbase.h>

#include "common/program_error.h"

namespace ravlo {

/// COM and Media Foundation for the thread that makes it, for the life of the object. Throws ProgramError where the
/// system offers them not.
class MediaPlatform {
public:
    MediaPlatform() {
        if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
            throw ProgramError(ExitCode::UnsupportedSystem, "COM could not be started");
        }
        if (FAILED(MFStartup(MF_VERSION, MFSTARTUP_FULL))) {
            CoUninitialize();
            throw ProgramError(ExitCode::UnsupportedSystem, "Media Foundation could not be started");
        }
    }
    MediaPlatform(const MediaPlatform&) = delete;
    MediaPlatform& operator=(const MediaPlatform&) = delete;
    ~MediaPlatform() {
        MFShutdown();
        CoUninitialize();
    }
};

}  // namespace ravlo
