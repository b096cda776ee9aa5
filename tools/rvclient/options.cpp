#include "rvclient/options.h"

#include <algorithm>
#include <array>
#include <cstddef>

#include "common/parse_text.h"
#include "source/geometry_request.h"
#include "stream/geometry.h"

namespace ravlo {
namespace {

constexpr const char* kStartExamples =
    "  rvclient start --geometry 1280x720@30\n"
    "      Show a camera of this size to the applications of this user, until rvclient remove\n"
    "  rvclient start --session\n"
    "      Show it until Ctrl+C\n"
    "  rvclient start --name \"Second Camera\" --pipe \\\\.\\pipe\\Ravlo.2\n"
    "      Another camera, for a producer of its own: rvfeeder --pipe \\\\.\\pipe\\Ravlo.2\n";

constexpr const char* kStopExamples =
    "  rvclient stop\n"
    "      Applications no longer see the camera; rvclient start shows it again\n"
    "  rvclient stop --name \"Second Camera\" --all-users\n"
    "      The camera that was started with these options\n";

constexpr const char* kRemoveExamples =
    "  rvclient remove\n"
    "      The system forgets the camera\n"
    "  rvclient remove --name \"Second Camera\"\n"
    "      The camera that was started with this name\n";

constexpr const char* kListExamples =
    "  rvclient list\n"
    "      The name of each camera, and the system's name for it\n"
    "  rvclient list --json\n"
    "      The same for a program to read\n";

/// Longer names are cut or refused by dialogues that let a user choose a camera.
constexpr std::size_t kLongestName = 64;

void DeclareIdentity(OptionSet& options, CameraIdentity& camera, const char* nameHelp, const char* allUsersHelp) {
    options.Text("--name", "TEXT", camera.name, nameHelp);
    options.Flag("--all-users", camera.allUsers, allUsersHelp);
}

void DeclareExistingCamera(OptionSet& options, CameraIdentity& camera) {
    DeclareIdentity(options, camera, "Name that it was started with (default Ravlo Camera)",
                    "It was started with --all-users; needs an administrator");
}

bool IsControl(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return byte < 0x20 || byte == 0x7F;
}

/// Characters of UTF-8 text: every byte but those that continue a character.
std::size_t CharacterCount(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
}

/// Asks the camera's own parser: what it does not take it would ignore without a word, and serve its default size.
bool TakesGeometry(const std::string& request) {
    std::array<WideChar, kGeometryRequestCapacity> wide{};
    if (request.size() >= wide.size()) {
        return false;
    }
    std::transform(request.begin(), request.end(), wide.begin(),
                   [](char character) { return static_cast<WideChar>(static_cast<unsigned char>(character)); });
    FrameGeometry geometry{};
    return ParseGeometryRequest(wide.data(), geometry) && IsAcceptableGeometry(geometry);
}

std::optional<std::string> InterpretGeometry(const std::string& text, std::string& request) {
    const auto geometry = text.empty() ? std::optional(kDefaultGeometry) : ParseGeometry(text);
    if (!geometry) {
        return "\"" + text + "\" is no geometry: an even WIDTHxHEIGHT@RATE, such as 1280x720@30 or 1280x720@30000/1001";
    }
    request = GeometryText(*geometry);
    if (!TakesGeometry(request)) {
        return "no camera takes " + request +
               ": pictures of up to 3840x2160, up to 1000 a second, numbers of up to six digits";
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> WhyNoCameraName(const std::string& name) {
    if (std::all_of(name.begin(), name.end(), [](char character) { return character == ' '; })) {
        return "--name is blank: give the camera a name that people can choose it by";
    }
    if (std::any_of(name.begin(), name.end(), IsControl)) {
        return "--name holds a character that cannot be shown, such as a tab or the end of a line";
    }
    if (CharacterCount(name) > kLongestName) {
        return "--name has " + std::to_string(CharacterCount(name)) + " characters; up to " +
               std::to_string(kLongestName) + " are possible";
    }
    return std::nullopt;
}

StartArguments::StartArguments(CommandLine& line) {
    OptionSet& options = line.Command("start", "Shows the camera to applications.", kStartExamples);
    DeclareIdentity(options, m_camera, "Name that users choose it by (default Ravlo Camera)",
                    "Show it to all users of this machine; needs an administrator");
    options.Text("--geometry", "WxH@N/D", m_geometry, "Size and rate, such as 1280x720@30 (default 1920x1080@60)");
    options.Text("--pipe", "NAME", m_pipe, "Frame pipe that it serves (default \\\\.\\pipe\\Ravlo)");
    options.Flag("--session", m_camera.session, "Show it until Ctrl+C; else it stays, also after a restart");
}

std::optional<std::string> StartArguments::Interpret(StartRequest& request) const {
    request = {};
    request.camera = m_camera;
    if (auto wrong = WhyNoCameraName(m_camera.name)) {
        return wrong;
    }
    // Size and pipe are always said, also when they are the defaults: what the camera falls back to is the business of
    // the process that hosts it, and its producer could only guess.
    if (auto wrong = InterpretGeometry(m_geometry, request.geometry)) {
        return wrong;
    }
    const auto pipe = ParsePipeName(m_pipe);
    if (!pipe) {
        return WhyNoPipeName(m_pipe);
    }
    request.pipe = *pipe;
    return std::nullopt;
}

StopArguments::StopArguments(CommandLine& line) {
    DeclareExistingCamera(
        line.Command("stop", "Hides the camera from applications; start shows it again.", kStopExamples), m_camera);
}

std::optional<std::string> StopArguments::Interpret(CameraIdentity& camera) const {
    camera = m_camera;
    return WhyNoCameraName(camera.name);
}

RemoveArguments::RemoveArguments(CommandLine& line) {
    DeclareExistingCamera(line.Command("remove", "Takes the camera out of the system.", kRemoveExamples), m_camera);
}

std::optional<std::string> RemoveArguments::Interpret(CameraIdentity& camera) const {
    camera = m_camera;
    return WhyNoCameraName(camera.name);
}

ListArguments::ListArguments(CommandLine& line) {
    OptionSet& options = line.Command("list", "Lists the cameras that applications of this user see.", kListExamples);
    options.Text("--name", "TEXT", m_request.name,
                 "Mark the camera that was started with this name (default Ravlo Camera)");
    options.Flag("--json", m_request.json, "Print one JSON object");
}

std::optional<std::string> ListArguments::Interpret(ListRequest& request) const {
    request = m_request;
    return WhyNoCameraName(request.name);
}

}  // namespace ravlo
