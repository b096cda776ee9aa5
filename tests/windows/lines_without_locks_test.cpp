// The log is a file that a virus scanner or a full disk can hold up. While a line is written, neither the source's state
// lock nor the stream's may be held, or one slow write would stop every other caller of the camera.
#include <gtest/gtest.h>

#include "platform/unique_handle.h"
#include "support/camera.h"
#include "support/fixtures.h"
#include "support/import_hooks.h"
#include "support/wait.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace ravlo::test {
namespace {

/// Takes and gives back the state locks, on a thread of its own, whenever it is asked to.
class LockProbe {
public:
    LockProbe() : m_thread([this] { Run(); }) {}
    LockProbe(const LockProbe&) = delete;
    LockProbe& operator=(const LockProbe&) = delete;
    ~LockProbe() {
        m_stop = true;
        SetEvent(m_asked.Get());
        m_thread.join();
    }

    void Watch(IMFMediaSourceEx* source, IMFMediaStream* stream) {
        m_source = source;
        m_stream = stream;
    }

    /// False when a lock was not to be had in time; the probe then gets it later and is still usable.
    bool LocksAreFree() {
        if (m_busy.exchange(true)) {
            return true;  // one refusal is enough, and that one is reported
        }
        ResetEvent(m_answered.Get());
        SetEvent(m_asked.Get());
        return WaitForSingleObject(m_answered.Get(), 3000) == WAIT_OBJECT_0;
    }

private:
    void Run() {
        while (WaitForSingleObject(m_asked.Get(), INFINITE) == WAIT_OBJECT_0 && !m_stop) {
            ComPtr<IMFAttributes> attributes;
            m_source.load()->GetStreamAttributes(0, attributes.Put());
            if (IMFMediaStream* const stream = m_stream) {
                ComPtr<IMFStreamDescriptor> descriptor;
                stream->GetStreamDescriptor(descriptor.Put());
            }
            m_busy = false;
            SetEvent(m_answered.Get());
        }
    }

