#include "rvsetup/doctor/diagnose.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tools/rvsetup_doctor_facts.h"

namespace ravlo::test {
namespace {

TEST(Diagnose, TheLogIsNamedWithItsAgeAndTheVerdicts) {
    EXPECT_EQ(Shown(Healthy(), "log"),
              "OK trace log C:\\ProgramData\\Ravlo\\trace.log, last written 90 s ago (C:\\ProgramData\\Ravlo: OK)");
    DoctorFacts refused = Healthy();
    refused.logs[0].verdict = "REFUSED-FOREIGN-OWNER";
    refused.logs[0].isUsable = false;
    EXPECT_TRUE(Has(Shown(refused, "log"), "WARN trace log "));
    EXPECT_TRUE(Has(Shown(refused, "log"), "(C:\\ProgramData\\Ravlo: REFUSED-FOREIGN-OWNER)"));
    EXPECT_TRUE(Has(Shown(refused, "log"), "the camera would not write into this folder now, and others may have"));
    DoctorFacts fallback = Healthy();
    fallback.chosenLog = 1;
    fallback.logs[0].isUsable = false;
    EXPECT_TRUE(Has(Shown(fallback, "log"), "the log goes to the last resort"));
    refused.chosenLog.reset();
    refused.logs[0].isRefused = true;
    EXPECT_TRUE(Has(Shown(refused, "log"),
                    "WARN the trace log C:\\ProgramData\\Ravlo\\trace.log is not read: others may have written it"));
    DoctorFacts none = Healthy();
    none.chosenLog.reset();
    none.logs[0].isMissing = true;
    EXPECT_TRUE(Has(Shown(none, "log"), "WARN there is no trace log yet (C:\\ProgramData\\Ravlo: OK)"));
    DoctorFacts unreadable = Healthy();
    unreadable.logs[0].error = "Access is denied (error 5)";
    EXPECT_TRUE(Has(Shown(unreadable, "log"), "it cannot be read: Access is denied (error 5)"));
    DoctorFacts told = Healthy();
    told.story.tracePath = "TRACEPATH candidate=1";
    EXPECT_EQ(Shown(told, "log-choice"), "OK the last process chose: TRACEPATH candidate=1");
}

TEST(Diagnose, WithoutAPipeItDependsOnWhoAsks) {
    DoctorFacts idle = Healthy();
    idle.pipes[0].frames = PipePresence::Absent;
    idle.story.streams.clear();
    EXPECT_TRUE(Has(Shown(idle, "pipe"), "WARN \\\\.\\pipe\\Ravlo is not there: no program has the camera open"));
    EXPECT_EQ(CodeOf(idle), ExitCode::Ok);
    DoctorFacts wanted = idle;
    wanted.wantedPipe = kPipe;
    EXPECT_TRUE(Has(Shown(wanted, "pipe"), "FAIL \\\\.\\pipe\\Ravlo is not there: no camera serves it"));
    EXPECT_EQ(CodeOf(wanted), ExitCode::PeerAbsent);
    DoctorFacts probing = idle;
    probing.isProbing = true;
    EXPECT_EQ(CodeOf(probing), ExitCode::PeerAbsent);
    DoctorFacts open = Healthy();
    open.pipes[0].frames = PipePresence::Absent;
    open.story.streams[0].pipeExists = false;
    EXPECT_TRUE(Has(Shown(open, "pipe"),
                    "FAIL svchost.exe (40) has the camera open, but its pipe \\\\.\\pipe\\Ravlo is not there"));
}

TEST(Diagnose, APipeOfAStrangerOrForAnotherUserIsAWarning) {
    DoctorFacts stranger = Healthy();
    stranger.story.streams[0].owner = "S-1-5-21-1-2-3-1002";
    EXPECT_TRUE(Has(Shown(stranger, "pipe"), "rvfeeder writes to no pipe of this owner"));
    DoctorFacts self = Healthy();
    self.story.streams[0].owner = kUser;
    EXPECT_TRUE(Has(Shown(self, "pipe"), "OK "));
    DoctorFacts changed = Healthy();
    changed.story.streams[0].admitted = "S-1-5-21-1-2-3-1002";
    EXPECT_TRUE(Has(Shown(changed, "pipe"), "the registry names another user by now"));
    DoctorFacts unknown = Healthy();
    unknown.story.streams.clear();
    unknown.pipes[0].frames = PipePresence::Free;
    EXPECT_EQ(Shown(unknown, "pipe"),
              "WARN \\\\.\\pipe\\Ravlo is there, waiting for a producer; the log does not say who serves it | rvsetup "
              "doctor --probe tells whose it is");
    DoctorFacts unowned = Healthy();
    unowned.story.streams[0].owner.clear();
    EXPECT_TRUE(Has(Shown(unowned, "pipe"), "owner unknown, lets in "));
}

TEST(Diagnose, AProcessThatEndedServesNothing) {
    DoctorFacts facts = Healthy();
    facts.processes = {{40, "other.exe"}};
    EXPECT_TRUE(Has(Shown(facts, "pipe"), "the log does not say who serves it"));
    EXPECT_TRUE(
        Has(Shown(facts, "producer"),
            "WARN somebody is connected to \\\\.\\pipe\\Ravlo; the log does not say what it sends; no rvfeeder runs"));
    facts.pipes[0].frames = PipePresence::Free;
    EXPECT_TRUE(Has(Shown(facts, "producer"), "WARN no producer is connected; no rvfeeder runs"));
    facts.processes = {{40, "SvcHost.EXE"}};
    EXPECT_TRUE(Has(Shown(facts, "pipe"), "served by svchost.exe (40)"));
}

TEST(Diagnose, ProcessesThatCannotBeListedAreNotTakenForEnded) {
    DoctorFacts facts = Healthy();
    facts.processes.clear();
    facts.areProcessesKnown = false;
    EXPECT_EQ(Shown(facts, "producer"),
              "OK a producer sends 1280x720 to \\\\.\\pipe\\Ravlo; whether rvfeeder runs cannot be found out");
    facts.areProcessesKnown = true;
    facts.processes = {{40, "svchost.exe"}, {50, "RvFeeder.EXE"}};
    EXPECT_TRUE(Has(Shown(facts, "producer"), "rvfeeder runs (50)"));
}

TEST(Diagnose, TheGateIsLookedForWithoutAProbe) {
    EXPECT_EQ(Shown(Healthy(), "gate"),
              "OK its gate \\\\.\\pipe\\Ravlo.gate, which tells the demand, is there, and somebody reads it");
    DoctorFacts facts = Healthy();
    facts.pipes[0].gate = PipePresence::Absent;
    EXPECT_TRUE(
        Has(Shown(facts, "gate"), "WARN its gate \\\\.\\pipe\\Ravlo.gate is not to be seen | the picture is not"));
    facts.pipes[0].frames = PipePresence::Absent;
    EXPECT_EQ(Shown(facts, "gate"), "no such check");
}

TEST(Diagnose, OfSeveralPipesTheProbeNamesTheOneThatItOpened) {
    DoctorFacts facts = Healthy();
    facts.isProbing = true;
    facts.probe = ProbeFacts{};
    facts.probe->name = kPipe;
    EXPECT_EQ(Shown(facts, "probe"), "no such check");
    facts.pipes.push_back({"\\\\.\\pipe\\Ravlo.7", PipePresence::Free, "", PipePresence::Free});
    EXPECT_TRUE(Has(Shown(facts, "probe"), "OK of these pipes only \\\\.\\pipe\\Ravlo was opened"));
    EXPECT_TRUE(Has(Shown(facts, "gate"), "Ravlo.7.gate"));
}

TEST(Diagnose, TheProducerIsDescribedByWhatItSends) {
    DoctorFacts silent = Healthy();
    silent.story.streams[0].live.clear();
    EXPECT_TRUE(Has(Shown(silent, "producer"), "and has sent no frame yet"));
    DoctorFacts other = Healthy();
    other.story.streams[0].geometryMismatch = true;
    EXPECT_TRUE(Has(Shown(other, "producer"), "sends another size than the camera shows"));
    DoctorFacts waiting = Healthy();
    waiting.story.streams[0].clientConnected = false;
    EXPECT_EQ(
        Shown(waiting, "producer"),
        "WARN no producer is connected; rvfeeder runs (50); a camera without one shows the test pattern | see what "
        "rvfeeder itself says");
}

TEST(Diagnose, AProbeSaysWhatTheGateAndThePipeAnswered) {
    DoctorFacts facts = Healthy();
    facts.isProbing = true;
    ProbeFacts probe;
    probe.name = kPipe;
    probe.gateOpened = probe.gateTrusted = probe.gotRecord = probe.framesBusy = true;
    probe.gateOwner = "S-1-5-19";
    probe.requestCount = 12;
    probe.idleMs = 30;
    facts.probe = probe;
    EXPECT_EQ(
        Shown(facts, "gate"),
        "OK the gate says: 12 samples asked for, the last 30 ms ago; owner LOCAL SERVICE (the camera service of Windows)");
    EXPECT_TRUE(Has(Shown(facts, "pipe-owner"), "was left alone"));
    facts.probe->gotRecord = false;
    EXPECT_TRUE(Has(Shown(facts, "gate"), "WARN the gate pipe is open, but no record came within 2 s"));
    facts.probe->gateTrusted = false;
    facts.probe->gateOwner = "S-1-5-21-9-9-9-9";
    EXPECT_TRUE(
        Has(Shown(facts, "gate"), "FAIL the gate pipe belongs to S-1-5-21-9-9-9-9, whom a producer does not trust"));
    EXPECT_EQ(CodeOf(facts), ExitCode::AccessDenied);
    facts.probe->gateOpened = false;
    facts.probe->gateError = "busy";
    EXPECT_TRUE(Has(Shown(facts, "gate"), "WARN the gate pipe cannot be opened: busy"));
    facts.probe->gateDenied = true;
    EXPECT_EQ(Shown(facts, "gate"),
              "FAIL the gate pipe does not let you in: busy | run as the user who may send frames");
    EXPECT_EQ(CodeOf(facts), ExitCode::AccessDenied);
    facts.probe->gateBusy = true;
    EXPECT_EQ(Shown(facts, "gate"), "OK the gate pipe has a producer on it and was left alone");
    facts.probe->framesBusy = false;
    facts.probe->framesOpened = true;
    facts.probe->framesError = "it belongs to somebody";
    EXPECT_EQ(CodeOf(facts), ExitCode::AccessDenied);
    facts.probe->framesOpened = false;
    EXPECT_EQ(CodeOf(facts), ExitCode::PeerAbsent);
    facts.probe->framesDenied = true;
    EXPECT_EQ(CodeOf(facts), ExitCode::AccessDenied);
    facts.probe->framesOpened = true;
    facts.probe->framesTrusted = true;
    facts.probe->framesOwner = "LOCAL SYSTEM (S-1-5-18)";
    EXPECT_EQ(Shown(facts, "pipe-owner"), "OK the frame pipe lets you in; it belongs to LOCAL SYSTEM (S-1-5-18)");
}

Trouble Failed(const std::string& message, std::int64_t whenMs) {
    return {FindFailure(message), message, "svchost.exe", 40, whenMs, 1};
}

TEST(Diagnose, TroubleIsExplainedWithItsAge) {
    DoctorFacts facts = Healthy();
    facts.story.troubles = {Failed("PIPE geometry mismatch: wire 2x2, advertised 4x4 - pattern", kNow - 180'000)};
    facts.story.troubles[0].count = 3;
    EXPECT_EQ(
        Shown(facts, "failure"),
        "WARN the producer sends another size than the camera shows; its frames are dropped and the picture is the "
        "test pattern [3 min ago, svchost.exe, 3 times]: PIPE geometry mismatch: wire 2x2, advertised 4x4 - pattern | "
        "give both the same size: rvfeeder's input, or the camera's geometry with rvclient --geometry");
    facts.story.troubles = {Failed("FAIL NEW.Thing hr=0x80004005", 0)};
    EXPECT_EQ(
        Shown(facts, "failure"),
        "WARN the log says [at an unknown time, svchost.exe]: FAIL NEW.Thing hr=0x80004005 | rvsetup trace shows the "
        "lines around it");
}

TEST(Diagnose, PassingEventsOfAnEndedCameraAreNotShown) {
    DoctorFacts facts = Healthy();
    facts.processes.clear();
    facts.story.troubles = {Failed("PIPE the writer closed the pipe - client slot released", kNow)};
    EXPECT_TRUE(Has(Shown(facts, "failure"), "OK the log tells of no failure"));
    facts.story.troubles = {Failed("FAIL PIPE no usable authorization anchor (ABSENT) at", kNow)};
    EXPECT_TRUE(Has(Shown(facts, "failure"), "WARN nobody was named"));
}

TEST(Diagnose, AtMostEightTroublesAreShown) {
    DoctorFacts facts = Healthy();
    for (int i = 0; i < 11; ++i) {
        facts.story.troubles.push_back(Failed("FAIL NEW.Thing" + std::to_string(i), kNow));
    }
    const std::vector<Finding> findings = Diagnose(facts);
    EXPECT_EQ(
        std::count_if(findings.begin(), findings.end(), [](const Finding& finding) { return finding.id == "failure"; }),
        9);
    EXPECT_EQ(findings.back().found, "3 older kinds of failure are not shown");
}

TEST(Diagnose, AgesAreReadable) {
    EXPECT_EQ(AgeText(kNow, kNow), "just now");
    EXPECT_EQ(AgeText(kNow + 60'000, kNow), "just now");
    EXPECT_EQ(AgeText(kNow - 119'000, kNow), "119 s ago");
    EXPECT_EQ(AgeText(kNow - 120'000, kNow), "2 min ago");
    EXPECT_EQ(AgeText(kNow - 7'200'000, kNow), "2 h ago");
    EXPECT_EQ(AgeText(kNow - 3 * 86'400'000LL, kNow), "3 days ago");
    EXPECT_EQ(AgeText(0, kNow), "at an unknown time");
}

}  // namespace
}  // namespace ravlo::test
