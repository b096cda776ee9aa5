#include "rvsetup/install/camera_dll.h"

#include "rvsetup/system/camera_names.h"
#include "rvsetup/system/pe_image.h"

namespace ravlo {
namespace {

bool HoldsWideText(std::string_view bytes, std::string_view text) {
    std::string wide;
    for (const char character : text) {
        wide += character;
        wide += '\0';
    }
    return bytes.find(wide) != std::string_view::npos;
}

/// Why the headers are not those of a 64-bit DLL; empty when they are.
std::string JudgeHeaders(const PeImage& image) {
    if (!image.isProgram) {
        return "is no DLL: it does not begin like a program file of Windows";
    }
    if (image.isDamaged) {
        return "is damaged or cut off";
    }
    if (!image.isPe) {
        return "is no DLL: it is a program file of another kind";
    }
    if (image.is32Bit) {
        return "is a 32-bit file; the camera is loaded by 64-bit Windows services and must be the 64-bit DLL";
    }
    if (!image.is64) {
        return "is built for another processor; x86-64 is needed";
    }
    return image.isDll ? std::string() : "is a program, not a DLL";
}

}  // namespace

std::optional<std::string> InspectCameraDll(std::string_view bytes, std::string& problem) {
    const PeImage image = ReadPeImage(bytes);
    problem = JudgeHeaders(image);
    for (const char* needed : {"DllGetClassObject", "DllRegisterServer"}) {
        if (problem.empty() && !ExportsName(image, needed)) {
            problem = std::string("exports no ") + needed + ", so it cannot be the camera";
        }
    }
    if (problem.empty() && !HoldsWideText(bytes, kCameraClassId)) {
        problem = "is a COM server, but not the Ravlo camera";
    }
    if (problem.empty() && image.version.empty()) {
        problem = "carries no version";
    }
    return problem.empty() ? std::optional(image.version) : std::nullopt;
}

}  // namespace ravlo
