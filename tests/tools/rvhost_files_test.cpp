// What rvhost.exe keeps of a stream: the snapshot, the video and every Nth picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "common/wide_text.h"
#include "support/camera.h"
#include "support/frames.h"
#include "support/pattern.h"
#include "support/registry.h"
#include "tools/png_pixels.h"
#include "tools/program.h"

namespace ravlo::test {
namespace {

constexpr std::uint32_t kWidth = 320;
constexpr std::uint32_t kHeight = 180;
constexpr std::size_t kFrameBytes = 86'400;
constexpr char kVideoHeader[] = "YUV4MPEG2 W320 H180 F30:1 Ip A1:1 C420mpeg2 XCOLORRANGE=LIMITED\n";

class RvHostFiles : public ::testing::Test {
protected:
    Arguments Host(const std::wstring& pipe, const Arguments& more) const {
        Arguments all{L"--dll", ProgramDirectory() + L"\\rvmediasource.dll", L"--geometry", L"320x180@30", L"--pipe",
                      pipe};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    AnchorGuard m_anchor{CurrentUserSid()};
    TemporaryFolder m_folder;
};

/// The frames of a Y4M file as packed NV12 again; empty when the file has another header or another length.
std::vector<std::vector<std::uint8_t>> FramesOf(const std::string& video) {
    const std::string header = kVideoHeader;
    const std::size_t step = kFrameBytes + 6;
    std::vector<std::vector<std::uint8_t>> frames;
    if (!video.starts_with(header) || (video.size() - header.size()) % step != 0) {
        return frames;
    }
    for (std::size_t at = header.size(); at < video.size(); at += step) {
        if (video.compare(at, 6, "FRAME\n") != 0) {
            return {};
        }
        const std::string_view planar = std::string_view(video).substr(at + 6, kFrameBytes);
        const std::size_t luma = std::size_t{kWidth} * kHeight;
        std::vector<std::uint8_t> nv12(planar.begin(), planar.begin() + static_cast<std::ptrdiff_t>(luma));
        for (std::size_t i = 0; i < luma / 4; ++i) {
            nv12.push_back(static_cast<std::uint8_t>(planar[luma + i]));
            nv12.push_back(static_cast<std::uint8_t>(planar[luma + luma / 4 + i]));
        }
        frames.push_back(std::move(nv12));
    }
    return frames;
}

/// The farthest that any component of the picture is from the exact conversion of the frame.
double FarthestFrom(const std::vector<std::uint8_t>& nv12, const RgbImage& image) {
    double farthest = 0;
    for (std::size_t y = 0; y < kHeight; ++y) {
        for (std::size_t x = 0; x < kWidth; ++x) {
            const std::uint8_t* const pair = &nv12[std::size_t{kWidth} * kHeight + y / 2 * kWidth + x / 2 * 2];
            const double luma = 255.0 * (nv12[y * kWidth + x] - 16) / 219;
            const double cb = 255.0 * (pair[0] - 128) / 224;
            const double cr = 255.0 * (pair[1] - 128) / 224;
            // Kr = 0.2126, Kb = 0.0722 and the rest is green.
            const double exact[3] = {
                luma + 2 * (1 - 0.2126) * cr,
                luma - 2 * (1 - 0.0722) * 0.0722 / 0.7152 * cb - 2 * (1 - 0.2126) * 0.2126 / 0.7152 * cr,
                luma + 2 * (1 - 0.0722) * cb};
            for (std::size_t i = 0; i < 3; ++i) {
                const double shown = image.pixels[(y * kWidth + x) * 3 + i];
                farthest = std::max(farthest, std::abs(shown - std::clamp(exact[i], 0.0, 255.0)));
            }
        }
    }
    return farthest;
}

TEST_F(RvHostFiles, TheVideoHoldsEverySampleAndTheSnapshotIsTheLastOne) {
    const std::wstring pipe = UniquePipeName();
    ChildProcess host =
        StartProgram(L"rvhost", Host(pipe, {L"--seconds", L"2", L"--y4m", m_folder.File(L"v.y4m"), L"--snapshot",
                                            m_folder.File(L"last.png"), L"--samples-csv", m_folder.File(L"t.csv")}));
    ChildProcess producer = StartProducer(pipe, kWidth, kHeight, 30);
    const ProgramResult result = FinishProgram(host);
    producer.Kill();
    ASSERT_EQ(result.code, 0) << result.output;
    const auto frames = FramesOf(m_folder.Read(L"v.y4m"));
    ASSERT_GE(frames.size(), 10U) << result.output;
    EXPECT_NE(result.output.find("Y4M frames:       " + std::to_string(frames.size()) + " (dropped 0)\n"),
              std::string::npos)
        << result.output;
    const std::string csv = m_folder.Read(L"t.csv");
    EXPECT_EQ(static_cast<std::size_t>(std::count(csv.begin(), csv.end(), '\n')), frames.size() + 2);
    std::uint32_t newest = 0;
    std::set<std::uint32_t> seen;
    for (const auto& frame : frames) {
        const auto signature = SignatureOf(frame, kWidth, kHeight);
        if (!signature) {
            EXPECT_TRUE(TestPatternShift(frame, kWidth, kHeight)) << "neither the producer's nor the camera's own";
            continue;
        }
        EXPECT_GE(*signature, newest);
        newest = *signature;
        seen.insert(*signature);
    }
    EXPECT_GE(seen.size(), 5U);
    const RgbImage snapshot = DecodePng(m_folder.Read(L"last.png"));
    ASSERT_EQ(snapshot.width, kWidth);
    ASSERT_EQ(snapshot.height, kHeight);
    EXPECT_LE(FarthestFrom(frames.back(), snapshot), 1.0);
}

TEST_F(RvHostFiles, EveryNthSampleIsAPicture) {
    const ProgramResult result =
        RunProgram(L"rvhost", Host(UniquePipeName(), {L"--frames", L"11", L"--pictures", m_folder.File(L"a\\shots"),
                                                      L"--every", L"5", L"--picture-width", L"80"}));
    ASSERT_EQ(result.code, 0) << result.output;
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path() / L"a" / L"shots")) {
        names.insert(entry.path().filename().string());
    }
    EXPECT_EQ(names, (std::set<std::string>{"000001-pattern.png", "000006-pattern.png", "000011-pattern.png"}));
    EXPECT_EQ(DecodePng(m_folder.Read(L"a\\shots\\000006-pattern.png")).width, 80U);
}

TEST_F(RvHostFiles, EveryNthSampleMayBeKeptInFullSize) {
    const ProgramResult result = RunProgram(
        L"rvhost",
        Host(UniquePipeName(), {L"--frames", L"4", L"--snapshot", m_folder.File(L"s.png"), L"--every", L"3"}));
    ASSERT_EQ(result.code, 0) << result.output;
    for (const wchar_t* name : {L"s.png", L"s-000001.png", L"s-000004.png"}) {
        EXPECT_EQ(DecodePng(m_folder.Read(name)).width, kWidth);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.Path()), {}), 3);
}

