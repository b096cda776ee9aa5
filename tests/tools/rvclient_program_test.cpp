// rvclient.exe as a user runs it, with the stand-in for the system's virtual cameras.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "support/camera.h"
#include "support/registry.h"
#include "tools/program.h"
#include "tools/rvclient_test_stage.h"

namespace ravlo::test {
namespace {

using Lines = std::vector<std::string>;

constexpr char kIsSupported[] = "MFIsVirtualCameraTypeSupported type=0";
constexpr char kCreate[] =
    "MFCreateVirtualCamera type=0 lifetime=1 access=0 name=Ravlo Camera "
    "source={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} categories=null,0";

class RvClient : public ::testing::Test {
protected:
    AnchorGuard m_anchor{CurrentUserSid()};
    RegisteredCamera m_class;
    CameraRecord m_record;
};

/// The same without the class in the class store.
class RvClientAlone : public ::testing::Test {
protected:
    CameraRecord m_record;
};

// The stand-in shuts its source down when the last reference goes; nobody calls Shutdown.
TEST_F(RvClient, ALastingCameraIsStartedWithItsPipeAndNeverShutDown) {
    const ProgramResult result = RunProgram(L"rvclient", {L"start"});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.output,
              "rvclient: the camera \"Ravlo Camera\" (1920x1080@60/1, \\\\.\\pipe\\Ravlo) is started and stays until "
              "rvclient remove\n");
    EXPECT_EQ(m_record.Lines(),
              (Lines{kIsSupported, kCreate, "SetString {3F6B1D28-94C7-4E0A-B5D3-61A8C2E7F904} 1920x1080@60/1",
                     "SetString {7C41E2D9-5A06-4B3F-8E17-C2A9D4F06B58} \\\\.\\pipe\\Ravlo", "Start no callback",
                     "# source activated", "# source shut down"}));
}

TEST_F(RvClient, WhatTheUserAsksForReachesTheCamera) {
    const ProgramResult result =
        RunProgram(L"rvclient", {L"start", L"--name", L"B\u00FChne", L"--geometry", L"320x180@30", L"--pipe",
                                 L"\\\\.\\pipe\\Ravlo.77", L"--all-users"});
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_EQ(m_record.Lines(), (Lines{kIsSupported,
                                       "MFCreateVirtualCamera type=0 lifetime=1 access=1 name=B\xC3\xBChne "
                                       "source={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} categories=null,0",
                                       "SetString {3F6B1D28-94C7-4E0A-B5D3-61A8C2E7F904} 320x180@30/1",
                                       "SetString {7C41E2D9-5A06-4B3F-8E17-C2A9D4F06B58} \\\\.\\pipe\\Ravlo.77",
                                       "Start no callback", "# source activated", "# source shut down"}));
}

TEST_F(RvClientAlone, StopAndRemoveOpenTheSameCameraAndNeedNoRegistration) {
    const ProgramResult stop = RunProgram(L"rvclient", {L"stop"});
    EXPECT_EQ(stop.code, 0);
    EXPECT_EQ(stop.output, "rvclient: the camera \"Ravlo Camera\" is stopped; rvclient start shows it again\n");
    EXPECT_EQ(m_record.Lines(), (Lines{kIsSupported, kCreate, "Stop", "Shutdown"}));
    const ProgramResult remove = RunProgram(L"rvclient", {L"remove", L"--name", L"Second", L"--all-users"});
    EXPECT_EQ(remove.code, 0);
    EXPECT_EQ(remove.output, "rvclient: the camera \"Second\" is removed\n");
    EXPECT_EQ(m_record.Lines(), (Lines{kIsSupported, kCreate, "Stop", "Shutdown", kIsSupported,
                                       "MFCreateVirtualCamera type=0 lifetime=1 access=1 name=Second "
                                       "source={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} categories=null,0",
                                       "Remove", "Shutdown"}));
}

TEST_F(RvClientAlone, WithoutTheClassNothingIsCreated) {
    ASSERT_EQ(ModuleUnderTest().UnregisterServer(), S_OK);
    const ProgramResult result = RunProgram(L"rvclient", {L"start"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.output, "rvclient: the camera is not installed: run rvsetup install as administrator\n");
    EXPECT_EQ(m_record.Lines(), (Lines{kIsSupported}));
}

TEST_F(RvClientAlone, ASystemThatDoesNotSupportTheTypeIsSaidToBeTooOld) {
    const EnvironmentVariable unsupported(L"RAVLO_STANDIN_NO_VIRTUAL_CAMERA", L"1");
    for (const wchar_t* command : {L"start", L"stop", L"remove"}) {
        const ProgramResult result = RunProgram(L"rvclient", {command});
        EXPECT_EQ(result.code, 6);
        EXPECT_EQ(result.output,
                  "rvclient: this system has no virtual cameras (Windows says that it does not support them): they "
                  "need Windows 11, build 22000 or later; rvhost runs the camera on older systems\n");
    }
    EXPECT_EQ(m_record.Lines(), (Lines{kIsSupported, kIsSupported, kIsSupported}));
}

TEST_F(RvClient, EveryFailureOfTheSystemIsToldWithItsNumberAndWhatToDo) {
    constexpr char kPrivacy[] =
        "access is denied (0x80070005); look whether camera access is off: Settings > Privacy & security > Camera, "
        "\"Camera access\" and \"Let desktop apps access your camera\"; if both are on, use a console that was opened "
        "with \"Run as administrator\", or a camera with --session\n";
    constexpr char kElevate[] =
        "access is denied (0x80070005); a camera for all users needs an administrator: use a console that was opened "
        "with \"Run as administrator\", or leave out --all-users\n";
    const struct {
        const wchar_t* failures;
        Arguments arguments;
        int code;
        std::string sentence;
    } cases[] = {
        {L"MFIsVirtualCameraTypeSupported=80004001",
         {L"start"},
         6,
         "Windows does not say whether it supports virtual cameras: this Windows does not implement it (0x80004001)\n"},
        {L"MFCreateVirtualCamera=80070005",
         {L"start"},
         4,
         std::string("the camera \"Ravlo Camera\" cannot be created: ") + kPrivacy},
        {L"MFCreateVirtualCamera=80070005",
         {L"start", L"--all-users"},
         4,
         std::string("the camera \"Ravlo Camera\" cannot be created: ") + kElevate},
        {L"Start=80070005",
         {L"start", L"--name", L"Mine"},
         4,
         std::string("the camera \"Mine\" cannot be started: ") + kPrivacy},
        {L"Start=80070422",
         {L"start"},
         1,
         "the camera \"Ravlo Camera\" cannot be started: the camera service is disabled (0x80070422); start the "
         "service \"Windows Camera Frame Server\" in services.msc, as administrator\n"},
        {L"Start=80040154",
         {L"start"},
         3,
         "the camera \"Ravlo Camera\" cannot be started: the camera's class is not registered (0x80040154); run "
         "rvsetup install as administrator\n"},
        {L"Start=8ABCDEF0",
         {L"start", L"--session"},
         1,
         "the camera \"Ravlo Camera\" cannot be started: result 0x8ABCDEF0\n"},
        {L"SetString=8007000E",
         {L"start"},
         1,
         "the camera \"Ravlo Camera\" does not take its geometry: out of memory (0x8007000E)\n"},
        {L"Stop=80070490",
         {L"stop"},
         1,
         "the camera \"Ravlo Camera\" cannot be stopped: there is no such camera (0x80070490)\n"},
        {L"Remove=80070005",
         {L"remove", L"--all-users"},
         4,
         std::string("the camera \"Ravlo Camera\" cannot be removed: ") + kElevate},
    };
    for (const auto& failing : cases) {
        const EnvironmentVariable failures(L"RAVLO_STANDIN_FAIL", failing.failures);
        const ProgramResult result = RunProgram(L"rvclient", failing.arguments);
        EXPECT_EQ(result.code, failing.code) << failing.sentence;
        EXPECT_EQ(result.output, "rvclient: " + failing.sentence);
    }
}

TEST_F(RvClient, AResultThatOnlyTheSystemKnowsIsToldInTheSystemsWords) {
    const EnvironmentVariable failures(L"RAVLO_STANDIN_FAIL", L"Start=80070020");
    const ProgramResult result = RunProgram(L"rvclient", {L"start"});
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(result.output.starts_with("rvclient: the camera \"Ravlo Camera\" cannot be started: "))
        << result.output;
    EXPECT_TRUE(result.output.ends_with("(error 32), result 0x80070020\n")) << result.output;
}

TEST_F(RvClient, ACameraThatCannotBeStoppedOrRemovedIsStillLetGo) {
    const EnvironmentVariable failures(L"RAVLO_STANDIN_FAIL", L"Stop=80070490");
    EXPECT_EQ(RunProgram(L"rvclient", {L"stop"}).code, 1);
    EXPECT_EQ(m_record.Calls(), (Lines{kIsSupported, kCreate, "Stop", "Shutdown"}));
}

TEST_F(RvClientAlone, AListOfNoCamerasIsEmptyAndNoFailure) {
    const ProgramResult text = RunProgram(L"rvclient", {L"list"});
    EXPECT_EQ(text.code, 0);
    EXPECT_EQ(text.output, "rvclient: there is no camera\n");
    const ProgramResult json = RunProgram(L"rvclient", {L"list", L"--json"});
    EXPECT_EQ(json.code, 0);
    EXPECT_EQ(json.output, "{\"cameras\":[]}\n");
    EXPECT_EQ(m_record.Text(), "");
}

TEST_F(RvClient, AProducersPictureArrivesInTheCameraThatWasStarted) {
    const EnvironmentVariable pull(L"RAVLO_STANDIN_PULL", L"1");
    const std::wstring pipe = UniquePipeName();
    ChildProcess client =
        StartProgram(L"rvclient", {L"start", L"--session", L"--geometry", L"320x180@30", L"--pipe", pipe});
    ASSERT_TRUE(WaitForPipe(pipe, 20000)) << client.Output() << m_record.Text();
    ASSERT_TRUE(WaitUntil([&] { return m_record.Text().find("# sample bytes=86400 ") != std::string::npos; }, 20000))
        << m_record.Text();
    // 320 x 180 luma bytes of 97 and half as many chroma bytes of 200.
    constexpr char kPicture[] = "# sample bytes=86400 luma=97..97 chroma=200..200";
    EXPECT_FALSE(m_record.Contains(kPicture));
    const TemporaryFolder folder;
    ChildProcess feeder =
        StartProgram(L"rvfeeder", {folder.Write(L"film.nv12", std::string(57600, 'a') + std::string(28800, '\xC8')),
                                   L"--size", L"320x180", L"--rate", L"30", L"--loop", L"--pipe", pipe});
    EXPECT_TRUE(m_record.WaitForLine(kPicture)) << feeder.Output() << client.Output();
    feeder.Kill();
    client.Kill();
}

/// Runs rvclient with the arguments behind the first one on a console of its own, presses Ctrl+C as soon as its output
/// or the record holds the first one, and tells what came of it.
RAVLO_ROLE(PressCtrlC) {
    FreeConsole();
    if (!AllocConsole()) {
        return 3;
    }
    std::array<wchar_t, 1024> record{};
    GetEnvironmentVariableW(L"RAVLO_STANDIN_RECORD", record.data(), static_cast<DWORD>(record.size()));
    const std::string awaited(arguments.front().begin(), arguments.front().end());
    ChildProcess client = StartProgram(L"rvclient", Arguments(arguments.begin() + 1, arguments.end()));
    EXPECT_TRUE(WaitUntil(
        [&] {
            std::ifstream file(std::filesystem::path(record.data()), std::ios::binary);
            const std::string recorded{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            return (client.Output() + recorded).find(awaited) != std::string::npos;
        },
        20000, 10))
        << client.Output();
    SetConsoleCtrlHandler(nullptr, TRUE);  // all programs of the console get it, and this one has to go on
    const ULONGLONG pressed = GetTickCount64();
    EXPECT_TRUE(GenerateConsoleCtrlEvent(CTRL_C_EVENT, 0)) << GetLastError();
    const ProgramResult result = FinishProgram(client);
    std::printf("ended with %d after %llu ms\n%s", result.code, GetTickCount64() - pressed, result.output.c_str());
    return 0;
}

struct CtrlCResult {
    int code = -1;
    unsigned long long milliseconds = 0;
    std::string output;
};

CtrlCResult PressCtrlC(const std::wstring& awaited, Arguments arguments) {
    arguments.insert(arguments.begin(), awaited);
    ChildProcess role = StartRole("PressCtrlC", arguments);
    EXPECT_EQ(role.Wait(40000), 0U) << role.Output();
    const std::string text = role.Output();
    CtrlCResult result;
    EXPECT_EQ(std::sscanf(text.c_str(), "ended with %d after %llu ms", &result.code, &result.milliseconds), 2) << text;
    result.output = text.substr(text.find('\n') + 1);
    return result;
}

/// Promised is a second; the rest is for a machine that is busy with other tests.
constexpr unsigned long long kLongestEndMs = 3000;

TEST_F(RvClient, CtrlCEndsASessionCameraInOrder) {
    const std::wstring pipe = UniquePipeName();
    const CtrlCResult result = PressCtrlC(L"is there until Ctrl+C", {L"start", L"--session", L"--pipe", pipe});
    EXPECT_EQ(result.code, 130);
    EXPECT_LT(result.milliseconds, kLongestEndMs);
    EXPECT_TRUE(result.output.starts_with("rvclient: the camera \"Ravlo Camera\" (1920x1080@60/1, " +
                                          std::string(pipe.begin(), pipe.end()) +
                                          ") is there until Ctrl+C\n"
                                          "rvclient: taking the camera \"Ravlo Camera\" away\n"
                                          "rvclient: the camera \"Ravlo Camera\" is gone; it was there for "))
        << result.output;
    EXPECT_TRUE(result.output.ends_with(" seconds\n") || result.output.ends_with(" second\n")) << result.output;
    EXPECT_EQ(m_record.Lines(),
              (Lines{kIsSupported,
                     "MFCreateVirtualCamera type=0 lifetime=0 access=0 name=Ravlo Camera "
                     "source={5E3C9A71-0B4D-4F82-A6C1-7D2E8B90F134} categories=null,0",
                     "SetString {3F6B1D28-94C7-4E0A-B5D3-61A8C2E7F904} 1920x1080@60/1",
                     "SetString {7C41E2D9-5A06-4B3F-8E17-C2A9D4F06B58} " + std::string(pipe.begin(), pipe.end()),
                     "Start no callback", "# source activated", "Stop", "# source shut down", "Remove", "Shutdown"}));
}

TEST_F(RvClient, CtrlCEndsACallThatDoesNotReturn) {
    const EnvironmentVariable hang(L"RAVLO_STANDIN_FAIL", L"Start=hang");
    const CtrlCResult result = PressCtrlC(L"Start no callback", {L"start"});
    EXPECT_EQ(result.code, 130);
    EXPECT_LT(result.milliseconds, kLongestEndMs);
    EXPECT_EQ(result.output,
              "rvclient: interrupted while the system was still at work on it; rvclient list shows which cameras there "
              "are\n");
}

TEST_F(RvClient, AStopThatHangsKeepsNobodyWaiting) {
    const EnvironmentVariable hang(L"RAVLO_STANDIN_FAIL", L"Stop=hang");
    const CtrlCResult result =
        PressCtrlC(L"is there until Ctrl+C", {L"start", L"--session", L"--pipe", UniquePipeName()});
    EXPECT_EQ(result.code, 130);
    EXPECT_LT(result.milliseconds, kLongestEndMs);
    EXPECT_TRUE(
        result.output.ends_with("rvclient: interrupted while the system was still at work on it; rvclient list "
                                "shows which cameras there are\n"))
        << result.output;
}

}  // namespace
}  // namespace ravlo::test
