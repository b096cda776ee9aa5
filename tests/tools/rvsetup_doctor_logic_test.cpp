#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "rvsetup/doctor/access_check.h"
#include "rvsetup/doctor/doctor_options.h"
#include "rvsetup/doctor/finding.h"
#include "rvsetup/doctor/log_story.h"
#include "rvsetup/system/pe_image.h"

namespace ravlo::test {
namespace {

constexpr const char* kUser = "S-1-5-21-1-2-3-1001";

AccessEntry Allow(const char* sid, std::uint32_t rights) {
    return {.rights = rights, .sid = sid};
}

AccessEntry Deny(const char* sid, std::uint32_t rights) {
    return {.allows = false, .rights = rights, .sid = sid};
}

TEST(AccessCheck, AFileUnderProgramFilesIsOpenToServices) {
    const AccessList list =
        std::vector{Allow("S-1-5-18", 0x1F01FF), Allow("S-1-5-32-544", 0x1F01FF), Allow("S-1-5-32-545", 0x1200A9)};
    EXPECT_TRUE(CanReadAndExecute(list, LocalServiceSids()));
}

TEST(AccessCheck, AFileInAUsersFolderIsNot) {
    const AccessList list =
        std::vector{Allow("S-1-5-18", 0x1F01FF), Allow("S-1-5-32-544", 0x1F01FF), Allow(kUser, 0x1F01FF)};
    EXPECT_FALSE(CanReadAndExecute(list, LocalServiceSids()));
    EXPECT_EQ(GrantedRights(list, LocalServiceSids()), 0U);
    EXPECT_TRUE(CanReadAndExecute(list, {kUser}));
}

TEST(AccessCheck, EachGroupOfTheServiceCounts) {
    for (const char* sid : {"S-1-5-19", "S-1-1-0", "S-1-5-11", "S-1-5-32-545", "S-1-5-6", "S-1-2-0"}) {
        EXPECT_TRUE(CanReadAndExecute(std::vector{Allow(sid, 0x1200A9)}, LocalServiceSids())) << sid;
    }
    EXPECT_FALSE(CanReadAndExecute(std::vector{Allow("S-1-5-20", 0x1F01FF)}, LocalServiceSids()));
}

TEST(AccessCheck, RightsAddUpAndReadingAloneIsNotEnough) {
    EXPECT_FALSE(CanReadAndExecute(std::vector{Allow("S-1-1-0", 0x120089)}, LocalServiceSids()));
    EXPECT_TRUE(
        CanReadAndExecute(std::vector{Allow("S-1-1-0", 0x120089), Allow("S-1-5-19", 0x1200A0)}, LocalServiceSids()));
}

TEST(AccessCheck, ARefusalCountsOnlyInFrontOfThePermission) {
    EXPECT_FALSE(
        CanReadAndExecute(std::vector{Deny("S-1-5-19", 0x20), Allow("S-1-1-0", 0x1F01FF)}, LocalServiceSids()));
    EXPECT_TRUE(CanReadAndExecute(std::vector{Allow("S-1-1-0", 0x1F01FF), Deny("S-1-5-19", 0x20)}, LocalServiceSids()));
    EXPECT_TRUE(CanReadAndExecute(std::vector{Deny(kUser, 0x1F01FF), Allow("S-1-1-0", 0x1F01FF)}, LocalServiceSids()));
}

TEST(AccessCheck, GenericRightsStandForThoseOfAFile) {
    EXPECT_TRUE(CanReadAndExecute(std::vector{Allow("S-1-1-0", 0x10000000)}, LocalServiceSids()));
    EXPECT_TRUE(CanReadAndExecute(std::vector{Allow("S-1-1-0", 0xA0000000)}, LocalServiceSids()));
    EXPECT_FALSE(CanReadAndExecute(std::vector{Allow("S-1-1-0", 0x80000000)}, LocalServiceSids()));
    EXPECT_FALSE(
        CanReadAndExecute(std::vector{Deny("S-1-1-0", 0x20000000), Allow("S-1-1-0", 0x1F01FF)}, LocalServiceSids()));
}

TEST(AccessCheck, EntriesForWhatLiesBelowDoNotCount) {
    AccessEntry entry = Allow("S-1-1-0", 0x1F01FF);
    entry.inheritOnly = true;
    EXPECT_FALSE(CanReadAndExecute(std::vector{entry}, LocalServiceSids()));
}

TEST(AccessCheck, NoListLetsEverybodyInAndAnEmptyOneNobody) {
    EXPECT_TRUE(CanReadAndExecute(std::nullopt, LocalServiceSids()));
    EXPECT_FALSE(CanReadAndExecute(std::vector<AccessEntry>{}, LocalServiceSids()));
}

/// A DLL with one section at address 0x1000, which holds the names that its tables refer to.
class MadeDll {
public:
    MadeDll() : m_bytes(0x600, '\0') {
        Text(0, "MZ");
        Number(0x3C, 0x80, 4);
        Text(0x80, std::string("PE\0\0", 4));
        Number(0x84, 0x8664, 2);
        Number(0x86, 1, 2);       // sections
        Number(0x94, 0xF0, 2);    // length of the optional header
        Number(0x96, 0x2022, 2);  // a DLL
        Number(0x98, 0x20B, 2);
        Number(0x98 + 108, 2, 4);       // directories
        Number(0x98 + 112, 0x1000, 4);  // exports
        Number(0x98 + 120, 0x1100, 4);  // imports
        const std::size_t section = 0x98 + 0xF0;
        Number(section + 12, 0x1000, 4);
        Number(section + 16, 0x400, 4);
        Number(section + 20, 0x200, 4);
        Number(0x200 + 24, 1, 4);  // one name
        Number(0x200 + 32, 0x1080, 4);
        Number(0x280, 0x1090, 4);
        Text(0x290, "DllGetClassObject");
        Number(0x300 + 12, 0x1180, 4);
        Text(0x380, "mfplat.dll");
    }

