#include "rvsetup/doctor/failure_table.h"

#include "rvsetup/doctor/glob.h"

namespace ravlo {
namespace {

constexpr std::string_view kAnchorRead = "PIPE authorized user read*";
constexpr std::string_view kPipeCreated = "PIPE created *";
constexpr std::string_view kLive = "PIPE delivering live frames*";
constexpr std::string_view kStarted = "RET STM.Start *";
constexpr std::string_view kActivated = "RET SRC.ActivateObject *";
constexpr std::string_view kNever;

constexpr std::string_view kNameTheUser = "as administrator: rvsetup install --me, or --user SID for somebody else";
constexpr std::string_view kRestartServer =
    "close all programs that use the camera; as administrator: net stop FrameServer; then try again";
constexpr std::string_view kOutOfResources =
    "the process is short of memory or handles: close programs, restart the host, and report it if it comes back";
constexpr std::string_view kReportIt =
    "if it comes back: rvsetup report FILE.zip, and send that file with your question";
constexpr std::string_view kNothingToDo = "nothing, unless the picture is missing at other times too";

constexpr KnownFailure Ordinary(std::string_view pattern, std::string_view explanation) {
    return {pattern, true, explanation, "", ""};
}

constexpr KnownFailure kFailures[] = {
    // The anchor.
    {"FAIL PIPE no usable authorization anchor (ABSENT)*", false,
     "nobody was named who may send frames, so there is no pipe and the picture is the test pattern", kNameTheUser,
     kAnchorRead},
    {"FAIL PIPE no usable authorization anchor (NOT_A_USER)*", false,
     "the account that may send frames is a group, which would let in all its members, so there is no pipe",
     kNameTheUser, kAnchorRead},
    {"FAIL PIPE no usable authorization anchor (READ_FAILED)*", false,
     "the camera could not read who may send frames, so there is no pipe",
     "check the rights of HKLM\\SOFTWARE\\Ravlo: the host's account must be able to read it", kAnchorRead},
    {"FAIL PIPE no usable authorization anchor (*", false,
     "what the registry names as the user who may send frames is no SID, so there is no pipe", kNameTheUser,
     kAnchorRead},
    {"FAIL PIPE the anchor at * NOT a user account*", false,
     "the account that may send frames is no user but a group, so there is no pipe", kNameTheUser, kAnchorRead},
    {"WARN PIPE could not resolve the anchor SID*", false,
     "the host could not find the name of the user who may send frames; it went on with the number alone",
     "nothing, if that user's rvfeeder connects; otherwise name the user again with rvsetup install", kLive},
    // The pipe.
    {"FAIL PIPE the authorized SID would not build an ACL*", false,
     "the rights of the pipe could not be made from the user's SID, so there is no pipe", kNameTheUser, kPipeCreated},
    {"FAIL PIPE this process could not determine its OWN token user SID*", false,
     "the host could not find out which account it runs as, so there is no pipe", kReportIt, kPipeCreated},
    {"FAIL PIPE the security descriptor*", false,
     "the rights of the pipe could not be put together, so there is no pipe", kReportIt, kPipeCreated},
    {"FAIL PIPE the overlapped listen event*", false, "the host had no event left for the pipe, so there is no pipe",
     kOutOfResources, kPipeCreated},
    {"FAIL PIPE the pipe name is not a ravlo name*", false, "the camera was given a pipe name that it does not serve",
     "give \\\\.\\pipe\\Ravlo or \\\\.\\pipe\\Ravlo.NUMBER to rvclient or rvhost", kPipeCreated},
    {"FAIL PIPE could not create *, GetLastError=5 *", false,
     "another process holds the pipe's name: a second camera with the same name, or one that did not end",
     "close the other host, or give each camera a name of its own with --pipe", kPipeCreated},
    {"FAIL PIPE could not create *, GetLastError=231*", false,
     "another process holds the pipe's name: a second camera with the same name, or one that did not end",
     "close the other host, or give each camera a name of its own with --pipe", kPipeCreated},
    {"FAIL PIPE could not create *", false, "the system refused to make the pipe, so the picture is the test pattern",
     kReportIt, kPipeCreated},
    {"PIPE name * PRESENT BUT REFUSED*", false,
     "the pipe name that the camera's owner asked for is none that a camera may serve; another name was taken",
     "give \\\\.\\pipe\\Ravlo or \\\\.\\pipe\\Ravlo.NUMBER to rvclient or rvhost", kNever},
    {"FAIL PIPE the listen could not be armed*", false, "the pipe is there but takes no producer for the moment",
     "wait a second, it is tried again; if it stays, restart the host", "PIPE the listen recovered*"},
    {"FAIL PIPE reader has no cancel event*", false, "the camera's reader gave up: no frame arrives any more",
     kRestartServer, kLive},
    {"FAIL PIPE reader stop event could not be created*", false,
     "the camera could not start its reader: this stream shows the test pattern only", kOutOfResources,
     "PIPE reader thread started*"},
    {"FAIL PIPE reader thread could not be started*", false,
     "the camera could not start its reader: this stream shows the test pattern only", kOutOfResources,
     "PIPE reader thread started*"},
    // What the producer sends.
    {"FAIL PIPE oversized frame refused*", false,
     "the producer sends frames larger than the camera's picture and was cut off",
     "give producer and camera the same size: rvfeeder --expect WxH tells, rvclient --geometry sets", kLive},
    {"FAIL PIPE header rejected: MAGIC*", false,
     "what arrives on the pipe is no frame: the producer is out of step or speaks another protocol",
     "restart the producer; use rvfeeder or the producer SDK", kLive},
    {"FAIL PIPE header rejected: VERSION*", false, "the producer speaks another version of the frame header",
     "use producer and camera of the same release", kLive},
    {"FAIL PIPE header rejected: PIXEL_FORMAT*", false, "the producer sends a pixel format other than NV12",
     "let the producer send NV12, as rvfeeder does", kLive},
    {"FAIL PIPE header rejected: GEOMETRY*", false,
     "the producer announces a width or height that no NV12 picture can have (zero, odd or beyond 16384)",
     "let the producer send an even size", kLive},
    {"FAIL PIPE header rejected: BYTE_COUNT*", false,
     "the producer announces a frame length that does not belong to its width and height",
     "let the producer send width x height x 3 / 2 bytes a frame", kLive},
    {"FAIL PIPE header rejected: *", false, "the producer sent a frame header that the camera does not take",
     "use rvfeeder or the producer SDK of the same release", kLive},
    {"PIPE geometry mismatch*", false,
     "the producer sends another size than the camera shows; its frames are dropped and the picture is the test pattern",
     "give both the same size: rvfeeder's input, or the camera's geometry with rvclient --geometry", kLive},
    {"PIPE client dropped by an I/O FAULT*", false, "the connection to the producer broke in the middle of a frame",
     "nothing: rvfeeder connects again by itself; restart another producer", kLive},
    {"PIPE client dropped (payload shorter*", false, "the producer sent less than its frame header announced",
     "use rvfeeder or the producer SDK of the same release", kLive},
    {"PIPE the writer closed the pipe*", false,
     "the producer went away; until it is back the picture is the test pattern", "start rvfeeder again",
     "PIPE client connected*"},
    {"PIPE * ms passed between frames*", false, "the producer paused, and the test pattern filled the gap",
     "look why it is late: its input, its decoder, the machine's load", "PIPE frame cadence recovered*"},
    {"PIPE * publish(es) REFUSED*", false, "the producer sends frames that the camera has no room for",
     "give producer and camera the same size", kNever},
    {"PIPE RequestSample refused *", false, "frames had another length than the camera's picture and were not shown",
     "give producer and camera the same size", kNever},
    {"PIPE RequestSample discarded *", false, "frames arrive faster than they can be copied; a few were taken again",
     kNothingToDo, kNever},
    // The gate.
    {"GATE could not create *", false,
     "the producer cannot see whether somebody watches and decodes every frame; the picture is not affected",
     "close the other process that holds this name", "GATE serving *"},
    {"FAIL GATE thread could not be started*", false,
     "the producer cannot see whether somebody watches and decodes every frame; the picture is not affected",
     kOutOfResources, "GATE thread started*"},
    // The end of a stream.
    {"FAIL PIPE teardown re-entered*", false, "a camera that hung at its end was ended again; it stays in memory",
     kRestartServer, kNever},
    {"FAIL PIPE * did not exit within *", false,
     "a camera hung at its end and keeps its pipe name: the next camera can only show the test pattern", kRestartServer,
     kPipeCreated},
    {"FAIL PIPE the last reference to this stream*", false, "a camera hung at its end and stays in memory",
     kRestartServer, kPipeCreated},
    // Start of source and stream.
    {"WARN SRC.Initialize mfsensorgroup.dll*", false,
     "this Windows has no camera stack (an N edition without the media feature pack, or too old)",
     "install the Media Feature Pack; programs that load the camera themselves work without it", kNever},
    {"WARN STM.Start GetCurrentMediaType*", false,
     "the host asked for a picture without saying which; the camera's own was taken", kNothingToDo, kNever},
    {"FAIL STM.Start current media type *", false, "the host asked for another size or rate than this camera has",
     "choose the camera's own format in the host, or make the camera anew with rvclient --geometry", kStarted},
    {"FAIL STM.Start/geometry-mismatch *", true, "", "", ""},  // the line in front of it says more
    {"FAIL STM.Start geometry *", false, "the camera's picture does not fit its memory", kReportIt, kStarted},
    {"FAIL STM.Start/geometry *", true, "", "", ""},
    {"FAIL SRC.Start time format*", false, "the host asked for a start time in a form that a camera does not know",
     "report it to the makers of the host", kStarted},
    {"PACING high-resolution timer unavailable*", false,
     "this Windows has no fine timer; frames come up to a few ms late", "nothing; Windows 10 1803 or later has it",
     kNever},
    {"TS * clamp fired 0 of *", true, "", "", ""},
    {"TS * clamp fired *", false, "sample times had to be corrected, which never should be needed", kReportIt, kNever},
    // What hosts try on every camera, and the answers of a camera that has ended.
    Ordinary("FAIL QI-SRC *", "the host asked for an interface that this camera does not have"),
    Ordinary("FAIL QI-STM *", "the host asked for an interface that this camera does not have"),
    Ordinary("FAIL SRC.Ks*", "the host asked for a control, such as zoom, that this camera does not have"),
    Ordinary("FAIL SRC.GetService *", "the host asked for a service that this camera does not have"),
    Ordinary("FAIL SRC.SetD3DManager *", "the camera works without a graphics device"),
    Ordinary("FAIL SRC.Pause *", "a camera cannot pause"),
    Ordinary("FAIL SRC.ShutdownObject *", "the camera ends in another way"),
    Ordinary("FAIL SRC.DetachObject *", "the camera ends in another way"),
    Ordinary("FAIL * hr=0xC00D3E85", "a call after the end of the camera"),
    Ordinary("FAIL *GetEvent hr=0xC00D3E80", "no event was waiting"),
    Ordinary("FAIL * hr=0x80004003", "the host handed over no place for the answer"),
    Ordinary("*ATTR * GetCount failed", "the host's attributes could not be listed"),
    Ordinary("*ATTR * GetItemByIndex failed", "the host's attributes could not be listed"),
    Ordinary("FAIL * (ppv==NULL)", "the host handed over no place for the answer"),
    // COM.
    {"FAIL DLLGCO wrong clsid *", false, "a program asked this DLL for a class that is not the camera",
     "look for a wrong registration: another class key that names rvmediasource.dll", kNever},
    {"FAIL DLLGCO hr=* (factory alloc)", false, "the host had no memory left", kOutOfResources, kNever},
    {"FAIL DLLGCO riid *", false, "a program asked the camera's factory for an interface that it does not have",
     kNothingToDo, kNever},
    {"FAIL FACTORY CreateInstance hr=* (aggregation refused)", false,
     "a program tried to make the camera part of another object, which it cannot be", kNothingToDo, kNever},
    {"FAIL FACTORY CreateInstance riid *", false, "the camera could not be made; the lines before it say why",
     kReportIt, "RET FACTORY CreateInstance riid *"},
    {"FAIL * hr=0x8007000E", false, "the host had no memory left", kOutOfResources, kActivated},
    {"FAIL SRC.Initialize/MFStartup *", false, "Media Foundation did not start in the host",
     "install the Media Feature Pack (N editions of Windows lack it)", "RET SRC.Initialize *"},
    {"FAIL SRC.Initialize/*", false, "the camera could not be set up", kReportIt, "RET SRC.Initialize *"},
    {"FAIL SRC.CreateInstance *", false, "the camera could not be made; the lines before it say why", kReportIt,
     "RET SRC.CreateInstance *"},
    {"FAIL SRC.BuildStreamForGeometry*", false, "the camera's stream could not be made", kReportIt, kActivated},
    {"FAIL SRC.ActivateObject *", false, "the camera could not be activated; the lines before it say why", kReportIt,
     kActivated},
    {"FAIL SRC.Start *", false, "the camera could not be started; the lines before it say why", kReportIt,
     "RET SRC.Start *"},
    {"FAIL STM.Start *", false, "the camera's stream could not be started; the lines before it say why", kReportIt,
     kStarted},
    {"FAIL STM.RequestSample *", false, "the camera could not hand out a picture",
     "it was asked before its start or after its stop, or the host is short of memory", "RET STM.RequestSample *"},
    {"FAIL SRC.*", false, "the camera refused a call of the host", kNothingToDo, kNever},
    {"FAIL STM.*", false, "the camera's stream refused a call of the host", kNothingToDo, kNever},
};

}  // namespace

std::span<const KnownFailure> KnownFailures() noexcept {
    return kFailures;
}

const KnownFailure* FindFailure(std::string_view message) noexcept {
    for (const KnownFailure& failure : kFailures) {
        if (FitsPattern(message, failure.pattern)) {
            return &failure;
        }
    }
    return nullptr;
}

}  // namespace ravlo
