#include <algorithm>
#include <string_view>

#include "rvsetup/doctor/diagnose.h"
#include "rvsetup/system/text.h"

// The checks of what goes on now: the log, the pipe, the producer, and what failed lately.
namespace ravlo {
namespace {

constexpr std::size_t kMostTroubles = 8;
constexpr std::size_t kShownMessage = 140;
/// The log says at most once a second that samples are asked for; three of these periods without one mean that nobody
/// asks any more.
constexpr std::int64_t kDemandMs = 3000;

constexpr const char* kStartProducer = "start one: rvfeeder --test-card shows whether the way to the camera is open";

/// A stream of a process that still runs, with its pipe there.
std::vector<const StreamStory*> LivingStreams(const DoctorFacts& facts) {
    std::vector<const StreamStory*> living;
    for (const StreamStory& stream : facts.story.streams) {
        if (IsStillRunning(facts, stream.processId, stream.process)) {
            living.push_back(&stream);
        }
    }
    return living;
}

const StreamStory* StreamOf(const DoctorFacts& facts, const std::string& pipeName) {
    for (const StreamStory* stream : LivingStreams(facts)) {
        if (stream->pipeName == pipeName && stream->pipeExists) {
            return stream;
        }
    }
    return nullptr;
}

std::string OwnerText(const std::string& sid) {
    return sid.empty()         ? "unknown"
           : sid == "S-1-5-19" ? "LOCAL SERVICE (the camera service of Windows)"
           : sid == "S-1-5-18" ? "LOCAL SYSTEM"
                               : sid;
}

/// Whether a producer writes into a pipe with this owner.
bool IsTrustedOwner(const DoctorFacts& facts, const std::string& sid) {
    return sid == "S-1-5-19" || sid == "S-1-5-18" ||
           (facts.anchor.reason == AnchorReason::Ok && sid == facts.anchor.sid);
}

std::string DemandText(const DoctorFacts& facts, const StreamStory& stream) {
    if (stream.lastRequestMs == 0) {
        return "nobody has asked for samples yet";
    }
    if (facts.nowMs - stream.lastRequestMs <= kDemandMs) {
        return "samples are being asked for";
    }
    return "the last sample was asked for " + AgeText(stream.lastRequestMs, facts.nowMs);
}

bool IsThere(const PipeFacts& pipe) noexcept {
    return pipe.frames == PipePresence::Free || pipe.frames == PipePresence::Busy;
}

/// A pipe with a client, of which the log tells nothing.
const PipeFacts* BusyPipeWithoutStory(const DoctorFacts& facts) {
    const auto found = std::find_if(facts.pipes.begin(), facts.pipes.end(), [&facts](const PipeFacts& pipe) {
        return pipe.frames == PipePresence::Busy && StreamOf(facts, pipe.name) == nullptr;
    });
    return found == facts.pipes.end() ? nullptr : &*found;
}

/// What the log says about a pipe that is there.
void DescribePipe(const DoctorFacts& facts, const PipeFacts& pipe, std::vector<Finding>& findings) {
    std::string found = pipe.name + " is there" +
                        (pipe.frames == PipePresence::Busy ? ", with a producer on it" : ", waiting for a producer");
    const StreamStory* const stream = StreamOf(facts, pipe.name);
    if (stream == nullptr) {
        findings.push_back(FoundWarning(
            "pipe", found + "; the log does not say who serves it",
            facts.probe ? "the probe, below, tells whose it is" : "rvsetup doctor --probe tells whose it is"));
        return;
    }
    found += "; served by " + stream->process + " (" + std::to_string(stream->processId) + "), owner " +
             OwnerText(stream->owner) + ", lets in " + stream->admitted + "; " + DemandText(facts, *stream);
    if (!stream->owner.empty() && !IsTrustedOwner(facts, stream->owner)) {
        findings.push_back(FoundWarning("pipe", found,
                                        "rvfeeder writes to no pipe of this owner: run the host as the user who may "
                                        "send frames, or use the camera through Windows"));
        return;
    }
    if (stream->admitted != facts.anchor.sid && facts.anchor.reason == AnchorReason::Ok) {
        findings.push_back(FoundWarning("pipe", found + "; the registry names another user by now",
                                        "close and open the camera: it reads that name once"));
        return;
    }
    findings.push_back(FoundOk("pipe", found));
}

/// Cameras that are open and have no pipe. True when there is one.
bool DescribeCamerasWithoutPipe(const DoctorFacts& facts, std::vector<Finding>& findings) {
    bool found = false;
    for (const StreamStory* stream : LivingStreams(facts)) {
        if (stream->pipeExists || (!facts.wantedPipe.empty() && stream->pipeName != facts.wantedPipe)) {
            continue;
        }
        found = true;
        findings.push_back(FoundFailure("pipe", ExitCode::PeerAbsent,
                                        stream->process + " (" + std::to_string(stream->processId) +
                                            ") has the camera open, but its pipe " + stream->pipeName + " is not there",
                                        "see what failed, below"));
    }
    return found;
}

void DescribeAbsence(const DoctorFacts& facts, const std::string& name, std::vector<Finding>& findings) {
    if (!facts.wantedPipe.empty() || facts.isProbing) {
        findings.push_back(FoundFailure("pipe", ExitCode::PeerAbsent, name + " is not there: no camera serves it",
                                        "open the camera in a program, then look again"));
        return;
    }
    findings.push_back(FoundWarning("pipe", name + " is not there: no program has the camera open",
                                    "open the camera in a program, then look again"));
}

/// One line of the log, short enough to be read in a list.
std::string Shortened(const std::string& message) {
    return message.size() <= kShownMessage ? message : message.substr(0, kShownMessage) + "...";
}

/// A passing event of a camera that has ended says nothing about the next one.
bool IsHistory(const DoctorFacts& facts, const Trouble& trouble) {
    return trouble.message.starts_with("PIPE ") && !IsStillRunning(facts, trouble.processId, trouble.process);
}

}  // namespace

void DiagnoseLog(const DoctorFacts& facts, std::vector<Finding>& findings) {
    std::string verdicts;
    const LogFacts* usable = nullptr;
    for (const LogFacts& log : facts.logs) {
        if (!log.verdict.empty()) {
            verdicts += (verdicts.empty() ? "" : ", ") + log.path.substr(0, log.path.rfind('\\')) + ": " + log.verdict;
        }
        if (usable == nullptr && log.isUsable) {
            usable = &log;
        }
    }
    const std::string folders = verdicts.empty() ? "" : " (" + verdicts + ")";
    if (!facts.chosenLog) {
        const auto refused = std::find_if(facts.logs.begin(), facts.logs.end(),
                                          [](const LogFacts& log) { return log.exists && log.isRefused; });
        if (refused != facts.logs.end()) {
            findings.push_back(FoundWarning(
                "log", "the trace log " + refused->path + " is not read: others may have written it" + folders,
                "as administrator: rvsetup install makes the folder safe; then open the camera again"));
            return;
        }
        const bool willBeMade = !facts.logs.empty() && facts.logs.front().isMissing;
        findings.push_back(FoundWarning("log", "there is no trace log yet" + folders,
                                        willBeMade
                                            ? "the first program that opens the camera makes one; rvsetup install "
                                              "makes its folder with the right owner"
                                            : "the first program that opens the camera makes one"));
        return;
    }
    const LogFacts& log = facts.logs[*facts.chosenLog];
    const std::string found =
        "trace log " + log.path + ", last written " + AgeText(log.lastWriteMs, facts.nowMs) + folders;
    if (!log.error.empty()) {
        findings.push_back(
            FoundWarning("log", found + "; it cannot be read: " + log.error, "run rvsetup doctor as administrator"));
    } else if (!log.isUsable) {
        findings.push_back(FoundWarning(
            "log", found + "; the camera would not write into this folder now, and others may have",
            "believe it as far as you trust the folder's owner; as administrator: rvsetup install sets it"));
    } else if (usable == nullptr || usable->verdict.empty()) {
        findings.push_back(
            FoundWarning("log", found,
                         "the log goes to the last resort because no folder has an owner that the camera "
                         "accepts; as administrator: rvsetup install sets it"));
    } else {
        findings.push_back(FoundOk("log", found));
    }
    if (!facts.story.tracePath.empty()) {
        findings.push_back(FoundOk("log-choice", "the last process chose: " + facts.story.tracePath));
    }
}

void DiagnosePipe(const DoctorFacts& facts, std::vector<Finding>& findings) {
    bool isThere = false;
    for (const PipeFacts& pipe : facts.pipes) {
        if (pipe.frames == PipePresence::Unknown) {
            findings.push_back(FoundWarning("pipe",
                                            "whether " + pipe.name + " is there cannot be found out: " + pipe.error,
                                            "run rvsetup doctor as administrator"));
            isThere = true;
        } else if (pipe.frames != PipePresence::Absent) {
            DescribePipe(facts, pipe, findings);
            isThere = true;
        }
    }
    isThere |= DescribeCamerasWithoutPipe(facts, findings);
    if (!isThere && !facts.pipes.empty()) {
        DescribeAbsence(facts, facts.pipes.front().name, findings);
    }
}

void DiagnoseGate(const DoctorFacts& facts, std::vector<Finding>& findings) {
    for (const PipeFacts& pipe : facts.pipes) {
        if (!IsThere(pipe) || (facts.probe && facts.probe->name == pipe.name)) {
            continue;
        }
        if (pipe.gate == PipePresence::Free || pipe.gate == PipePresence::Busy) {
            findings.push_back(FoundOk("gate", "its gate " + pipe.name + ".gate, which tells the demand, is there" +
                                                   (pipe.gate == PipePresence::Busy ? ", and somebody reads it" : "")));
        } else {
            findings.push_back(FoundWarning(
                "gate", "its gate " + pipe.name + ".gate is not to be seen",
                "the picture is not affected, but a producer cannot tell whether anybody watches: see what failed, below"));
        }
    }
}

void DiagnoseProbe(const DoctorFacts& facts, std::vector<Finding>& findings) {
    if (!facts.probe) {
        return;
    }
    const ProbeFacts& probe = *facts.probe;
    if (std::count_if(facts.pipes.begin(), facts.pipes.end(), IsThere) > 1) {
        findings.push_back(FoundOk("probe", "of these pipes only " + probe.name + " was opened",
                                   "rvsetup doctor --probe --pipe NAME opens another one"));
    }
    if (probe.gateBusy) {
        findings.push_back(FoundOk("gate", "the gate pipe has a producer on it and was left alone"));
    } else if (probe.gateDenied) {
        findings.push_back(FoundFailure("gate", ExitCode::AccessDenied,
                                        "the gate pipe does not let you in: " + probe.gateError,
                                        "run as the user who may send frames"));
    } else if (!probe.gateOpened) {
        findings.push_back(FoundWarning("gate", "the gate pipe cannot be opened: " + probe.gateError,
                                        "nobody serves it: without it a producer sends every frame"));
    } else if (!probe.gateTrusted) {
        findings.push_back(
            FoundFailure("gate", ExitCode::AccessDenied,
                         "the gate pipe belongs to " + OwnerText(probe.gateOwner) + ", whom a producer does not trust",
                         "find out which program serves it; it is not the camera of this machine"));
    } else if (!probe.gotRecord) {
        findings.push_back(FoundWarning("gate", "the gate pipe is open, but no record came within 2 s",
                                        "the stream may be at its end: look again"));
    } else {
        findings.push_back(FoundOk(
            "gate",
            "the gate says: " +
                (probe.requestCount == 0 ? "nobody has asked for samples yet"
                                         : std::to_string(probe.requestCount) + " samples asked for, the last " +
                                               std::to_string(probe.idleMs) + " ms ago") +
                "; owner " + OwnerText(probe.gateOwner)));
    }
    if (probe.framesBusy) {
        findings.push_back(FoundOk("pipe-owner", "the frame pipe has a producer on it and was left alone"));
    } else if (probe.framesOpened && probe.framesTrusted) {
        findings.push_back(FoundOk("pipe-owner", "the frame pipe lets you in; it belongs to " + probe.framesOwner));
    } else if (!probe.framesError.empty()) {
        findings.push_back(FoundFailure(
            "pipe-owner", probe.framesOpened || probe.framesDenied ? ExitCode::AccessDenied : ExitCode::PeerAbsent,
            "the frame pipe is of no use to you: " + probe.framesError,
            "run as the user who may send frames; see the lines above"));
    }
}

void DiagnoseProducer(const DoctorFacts& facts, std::vector<Finding>& findings) {
    std::string feeders;
    for (const ProcessFacts& process : facts.processes) {
        if (IsSameText(process.name, "rvfeeder.exe")) {
            feeders += (feeders.empty() ? "rvfeeder runs (" : ", ") + std::to_string(process.id);
        }
    }
    feeders += !facts.areProcessesKnown ? "whether rvfeeder runs cannot be found out"
               : feeders.empty()        ? "no rvfeeder runs"
                                        : ")";
    const StreamStory* withClient = nullptr;
    for (const StreamStory* stream : LivingStreams(facts)) {
        if (stream->clientConnected && (facts.wantedPipe.empty() || stream->pipeName == facts.wantedPipe)) {
            withClient = stream;
        }
    }
    const PipeFacts* const untold = withClient == nullptr ? BusyPipeWithoutStory(facts) : nullptr;
    if (untold != nullptr) {
        findings.push_back(FoundWarning(
            "producer", "somebody is connected to " + untold->name + "; the log does not say what it sends; " + feeders,
            "see what the producer itself says"));
    } else if (withClient == nullptr) {
        findings.push_back(FoundWarning(
            "producer", "no producer is connected; " + feeders + "; a camera without one shows the test pattern",
            feeders.starts_with("rvfeeder runs") ? "see what rvfeeder itself says" : kStartProducer));
    } else if (withClient->geometryMismatch) {
        findings.push_back(FoundWarning("producer",
                                        "a producer is connected to " + withClient->pipeName +
                                            ", but sends another size than the camera shows; " + feeders,
                                        "give both the same size"));
    } else if (withClient->live.empty()) {
        findings.push_back(FoundWarning(
            "producer", "a producer is connected to " + withClient->pipeName + " and has sent no frame yet; " + feeders,
            "see what the producer itself says"));
    } else {
        findings.push_back(FoundOk(
            "producer", "a producer sends " + withClient->live + " to " + withClient->pipeName + "; " + feeders));
    }
}

void DiagnoseTroubles(const DoctorFacts& facts, std::vector<Finding>& findings) {
    std::size_t shown = 0;
    std::size_t held = 0;
    for (const Trouble& trouble : facts.story.troubles) {
        if (IsHistory(facts, trouble)) {
            continue;
        }
        if (shown == kMostTroubles) {
            ++held;
            continue;
        }
        ++shown;
        const std::string times = trouble.count > 1 ? ", " + std::to_string(trouble.count) + " times" : "";
        const std::string place = " [" + AgeText(trouble.whenMs, facts.nowMs) + ", " + trouble.process + times + "]";
        if (trouble.known != nullptr) {
            findings.push_back(FoundWarning(
                "failure", std::string(trouble.known->explanation) + place + ": " + Shortened(trouble.message),
                std::string(trouble.known->next)));
        } else {
            findings.push_back(FoundWarning("failure", "the log says" + place + ": " + Shortened(trouble.message),
                                            "rvsetup trace shows the lines around it"));
        }
    }
    if (held != 0) {
        findings.push_back(FoundWarning("failure", std::to_string(held) + " older kinds of failure are not shown",
                                        "rvsetup trace --only FAIL --lines 1000"));
    } else if (shown == 0 && facts.chosenLog) {
        findings.push_back(FoundOk("failure", "the log tells of no failure that still stands (" +
                                                  std::to_string(facts.story.lines) + " lines read)"));
    }
}

}  // namespace ravlo
