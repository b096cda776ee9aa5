#include "rvsetup/doctor/failure_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "rvsetup/doctor/glob.h"

namespace ravlo::test {
namespace {

TEST(FitsPattern, AStarStandsForAnyCharacters) {
    EXPECT_TRUE(FitsPattern("abc", "abc"));
    EXPECT_TRUE(FitsPattern("abc", "a*"));
    EXPECT_TRUE(FitsPattern("abc", "*c"));
    EXPECT_TRUE(FitsPattern("abcabd", "a*bd"));
    EXPECT_TRUE(FitsPattern("", "*"));
    EXPECT_TRUE(FitsPattern("abc", "**abc**"));
    EXPECT_FALSE(FitsPattern("abc", "ab"));
    EXPECT_FALSE(FitsPattern("abc", "a*d"));
    EXPECT_FALSE(FitsPattern("", "a*"));
    EXPECT_FALSE(FitsPattern("abc", "*abcd"));
}

/// Every line of the module that announces a failure, a refusal or a fallback, as it stands in the log. `about` is a
/// part of the explanation; empty for what belongs to a camera that works.
struct Announcement {
    const char* message;
    const char* about;
};

constexpr Announcement kAnnouncements[] = {
    // The anchor.
    {"FAIL PIPE no usable authorization anchor (ABSENT) at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will NOT "
     "be created; serving the test pattern. Run rvsetup.exe --install <SID> as administrator. Absence of an anchor is "
     "refusal, not permission.",
     "nobody was named"},
    {"FAIL PIPE no usable authorization anchor (WRONG_TYPE) at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will "
     "NOT be created; serving the test pattern.",
     "is no SID"},
    {"FAIL PIPE no usable authorization anchor (TOO_LARGE) at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will "
     "NOT be created; serving the test pattern.",
     "is no SID"},
    {"FAIL PIPE no usable authorization anchor (MALFORMED) at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will "
     "NOT be created; serving the test pattern.",
     "is no SID"},
    {"FAIL PIPE no usable authorization anchor (READ_FAILED) at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will "
     "NOT be created; serving the test pattern.",
     "could not read"},
    {"FAIL PIPE no usable authorization anchor (NOT_A_USER) at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will "
     "NOT be created; serving the test pattern.",
     "is a group"},
    {"FAIL PIPE no usable authorization anchor (UNKNOWN) at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid - the pipe will NOT "
     "be created; serving the test pattern.",
     "there is no pipe"},
    {"FAIL PIPE the anchor at HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid names SidTypeGroup, NOT a user account - the pipe "
     "will NOT be created; serving the test pattern. A group SID in the pipe ACE would grant every member of that group.",
     "no user but a group"},
    {"WARN PIPE could not resolve the anchor SID to an account name from session 0; proceeding on the value-based check "
     "alone",
     "could not find the name"},
    // The pipe.
    {"FAIL PIPE the authorized SID would not build an ACL, GetLastError=1337 - no pipe was created; serving the test "
     "pattern",
     "rights of the pipe"},
    {"FAIL PIPE this process could not determine its OWN token user SID, GetLastError=5 - no pipe was created, because a "
     "pipe with an unstated owner is one rvfeeder.exe refuses; serving the test pattern",
     "which account it runs as"},
    {"FAIL PIPE the security descriptor (DACL or OWNER) could not be assembled, GetLastError=87 - no pipe was created; "
     "serving the test pattern",
     "could not be put together"},
    {"FAIL PIPE the overlapped listen event could not be created, GetLastError=8 - no pipe was created; serving the test "
     "pattern",
     "no event left"},
    {"FAIL PIPE the pipe name is not a ravlo name, GetLastError=123 - no pipe was created; serving the test pattern",
     "a pipe name that it does not serve"},
    {"FAIL PIPE could not create \\\\.\\pipe\\Ravlo.7, GetLastError=5  (the name is already held by another process - a "
     "squat, or a stray earlier instance) - serving the test pattern",
     "another process holds the pipe's name"},
    {"FAIL PIPE could not create \\\\.\\pipe\\Ravlo.7, GetLastError=231 - serving the test pattern",
     "another process holds the pipe's name"},
    {"FAIL PIPE could not create \\\\.\\pipe\\Ravlo.7, GetLastError=1450 - serving the test pattern",
     "the system refused to make the pipe"},
    {"PIPE name \\\\.\\pipe\\Ravlo.42 - route=host-pid 42 from the undocumented activation attribute, taken after waiting "
     "250 ms of a 250 ms grace for the explicit name; that attribute was PRESENT BUT REFUSED - not a value this product "
     "may serve (a name outside RvIsRavloPipeName's grammar, or a length the attribute store reported inconsistently), so "
     "it was discarded",
     "another name was taken"},
    {"PIPE name \\\\.\\pipe\\Ravlo - route=singleton; after 2000 ms the explicit pipe-name attribute was PRESENT BUT "
     "REFUSED - outside RvIsRavloPipeName's grammar, or a length the attribute store reported inconsistently and the "
     "host-pid attribute was absent too, so there is nothing left to derive a per-node name from",
     "another name was taken"},
    {"FAIL PIPE the listen could not be armed, GetLastError=230 - retrying once a second. The camera serves the test "
     "pattern until it recovers",
     "takes no producer for the moment"},
    {"FAIL PIPE reader has no cancel event - RecvFrame refused to issue any I/O. The reader thread is exiting; the camera "
     "will serve the test pattern",
     "reader gave up"},
    {"FAIL PIPE reader stop event could not be created, GetLastError=8 - NO reader thread will run and the camera will "
     "serve the test pattern for the life of this stream",
     "could not start its reader"},
    {"FAIL PIPE reader thread could not be started, GetLastError=8 - the camera will serve the test pattern for the life "
     "of this stream",
     "could not start its reader"},
    // What arrives.
    {"FAIL PIPE oversized frame refused before allocation: wire declared 3110400 bytes (1920x1080), this stream accepts "
     "at most 86400",
     "larger than the camera's picture"},
    {"FAIL PIPE header rejected: MAGIC (wire magic=0x00000000 version=0 format=0x00000000 0x0 bytes=0) - pattern",
     "is no frame"},
    {"FAIL PIPE header rejected: VERSION (wire magic=0x4F4C5652 version=1 format=0x3231564E 2x2 bytes=6) - pattern",
     "another version"},
    {"FAIL PIPE header rejected: PIXEL_FORMAT (wire magic=0x4F4C5652 version=2 format=0x32595559 2x2 bytes=8) - pattern",
     "other than NV12"},
    {"FAIL PIPE header rejected: GEOMETRY (wire magic=0x4F4C5652 version=2 format=0x3231564E 3x2 bytes=9) - pattern",
     "no NV12 picture can have"},
    {"FAIL PIPE header rejected: BYTE_COUNT (wire magic=0x4F4C5652 version=2 format=0x3231564E 2x2 bytes=7) - pattern",
     "does not belong to its width and height"},
    {"FAIL PIPE header rejected: UNKNOWN (wire magic=0x4F4C5652 version=2 format=0x3231564E 2x2 bytes=6) - pattern",
     "does not take"},
    {"PIPE geometry mismatch: wire 640x360, advertised 1280x720 - pattern", "another size"},
    {"PIPE client dropped by an I/O FAULT mid-frame - not a disconnect and not a bad header. Framing is lost; pattern",
     "broke in the middle"},
    {"PIPE client dropped (payload shorter than the header promised) - pattern",
     "less than its frame header announced"},
    {"PIPE the writer closed the pipe - client slot released and the listen re-armed, waiting for rvfeeder.exe to "
     "reconnect. Pattern until it does",
     "went away"},
    {"PIPE 1234 ms passed between frames - longer than the 100 ms cadence bound, so a due request in the gap would have "
     "served the paced test pattern. The last real picture was NOT repeated and the client was NOT dropped",
     "paused"},
    {"PIPE 3 publish(es) REFUSED by the frame pool: payload %zu bytes, slots hold %zu. Nothing was published, so the "
     "camera serves the test pattern - this is a producer sending a size this pool cannot carry, not a wire fault",
     "no room"},
    {"PIPE RequestSample refused 2 published frame(s) whose length was not the %zu bytes this stream's geometry needs. "
     "The picture was NOT truncated and NOT padded with stale pixels; the test pattern was served instead",
     "another length"},
    {"PIPE RequestSample discarded 5 read attempt(s) that this thread overwrote mid-copy. NOTHING was dropped from the "
     "wire, and most are absorbed by the bounded retry rather than costing a test-pattern frame; a large or growing count "
     "means this reader is outrunning the consumer",
     "faster than they can be copied"},
    // The gate.
    {"GATE could not create \\\\.\\pipe\\Ravlo.gate, GetLastError=5 - retrying every 1000 ms. The bridge sees no demand "
     "record and decodes every frame, which is the behaviour that shipped before the gate existed",
     "cannot see whether somebody watches"},
    {"FAIL GATE thread could not be started, GetLastError=8 - NO demand record will ever be published for this stream, so "
     "the bridge sees no gate and decodes every frame. The camera itself is unaffected",
     "cannot see whether somebody watches"},
    // The end.
    {"FAIL PIPE teardown re-entered after the reader thread was ABANDONED - the pipe, the stop event, the critical "
     "sections and this object are left ALONE. This is the second call that used to free them all under a live thread",
     "hung at its end"},
    {"FAIL PIPE the reader AND gate threads did not exit within 2000 ms (wait=258) - the thread handles, the pipe handle, "
     "the stop event, both critical sections, the frame slots AND THIS WHOLE OBJECT are LEAKED ON PURPOSE",
     "keeps its pipe name"},
    {"FAIL PIPE the gate thread did not exit within 2000 ms (wait=258) - the thread handles", "keeps its pipe name"},
    {"FAIL PIPE the reader thread did not exit within 2000 ms (wait=258) - the thread handles", "keeps its pipe name"},
    {"FAIL PIPE the last reference to this stream went away while the reader thread was still running (the join timed "
     "out). THE OBJECT IS NOT DESTROYED",
     "stays in memory"},
    // Source and stream.
    {"WARN SRC.Initialize mfsensorgroup.dll offers no sensor profiles on this system (err=126) - the source goes on "
     "without a profile collection",
     "no camera stack"},
    {"WARN STM.Start GetCurrentMediaType hr=0xC00D36B6 - proceeding UNVERIFIED with 1280x720 @ 30/1",
     "without saying which"},
    {"FAIL STM.Start current media type 640x360 @ 30/1 does not match the geometry this stream was constructed with "
     "(1280x720 @ 30/1) - a media-type change requires a NEW stream object, not a mutated one",
     "another size or rate"},
    {"FAIL STM.Start/geometry-mismatch hr=0xC00D36B4", ""},
    {"FAIL STM.Start geometry 8192x8192 needs %zu slot bytes, slots hold %zu", "does not fit its memory"},
    {"FAIL STM.Start/geometry hr=0x8000FFFF", ""},
    {"FAIL SRC.Start time format {00000000-0000-0000-0000-000000000001} hr=0xC00D36B6", "start time"},
    {"PACING high-resolution timer unavailable (err=87); falling back to the millisecond timeout", "no fine timer"},
    {"TS pacing clamp fired 0 of 300 samples (0.0%; expected 0)", ""},
    {"TS pacing clamp fired 1 of 300 samples (0.3%; expected 0)", "had to be corrected"},
    {"TS publish-tick clamp fired 0 of 12 samples (0.0%; expected 0)", ""},
    {"TS publish-tick clamp fired 2 of 12 samples (16.6%; expected 0)", "had to be corrected"},
    {"FAIL QI-SRC {00000000-0000-0000-0000-000000000001} hr=0x80004002", ""},
    {"FAIL QI-SRC IMarshal {00000003-0000-0000-C000-000000000046} hr=0x80004002", ""},
    {"FAIL QI-STM {00000000-0000-0000-0000-000000000001} hr=0x80004002", ""},
    {"FAIL QI-STM IMarshal {00000003-0000-0000-C000-000000000046} hr=0x80004002", ""},
    {"FAIL SRC.KsProperty identifier=NULL hr=0x80070057", ""},
    {"FAIL SRC.KsEvent identifier=NULL(optional) hr=0x80070492", ""},
    {"FAIL SRC.KsMethod identifier-len=4 < 24 hr=0x80070057", ""},
    {"FAIL SRC.KsProperty data=NULL len=4 hr=0x80070057", ""},
    {"FAIL SRC.KsProperty set={1CB79112-C0D2-4213-9CA6-CD4FDB927972} id=1 flags=0x00000001 datalen=0 hr=0x80070492",
     ""},
    {"FAIL SRC.GetService unsupported-service {00000000-0000-0000-0000-000000000001} hr=0xC00D36BA", ""},
    {"FAIL SRC.GetService delegated-riid {00000000-0000-0000-0000-000000000001} hr=0x80004002", ""},
    {"FAIL SRC.GetService hr=0xC00D36BA", ""},
    {"FAIL SRC.SetD3DManager hr=0x80004001", ""},
    {"FAIL SRC.Pause hr=0xC00D3E82", ""},
    {"FAIL SRC.ShutdownObject hr=0x80004001", ""},
    {"FAIL SRC.DetachObject hr=0x80004001", ""},
    {"FAIL SRC.GetEvent hr=0xC00D3E80", ""},
    {"FAIL STM.GetEvent hr=0xC00D3E85", ""},
    {"FAIL SRC.EndGetEvent hr=0x80070057", "refused a call"},
    {"FAIL STM.EndGetEvent hr=0x80070057", "refused a call"},
    {"FAIL SRC.GetStreamAttributes hr=0xC00D36B3", "refused a call"},
    {"FAIL SRC.CreatePresentationDescriptor hr=0xC00D36B6", "refused a call"},
    {"FAIL SRC.GetCharacteristics hr=0x80004003", ""},
    {"FAIL SRC.Stop hr=0xC00D3E82", "refused a call"},
    {"FAIL STM.Stop hr=0xC00D3E82", "refused a call"},
    {"FAIL STM.GetMediaSource hr=0xC00D3E85", ""},
    {"FAIL STM.GetStreamDescriptor hr=0x80004003", ""},
    {"ACTATTR source GetCount failed", ""},
    {"ATTR stream0 [2] GetItemByIndex failed", ""},
    // COM.
    {"FAIL DLLGCO hr=0x80004003 (ppv==NULL)", ""},
    {"FAIL DLLGCO wrong clsid {00000000-0000-0000-0000-000000000001} hr=0x80040111", "a class that is not the camera"},
    {"FAIL DLLGCO hr=0x8007000E (factory alloc)", "no memory"},
    {"FAIL DLLGCO riid {00000000-0000-0000-0000-000000000001} hr=0x80004002", "factory"},
    {"FAIL FACTORY CreateInstance hr=0x80004003 (ppv==NULL)", ""},
    {"FAIL FACTORY CreateInstance hr=0x80040110 (aggregation refused)", "part of another object"},
    {"FAIL FACTORY CreateInstance riid {00000000-0000-0000-0000-000000000001} hr=0x80004002", "could not be made"},
    {"FAIL SRC.CreateInstance hr=0x8007000E", "no memory"},
    {"FAIL SRC.CreateInstance hr=0x80004002", "could not be made"},
    {"FAIL SRC.Initialize/MFStartup hr=0xC00D36E3", "Media Foundation did not start"},
    {"FAIL SRC.Initialize/MFCreateEventQueue hr=0x80004005", "could not be set up"},
    {"FAIL SRC.Initialize/stream0 identity attributes hr=0x80004005", "could not be set up"},
    {"FAIL SRC.BuildStreamForGeometry/RvCreateVideoMediaType hr=0x80004005", "stream could not be made"},
    {"FAIL SRC.BuildStreamForGeometry hr=0x80004005", "stream could not be made"},
    {"FAIL SRC.ActivateObject hr=0x80004005", "could not be activated"},
    {"FAIL SRC.Start hr=0xC00D36B4", "could not be started"},
    {"FAIL STM.Start hr=0x8000FFFF", "could not be started"},
    {"FAIL STM.RequestSample hr=0xC00D36B2", "could not hand out a picture"},
    {"FAIL SRC.QueueEvent hr=0x80004005", "refused a call"},
};

TEST(FailureTable, EveryAnnouncementOfTheModuleIsExplained) {
    for (const Announcement& announcement : kAnnouncements) {
        const KnownFailure* const known = FindFailure(announcement.message);
        ASSERT_NE(known, nullptr) << announcement.message;
        const std::string_view about = announcement.about;
        EXPECT_EQ(known->isOrdinary, about.empty()) << announcement.message << "\n  taken for: " << known->pattern;
        EXPECT_NE(known->explanation.find(about), std::string_view::npos)
            << announcement.message << "\n  explained by: " << known->explanation;
        EXPECT_EQ(known->next.empty(), known->isOrdinary) << announcement.message;
    }
}

TEST(FailureTable, AFailedCallOfAnyLabelIsExplained) {
    for (const char* label : {"SRC.CreateInstance",
                              "SRC.Initialize",
                              "SRC.Initialize/m_cs",
                              "SRC.Initialize/m_csTransition",
                              "SRC.Initialize/CoCreateFreeThreadedMarshaler",
                              "SRC.Initialize/MFStartup",
                              "SRC.Initialize/MFCreateEventQueue",
                              "SRC.Initialize/MFCreateAttributes(source)",
                              "SRC.Initialize/MFCreateAttributes(stream0)",
                              "SRC.Initialize/source identity attributes",
                              "SRC.Initialize/stream0 identity attributes",
                              "SRC.Initialize/PublishSensorProfileCollection",
                              "SRC.ActivateObject",
                              "SRC.BuildStreamForGeometry",
                              "SRC.BuildStreamForGeometry/RvCreateVideoMediaType",
                              "SRC.BuildStreamForGeometry/RvCreateVideoMediaTypeB",
                              "SRC.CreatePresentationDescriptor",
                              "SRC.GetCharacteristics",
                              "SRC.GetSourceAttributes",
                              "SRC.GetStreamAttributes",
                              "SRC.GetEvent",
                              "SRC.BeginGetEvent",
                              "SRC.EndGetEvent",
                              "SRC.QueueEvent",
                              "SRC.Start",
                              "SRC.Stop",
                              "SRC.Shutdown",
                              "STM.GetMediaSource",
                              "STM.GetStreamDescriptor",
                              "STM.RequestSample",
                              "STM.GetEvent",
                              "STM.BeginGetEvent",
                              "STM.EndGetEvent",
                              "STM.QueueEvent",
                              "STM.Start",
                              "STM.Stop",
                              "STM.Shutdown"}) {
        const KnownFailure* const known = FindFailure("FAIL " + std::string(label) + " hr=0x80004005");
        ASSERT_NE(known, nullptr) << label;
        EXPECT_FALSE(known->isOrdinary) << label;
        // After the end of the camera every call fails, which is as it should be.
        const KnownFailure* const late = FindFailure("FAIL " + std::string(label) + " hr=0xC00D3E85");
        ASSERT_NE(late, nullptr) << label;
        EXPECT_TRUE(late->isOrdinary) << label;
    }
}

TEST(FailureTable, EveryEntryIsThereForSomeAnnouncement) {
    for (const KnownFailure& known : KnownFailures()) {
        const bool isUsed = std::any_of(
            std::begin(kAnnouncements), std::end(kAnnouncements),
            [&known](const Announcement& announcement) { return FindFailure(announcement.message) == &known; });
        EXPECT_TRUE(isUsed) << "nothing comes to " << known.pattern;
    }
}

TEST(FailureTable, WhatGoesWellIsNoFailure) {
    for (
        const char* message :
        {"PIPE created \\\\.\\pipe\\Ravlo - DACL grants S-1-5-21-1-2-3-1001 and LOCAL SYSTEM, nobody else; waiting for a "
         "client",
         "PIPE owner set to S-1-5-19 - rvfeeder.exe accepts only S-1-5-19 (LOCAL SERVICE) or S-1-5-18 (SYSTEM); anything "
         "else here means the feeder will refuse this pipe and no frames will flow",
         "PIPE name \\\\.\\pipe\\Ravlo - route=client-attribute; the camera owner published it explicitly and "
         "RvIsRavloPipeName accepted it",
         "PIPE name \\\\.\\pipe\\Ravlo - route=singleton; after 2000 ms the explicit pipe-name attribute was absent and "
         "the host-pid attribute was absent too, so there is nothing left to derive a per-node name from",
         "PIPE authorized user read from HKLM\\SOFTWARE\\Ravlo\\AuthorizedUserSid: S-1-5-21-1-2-3-1001",
         "PIPE client connected - admitted by the DACL for S-1-5-21-1-2-3-1001",
         "PIPE geometry recovered",
         "PIPE frame cadence recovered",
         "PIPE the listen recovered",
         "PIPE delivering live frames 320x180 seq=1",
         "PIPE reader thread started - RequestSample performs NO pipe I/O",
         "PIPE reader thread exiting",
         "PIPE reader thread stopped by Shutdown",
         "GATE serving \\\\.\\pipe\\Ravlo.gate - the bridge may now see",
         "GATE thread started - the demand lease",
         "GATE thread exiting - no further demand records",
         "RET SRC.Start hr=0x00000000",
         "CALL STM.RequestSample",
         "STM.RequestSample observed 17 total calls (rate-limited to <=1 line/s)",
         "WHOAMI pid=1 tid=2",
         "ATTACH DLL_PROCESS_ATTACH hInstance=0000000000000000"}) {
        EXPECT_EQ(FindFailure(message), nullptr) << message;
    }
}

}  // namespace
}  // namespace ravlo::test