    UniqueObject m_asked{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    UniqueObject m_answered{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_busy{false};
    std::atomic<IMFMediaSourceEx*> m_source{nullptr};
    std::atomic<IMFMediaStream*> m_stream{nullptr};
    std::thread m_thread;
};

class LinesWithoutLocks : public ModuleTest {
protected:
    LinesWithoutLocks() {
        m_writes.Replace([this](HANDLE file, LPCVOID data, DWORD size, LPDWORD written, LPOVERLAPPED overlapped) {
            if (std::this_thread::get_id() == m_caller && m_watching) {
                ++m_lines;
                if (!m_probe.LocksAreFree()) {
                    m_locked.emplace_back(static_cast<const char*>(data), size);
                }
            }
            return WriteHook::CallOriginal(file, data, size, written, overlapped);
        });
    }

    /// The lines during which a lock was held, of the calls that `run` makes.
    template <class Calls>
    std::string LockedLines(Calls run) {
        m_lines = 0;
        m_locked.clear();
        m_watching = true;
        run();
        m_watching = false;
        EXPECT_GT(m_lines, 0) << "nothing was written, hence nothing was tried";
        std::string all;
        for (const std::string& line : m_locked) {
            all += line;
        }
        return all;
    }

    using WriteHook = RAVLO_HOOK(WriteFile);
    WriteHook m_writes{m_module.Handle()};
    std::thread::id m_caller = std::this_thread::get_id();
    std::atomic<bool> m_watching{false};
    int m_lines = 0;
    std::vector<std::string> m_locked;
    LockProbe m_probe;
};

TEST_F(LinesWithoutLocks, OfTheSourcesGetters) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    IMFMediaSourceEx* const source = camera.Source();
    m_probe.Watch(source, nullptr);
    const auto getEverything = [&] {
        DWORD characteristics = 0;
        source->GetCharacteristics(&characteristics);
        ComPtr<IMFAttributes> attributes;
        source->GetSourceAttributes(attributes.Put());
        source->GetStreamAttributes(0, attributes.Put());
        source->GetStreamAttributes(7, attributes.Put());
        ComPtr<IMFPresentationDescriptor> presentation;
        source->CreatePresentationDescriptor(presentation.Put());
        source->SetD3DManager(nullptr);
        source->Pause();
        NextEvent(source, 0);
    };
    EXPECT_EQ("", LockedLines(getEverything));
    ASSERT_EQ(S_OK, source->Shutdown());
    EXPECT_EQ("", LockedLines(getEverything)) << "after the shutdown";
}

TEST_F(LinesWithoutLocks, OfTheStreamsGetters) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    IMFMediaStream* const stream = camera.Stream();
    m_probe.Watch(camera.Source(), stream);
    const auto getEverything = [&] {
        ComPtr<IMFMediaSource> source;
        stream->GetMediaSource(source.Put());
        ComPtr<IMFStreamDescriptor> descriptor;
        stream->GetStreamDescriptor(descriptor.Put());
        NextEvent(stream, 0);
        stream->QueueEvent(MEExtendedType, GUID_NULL, S_OK, nullptr);
    };
    EXPECT_EQ("", LockedLines(getEverything));
    ASSERT_EQ(S_OK, camera.Shutdown());
    EXPECT_EQ("", LockedLines(getEverything)) << "after the shutdown";
}

TEST_F(LinesWithoutLocks, OfStartRequestStopAndShutdown) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    m_probe.Watch(camera.Source(), nullptr);
    EXPECT_EQ("", LockedLines([&] { camera.Start(); })) << "the first start";
    m_probe.Watch(camera.Source(), camera.Stream());
    EXPECT_EQ("", LockedLines([&] { camera.Pull(); })) << "a request";
    EXPECT_EQ("", LockedLines([&] { camera.Start(); })) << "a start while it runs";
    EXPECT_EQ("", LockedLines([&] { camera.Pull(); })) << "a request after it";
    EXPECT_EQ("", LockedLines([&] { camera.Stop(); })) << "the stop";
    EXPECT_EQ("", LockedLines([&] { camera.Shutdown(); })) << "the shutdown";
    EXPECT_EQ("", LockedLines([&] { camera.Shutdown(); })) << "the second shutdown";
}

// A lock given back twice lets two threads in at once, later and somewhere else.
TEST_F(LinesWithoutLocks, EveryLockIsGivenBackExactlyOnce) {
    Camera camera(m_module, {.geometry = L"64x36@60/1"});
    camera.Start();
    std::vector<LPCRITICAL_SECTION> held;
    int taken = 0;
    int surplus = 0;
    using EnterHook = RAVLO_HOOK(EnterCriticalSection);
    using LeaveHook = RAVLO_HOOK(LeaveCriticalSection);
    EnterHook enters(m_module.Handle());
    LeaveHook leaves(m_module.Handle());
    enters.Replace([&](LPCRITICAL_SECTION section) {
        EnterHook::CallOriginal(section);
        if (std::this_thread::get_id() == m_caller) {
            ++taken;
            held.push_back(section);
        }
    });
    leaves.Replace([&](LPCRITICAL_SECTION section) {
        if (std::this_thread::get_id() == m_caller) {
            const auto found = std::find(held.rbegin(), held.rend(), section);
            if (found == held.rend()) {
                ++surplus;
                return;
            }
            held.erase(std::next(found).base());
        }
        LeaveHook::CallOriginal(section);
    });
    camera.Pull();
    ComPtr<IMFStreamDescriptor> descriptor;
    EXPECT_EQ(S_OK, camera.Stream()->GetStreamDescriptor(descriptor.Put()));
    ComPtr<IMFAttributes> attributes;
    EXPECT_EQ(S_OK, camera.Source()->GetStreamAttributes(0, attributes.Put()));
    camera.Stop();
    EXPECT_EQ(S_OK, camera.Shutdown());
    EXPECT_LT(5, taken);
    EXPECT_EQ(0, surplus);
    EXPECT_EQ(0u, held.size());
    enters.PassOn();
    leaves.PassOn();
}

}  // namespace
}  // namespace ravlo::test
