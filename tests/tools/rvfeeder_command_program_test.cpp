// rvfeeder.exe with --on-demand: a command that runs only while somebody watches.
#include "rvfeeder/command_process.h"
#include "support/import_hooks.h"
#include "tools/feeder_stage.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <fstream>

namespace ravlo::test {
namespace {

constexpr char kPicture[] = "FRAME\nabcdefghUVXY";

bool WriteToStandardOutput(const std::string& bytes) {
    DWORD done = 0;
    return WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) &&
           done == bytes.size();
}

void Note(const std::wstring& file, const std::string& line) {
    std::ofstream(file.c_str(), std::ios::app | std::ios::binary) << line << "\n";
}

/// A decoder: notes its process id in the file that it is given, and writes a film until nobody reads it.
RAVLO_ROLE(Decoder) {
    Note(arguments.at(0), "began " + std::to_string(GetCurrentProcessId()));
    bool isRead = WriteToStandardOutput("YUV4MPEG2 W4 H2 F20:1\n");
    while (isRead) {
        isRead = WriteToStandardOutput(kPicture);
        Sleep(20);
    }
    Note(arguments.at(0), "ended in order");
    return 0;
}

/// A decoder that sends one picture, and then neither writes nor ends.
RAVLO_ROLE(StubbornDecoder) {
    WriteToStandardOutput("YUV4MPEG2 W4 H2 F20:1\n" + std::string(kPicture));
    Note(arguments.at(0), "began " + std::to_string(GetCurrentProcessId()));
    Sleep(120'000);  // ended from outside long before
    return 0;
}

class RvFeederCommand : public RvFeeder {
protected:
    std::wstring RoleCommand(const std::wstring& role) const {
        std::wstring path(1040, L'\0');
        path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
        return L"\"" + path + L"\" --role=" + role + L" \"" + m_folder.File(L"notes.txt") + L"\"";
    }

    std::string Notes() const { return m_folder.Read(L"notes.txt"); }

    int Begun() const {
        int count = 0;
        const std::string notes = Notes();
        for (std::size_t at = notes.find("began "); at != std::string::npos; at = notes.find("began ", at + 1)) {
            ++count;
        }
        return count;
    }

    bool WaitForBegun(int count) const {
        return WaitUntil([&] { return Begun() >= count; }, kPatienceMs, 20);
    }

    /// The process that was noted last.
    UniqueObject LastDecoder() const {
        const std::string notes = Notes();
        const auto pid = std::strtoul(notes.c_str() + notes.rfind("began ") + 6, nullptr, 10);
        return UniqueObject(OpenProcess(SYNCHRONIZE, FALSE, pid));
    }
};

TEST_F(RvFeederCommand, RunsWhileSomebodyWatchesAndOnlyThen) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    ChildProcess feeder = StartProgram(
        L"rvfeeder", {L"--on-demand", RoleCommand(L"Decoder"), L"--pipe", camera.Name(), L"--idle-after", L"0.5"});
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: connected to ")) << feeder.Output();
    EXPECT_FALSE(WaitUntil([&] { return Begun() != 0; }, 1500, 20)) << "nobody watches yet";
    gate.Watch();
    ASSERT_TRUE(WaitForBegun(1)) << feeder.Output();
    ASSERT_TRUE(camera.WaitForCount(3)) << feeder.Output();
    EXPECT_EQ(camera.Frames().front().payload, "abcdefghUXVY");
    const UniqueObject first = LastDecoder();
    gate.Leave(Gate::kNever);
    ASSERT_TRUE(feeder.WaitForOutput("rvfeeder: nobody watches: the command is ended\n")) << feeder.Output();
    EXPECT_EQ(WaitForSingleObject(first.Get(), kPatienceMs), WAIT_OBJECT_0);
    EXPECT_NE(Notes().find("ended in order"), std::string::npos) << "it was told by its output, not killed";
    const std::size_t before = camera.Count();
    gate.Watch();
    ASSERT_TRUE(WaitForBegun(2)) << feeder.Output();
    EXPECT_TRUE(camera.WaitForCount(before + 3)) << feeder.Output();
    EXPECT_TRUE(feeder.WaitForOutput("rvfeeder: somebody watches again: the command is started\n"));
}

TEST_F(RvFeederCommand, WhatDoesNotEndByItselfIsEndedWithEverythingThatItStarted) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    gate.Watch();
    ChildProcess feeder =
        StartProgram(L"rvfeeder", {L"--on-demand", RoleCommand(L"StubbornDecoder"), L"--pipe", camera.Name()});
    ASSERT_TRUE(camera.WaitForCount(1)) << feeder.Output();
    ASSERT_TRUE(WaitForBegun(1));
    const UniqueObject decoder = LastDecoder();
    ASSERT_TRUE(decoder);
    EXPECT_EQ(WaitForSingleObject(decoder.Get(), 0), WAIT_TIMEOUT);
    gate.Leave(Gate::kNever);
    EXPECT_EQ(WaitForSingleObject(decoder.Get(), kPatienceMs), WAIT_OBJECT_0) << feeder.Output();
}