    void Number(std::size_t at, std::uint32_t value, int length) {
        for (int i = 0; i < length; ++i) {
            m_bytes[at + static_cast<std::size_t>(i)] = static_cast<char>((value >> (8 * i)) & 0xFF);
        }
    }
    void Text(std::size_t at, const std::string& text) { m_bytes.replace(at, text.size(), text); }
    const std::string& Bytes() const { return m_bytes; }

private:
    std::string m_bytes;
};

TEST(PeImage, HeadersExportsAndImportsAreRead) {
    const MadeDll dll;
    const PeImage file = ReadPeImage(dll.Bytes());
    EXPECT_TRUE(file.isPe);
    EXPECT_TRUE(file.is64);
    EXPECT_TRUE(file.isDll);
    EXPECT_FALSE(file.isDamaged);
    EXPECT_EQ(file.exports, std::vector<std::string>{"DllGetClassObject"});
    EXPECT_EQ(file.imports, std::vector<std::string>{"mfplat.dll"});
    EXPECT_EQ(file.version, "");
    EXPECT_TRUE(ExportsName(file, "DllGetClassObject"));
    EXPECT_FALSE(ExportsName(file, "DllMain"));
}

TEST(PeImage, OtherFilesAreToldApart) {
    EXPECT_FALSE(ReadPeImage("").isProgram);
    EXPECT_FALSE(ReadPeImage("#!/bin/sh\n").isPe);
    MadeDll dos;
    dos.Text(0x80, "NE");
    EXPECT_TRUE(ReadPeImage(dos.Bytes()).isProgram);
    EXPECT_FALSE(ReadPeImage(dos.Bytes()).isPe);
    MadeDll small;
    small.Number(0x84, 0x14C, 2);
    EXPECT_TRUE(ReadPeImage(small.Bytes()).is32Bit);
    EXPECT_FALSE(ReadPeImage(small.Bytes()).is64);
    MadeDll program;
    program.Number(0x96, 0x22, 2);
    EXPECT_FALSE(ReadPeImage(program.Bytes()).isDll);
}

TEST(PeImage, DamagedFilesOfAnyLengthAreReadWithoutHarm) {
    const MadeDll dll;
    for (std::size_t length = 0; length <= dll.Bytes().size(); ++length) {
        const PeImage file = ReadPeImage(std::string(dll.Bytes(), 0, length));
        EXPECT_LE(file.exports.size(), 1U);
        EXPECT_EQ(file.isDamaged, (length >= 2 && length < 0x40) || (length > 0x80 && length < 0x38B)) << length;
    }
    MadeDll wild;
    wild.Number(0x200 + 24, 0xFFFFFFFF, 4);
    EXPECT_TRUE(ReadPeImage(wild.Bytes()).isDamaged);
    EXPECT_TRUE(ReadPeImage(wild.Bytes()).exports.empty());
    wild.Number(0x200 + 24, 1, 4);
    wild.Number(0x200 + 32, 0xFFFFFFF0, 4);
    EXPECT_TRUE(ReadPeImage(wild.Bytes()).isDamaged);
    wild.Number(0x3C, 0xFFFFFFF0, 4);
    EXPECT_FALSE(ReadPeImage(wild.Bytes()).isPe);
}

TEST(Finding, TextHasALineACheckAndTheNextStepBelowIt) {
    const std::vector<Finding> findings{FoundOk("windows", "fine"), FoundWarning("log", "odd", "look"),
                                        FoundFailure("pipe", ExitCode::PeerAbsent, "gone", "open it")};
    EXPECT_EQ(FindingsAsText(findings),
              "OK   fine\n"
              "WARN odd\n"
              "     look\n"
              "FAIL gone\n"
              "     open it\n");
    EXPECT_EQ(FindingsAsJson(findings),
              R"({"checks":[{"id":"windows","result":"OK","found":"fine","next":""},)"
              R"({"id":"log","result":"WARN","found":"odd","next":"look"},)"
              R"({"id":"pipe","result":"FAIL","found":"gone","next":"open it"}],"worst":"FAIL","exit":5})"
              "\n");
}

TEST(Finding, ControlCharactersOfOthersReachNoTerminal) {
    const std::vector<Finding> findings{FoundWarning("log", "a\x1B]0;b\x07\nc",
                                                     "d\xC2\x9B"
                                                     "2Je")};
    EXPECT_EQ(FindingsAsText(findings), "WARN a?]0;b??c\n     d?2Je\n");
    EXPECT_NE(FindingsAsJson(findings).find(R"("found":"a?]0;b??c","next":"d?2Je")"), std::string::npos);
}

TEST(Finding, TheFirstFailureDecidesTheExitCode) {
    EXPECT_EQ(CodeForFindings({}), ExitCode::Ok);
    EXPECT_EQ(CodeForFindings({FoundWarning("a", "b", "c")}), ExitCode::Ok);
    EXPECT_EQ(CodeForFindings({FoundWarning("a", "b", "c"), FoundFailure("a", ExitCode::NotInstalled, "b", "c"),
                               FoundFailure("a", ExitCode::PeerAbsent, "b", "c")}),
              ExitCode::NotInstalled);
    EXPECT_EQ(WorstResult({FoundOk("a", "b"), FoundWarning("a", "b", "c")}), FindingResult::Warn);
}

/// Feeds a log whose lines all come from process 10, thread 20 unless they say otherwise.
LogStory StoryOf(const std::vector<std::string>& lines, std::int64_t lastWriteMs = 100'000'000'000) {
    LogReader reader("rvsetup.exe");
    for (const std::string& line : lines) {
        reader.Add(line.starts_with('[') ? line : "[10:20 host.exe] 10:00:00.000 " + line);
    }
    return reader.Finish(lastWriteMs);
}

const std::vector<std::string> kServing = {
    "TRACEPATH candidate=1 path=C:\\ProgramData\\Ravlo\\trace.log",
    "PIPE name \\\\.\\pipe\\Ravlo.7 - route=client-attribute; the camera owner published it explicitly",
    "PIPE created \\\\.\\pipe\\Ravlo.7 - DACL grants S-1-5-21-1-2-3-1001 and LOCAL SYSTEM, nobody else; waiting",
    "PIPE owner set to S-1-5-19 - rvfeeder.exe accepts only S-1-5-19",
    "[10:21 host.exe] 10:00:00.000 GATE serving \\\\.\\pipe\\Ravlo.7.gate - the bridge may now see"};

std::vector<std::string> ServingAnd(std::vector<std::string> more) {
    std::vector<std::string> lines = kServing;
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

TEST(LogStory, AServedPipeHasNameOwnerUserAndGate) {
    const LogStory story = StoryOf(kServing);
    EXPECT_EQ(story.tracePath, "TRACEPATH candidate=1 path=C:\\ProgramData\\Ravlo\\trace.log");
    ASSERT_EQ(story.streams.size(), 1U);
    const StreamStory& stream = story.streams[0];
    EXPECT_EQ(stream.processId, 10U);
    EXPECT_EQ(stream.process, "host.exe");
    EXPECT_EQ(stream.pipeName, "\\\\.\\pipe\\Ravlo.7");
    EXPECT_EQ(stream.admitted, kUser);
    EXPECT_EQ(stream.owner, "S-1-5-19");
    EXPECT_TRUE(stream.pipeExists);
    EXPECT_TRUE(stream.gateServed);
    EXPECT_FALSE(stream.clientConnected);
    EXPECT_EQ(stream.lastRequestMs, 0);
}

TEST(LogStory, AProducerComesSendsAndGoes) {
    const std::string connected = "PIPE client connected - admitted by the DACL for S-1-5-21-1-2-3-1001";
    const std::string live = "PIPE delivering live frames 320x180 seq=1";
    const LogStory sending = StoryOf(ServingAnd({connected, live}));
    EXPECT_TRUE(sending.streams[0].clientConnected);
    EXPECT_EQ(sending.streams[0].live, "320x180");
    const LogStory other =
        StoryOf(ServingAnd({connected, live, "PIPE geometry mismatch: wire 2x2, advertised 4x4 - pattern"}));
    EXPECT_TRUE(other.streams[0].geometryMismatch);
    EXPECT_EQ(other.streams[0].live, "");
    for (const char* end :
         {"PIPE the writer closed the pipe - client slot released", "PIPE client dropped by an I/O FAULT mid-frame",
          "FAIL PIPE header rejected: MAGIC (wire", "FAIL PIPE oversized frame refused before allocation: w"}) {
        const LogStory gone = StoryOf(ServingAnd({connected, live, end}));
        EXPECT_FALSE(gone.streams[0].clientConnected) << end;
        EXPECT_EQ(gone.streams[0].live, "") << end;
        ASSERT_EQ(gone.troubles.size(), 1U) << end;
    }
}

TEST(LogStory, AStreamThatEndedIsForgotten) {
    EXPECT_TRUE(StoryOf(ServingAnd({"PIPE reader thread exiting"})).streams.empty());
    // Another thread's end is another stream's end.
    EXPECT_EQ(StoryOf(ServingAnd({"[10:99 host.exe] 10:00:00.000 PIPE reader thread exiting"})).streams.size(), 1U);
}

TEST(LogStory, TheLastRequestIsDated) {
    const std::int64_t day = 1000LL * 86'400'000;
    const LogStory story =
        StoryOf(ServingAnd({"[10:33 host.exe] 10:00:01.500 STM.RequestSample observed 5 total calls (rate-limited)",
                            "[10:33 host.exe] 10:00:02.000 RET STM.RequestSample hr=0x00000000"}),
                day + 36'002'100);
    EXPECT_EQ(story.streams[0].lastRequestMs, day + 36'001'500);
}

TEST(LogStory, RequestsOfAnEarlierStreamDoNotCount) {
    std::vector<std::string> lines{"STM.RequestSample observed 5 total calls (rate-limited)"};
    lines.insert(lines.end(), kServing.begin(), kServing.end());
    EXPECT_EQ(StoryOf(lines).streams.at(0).lastRequestMs, 0);
}

TEST(LogStory, OnlyTheNewestOfEachKindOfTroubleIsKeptAndCounted) {
    const std::int64_t day = 1000LL * 86'400'000;
    const LogStory story =
        StoryOf({"[1:2 a.exe] 09:00:00.000 PIPE geometry mismatch: wire 2x2, advertised 4x4 - pattern",
                 "[1:2 a.exe] 09:30:00.000 FAIL SOMETHING new hr=0x80004005",
                 "[3:4 b.exe] 10:00:00.000 PIPE geometry mismatch: wire 6x6, advertised 4x4 - pattern"},
                day + 36'000'000);
    ASSERT_EQ(story.troubles.size(), 2U);
    EXPECT_EQ(story.troubles[0].message, "PIPE geometry mismatch: wire 6x6, advertised 4x4 - pattern");
    EXPECT_EQ(story.troubles[0].count, 2U);
    EXPECT_EQ(story.troubles[0].process, "b.exe");
    EXPECT_EQ(story.troubles[0].whenMs, day + 36'000'000);
    EXPECT_EQ(story.troubles[1].known, nullptr);
    EXPECT_EQ(story.troubles[1].whenMs, day + 34'200'000);
}

TEST(LogStory, WhatRecoveredIsNoTroubleAnyMore) {
    const std::string anchor = "FAIL PIPE no usable authorization anchor (ABSENT) at HKLM";
    EXPECT_EQ(StoryOf({anchor}).troubles.size(), 1U);
    EXPECT_TRUE(StoryOf({anchor, "PIPE authorized user read from HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid: S"})
                    .troubles.empty());
    EXPECT_TRUE(StoryOf({"FAIL PIPE the listen could not be armed, GetLastError=1", "PIPE the listen recovered"})
                    .troubles.empty());
    EXPECT_TRUE(StoryOf({"FAIL SRC.Stop hr=0x80004005", "RET SRC.Stop hr=0x00000000"}).troubles.empty());
    EXPECT_EQ(StoryOf({"FAIL SRC.Stop hr=0x80004005", "RET SRC.Start hr=0x00000000"}).troubles.size(), 1U);
    EXPECT_TRUE(StoryOf({"FAIL NEW.Thing hr=0x80004005", "RET NEW.Thing hr=0x00000000"}).troubles.empty());
}

TEST(LogStory, OrdinaryRefusalsAndOwnLinesAreNoTrouble) {
    EXPECT_TRUE(
        StoryOf({"FAIL QI-SRC {00000000-0000-0000-0000-000000000001} hr=0x80004002", "FAIL SRC.GetEvent hr=0xC00D3E85",
                 "[10:20 rvsetup.exe] 10:00:00.000 FAIL PIPE no usable authorization anchor (ABSENT)"})
            .troubles.empty());
}

TEST(LogStory, OnlyPipesThatACameraCanHaveAreLookedFor) {
    std::vector<std::string> lines;
    for (const char* name : {"Ravlo.7", "Ravlo", "Ravlo.7", "other"}) {
        lines.push_back("[10:" + std::to_string(lines.size()) + " host.exe] 10:00:00.000 PIPE created \\\\.\\pipe\\" +
                        name + " - DACL grants S-1-5-19 and");
    }
    lines.push_back("[10:99 host.exe] 10:00:00.000 PIPE created \\\\server\\pipe\\Ravlo - DACL grants S-1-5-19 and");
    lines.push_back("[10:98 host.exe] 10:00:00.000 PIPE created  - DACL grants S-1-5-19 and");
    EXPECT_EQ(ServedPipes(StoryOf(lines)), (std::vector<std::string>{"\\\\.\\pipe\\Ravlo.7", "\\\\.\\pipe\\Ravlo"}));
}

TEST(LogStory, ALogThatSomebodyFilledIsReadInBoundedTimeAndSpace) {
    std::vector<std::string> lines;
    for (int i = 0; i < 40'000; ++i) {
        lines.push_back("FAIL NEW.Thing" + std::to_string(i));
    }
    for (int i = 0; i < 2000; ++i) {
        lines.push_back("[" + std::to_string(i) + ":1 host.exe] 10:00:01.000 PIPE created \\\\.\\pipe\\Ravlo." +
                        std::to_string(i) + " - DACL grants S-1-5-19 and");
    }
    lines.push_back("[7:1 host.exe] 10:00:01.000 FAIL NEW.Thing hr=0x80004005");
    const LogStory story = StoryOf(lines);
    EXPECT_EQ(story.troubles.size(), 64U);
    EXPECT_EQ(story.troubles.front().message, "FAIL NEW.Thing hr=0x80004005");
    EXPECT_EQ(story.streams.size(), 1024U);
    EXPECT_EQ(ServedPipes(story).size(), 64U);
}

TEST(DoctorOptions, OnlyFramePipesAreTaken) {
    EXPECT_EQ(WhatIsWrongWith(DoctorOptions{.pipe = "\\\\.\\pipe\\Ravlo.7"}), "");
    EXPECT_EQ(WhatIsWrongWith(DoctorOptions{}), "");
    EXPECT_EQ(WhatIsWrongWith(DoctorOptions{.pipe = "Ravlo"}),
              "\"Ravlo\" is no frame pipe: \\\\.\\pipe\\Ravlo, or that with a dot and a number");
}

}  // namespace
}  // namespace ravlo::test
