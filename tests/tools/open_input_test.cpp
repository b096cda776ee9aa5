// Inputs as the system hands them out: files, standard input, named pipes, and what of them reaches a camera.
#include "rvfeeder/open_input.h"

#include <gtest/gtest.h>

#include <windows.h>

#include "common/messages.h"
#include "common/wide_text.h"
#include "rvfeeder/file_source.h"
#include "tools/feeder_stage.h"
#include "tools/memory_source.h"
#include "tools/red_png.h"

namespace ravlo::test {
namespace {

InputOptions FromPath(const std::wstring& path) {
    InputOptions options;
    options.path = ToUtf8(path);
    return options;
}

std::string FirstPicture(PictureReader& reader) {
    std::string picture(FrameBytes(reader.Geometry()), '\0');
    const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(picture.data()), picture.size());
    return reader.ReadPicture(bytes) ? picture : "END";
}

/// Standard input of this process for as long as it lives: a file, or a pipe that holds some bytes and has ended.
class StandardInput {
public:
    explicit StandardInput(UniqueObject file) : m_before(GetStdHandle(STD_INPUT_HANDLE)), m_reading(std::move(file)) {
        SetStdHandle(STD_INPUT_HANDLE, m_reading.Get());
    }
    explicit StandardInput(const std::string& bytes) : m_before(GetStdHandle(STD_INPUT_HANDLE)) {
        HANDLE reading = nullptr;
        HANDLE writing = nullptr;
        DWORD written = 0;
        if (!CreatePipe(&reading, &writing, nullptr, 1 << 16)) {
            throw std::runtime_error("no pipe");
        }
        m_reading = UniqueObject(reading);
        const UniqueObject closed(writing);
        if (!bytes.empty() && !WriteFile(writing, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) {
            throw std::runtime_error("the pipe takes nothing");
        }
        SetStdHandle(STD_INPUT_HANDLE, reading);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;
    ~StandardInput() { SetStdHandle(STD_INPUT_HANDLE, m_before); }

private:
    HANDLE m_before;
    UniqueObject m_reading;
};

/// What the program says to its user.
class SaidLines {
public:
    SaidLines() {
        s_lines.clear();
        NameMessages("test", [](std::string_view, std::string_view text) noexcept { s_lines.emplace_back(text); });
    }
    SaidLines(const SaidLines&) = delete;
    SaidLines& operator=(const SaidLines&) = delete;
    ~SaidLines() { NameMessages("test", WriteMessage); }

    const std::vector<std::string>& Lines() const { return s_lines; }

private:
    static inline std::vector<std::string> s_lines;
};

class OpenInputFiles : public ::testing::Test {
protected:
    TemporaryFolder m_folder;
    const InputNote m_ignore = [](const std::string&) {};
};

TEST_F(OpenInputFiles, AFileIsReadFromItsBeginningAndItsLengthIsKnown) {
    const auto source = OpenByteSource(ToUtf8(m_folder.Write(L"\u00E4.bin", "0123456789")));
    EXPECT_EQ(source->TotalBytes(), 10U);
    std::uint8_t bytes[20]{};
    EXPECT_EQ(source->ReadFully(bytes, sizeof(bytes)), 10U);
    EXPECT_EQ(bytes[9], '9');
}

TEST_F(OpenInputFiles, WhatIsNoFileIsSaidInTheUsersTerms) {
    const std::string folder = ToUtf8(m_folder.Path().wstring());
    EXPECT_EQ(InputErrorOf([&] { OpenByteSource(folder); }),
              "cannot open " + folder + ": it is a folder; give one file");
    const std::string missing = folder + "\\missing.y4m";
    const std::string error = InputErrorOf([&] { OpenByteSource(missing); });
    EXPECT_TRUE(error.starts_with("cannot open " + missing + ": ")) << error;
    EXPECT_TRUE(error.ends_with("(error 2)")) << error;
}

TEST_F(OpenInputFiles, AFilmWithoutOneWholePictureIsRefusedAtOnce) {
    const std::wstring film = m_folder.Write(L"film.y4m", Film(1));
    EXPECT_EQ(FirstPicture(*OpenInput(FromPath(film), m_ignore)), "aaaaaaaaUXVY");
    m_folder.Write(L"film.y4m", Film(1).substr(0, Film(1).size() - 1));
    EXPECT_EQ(InputErrorOf([&] { OpenInput(FromPath(film), m_ignore); }), "the Y4M stream ends inside picture 1");
    InputOptions raw = FromPath(film);
    raw.rawGeometry = FrameGeometry{1280, 720, 30, 1};
    m_folder.Write(L"film.y4m", "short");
    EXPECT_EQ(InputErrorOf([&] { OpenInput(raw, m_ignore); }),
              "the input has 5 bytes, less than one picture: a 1280x720 picture has 1382400; is --size right?");
}

TEST_F(OpenInputFiles, ThePictureTellsWhatItIsAndNotTheName) {
    EXPECT_EQ(FirstPicture(*OpenInput(FromPath(m_folder.Write(L"film.y4m", kRedPng)), m_ignore)), kRedNv12);
    EXPECT_EQ(FirstPicture(*OpenInput(FromPath(m_folder.Write(L"red.png", Film(1))), m_ignore)), "aaaaaaaaUXVY");
}

TEST_F(OpenInputFiles, NotesAreForTheFirstRoundOfALoopOnly) {
    const SaidLines said;
    std::string film = Film(1);
    film.replace(film.find(" C420"), 5, " XCOLORRANGE=FULL");
    const auto opener = InputOpener(FromPath(m_folder.Write(L"film.y4m", film)));
    ASSERT_NE(opener(), nullptr);
    ASSERT_NE(opener(), nullptr);
    EXPECT_EQ(said.Lines(),
              (std::vector<std::string>{"note: the input is full range; its pictures are converted to the "
                                        "limited range that the camera announces"}));
}

TEST(OpenInput, StandardInputIsRecognisedAlthoughItCannotBeReadTwice) {
    InputOptions options;
    options.path = "-";
    const InputNote ignore = [](const std::string&) {};
    {
        const StandardInput input(Film(2));
        const auto reader = OpenInput(options, ignore);
        EXPECT_EQ(FirstPicture(*reader), "aaaaaaaaUXVY");
        EXPECT_EQ(FirstPicture(*reader), "bbbbbbbbUXVY");
        EXPECT_EQ(FirstPicture(*reader), "END");
    }
    {
        const StandardInput input(kRedPng);
        EXPECT_EQ(FirstPicture(*OpenInput(options, ignore)), kRedNv12);
    }
    {
        const StandardInput input("");
        EXPECT_EQ(InputErrorOf([&] { OpenInput(options, ignore); }), "the input is empty");
    }
    {
        const StandardInput input("abc");
        EXPECT_EQ(OpenByteSource("-")->TotalBytes(), std::nullopt);
    }
}

TEST(OpenInput, TheTestCardNeedsNoFile) {
    InputOptions options;
    options.testCard = true;
    options.cardGeometry = FrameGeometry{320, 180, 25, 1};
    const auto reader = OpenInput(options, [](const std::string&) {});
    EXPECT_EQ(reader->Geometry(), (FrameGeometry{320, 180, 25, 1}));
    const std::string first = FirstPicture(*reader);
    EXPECT_EQ(first.size(), 86'400U);
    EXPECT_NE(first, FirstPicture(*reader));
}

TEST(OpenInput, ANamedPipeWhoseServerHangsUpHasEnded) {
    const std::wstring name = LR"(\\.\pipe\ravlo-film-)" + std::to_wstring(GetCurrentProcessId());
    const UniqueFile server(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_OUTBOUND, 0, 1, 4096, 4096, 0, nullptr));
    ASSERT_TRUE(server);
    const auto source = OpenByteSource(ToUtf8(name));
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(server.Get(), "abc", 3, &written, nullptr));
    std::uint8_t bytes[4]{};
    ASSERT_EQ(source->ReadFully(bytes, 3), 3U);
    ASSERT_TRUE(DisconnectNamedPipe(server.Get()));
    EXPECT_EQ(source->Read(bytes, 1), 0U);
}

TEST_F(OpenInputFiles, StandardInputFromAFileCanWait) {
    InputOptions options;
    options.path = "-";
    {
        const StandardInput pipe("abc");
        EXPECT_TRUE(IsLive(options));
    }
    const StandardInput file(UniqueObject(CreateFileW(m_folder.Write(L"film.y4m", Film(1)).c_str(), GENERIC_READ, 0,
                                                      nullptr, OPEN_EXISTING, 0, nullptr)));
    EXPECT_FALSE(IsLive(options));
    EXPECT_EQ(FirstPicture(*OpenInput(options, m_ignore)), "aaaaaaaaUXVY");
}

TEST(OpenInput, OnlyStandardInputAndNamedPipesAreLive) {
    const StandardInput pipe("");
    const auto isLive = [](const char* path) {
        InputOptions options;
        options.path = path;
        return IsLive(options);
    };
    EXPECT_TRUE(isLive("-"));
    EXPECT_TRUE(isLive(R"(\\.\pipe\film)"));
    EXPECT_FALSE(isLive("film.y4m"));
    EXPECT_FALSE(isLive(R"(C:\pipe\film.y4m)"));
    InputOptions card;
    card.testCard = true;
    card.cardGeometry = kDefaultGeometry;
    EXPECT_FALSE(IsLive(card));
}

class RvFeederInputs : public RvFeeder {};

TEST_F(RvFeederInputs, AStillPictureReachesTheCameraAgainAndAgain) {
    FrameTaker camera;
    const ProgramResult result = RunProgram(L"rvfeeder", {m_folder.Write(L"red.png", kRedPng), L"--rate", L"50",
                                                          L"--frames", L"5", L"--always", L"--pipe", camera.Name()});
    EXPECT_EQ(result.code, 0) << result.output;
    ASSERT_TRUE(camera.WaitForCount(5));
    for (const ReceivedFrame& frame : camera.Frames()) {
        EXPECT_EQ(frame.header.width, 2U);
        EXPECT_EQ(frame.payload, kRedNv12);
    }
}

TEST_F(RvFeederInputs, RawBytesThatAreLeftOverAreSaidAndNotSent) {
    FrameTaker camera;
    const ProgramResult result =
        RunProgram(L"rvfeeder", {m_folder.Write(L"a.nv12", "abcdefABCDEFabc"), L"--size", L"2x2", L"--rate", L"50",
                                 L"--always", L"--pipe", camera.Name()});
    EXPECT_EQ(result.code, 1) << result.output;
    EXPECT_NE(
        result.output.find("rvfeeder: the input ends inside picture 3: 3 bytes are left over, a 2x2 picture has 6; "
                           "is --size right?\n"),
        std::string::npos)
        << result.output;
    ASSERT_TRUE(camera.WaitForCount(2));
    EXPECT_EQ(camera.Frames()[0].payload, "abcdef");
    EXPECT_EQ(camera.Frames()[1].payload, "ABCDEF");
}

}  // namespace
}  // namespace ravlo::test
