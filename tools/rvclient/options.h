#pragma once

#include <optional>
#include <string>

#include "common/command_line.h"
#include "pipe/pipe_name.h"

namespace ravlo {

/// What a camera is called unless the user says otherwise.
inline constexpr char kDefaultCameraName[] = "Ravlo Camera";

/// What the system tells one virtual camera of this source from another by.
struct CameraIdentity {
    std::string name = kDefaultCameraName;  ///< UTF-8
    bool allUsers = false;                  ///< for every user of the machine, else for the one who starts it
    bool session = false;                   ///< ends with the program that made it, else stays until it is removed
};

/// A camera to be started.
struct StartRequest {
    CameraIdentity camera;
    std::string geometry;  ///< as the camera parses it, such as 1280x720@30/1
    PipeName pipe;
};

/// A list to be shown.
struct ListRequest {
    std::string name = kDefaultCameraName;  ///< cameras of this name are marked
    bool json = false;
};

/// The command line of one command: declares its options when it is made, and tells what they mean once they have been
/// parsed. Interpret gives a sentence for the user when something is wrong; the request means nothing then.
class StartArguments {
public:
    explicit StartArguments(CommandLine& line);
    StartArguments(const StartArguments&) = delete;
    StartArguments& operator=(const StartArguments&) = delete;

    std::optional<std::string> Interpret(StartRequest& request) const;

private:
    CameraIdentity m_camera;
    std::string m_geometry;
    std::string m_pipe;
};

class StopArguments {
public:
    explicit StopArguments(CommandLine& line);
    StopArguments(const StopArguments&) = delete;
    StopArguments& operator=(const StopArguments&) = delete;

    std::optional<std::string> Interpret(CameraIdentity& camera) const;

private:
    CameraIdentity m_camera;
};

class RemoveArguments {
public:
    explicit RemoveArguments(CommandLine& line);
    RemoveArguments(const RemoveArguments&) = delete;
    RemoveArguments& operator=(const RemoveArguments&) = delete;

    std::optional<std::string> Interpret(CameraIdentity& camera) const;

private:
    CameraIdentity m_camera;
};

class ListArguments {
public:
    explicit ListArguments(CommandLine& line);
    ListArguments(const ListArguments&) = delete;
    ListArguments& operator=(const ListArguments&) = delete;

    std::optional<std::string> Interpret(ListRequest& request) const;

private:
    ListRequest m_request;
};

/// Why `name` is no name for a camera, as a sentence; nothing when it is one.
std::optional<std::string> WhyNoCameraName(const std::string& name);

}  // namespace ravlo
