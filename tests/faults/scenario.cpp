#include "faults/scenario.h"

#include "faults/camera_client.h"
#include "faults/sites.h"
#include "faults/staging.h"
#include "faults/standins.h"
#include "faults/trace_capture.h"
#include "support/frames.h"
#include "support/pipe_client.h"
#include "support/wait.h"

#include <algorithm>

namespace ravlo::faults {

void (*g_beforeUnload)(Outcome& outcome) = nullptr;

namespace {

using test::GateClient;
using test::HeaderFor;
using test::PipeClient;
using test::WaitUntil;

// Real time. Without a fault each wait takes a few milliseconds. What a thread of the module should bring is not waited
// for when that thread has ended.
constexpr DWORD kPatienceMs = 2000;
constexpr DWORD kStickyPatienceMs = 300;  // a call that goes on failing may well keep it from ever coming
constexpr DWORD kMomentMs = 50;           // from a disconnect to the line about it
constexpr DWORD kWriteMs = 1000;
constexpr DWORD kSilenceMs = 1100;  // of the module's time: longer than a frame stays fresh
constexpr DWORD kUnloadMs = 1000;

constexpr std::uint32_t kLiveSignature = 77;

DWORD Patience() {
    return IsSticky() ? kStickyPatienceMs : kPatienceMs;
}

bool ReaderRuns() {
    return CurrentAccounts().readerRuns;
}

bool GateRuns() {
    return CurrentAccounts().gateRuns;
}

/// The gate's pipe follows the reader's.
bool GateMayServe() {
    return GateRuns() && (ReaderRuns() || LogContains("PIPE created "));
}

/// Waits until `condition` holds, or until the thread that could make it hold is gone.
template <class Condition>
bool Await(bool (*runs)(), Condition condition) {
    bool met = false;
    WaitUntil([&] { return (met = condition()) || !runs(); }, Patience(), 1);
    return met || condition();
}

bool AwaitLine(const char* text) {
    return Await(ReaderRuns, [text] { return LogContains(text); });
}

/// The producer's part: whole frames, then everything that a header can have wrong. Each step stands on its own
/// connection, because the camera hangs up on a producer that breaks the framing.
class ProducerPart {
public:
    ProducerPart(CameraClient& camera, Outcome& outcome) : m_camera(camera), m_outcome(outcome) {}

    void Play() {
        if (!ServeLive() && !ServeLive()) {
            return;
        }
        m_outcome.headerRefused = RefuseHeader() || (Connect() && RefuseHeader());
        m_outcome.mismatchSeen = MismatchAndRecover() || MismatchAndRecover();
        RefuseOversized();
        DieHalfway();
    }

private:
    bool Connect() {
        return Await(ReaderRuns, [this] { return m_producer.Connect(m_camera.PipeName(), 0); });
    }

    /// A line about what was sent. When the camera has hung up without it, it never comes.
    bool AwaitAnswer(const char* text) {
        Await(ReaderRuns, [&] { return LogContains(text) || m_producer.WaitForDisconnect(0); });
        return WaitUntil([text] { return LogContains(text); }, kMomentMs, 1);
    }

    bool ServeLive() {
        if (!Connect()) {
            return false;
        }
        for (int frame = 0; frame < 3; ++frame) {
            if (!m_producer.SendFrame(m_camera.Width(), m_camera.Height(), kLiveSignature, kWriteMs)) {
                break;
            }
        }
        AwaitAnswer("PIPE delivering live frames");
        for (int pull = 0; pull < 3 && !m_outcome.liveServed; ++pull) {
            m_outcome.liveServed = m_camera.PullPicture() == Picture::Live;
        }
        return m_outcome.liveServed;
    }

    bool RefuseHeader() {
        test::WireHeader header = HeaderFor(m_camera.Width(), m_camera.Height(), 1);
        header.magic = 0x21212121;
        return m_producer.SendHeader(header, kWriteMs) && AwaitAnswer("FAIL PIPE header rejected");
    }

    bool MismatchAndRecover() {
        if (!Connect() || !m_producer.SendFrame(m_camera.Width() / 2, m_camera.Height() / 2, 5, kWriteMs) ||
            !AwaitAnswer("PIPE geometry mismatch")) {
            return false;
        }
        return m_producer.SendFrame(m_camera.Width(), m_camera.Height(), kLiveSignature, kWriteMs) &&
               AwaitAnswer("PIPE geometry recovered");
    }

    void RefuseOversized() {
        if (m_outcome.mismatchSeen &&
            m_producer.SendHeader(HeaderFor(m_camera.Width() * 4, m_camera.Height() * 4, 1), kWriteMs)) {
            AwaitAnswer("FAIL PIPE oversized frame refused");
        }
        m_producer.Close();
    }

    void DieHalfway() {
        if (!m_outcome.mismatchSeen || !Connect()) {
            return;
        }
        m_producer.SendHeader(HeaderFor(m_camera.Width(), m_camera.Height(), 1), kWriteMs);
        const std::vector<std::uint8_t> half(m_camera.Width(), 0x40);
        m_producer.SendBytes(half.data(), half.size(), kWriteMs);
        m_producer.Close();
        AwaitLine("the writer closed the pipe");
    }

