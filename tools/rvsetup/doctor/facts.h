#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "pipe/anchor_words.h"
#include "rvsetup/doctor/access_check.h"
#include "rvsetup/doctor/log_story.h"
#include "rvsetup/system/pe_image.h"

namespace ravlo {

// What the doctor gathers before it judges. Plain data in UTF-8, so that every judgement can be tested anywhere. An
// `error` is a sentence about why something could not be found out; empty when it could.

struct WindowsFacts {
    std::uint32_t major = 0;
    std::uint32_t minor = 0;
    std::uint32_t build = 0;
};

/// What is registered for the camera's class, and the file behind it.
struct ModuleFacts {
    bool keyExists = false;
    std::string keyError;  ///< the key is there but cannot be read
    std::string path;      ///< empty: no path is registered
    std::string threadingModel;
    bool fileExists = false;
    std::string fileError;  ///< the file is there but cannot be read
    PeImage pe;
    std::string whyNotRun;                    ///< as part of a sentence; empty when it was run
    std::string loadError;                    ///< why it cannot be loaded, or gives no factory; empty when all is well
    std::vector<std::string> missingImports;  ///< DLLs that it needs and that are nowhere
};

/// Who may read the DLL, and who may change it.
struct AccessFacts {
    std::string folder;
    AccessList fileList;
    AccessList folderList;
    std::string fileOwner;  ///< SID
    std::string folderOwner;
    std::string fileError;
    std::string folderError;
};

enum class AccountKind { User, NotAUser, NotResolvable };

struct AnchorFacts {
    AnchorReason reason = AnchorReason::Absent;
    std::string sid;
    std::string account;  ///< domain\name; empty when it cannot be resolved
    AccountKind kind = AccountKind::NotResolvable;
    std::string useName;  ///< such as SidTypeGroup
    std::string runningSid;
    std::string runningAccount;
};

/// One of the places where the camera may write its log.
struct LogFacts {
    std::string path;
    std::string verdict;     ///< what the camera says about the folder; empty for the place that is not judged
    bool isUsable = false;   ///< the camera would write there
    bool isMissing = false;  ///< the folder is not there
    bool exists = false;     ///< the log file
    bool isRefused = false;  ///< the camera never writes there, but others may have
    bool mayAppend = false;  ///< this program could write into the log
    std::uint64_t bytes = 0;
    std::int64_t lastWriteMs = 0;  ///< Unix time
    std::string error;             ///< the log cannot be read
};

enum class PipePresence { Absent, Free, Busy, Unknown };

struct PipeFacts {
    std::string name;
    PipePresence frames = PipePresence::Absent;
    std::string error{};  ///< why `frames` is Unknown
    PipePresence gate = PipePresence::Absent;
};

/// What was seen when a pipe was opened on request.
struct ProbeFacts {
    std::string name;         ///< of the frame pipe
    bool gateBusy = false;    ///< a producer reads it
    bool gateDenied = false;  ///< its access list keeps us out
    bool gateOpened = false;
    std::string gateError;
    std::string gateOwner;  ///< SID
    bool gateTrusted = false;
    bool gotRecord = false;
    std::uint64_t idleMs = 0;
    std::uint64_t requestCount = 0;
    bool framesBusy = false;    ///< left alone, because opening it is not possible
    bool framesDenied = false;  ///< its access list keeps us out
    bool framesOpened = false;
    std::string framesError;
    bool framesTrusted = false;
    std::string framesOwner;  ///< who that is, in words
};

struct ProcessFacts {
    std::uint32_t id = 0;
    std::string name;
};

struct DoctorFacts {
    std::int64_t nowMs = 0;  ///< Unix time
    std::string ownVersion;
    WindowsFacts windows;
    ModuleFacts module;
    AccessFacts access;
    AnchorFacts anchor;
    std::vector<LogFacts> logs;
    std::optional<std::size_t> chosenLog;  ///< the one that was read; none when there is no log
    LogStory story;
    std::string wantedPipe;  ///< the pipe that the user asked for; empty: whatever there is
    std::vector<PipeFacts> pipes;
    bool isProbing = false;           ///< the user wants the pipes opened
    std::optional<ProbeFacts> probe;  ///< none when there was no pipe to open
    bool areProcessesKnown = true;
    std::vector<ProcessFacts> processes;  ///< that run now
};

}  // namespace ravlo
