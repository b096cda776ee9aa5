// Starts, stops, activations and shutdowns of the source that meet on several threads.
#include "windows/activation_fixture.h"
#include "windows/watched_queues.h"

#include <atomic>
#include <thread>

namespace ravlo::test {
namespace {

class ActivationRaces : public ActivationTest {};

class TransitionRaces : public ModuleTest {
protected:
    static constexpr const wchar_t* kSmall = L"64x36@60/1";

    static HRESULT Start(Camera& camera, const PROPVARIANT* position) {
        return camera.Source()->Start(PresentationOf(camera.Source()).Get(), nullptr, position);
    }

    PropVariant m_empty;
};

TEST_F(TransitionRaces, AShutdownInTheMiddleOfAStartWins) {
    IMFMediaSource* source = nullptr;
    WatchedQueues queues(m_module.Handle(), [&](int, const QueuedEvent& event) -> std::optional<HRESULT> {
        if (event.type == MENewStream) {
            // From another thread, as it would come; it is not held up by the start.
            std::thread([&] { EXPECT_EQ(S_OK, source->Shutdown()); }).join();
            return S_OK;
        }
        return std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    source = camera.Source();
    EXPECT_EQ(MF_E_SHUTDOWN, Start(camera, m_empty.Get()));
    EXPECT_EQ((Types{MENewStream, MESourceStarted}), queues.Order());
    EXPECT_FALSE(m_log.Contains("CALL STM.Start"));
    EXPECT_EQ(MF_E_SHUTDOWN, camera.Source()->Pause()) << "still shut down, not started";
    EXPECT_EQ(S_OK, camera.Source()->Shutdown());
    EXPECT_TRUE(m_log.HasMessage("RET SRC.Shutdown (repeat) hr=0x00000000"));
}

TEST_F(TransitionRaces, AShutdownInTheMiddleOfAStopWins) {
    IMFMediaSource* source = nullptr;
    WatchedQueues queues(m_module.Handle(), [&](int, const QueuedEvent& event) -> std::optional<HRESULT> {
        if (event.type == MEStreamStopped) {
            std::thread([&] { EXPECT_EQ(S_OK, source->Shutdown()); }).join();
            return S_OK;
        }
        return std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    source = camera.Source();
    EXPECT_EQ(MF_E_SHUTDOWN, camera.Source()->Stop()) << "its event finds a queue that is shut down";
    EXPECT_EQ(MF_E_SHUTDOWN, camera.Source()->Pause());
}

TEST_F(TransitionRaces, AStopWaitsForTheStartThatIsUnderWay) {
    IMFMediaSource* source = nullptr;
    std::thread stopping;
    bool stopCameFirst = false;
    WatchedQueues queues(m_module.Handle(), [&](int, const QueuedEvent& event) -> std::optional<HRESULT> {
        if (event.type == MENewStream) {
            stopping = std::thread([&] { EXPECT_EQ(S_OK, source->Stop()); });
            stopCameFirst = m_log.WaitForLine("CALL SRC.Stop").has_value();
            DWORD characteristics = 0;
            EXPECT_EQ(S_OK, source->GetCharacteristics(&characteristics)) << "the state lock is free meanwhile";
        }
        return std::nullopt;
    });
    Camera camera(m_module, {.geometry = kSmall});
    source = camera.Source();
    EXPECT_EQ(S_OK, Start(camera, m_empty.Get()));
    stopping.join();
    EXPECT_TRUE(stopCameFirst) << "it was called while the start was in its first step";
    EXPECT_EQ((Types{MENewStream, MESourceStarted, MEStreamStarted, MEStreamStopped, MESourceStopped}), queues.Order());
}

TEST_F(TransitionRaces, StartsAndStopsOfManyThreadsNeverMix) {
    WatchedQueues queues(m_module.Handle());
    Camera camera(m_module, {.geometry = kSmall});
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&] {
            for (int i = 0; i < 10; ++i) {
                EXPECT_EQ(S_OK, Start(camera, m_empty.Get()));
                EXPECT_EQ(S_OK, camera.Source()->Stop());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const Types order = queues.Order();
    std::size_t at = 0;
    int starts = 0;
    while (at < order.size()) {
        if (order[at] == MEStreamStopped) {
            ASSERT_LT(at + 1, order.size());
            ASSERT_EQ(MediaEventType{MESourceStopped}, order[at + 1]);
            at += 2;
            continue;
        }
        ASSERT_EQ(MediaEventType{starts == 0 ? MENewStream : MEUpdatedStream}, order[at]);
        ASSERT_LT(at + 2, order.size());
        ASSERT_EQ(MediaEventType{MESourceStarted}, order[at + 1]);
        ASSERT_EQ(MediaEventType{MEStreamStarted}, order[at + 2]);
        at += 3;
        ++starts;
    }
    EXPECT_EQ(30, starts);
}

TEST_F(ActivationRaces, AShutdownInTheMiddleWinsAndTheNewStreamGoesToo) {
    Create();
    RAVLO_HOOK(MFCreatePresentationDescriptor) descriptors(m_module.Handle());
    descriptors.Replace([&](DWORD count, IMFStreamDescriptor** streams, IMFPresentationDescriptor** out) {
        // From another thread, as it would come: it does not wait for the activation.
        std::thread([&] { EXPECT_EQ(S_OK, m_source->Shutdown()); }).join();
        return decltype(descriptors)::CallOriginal(count, streams, out);
    });
    EXPECT_EQ(MF_E_SHUTDOWN, Activate());
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.BuildStreamForGeometry hr=0xC00D3E85")) << m_log.Text();
    EXPECT_TRUE(m_log.HasMessage("FAIL SRC.ActivateObject hr=0xC00D3E85"));
    EXPECT_TRUE(m_log.HasMessage("RET STM.Shutdown hr=0x00000000"));
    m_source.Reset();
    m_activate.Reset();
    EXPECT_EQ(S_OK, m_module.CanUnloadNow()) << "neither source nor stream is left";
}

TEST_F(ActivationRaces, AShutdownWhileTheIdentityLinesAreWrittenIsSeen) {
    Create();
    RAVLO_HOOK(ProcessIdToSessionId) sessions(m_module.Handle());
    sessions.Replace([&](DWORD process, DWORD* session) {
        m_source->Shutdown();
        return decltype(sessions)::CallOriginal(process, session);
    });
    EXPECT_EQ(MF_E_SHUTDOWN, Activate());
    EXPECT_TRUE(m_log.HasMessage("ACTATTR source store=NULL"));
    EXPECT_FALSE(m_log.Contains("geometry="));
}

TEST_F(ActivationRaces, ManyThreadsActivateOneStream) {
    Create();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] { EXPECT_EQ(S_OK, Activate()); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1u, m_log.CountLines("RET SRC.BuildStreamForGeometry hr=0x00000000"));
    EXPECT_EQ(4u, m_log.CountLines("RET SRC.ActivateObject hr=0x00000000"));
    EXPECT_EQ(1u, m_log.CountLines("CALL SRC.ActivateObject geometry="));
}

TEST_F(ActivationRaces, AStreamThatAppearedMeanwhileStaysAndTheNewOneIsDiscarded) {
    Create();
    RAVLO_HOOK(MFCreatePresentationDescriptor) descriptors(m_module.Handle());
    std::atomic<int> calls{0};
    descriptors.Replace([&](DWORD count, IMFStreamDescriptor** streams, IMFPresentationDescriptor** out) {
        if (++calls == 1) {
            // The same thread may enter again; its inner activation comes to an end first.
            EXPECT_EQ(S_OK, Activate());
        }
        return decltype(descriptors)::CallOriginal(count, streams, out);
    });
    EXPECT_EQ(S_OK, Activate());
    EXPECT_EQ(2u, m_log.CountLines("RET SRC.BuildStreamForGeometry hr=0x00000000"));
    EXPECT_EQ(1u, m_log.CountLines("RET STM.Shutdown hr=0x00000000")) << "the second stream went at once";
    EXPECT_EQ(S_OK, m_source->Start(PresentationOf(m_source.Get()).Get(), nullptr, nullptr));
    EXPECT_EQ(S_OK, m_source->Shutdown());
    EXPECT_EQ(2u, m_log.CountLines("RET STM.Shutdown hr=0x00000000"));
}

TEST_F(ActivationRaces, ItWaitsForATransitionThatIsUnderWay) {
    Create();
    ASSERT_EQ(S_OK, Activate());
    std::thread activating;
    bool cameMeanwhile = false;
    RAVLO_HOOK(CoGetApartmentType) starts(m_module.Handle());
    starts.Replace([&](APTTYPE* type, APTTYPEQUALIFIER* qualifier) {
        if (!activating.joinable()) {
            m_log.Restart();
            activating = std::thread([&] { EXPECT_EQ(S_OK, Activate()); });
            cameMeanwhile = m_log.WaitForLine("ACTATTR source count=5").has_value();
        }
        return decltype(starts)::CallOriginal(type, qualifier);
    });
    EXPECT_EQ(S_OK, m_source->Start(PresentationOf(m_source.Get()).Get(), nullptr, nullptr));
    ASSERT_TRUE(activating.joinable());
    activating.join();
    EXPECT_TRUE(cameMeanwhile);
    const auto started = m_log.Find("RET STM.Start hr=0x00000000");
    const auto activated = m_log.Find("RET SRC.ActivateObject hr=0x00000000");
    ASSERT_TRUE(started && activated) << m_log.Text();
    EXPECT_LT(*started, *activated);
}

}  // namespace
}  // namespace ravlo::test
