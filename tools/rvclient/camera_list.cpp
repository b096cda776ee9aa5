#include "rvclient/camera_list.h"

#include <algorithm>
#include <string_view>

#include <nlohmann/json.hpp>

namespace ravlo {
namespace {

/// Part of the link of every device that MFCreateVirtualCamera has made.
constexpr std::string_view kVirtualCameraMark = "vcamdevapi";

char LowerAscii(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

/// What a device is called comes from its driver: a control character could make the console show something else.
std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](char character) { return static_cast<unsigned char>(character) < 0x20 || character == 0x7F; }, '?');
    return text;
}

const char* KindOf(const ListedCamera& camera, const std::string& startedName) {
    if (IsNamedCamera(camera, startedName)) {
        return "this camera";
    }
    return IsVirtualCamera(camera) ? "virtual" : "device";
}

}  // namespace

bool IsVirtualCamera(const ListedCamera& camera) {
    std::string link = camera.link;
    std::transform(link.begin(), link.end(), link.begin(), LowerAscii);
    return link.find(kVirtualCameraMark) != std::string::npos;
}

bool IsNamedCamera(const ListedCamera& camera, const std::string& startedName) {
    if (!IsVirtualCamera(camera) || !camera.name.starts_with(startedName)) {
        return false;
    }
    // "Ravlo Camera (Windows Virtual Camera)" is ours, "Ravlo Camera 2" is another one.
    const std::string_view rest = std::string_view(camera.name).substr(startedName.size());
    return rest.empty() || rest.starts_with(" (");
}

std::string CameraListText(const std::vector<ListedCamera>& cameras, const std::string& startedName) {
    std::string text;
    for (const ListedCamera& camera : cameras) {
        text += Printable(camera.name) + " [" + KindOf(camera, startedName) + "]\n    " + Printable(camera.link) + "\n";
    }
    return text;
}

std::string CameraListJson(const std::vector<ListedCamera>& cameras, const std::string& startedName) {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const ListedCamera& camera : cameras) {
        list.push_back({{"name", camera.name},
                        {"link", camera.link},
                        {"virtual", IsVirtualCamera(camera)},
                        {"ravlo", IsNamedCamera(camera, startedName)}});
    }
    nlohmann::ordered_json object;
    object["cameras"] = std::move(list);
    return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace ravlo
