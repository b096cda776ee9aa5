// What rvclient makes of its command line, of results and of the system's list of cameras.
#include "rvclient/camera_list.h"
#include "rvclient/options.h"
#include "common/result_meaning.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace ravlo::test {
namespace {

std::string Narrow(const PipeName& name) {
    std::string text;
    for (std::size_t i = 0; name.text[i] != 0; ++i) {
        text += static_cast<char>(name.text[i]);
    }
    return text;
}

/// The four commands, with what a command line made of them.
struct ClientLine {
    explicit ClientLine(std::vector<std::string> words) {
        words.insert(words.begin(), "rvclient");
        code = line.Parse(words);
    }

    /// The sentence about a wrong `start`; empty when it is right.
    std::string StartError() { return start.Interpret(request).value_or(""); }

    CommandLine line{"rvclient", "Does things.", "  rvclient list\n"};
    StartArguments start{line};
    StopArguments stop{line};
    RemoveArguments remove{line};
    ListArguments list{line};
    std::optional<ExitCode> code;
    StartRequest request;
};

TEST(ClientOptions, ABareStartIsALastingCameraOfThisUserOnTheDefaultPipe) {
    ClientLine bare({"start"});
    ASSERT_EQ(bare.code, std::nullopt);
    EXPECT_EQ(bare.line.ChosenCommand(), "start");
    EXPECT_EQ(bare.StartError(), "");
    EXPECT_EQ(bare.request.camera.name, "Ravlo Camera");
    EXPECT_FALSE(bare.request.camera.allUsers);
    EXPECT_FALSE(bare.request.camera.session);
    EXPECT_EQ(bare.request.geometry, "1920x1080@60/1");
    EXPECT_EQ(Narrow(bare.request.pipe), "\\\\.\\pipe\\Ravlo");
}

TEST(ClientOptions, EachOptionOfStartReachesTheRequest) {
    ClientLine full({"start", "--name", "B\xC3\xBChne", "--geometry", "1280x720@30000/1001", "--pipe",
                     "\\\\.\\pipe\\Ravlo.42", "--all-users", "--session"});
    EXPECT_EQ(full.StartError(), "");
    EXPECT_EQ(full.request.camera.name, "B\xC3\xBChne");
    EXPECT_TRUE(full.request.camera.allUsers);
    EXPECT_TRUE(full.request.camera.session);
    EXPECT_EQ(full.request.geometry, "1280x720@30000/1001");
    EXPECT_EQ(Narrow(full.request.pipe), "\\\\.\\pipe\\Ravlo.42");
}

TEST(ClientOptions, TheGeometryIsHandedOnInTheFormThatTheCameraParses) {
    const struct {
        const char* typed;
        const char* request;
    } cases[] = {
        {"1280x720@30", "1280x720@30/1"},
        {"01280x0720@30", "1280x720@30/1"},
        {"7680x1080@60/1", "7680x1080@60/1"},
        {"3840x2160@1000", "3840x2160@1000/1"},
    };
    for (const auto& good : cases) {
        ClientLine client({"start", "--geometry", good.typed});
        EXPECT_EQ(client.StartError(), "") << good.typed;
        EXPECT_EQ(client.request.geometry, good.request);
    }
}

TEST(ClientOptions, AGeometryThatTheCameraWouldIgnoreIsRefused) {
    const struct {
        const char* typed;
        const char* shown;
    } cases[] = {
        {"4096x2160@30", "4096x2160@30/1"},
        {"1280x720@1001", "1280x720@1001/1"},
        {"1280x720@30000000/1000000", "1280x720@30000000/1000000"},
        {"16384x16384@900000/900000", "16384x16384@900000/900000"},
    };
    for (const auto& bad : cases) {
        ClientLine client({"start", "--geometry", bad.typed});
        EXPECT_EQ(client.StartError(),
                  std::string("no camera takes ") + bad.shown +
                      ": pictures of up to 3840x2160, up to 1000 a second, numbers of up to six digits");
    }
}

TEST(ClientOptions, NamesAreTextThatPeopleCanRead) {
    const std::string longest(64, 'x');
    for (const std::string& name : {std::string("A"),
                                    std::string("K\xC3\xBC"
                                                "che \xE2\x98\xBA"),
                                    longest, longest.substr(1) + "\xE2\x98\xBA"}) {
        EXPECT_EQ(WhyNoCameraName(name), std::nullopt) << name;
    }
    for (const char* blank : {"", " ", "    "}) {
        EXPECT_EQ(WhyNoCameraName(blank), "--name is blank: give the camera a name that people can choose it by");
    }
    for (const char* control : {"a\tb", "a\n", "\x7F", "\x1B[1m"}) {
        EXPECT_EQ(WhyNoCameraName(control),
                  "--name holds a character that cannot be shown, such as a tab or the end of a line");
    }
    EXPECT_EQ(WhyNoCameraName(longest + "x"), "--name has 65 characters; up to 64 are possible");
}

TEST(ClientOptions, EveryCommandChecksTheName) {
    for (const char* command : {"start", "stop", "remove", "list"}) {
        ClientLine client({command, "--name", " "});
        ASSERT_EQ(client.code, std::nullopt);
        CameraIdentity camera;
        ListRequest list;
        const std::string name = command;
        const auto wrong = name == "start"    ? client.start.Interpret(client.request)
                           : name == "stop"   ? client.stop.Interpret(camera)
                           : name == "remove" ? client.remove.Interpret(camera)
                                              : client.list.Interpret(list);
        EXPECT_EQ(wrong, "--name is blank: give the camera a name that people can choose it by") << command;
    }
}

TEST(ClientOptions, StopAndRemoveMeanALastingCamera) {
    ClientLine stop({"stop", "--name", "Second", "--all-users"});
    CameraIdentity camera;
    EXPECT_EQ(stop.stop.Interpret(camera), std::nullopt);
    EXPECT_EQ(camera.name, "Second");
    EXPECT_TRUE(camera.allUsers);
    EXPECT_FALSE(camera.session);
    ClientLine remove({"remove"});
    EXPECT_EQ(remove.remove.Interpret(camera), std::nullopt);
    EXPECT_EQ(camera.name, "Ravlo Camera");
    EXPECT_FALSE(camera.allUsers);
}

TEST(ClientOptions, ListTakesANameToMarkAndJson) {
    ClientLine client({"list", "--name", "Second", "--json"});
    ListRequest request;
    EXPECT_EQ(client.list.Interpret(request), std::nullopt);
    EXPECT_EQ(request.name, "Second");
    EXPECT_TRUE(request.json);
}

TEST(CameraResults, HaveWordsAndAnExitCode) {
    EXPECT_EQ(MeaningOf(0x80070005).words, "access is denied");
    EXPECT_EQ(MeaningOf(0x80070005).code, ExitCode::AccessDenied);
    EXPECT_EQ(MeaningOf(0x80040154).code, ExitCode::NotInstalled);
    EXPECT_EQ(MeaningOf(0x80004001).code, ExitCode::UnsupportedSystem);
    EXPECT_EQ(MeaningOf(0x80070490).words, "there is no such camera");
    EXPECT_EQ(MeaningOf(0x80070490).code, ExitCode::Failure);
    EXPECT_EQ(MeaningOf(0x8ABCDEF0).words, "");
    EXPECT_EQ(MeaningOf(0x8ABCDEF0).code, ExitCode::Failure);
    EXPECT_EQ(ResultNumber(0x80070005), "0x80070005");
    EXPECT_EQ(ResultNumber(0xC00D36B2), "0xC00D36B2");
}

const std::vector<ListedCamera> kCameras{
    {"Ravlo Camera (Windows Virtual Camera)", "\\\\?\\swd#VCamDevApi#1234#{e5323777-f976-4f5b-9b55-b94699c46e44}"},
    {"Ravlo Camera 2 (Windows Virtual Camera)", "\\\\?\\swd#vcamdevapi#5678"},
    {"Ravlo Camera", "\\\\?\\usb#vid_1234&pid_5678"},
    {"Another \"one\"", "\\\\?\\swd#vcamdevapi#9"},
};

TEST(CameraList, OneOfThisNameMustBeVirtualAndHaveNoOtherNameBehindIt) {
    EXPECT_TRUE(IsVirtualCamera(kCameras[0]));
    EXPECT_FALSE(IsVirtualCamera(kCameras[2]));
    EXPECT_TRUE(IsNamedCamera(kCameras[0], "Ravlo Camera"));
    EXPECT_FALSE(IsNamedCamera(kCameras[1], "Ravlo Camera"));
    EXPECT_FALSE(IsNamedCamera(kCameras[2], "Ravlo Camera"));
    EXPECT_TRUE(IsNamedCamera(kCameras[1], "Ravlo Camera 2"));
}

TEST(CameraList, TextHasTwoLinesACamera) {
    EXPECT_EQ(CameraListText(kCameras, "Ravlo Camera"),
              "Ravlo Camera (Windows Virtual Camera) [this camera]\n"
              "    \\\\?\\swd#VCamDevApi#1234#{e5323777-f976-4f5b-9b55-b94699c46e44}\n"
              "Ravlo Camera 2 (Windows Virtual Camera) [virtual]\n"
              "    \\\\?\\swd#vcamdevapi#5678\n"
              "Ravlo Camera [device]\n"
              "    \\\\?\\usb#vid_1234&pid_5678\n"
              "Another \"one\" [virtual]\n"
              "    \\\\?\\swd#vcamdevapi#9\n");
    EXPECT_EQ(CameraListText({}, "Ravlo Camera"), "");
    EXPECT_EQ(CameraListText({{"a\x1B[2Jb\n\x7F\xC3\xBC", "x\ty"}}, "a"), "a?[2Jb??\xC3\xBC [device]\n    x?y\n");
}

TEST(CameraList, JsonIsOneObjectInOneLine) {
    EXPECT_EQ(CameraListJson({kCameras[0], kCameras[3]}, "Ravlo Camera"),
              "{\"cameras\":[{\"name\":\"Ravlo Camera (Windows Virtual Camera)\","
              "\"link\":\"\\\\\\\\?\\\\swd#VCamDevApi#1234#{e5323777-f976-4f5b-9b55-b94699c46e44}\","
              "\"virtual\":true,\"ravlo\":true},"
              "{\"name\":\"Another \\\"one\\\"\",\"link\":\"\\\\\\\\?\\\\swd#vcamdevapi#9\","
              "\"virtual\":true,\"ravlo\":false}]}\n");
    EXPECT_EQ(CameraListJson({}, "Ravlo Camera"), "{\"cameras\":[]}\n");
}

}  // namespace
}  // namespace ravlo::test
