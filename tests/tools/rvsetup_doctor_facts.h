#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "rvsetup/doctor/diagnose.h"

namespace ravlo::test {

inline constexpr const char* kUser = "S-1-5-21-1-2-3-1001";
inline constexpr const char* kPipe = "\\\\.\\pipe\\Ravlo";
inline constexpr const char* kDll = "C:\\Program Files\\Ravlo\\1.0.0\\rvmediasource.dll";
inline constexpr std::int64_t kNow = 1'800'000'000'000;

/// A machine on which everything is as it should be, with a producer at work.
inline DoctorFacts Healthy() {
    DoctorFacts facts;
    facts.nowMs = kNow;
    facts.ownVersion = "1.0.0";
    facts.windows = {10, 0, 22631};
    facts.module.keyExists = true;
    facts.module.path = kDll;
    facts.module.threadingModel = "Both";
    facts.module.fileExists = true;
    facts.module.pe.isProgram = facts.module.pe.isPe = facts.module.pe.is64 = facts.module.pe.isDll = true;
    facts.module.pe.exports = {"DllGetClassObject"};
    facts.module.pe.version = "1.0.0";
    facts.access.fileList = facts.access.folderList = std::vector<AccessEntry>{{true, false, 0x1F01FF, "S-1-5-18"},
                                                                               {true, false, 0x1F01FF, "S-1-5-32-544"},
                                                                               {true, false, 0x1200A9, "S-1-5-32-545"}};
    facts.access.fileOwner = facts.access.folderOwner = "S-1-5-32-544";
    facts.access.folder = "C:\\Program Files\\Ravlo\\1.0.0";
    facts.anchor = {AnchorReason::Ok, kUser, "PC\\mira", AccountKind::User, "SidTypeUser", kUser, "PC\\mira"};
    facts.logs.resize(2);
    facts.logs[0].path = "C:\\ProgramData\\Ravlo\\trace.log";
    facts.logs[0].verdict = "OK";
    facts.logs[0].isUsable = true;
    facts.logs[0].exists = true;
    facts.logs[0].mayAppend = true;
    facts.logs[0].lastWriteMs = kNow - 90'000;
    facts.logs[1].path = "C:\\Windows\\Temp\\ravlo-trace.log";
    facts.logs[1].isUsable = true;
    facts.chosenLog = 0;
    facts.story.lines = 7;
    StreamStory stream;
    stream.processId = 40;
    stream.process = "svchost.exe";
    stream.pipeName = kPipe;
    stream.pipeExists = true;
    stream.clientConnected = true;
    stream.owner = "S-1-5-19";
    stream.admitted = kUser;
    stream.live = "1280x720";
    stream.lastRequestMs = kNow - 500;
    facts.story.streams = {stream};
    facts.pipes = {{kPipe, PipePresence::Busy, "", PipePresence::Busy}};
    facts.processes = {{40, "svchost.exe"}, {50, "rvfeeder.exe"}};
    return facts;
}

/// What a check found, as shown: "RESULT found | next".
inline std::string Shown(const DoctorFacts& facts, const std::string& id) {
    for (const Finding& finding : Diagnose(facts)) {
        if (finding.id == id) {
            return std::string(ResultWord(finding.result)) + " " + finding.found +
                   (finding.next.empty() ? "" : " | " + finding.next);
        }
    }
    return "no such check";
}

inline ExitCode CodeOf(const DoctorFacts& facts) {
    return CodeForFindings(Diagnose(facts));
}

inline bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

}  // namespace ravlo::test