    CameraClient& m_camera;
    Outcome& m_outcome;
    PipeClient m_producer;
};

/// Goes away and waits until the gate, which notices that only when it writes, listens for another reader.
void LetGateListen(GateClient& gate) {
    const Hook* const listen = HookByName("ConnectNamedPipe");
    const std::uint32_t before = listen != nullptr ? listen->calls.load() : 0;
    gate.Close();
    Await(GateRuns, [&] { return listen == nullptr || listen->calls.load() > before; });
}

bool ReadDemand(CameraClient& camera, Outcome& outcome) {
    GateClient gate;
    if (!Await(GateMayServe, [&] { return gate.Connect(camera.PipeName(), 0); })) {
        return false;
    }
    // The first record was written at once; the next one finishes it.
    outcome.gateServed = gate.Read(Patience()).has_value() && gate.Read(Patience()).has_value();
    if (!outcome.gateServed) {
        return false;  // the gate has noticed already
    }
    LetGateListen(gate);
    // A reader that comes back is served again.
    if (Await(GateRuns, [&] { return gate.Connect(camera.PipeName(), 0); })) {
        gate.Read(Patience());
        LetGateListen(gate);
    }
    return true;
}

/// After the silence every picture must be the test pattern, on the grid.
void ServePattern(CameraClient& camera, Outcome& outcome) {
    constexpr int kSilentPulls = 8;
    AdvanceClock(kSilenceMs);
    std::vector<LONGLONG> times;
    for (int pull = 0; pull < kSilentPulls; ++pull) {
        LONGLONG time = 0;
        const Picture picture = camera.PullPicture(&time);
        if (picture == Picture::Mixture) {
            outcome.wrongs.push_back("a sample that is neither the test pattern nor a frame of the producer");
        }
        if (picture == Picture::Pattern) {
            times.push_back(time);
        }
    }
    const bool onGrid = std::all_of(times.begin(), times.end(), [&](LONGLONG time) {
        return (time - times.front()) % camera.SampleDuration() == 0;
    });
    if (!onGrid || std::adjacent_find(times.begin(), times.end(), std::greater_equal<>()) != times.end()) {
        outcome.wrongs.push_back("the times of the samples left the grid");
        return;
    }
    outcome.patternServed = times.size() >= kSilentPulls - 2;
}

/// Another camera. A client comes and goes before each of its pipes listens; at its end the reader waits for the bytes
/// of a producer, and a demand record is on its way to a gate reader that never reads: both transfers are cancelled.
void EndWithinTransfers(Outcome& outcome) {
    CameraClient camera(outcome);
    if (!camera.Load()) {
        return;
    }
    LetClientsComeAndGo();
    LetRecordsLinger();
    PipeClient producer;
    GateClient gate;
    if (camera.Create() && camera.Activate()) {
        if (Await(ReaderRuns, [&] { return producer.Connect(camera.PipeName(), 0); })) {
            producer.SendHeader(HeaderFor(camera.Width(), camera.Height(), 1), kWriteMs);
        }
        if (Await(GateMayServe, [&] { return gate.Connect(camera.PipeName(), 0); })) {
            const long before = RecordsWritten();
            Await(GateRuns, [&] { return RecordsWritten() > before; });
        }
    }
    camera.Finish();
    camera.Unload();
}

/// Once more only loaded and unloaded, with the first directory for the log refused. After the life, so that the first
/// call from each place stays that of the life. Nothing new for a module that stays loaded.
void LoadWithSecondDirectory(Outcome& outcome) {
    RefuseFirstDirectory();
    CameraClient camera(outcome);
    if (camera.Load()) {
        camera.Unload();
    }
}

}  // namespace

Outcome PlayScenario() {
    Outcome outcome;
    CameraClient camera(outcome);
    SetCurrentRole(Role::Loader);
    const bool loaded = camera.Load();
    SetCurrentRole(Role::Client);
    if (loaded) {
        camera.Register();
        outcome.clientReached = camera.Create() && camera.Activate() && camera.Start();
        if (outcome.clientReached) {
            camera.UseFaces();
            ProducerPart(camera, outcome).Play();
            if (!ReadDemand(camera, outcome)) {
                ReadDemand(camera, outcome);
            }
            camera.Restart();
            ServePattern(camera, outcome);
        }
        camera.Finish();
        EndWithinTransfers(outcome);
        const bool free = WaitUntil([&] { return camera.CanUnload(); }, kUnloadMs, 1);
        if (g_beforeUnload != nullptr) {
            g_beforeUnload(outcome);
        }
        if (!free) {
            outcome.wrongs.push_back("objects of the module are alive at the end: it cannot be unloaded");
        } else {
            SetCurrentRole(Role::Loader);
            camera.Unload();
            outcome.unloaded = true;
            LoadWithSecondDirectory(outcome);
        }
    }
    SetCurrentRole(Role::Other);
    return outcome;
}

}  // namespace ravlo::faults
