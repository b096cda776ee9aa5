// Many whole lives of a camera, no two quite alike, after each of which the process holds exactly what it held before.
//
// RAVLO_CYCLES sets how many (200), RAVLO_SEED repeats a run; the seed of a run is printed.
#include "support/fixtures.h"
#include "support/frames.h"
#include "support/heap_faults.h"
#include "support/pipe_client.h"
#include "support/watchdog.h"

#include "soak/seeded_run.h"
#include "soak/camera_life.h"
#include "soak/waiting_clients.h"
#include "soak/process_state.h"

#include <cstdio>

namespace ravlo::test {
namespace {

constexpr unsigned long kUsualCycles = 200;
constexpr unsigned long kWarmUpCycles = 12;
constexpr DWORD kFramePatienceMs = 2000;
/// One camera's slots take 24 MiB, so that not even one of them may be left.
constexpr std::size_t kCommitSlackBytes = 16U << 20;
/// In all heaps together, whoever took them. Some platforms keep a block for each event that they hand to a callback,
/// about one in four lives; a block a life is far more. Only while the platform stays started: its starts leave blocks
/// of their own.
constexpr std::size_t HeapSlackBlocks(unsigned long lives) {
    return 40 + lives / 3;
}

/// How often the module started the platform and has not ended it. A start too many would show nowhere else.
class PlatformStarts {
public:
    explicit PlatformStarts(HMODULE module)
        : m_starts(module, "MFStartup", &Start), m_ends(module, "MFShutdown", &End) {
        s_open = 0;
    }
    static long Open() { return s_open.load(); }

private:
    static HRESULT WINAPI Start(ULONG version, DWORD flags) {
        const HRESULT hr = MFStartup(version, flags);
        s_open += SUCCEEDED(hr) ? 1 : 0;
        return hr;
    }
    static HRESULT WINAPI End() {
        --s_open;
        return MFShutdown();
    }

    static inline std::atomic<long> s_open{0};
    ScopedHook<decltype(MFStartup)> m_starts;
    ScopedHook<decltype(MFShutdown)> m_ends;
};

class CameraCycles : public ModuleTest {
protected:
    struct Held {
        std::size_t handles = 0;
        std::size_t threads = 0;
        long moduleBlocks = 0;
        long platformBlocks = 0;
        long platformStarts = 0;
        bool operator==(const Held&) const = default;
        std::string Text() const {
            return std::to_string(handles) + " handles, " + std::to_string(threads) + " threads, " +
                   std::to_string(moduleBlocks) + " blocks of the module, " + std::to_string(platformBlocks) +
                   " blocks and " + std::to_string(platformStarts) + " starts of the platform";
        }
    };

    Held Now() const {
        return {CountHandles(), ThreadStarts().size(), m_heap.LiveBlocks(), m_platformBlocks.Live(),
                m_platformStarts.Open()};
    }

    void LiveMany(unsigned long cycles, Choices& choices);
    void Live(const CameraLife& life, Choices& choices);
    void CreateOnly(const CameraLife& life);
    void Feed(const CameraLife& life, Camera& camera, PipeClient& producer);
    void LookAtDemand(const CameraLife& life, const Camera& camera, GateClient& gate);
    void Hold(const CameraLife& life, const Camera& camera, std::vector<ComPtr<IUnknown>>& held);
    void End(const CameraLife& life, Camera& camera);

