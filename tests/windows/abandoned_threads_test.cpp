// Threads of a stream that will not stop: wherever they stand, the teardown leaves everything that they use alone, and
// they come to their end whenever they go on. Each stage is a process of its own.
#include "windows/abandoned_stage.h"

#include "support/frames.h"
#include "support/process.h"

#include <thread>

namespace ravlo::test {
namespace {

constexpr std::size_t kFrameSlotBytes = 3840 * 2160 * 3 / 2;

std::string WhoStands(const std::string& readerPlace, const std::string& gatePlace) {
    return readerPlace.empty() ? "the gate thread"
           : gatePlace.empty() ? "the reader thread"
                               : "the reader AND gate threads";
}

/// The same block as it is by now.
FencedHeap::Block NowOf(const FencedHeap::Block& block) {
    return FencedHeap::BlockOf(reinterpret_cast<void*>(block.address)).value();
}

/// What the stream and its threads use: the object, the slots of frames, and whatever the threads took.
std::vector<FencedHeap::Block> BlocksInUse(const AbandonedStage& stage, const FencedHeap::Block& object) {
    std::vector<FencedHeap::Block> used;
    for (const FencedHeap::Block& block : FencedHeap::Taken()) {
        if (block.address == object.address || block.bytes == kFrameSlotBytes || stage.IsStreamThread(block.takenBy)) {
            used.push_back(block);
        }
    }
    return used;
}

void ExpectUntouchedByTheTeardown(const std::vector<FencedHeap::Block>& used) {
    for (const FencedHeap::Block& block : used) {
        EXPECT_NE(GetCurrentThreadId(), NowOf(block).freedBy) << "a block of " << block.bytes << " bytes";
    }
}

void ExpectBothThreadsToEnd(AbandonedStage& stage) {
    stage.LetGo();
    EXPECT_EQ(0u, stage.EndOf(0));
    EXPECT_EQ(0u, stage.EndOf(1));
    EXPECT_EQ(1u, stage.log.CountLines(kReaderExit)) << stage.log.Text();
    EXPECT_EQ(1u, stage.log.CountLines(kGateExit)) << stage.log.Text();
}

/// Arguments: the reader's place, the gate thread's, when they go on ("late" after the last reference is gone, "early"
/// before), and whether the pipe's name is held in the end.
RAVLO_ROLE(Stand) {
    const std::string readerPlace = Narrow(arguments.at(0));
    const std::string gatePlace = Narrow(arguments.at(1));
    const bool early = arguments.at(2) == L"early";
    const bool heldAtTheEnd = arguments.at(3) == L"held";
    AbandonedStage& stage = *new AbandonedStage(readerPlace, gatePlace);
    IMFMediaStream* const stream = stage.camera->Stream();
    stream->AddRef();
    const auto object = FencedHeap::BlockOf(stream);
    const auto source = FencedHeap::BlockOf(stage.camera->Source());
    if (!object || !source) {
        ADD_FAILURE() << "the objects do not lie in blocks of the module";
        return 1;
    }
    const std::vector<FencedHeap::Block> used = BlocksInUse(stage, *object);
    EXPECT_GE(used.size(), 3u) << "the object and two slots";
    EXPECT_GE(stage.Made(), 6u) << "three events, a timer, two threads";
    stage.Note();

    EXPECT_EQ(S_OK, stage.camera->Shutdown());
    EXPECT_TRUE(stage.log.HasMessage(AbandonedLine(WhoStands(readerPlace, gatePlace), "258"))) << stage.log.Text();
    EXPECT_EQ(1u, stage.log.CountLines("did not exit within"));
    EXPECT_EQ(S_OK, stage.camera->Shutdown());
    EXPECT_FALSE(stage.log.Contains("re-entered")) << "a repeated Shutdown does not come so far";
    if (early) {
        ExpectBothThreadsToEnd(stage);
    } else {
        EXPECT_TRUE(stage.AllAreOpen());
    }
    stage.camera->ReleaseAll();
    EXPECT_EQ(GetCurrentThreadId(), NowOf(*source).freedBy) << "the source is destroyed; only the stream is not";
    EXPECT_EQ(0u, stream->Release());

    EXPECT_EQ(1u, stage.log.CountLines("re-entered"));
    EXPECT_TRUE(stage.log.HasMessage(kReentered)) << stage.log.Text();
    EXPECT_EQ(1u, stage.log.CountLines("NOT DESTROYED"));
    EXPECT_TRUE(stage.log.HasMessage(kNotDestroyed)) << stage.log.Text();
    EXPECT_LT(stage.log.Find(kReentered), stage.log.Find(kNotDestroyed));
    EXPECT_EQ(0, stage.ClosedOfTheStream());
    EXPECT_EQ(0, stage.Disconnected());
    EXPECT_EQ(0u, stage.DeletedSections(*object));
    EXPECT_EQ(2u, stage.AllDeletedSections()) << "the source's two";
    ExpectUntouchedByTheTeardown(used);
    EXPECT_EQ(S_FALSE, stage.Module().CanUnloadNow());
    if (!early) {
        EXPECT_TRUE(stage.AllAreOpen());
        ExpectBothThreadsToEnd(stage);
    }
    EXPECT_EQ(heldAtTheEnd, stage.NameIsHeld()) << stage.log.Text();
    EXPECT_EQ(0u, NowOf(*object).freedBy);
    EXPECT_EQ(S_FALSE, stage.Module().CanUnloadNow()) << "the object stays for good";
    return 0;
}

struct Place {
    const wchar_t* reader;
    const wchar_t* gate;
    const wchar_t* when;
    const wchar_t* name;
};

/// Several at a time: most of a stage's time goes into the start of its process.
void PlayAll(const std::vector<Place>& places) {
    constexpr std::size_t kAtATime = 4;
    for (std::size_t first = 0; first < places.size(); first += kAtATime) {
        std::vector<ChildProcess> children;
        for (std::size_t i = first; i < places.size() && i < first + kAtATime; ++i) {
            children.push_back(StartRole("Stand", {places[i].reader, places[i].gate, places[i].when, places[i].name}));
        }
        for (std::size_t i = 0; i < children.size(); ++i) {
            const Place& place = places[first + i];
            EXPECT_EQ(0u, children[i].Wait(40000)) << "reader in '" << Narrow(place.reader) << "', gate in '"
                                                   << Narrow(place.gate) << "', " << Narrow(place.when) << "\n"
                                                   << children[i].Output();
        }
    }
}

TEST(AbandonedThreads, AReaderMayStandAnywhereBeforeItHasAPipe) {
    PlayAll({{L"WaitForSingleObject", L"", L"late", L"free"},
             {L"RegOpenKeyExW", L"", L"late", L"free"},
             {L"LookupAccountSidW", L"", L"late", L"free"},
             {L"CreateFileW", L"", L"late", L"free"},
             {L"WriteFile", L"", L"late", L"free"},
             {L"CreateEventW", L"", L"late", L"held"},
             {L"CreateNamedPipeW", L"", L"late", L"held"},
             {L"LookupAccountSidW", L"", L"early", L"free"}});
}

TEST(AbandonedThreads, AReaderMayStandAnywhereOnceItHasAPipe) {
    PlayAll({{L"ConnectNamedPipe", L"", L"late", L"held"},
             {L"ReadFile", L"", L"late", L"held"},
             {L"WaitForMultipleObjects", L"", L"late", L"held"},
             {L"GetOverlappedResult", L"", L"late", L"held"},
             {L"ReadFile", L"", L"early", L"held"}});
}

TEST(AbandonedThreads, AGateThreadMayStandAnywhere) {
    PlayAll({{L"", L"CreateEventW", L"late", L"held"},
             {L"", L"CreateNamedPipeW", L"late", L"held"},
             {L"", L"ConnectNamedPipe", L"late", L"held"},
             {L"", L"WaitForSingleObject", L"late", L"held"},
             {L"", L"WriteFile", L"late", L"held"},
             {L"", L"CreateFileW", L"late", L"held"},
             {L"", L"CreateNamedPipeW", L"early", L"held"}});
}

TEST(AbandonedThreads, BothMayStandAtOnce) {
    PlayAll({{L"ReadFile", L"CreateNamedPipeW", L"late", L"held"},
             {L"ConnectNamedPipe", L"WaitForSingleObject", L"late", L"held"},
             {L"WaitForMultipleObjects", L"WriteFile", L"late", L"held"},
             {L"WaitForMultipleObjects", L"CreateEventW", L"early", L"held"}});
}

/// What a client sees of a stream whose threads were given up, and what the next cameras see.
RAVLO_ROLE(ClientCalls) {
    AbandonedStage& stage = *new AbandonedStage("ReadFile", "CreateNamedPipeW", L"64x36@1/1");
    IMFMediaSourceEx* const source = stage.camera->Source();
    IMFMediaStream* const stream = stage.camera->Stream();
    stage.camera->Pull();  // the next sample is a second away
    HRESULT request = S_OK;
    HRESULT event = S_OK;
    std::thread requesting([&] {
        while (SUCCEEDED(request = stream->RequestSample(nullptr))) {}
    });
    std::thread listening([&] {
        ComPtr<IMFMediaEvent> any;
        while (SUCCEEDED(event = stream->GetEvent(0, any.Put()))) {}
    });
    HRESULT during = S_OK;
    const auto usualJoin = stage.join;
    stage.join = [&](DWORD count, const HANDLE* threads) {
        // From another thread, as it would come: nothing is locked while the join waits.
        std::thread([&] { during = stream->RequestSample(nullptr); }).join();
        requesting.join();
        listening.join();
        return usualJoin(count, threads);
    };
    EXPECT_EQ(S_OK, source->Shutdown());
    stage.join = usualJoin;
    EXPECT_EQ(MF_E_SHUTDOWN, during);
    EXPECT_EQ(MF_E_SHUTDOWN, request);
    EXPECT_EQ(MF_E_SHUTDOWN, event);
    EXPECT_TRUE(stage.log.HasMessage(AbandonedLine("the reader AND gate threads", "258"))) << stage.log.Text();

    ComPtr<IMFMediaEvent> none;
    ComPtr<IMFMediaSource> noSource;
    ComPtr<IMFStreamDescriptor> noDescriptor;
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(MF_E_SHUTDOWN, stream->RequestSample(nullptr));
        EXPECT_EQ(MF_E_SHUTDOWN, stream->GetEvent(MF_EVENT_FLAG_NO_WAIT, none.Put()));
        EXPECT_EQ(MF_E_SHUTDOWN, stream->GetEvent(0, none.Put()));
        EXPECT_EQ(MF_E_SHUTDOWN, stream->QueueEvent(MEError, GUID_NULL, E_FAIL, nullptr));
        EXPECT_EQ(MF_E_SHUTDOWN, stream->GetMediaSource(noSource.Put()));
        EXPECT_EQ(MF_E_SHUTDOWN, stream->GetStreamDescriptor(noDescriptor.Put()));
        EXPECT_TRUE(ComPtr<IMFMediaStream>::Share(stream).As<IMarshal>());
        EXPECT_EQ(MF_E_SHUTDOWN, source->Stop());
        EXPECT_EQ(MF_E_SHUTDOWN, source->Pause());
        EXPECT_EQ(S_OK, source->Shutdown());
    }
    EXPECT_EQ(1u, stage.log.CountLines("did not exit within"));
    EXPECT_EQ(0u, stage.log.CountLines("re-entered"));
    {
        Camera second(stage.Module(), {.geometry = L"64x36@60/1", .pipeName = stage.name});
        second.Start();
        EXPECT_TRUE(stage.log.WaitForLine("FAIL PIPE could not create " + Narrow(stage.name) + ", GetLastError="))
            << stage.log.Text();
        EXPECT_EQ(Nv12Size(64, 36), second.Pull().bytes.size()) << "the pattern, as the line promises";
        EXPECT_EQ(S_OK, second.Shutdown());
    }
    {
        Camera third(stage.Module(), {.geometry = L"64x36@60/1"});
        third.Start();
        PipeClient producer;
        EXPECT_TRUE(producer.Connect(third.PipeName()) && producer.SendFrame(64, 36, 5)) << stage.log.Text();
        EXPECT_TRUE(third.PullUntil([](const Sample& sample) { return SignatureOf(sample.bytes, 64, 36) == 5u; }));
    }
    EXPECT_EQ(1u, stage.log.CountLines("did not exit within")) << "the others end as always";
    EXPECT_EQ(S_FALSE, stage.Module().CanUnloadNow());
    stage.camera->ReleaseAll();
    EXPECT_EQ(1u, stage.log.CountLines("re-entered"));
    EXPECT_EQ(1u, stage.log.CountLines("NOT DESTROYED"));
    EXPECT_EQ(S_FALSE, stage.Module().CanUnloadNow());
    return 0;
}

TEST(AbandonedThreads, ClientsAreAnsweredAndTheNextCamerasServe) {
    ChildProcess child = StartRole("ClientCalls");
    EXPECT_EQ(0u, child.Wait()) << child.Output();
}

}  // namespace
}  // namespace ravlo::test