TEST_F(RvHostFiles, WhatCannotBeWrittenIsSaidBeforeTheCameraStarts) {
    const std::wstring file = m_folder.Write(L"file", "x");
    const struct {
        Arguments arguments;
        std::string sentence;
    } cases[] = {
        {{L"--snapshot", m_folder.File(L"gone\\s.png")},
         "cannot write " + ToUtf8(m_folder.File(L"gone\\s.png")) +
             " (--snapshot): its folder does not exist; make it first"},
        {{L"--y4m", m_folder.Path().wstring()},
         "cannot write " + ToUtf8(m_folder.Path().wstring()) + " (--y4m): it is a folder; name a file in it"},
        {{L"--contact-sheet", m_folder.File(L"file\\c.png")},
         "cannot write " + ToUtf8(m_folder.File(L"file\\c.png")) +
             " (--contact-sheet): its folder does not exist; make it first"},
        {{L"--y4m", L"NUL"}, "cannot write NUL (--y4m): that name belongs to a device; choose another one"},
        {{L"--samples-csv", m_folder.File(L"gone\\t.csv")},
         "cannot write " + ToUtf8(m_folder.File(L"gone\\t.csv")) +
             " (--samples-csv): its folder does not exist; make it first"},
        {{L"--pictures", file + L"\\shots"},
         "cannot create the folder " + ToUtf8(file) +
             "\\shots: a part of its path is a file, or its drive takes no folders"},
    };
    for (const auto& wrong : cases) {
        // A camera that is not there would have its own sentence and code 3.
        Arguments arguments{L"--dll", m_folder.File(L"missing.dll")};
        arguments.insert(arguments.end(), wrong.arguments.begin(), wrong.arguments.end());
        const ProgramResult result = RunProgram(L"rvhost", arguments);
        EXPECT_EQ(result.code, 1) << wrong.sentence;
        EXPECT_EQ(result.output, "rvhost: " + wrong.sentence + "\n");
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_folder.Path()), {}), 1) << "nothing was made";
}

}  // namespace
}  // namespace ravlo::test