TEST_F(RvFeederCommand, TheCommandDoesNotOutliveTheProgram) {
    FrameTaker camera;
    ChildProcess feeder = StartProgram(
        L"rvfeeder", {L"--on-demand", RoleCommand(L"StubbornDecoder"), L"--pipe", camera.Name(), L"--frames", L"1"});
    ASSERT_TRUE(WaitForBegun(1)) << "without a gate, connected counts as watched: " << feeder.Output();
    const UniqueObject decoder = LastDecoder();
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 0) << result.output;
    EXPECT_TRUE(!decoder || WaitForSingleObject(decoder.Get(), kPatienceMs) == WAIT_OBJECT_0);
}

TEST_F(RvFeederCommand, AtTheEndOfTheProgramTheCommandMayPutItsThingsInOrder) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    gate.Watch();
    // It has a fraction of a second, of which a busy machine may leave it nothing.
    for (int tries = 0; tries < 5 && Notes().find("ended in order") == std::string::npos; ++tries) {
        const ProgramResult result = RunProgram(
            L"rvfeeder", {L"--on-demand", RoleCommand(L"Decoder"), L"--pipe", camera.Name(), L"--frames", L"1"});
        EXPECT_EQ(result.code, 0) << result.output;
    }
    EXPECT_NE(Notes().find("ended in order"), std::string::npos) << Notes();
}

TEST_F(RvFeederCommand, ACommandOpensAWindowOnlyWhenThereIsAConsoleToShowItselfIn) {
    RAVLO_HOOK(CreateProcessW) processes(ThisProgram());
    RAVLO_HOOK(GetConsoleWindow) windows(ThisProgram());
    const auto flagsWith = [&](HWND console) {
        windows.Replace([console] { return console; });
        const CommandProcess command("echo");
        return std::get<5>(processes.Calls().back());
    };
    EXPECT_EQ(flagsWith(nullptr) & CREATE_NO_WINDOW, static_cast<DWORD>(CREATE_NO_WINDOW));
    EXPECT_EQ(flagsWith(GetDesktopWindow()) & CREATE_NO_WINDOW, 0U) << "it shares the console";
}

TEST_F(RvFeederCommand, ACommandThatEndsByItselfIsStartedAgain) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    gate.Watch();
    const std::wstring film = m_folder.Write(L"a film.y4m", Film(3));
    ChildProcess feeder = StartProgram(
        L"rvfeeder", {L"--on-demand", L"type \"" + film + L"\"", L"--pipe", camera.Name(), L"--frames", L"5"});
    const ProgramResult result = FinishProgram(feeder);
    EXPECT_EQ(result.code, 0);
    EXPECT_NE(result.output.find("rvfeeder: the command has ended by itself with exit code 0; starting it again in "
                                 "1 s\n"),
              std::string::npos)
        << result.output;
    const std::vector<ReceivedFrame> frames = camera.Frames();
    ASSERT_EQ(frames.size(), 5U);
    std::string letters;
    for (const ReceivedFrame& frame : frames) {
        letters += frame.payload[0];
    }
    EXPECT_EQ(letters, "abcab");
}

TEST_F(RvFeederCommand, ACommandWithoutPicturesIsSaidAndTriedAgain) {
    FrameTaker camera;
    Gate gate(camera.Name(), Gate::kNever);
    gate.Watch();
    const ProgramResult result = RunProgram(L"rvfeeder", {L"--on-demand", L"echo GIF89a", L"--pipe", camera.Name(),
                                                          L"--seconds", L"3", L"--expect", L"4x2"});
    EXPECT_EQ(result.code, 0) << "there was a camera, and the time is over";
    const std::size_t first = result.output.find("rvfeeder: the command's pictures cannot be used (");
    ASSERT_NE(first, std::string::npos) << result.output;
    EXPECT_NE(result.output.find("); starting it again in 1 s\n", first), std::string::npos) << result.output;
    EXPECT_EQ(camera.Count(), 0U);
}

}  // namespace
}  // namespace ravlo::test