    std::size_t m_committed = 0;  ///< bytes, before the lives that are measured
    HeapUse m_heaps;              ///< before them
    WaitingCallback m_sourceCallback;
    WaitingCallback m_streamCallback;
    HeapFaults m_heap{m_module.Handle()};
    PlatformBlocks m_platformBlocks{L"mfplat.dll", L"rtworkq.dll"};
    PlatformStarts m_platformStarts{m_module.Handle()};
    ShortWaits m_shortWaits{m_module.Handle()};
};

void CameraCycles::CreateOnly(const CameraLife& life) {
    const ComPtr<IMFActivate> activate = m_module.CreateSource<IMFActivate>();
    EXPECT_EQ(S_OK, activate->SetString(kGeometryAttribute, life.shape.geometry));
    const ComPtr<IMFMediaSource> source = activate.As<IMFMediaSource>();
    if (life.sourceCallback) {
        EXPECT_EQ(S_OK, source->BeginGetEvent(&m_sourceCallback, source.Get()));
    }
    EXPECT_EQ(S_OK, source->Shutdown());
}

void CameraCycles::Feed(const CameraLife& life, Camera& camera, PipeClient& producer) {
    const auto [geometry, width, height] = life.shape;
    for (unsigned i = 0; i < life.patterns && camera.Stream(); ++i) {
        EXPECT_EQ(Nv12Size(width, height), camera.Pull().bytes.size());
    }
    if (life.producer == ProducerAt::Nothing) {
        return;
    }
    ASSERT_TRUE(producer.Connect(camera.PipeName())) << m_log.Text();
    if (life.producer == ProducerAt::Connected) {
        return;
    }
    for (std::uint32_t frame = 1; frame <= life.liveFrames; ++frame) {
        const auto isFrame = [&](const Sample& sample) { return SignatureOf(sample.bytes, width, height) == frame; };
        bool served = false;
        // Again when the machine was so busy that the frame grew old unseen.
        for (int attempt = 0; attempt < 3 && !served; ++attempt) {
            ASSERT_TRUE(producer.SendFrame(width, height, frame));
            served = !camera.Stream() || camera.PullUntil(isFrame, kFramePatienceMs);
        }
        ASSERT_TRUE(served) << m_log.Text();
    }
    const WireHeader header = HeaderFor(width, height, 99);
    const std::vector<std::uint8_t> half(Nv12Size(width, height) / 2);
    switch (life.producer) {
        case ProducerAt::InHeader:
            EXPECT_TRUE(producer.SendBytes(&header, 17));
            break;
        case ProducerAt::InPayload:
            EXPECT_TRUE(producer.SendHeader(header) && producer.SendBytes(half.data(), half.size()));
            break;
        case ProducerAt::Gone:
            producer.Close();
            break;
        default:
            break;
    }
}

void CameraCycles::LookAtDemand(const CameraLife& life, const Camera& camera, GateClient& gate) {
    if (life.gate == GateAt::Nothing) {
        return;
    }
    ASSERT_TRUE(gate.Connect(camera.PipeName())) << m_log.Text();
    if (life.gate != GateAt::Connected) {
        EXPECT_TRUE(gate.Read()) << m_log.Text();
    }
    if (life.gate == GateAt::Gone) {
        gate.Close();
    }
}

void CameraCycles::Hold(const CameraLife& life, const Camera& camera, std::vector<ComPtr<IUnknown>>& held) {
    const auto keep = [&held](const auto& object) {
        held.push_back(object.template As<IUnknown>());
        ASSERT_TRUE(held.back());
    };
    if (life.holdsStream && camera.Stream()) {
        held.push_back(ComPtr<IUnknown>::Share(camera.Stream()));
    }
    if (life.holdsDescriptors) {
        const ComPtr<IMFPresentationDescriptor> presentation = PresentationOf(camera.Source());
        BOOL selected = FALSE;
        ComPtr<IMFStreamDescriptor> descriptor;
        ASSERT_EQ(S_OK, presentation->GetStreamDescriptorByIndex(0, &selected, descriptor.Put()));
        keep(presentation);
        keep(descriptor);
        keep(MediaTypeOf(camera.Source()));
    }
    if (life.holdsStores) {
        ComPtr<IMFAttributes> store;
        ASSERT_EQ(S_OK, camera.Source()->GetSourceAttributes(store.Put()));
        keep(store);
        ASSERT_EQ(S_OK, camera.Source()->GetStreamAttributes(0, store.Put()));
        keep(store);
    }
    if (life.holdsMarshaler) {
        keep(ComPtr<IMFMediaSource>::Share(camera.Source()).As<IMarshal>());
    }
}

void CameraCycles::End(const CameraLife& life, Camera& camera) {
    if (life.ending == Ending::StopFirst) {
        EXPECT_EQ(S_OK, camera.Source()->Stop());
    }
    if (life.ending == Ending::RefusedFirst) {
        EXPECT_EQ(E_NOTIMPL, camera.Activate()->ShutdownObject());
        EXPECT_EQ(E_NOTIMPL, camera.Activate()->DetachObject());
    }
    EXPECT_EQ(S_OK, camera.Shutdown());
    if (life.ending == Ending::Twice) {
        EXPECT_EQ(S_OK, camera.Shutdown());
    }
    DWORD characteristics = 0;
    EXPECT_EQ(MF_E_SHUTDOWN, camera.Source()->GetCharacteristics(&characteristics));
}

void CameraCycles::Live(const CameraLife& life, Choices& choices) {
    std::optional<MediaFoundation> platform;
    if (life.clientStartsPlatform) {
        platform.emplace();
    }
    if (life.reach == Reach::Created) {
        CreateOnly(life);
        return;
    }
    const ComPtr<IClassFactory> factory = m_module.Factory();
    if (life.serverLock) {
        ASSERT_EQ(S_OK, factory->LockServer(TRUE));
    }
    ComPtr<IMFMediaSource> second;
    if (life.factoryServesTwice) {
        ASSERT_EQ(S_OK, factory->CreateInstance(nullptr, __uuidof(IMFMediaSource), second.PutVoid()));
    }
    std::vector<ComPtr<IUnknown>> held;
    std::optional<Sample> sample;
    PipeClient producer;
    GateClient gate;
    {
        Camera camera(m_module, {.geometry = life.shape.geometry});
        if (life.activatesTwice) {
            ComPtr<IMFMediaSource> again;
            EXPECT_EQ(S_OK, camera.Activate()->ActivateObject(__uuidof(IMFMediaSource), again.PutVoid()));
        }
        if (life.reach == Reach::Started) {
            camera.Start();
            if (life.restart) {
                camera.Stop();
                camera.Start();
            }
        }
        ASSERT_NO_FATAL_FAILURE(Feed(life, camera, producer));
        ASSERT_NO_FATAL_FAILURE(LookAtDemand(life, camera, gate));
        ASSERT_NO_FATAL_FAILURE(Hold(life, camera, held));
        if (life.holdsSample && camera.Stream()) {
            sample = camera.Pull();
        }
        if (life.sourceCallback) {
            EXPECT_EQ(S_OK, camera.Source()->BeginGetEvent(&m_sourceCallback, camera.Source()));
        }
        if (life.streamCallback && camera.Stream()) {
            EXPECT_EQ(S_OK, camera.Stream()->BeginGetEvent(&m_streamCallback, camera.Stream()));
        }
        std::optional<Asking> events;
        std::optional<Asking> samples;
        if (life.blockedGetEvent && !life.sourceCallback) {
            events.emplace([source = camera.Source()] {
                ComPtr<IMFMediaEvent> event;
                return source->GetEvent(0, event.Put());
            });
        }
        if (life.blockedRequest && camera.Stream()) {
            samples.emplace([stream = camera.Stream()] { return stream->RequestSample(nullptr); });
        }
        EXPECT_TRUE(WaitUntil([&] { return ThreadsOf(ModuleRange(m_module.Handle())) == 2; }));
        EXPECT_GT(m_platformBlocks.Live(), 0);
        EXPECT_EQ(second ? 2 : 1, m_platformStarts.Open());
        EXPECT_GT(m_heap.LiveBlocks(), 0);
        EXPECT_GT(CommittedBytes(), m_committed + kCommitSlackBytes) << "what a camera takes can be seen";
        End(life, camera);
        EXPECT_EQ(0u, ThreadsOf(ModuleRange(m_module.Handle())));
        if (events) {
            EXPECT_EQ(MF_E_SHUTDOWN, events->Last());
        }
        if (samples && samples->Last() != MF_E_SHUTDOWN) {
            EXPECT_EQ(Ending::StopFirst, life.ending);
            EXPECT_EQ(MF_E_MEDIA_SOURCE_WRONGSTATE, samples->Last());
        }
    }
    choices.Shuffle(held);
    held.clear();
    if (sample) {
        EXPECT_EQ(sample->bytes, ReadSample(sample->object.Get()).bytes) << "a sample is its client's own";
    }
    if (second) {
        EXPECT_EQ(S_OK, second->Shutdown());
    }
    if (life.serverLock) {
        EXPECT_EQ(S_OK, factory->LockServer(FALSE));
    }
}

void CameraCycles::LiveMany(unsigned long cycles, Choices& choices) {
    Held before;
    for (unsigned long cycle = 0; cycle < kWarmUpCycles + cycles; ++cycle) {
        if (cycle <= kWarmUpCycles) {
            before = Now();
            m_committed = CommittedBytes();
            m_heaps = TakenFromHeaps();
        }
        const CameraLife life(choices);
        SCOPED_TRACE("cycle " + std::to_string(cycle) + ": " + life.Text());
        ASSERT_NO_FATAL_FAILURE(Live(life, choices));
        ASSERT_FALSE(HasFailure());
        ASSERT_TRUE(WaitUntil([&] { return m_module.CanUnloadNow() == S_OK; })) << m_log.Text();
        if (cycle >= kWarmUpCycles) {
            ASSERT_TRUE(WaitUntil([&] { return Now() == before; }))
                << "before: " << before.Text() << "\nnow:    " << Now().Text() << "\n"
                << m_log.Text();
        }
        ASSERT_EQ(1, m_sourceCallback.References());
        ASSERT_EQ(1, m_streamCallback.References());
        m_log.Restart();
    }
    EXPECT_LT(CommittedBytes(), m_committed + kCommitSlackBytes);
}

TEST_F(CameraCycles, EveryLifeGivesBackExactlyWhatItTook) {
    const unsigned long cycles = NumberFromEnvironment("RAVLO_CYCLES", kUsualCycles);
    const unsigned long seed = SeedOfThisRun();
    SCOPED_TRACE("RAVLO_SEED=" + std::to_string(seed) + " RAVLO_CYCLES=" + std::to_string(cycles));
    std::printf("[     SEED ] RAVLO_SEED=%lu RAVLO_CYCLES=%lu\n", seed, cycles);
    SetTestTimeout(std::chrono::seconds(60 + cycles));
    Choices choices(seed);
    {
        const MediaFoundation platform;
        ASSERT_NO_FATAL_FAILURE(LiveMany(cycles / 2, choices));
        const HeapUse heaps = TakenFromHeaps();
        EXPECT_LT(heaps.blocks, m_heaps.blocks + HeapSlackBlocks(cycles / 2)) << m_heaps.blocks << " blocks before";
        std::printf("[     HELD ] %s; %zu blocks, %zu KiB in all heaps (%zu and %zu before)\n", Now().Text().c_str(),
                    heaps.blocks, heaps.bytes >> 10, m_heaps.blocks, m_heaps.bytes >> 10);
    }
    // From here on the module itself starts the platform and ends it, again and again.
    ASSERT_NO_FATAL_FAILURE(LiveMany(cycles - cycles / 2, choices));
    std::printf("[     HELD ] %s; %zu KiB committed (%zu before)\n", Now().Text().c_str(), CommittedBytes() >> 10,
                m_committed >> 10);
    EXPECT_GT(m_heap.Allocations(), static_cast<long>(cycles));
}

}  // namespace
}  // namespace ravlo::test
