// A camera with a consumer that pulls all the time and judges what it gets.
#pragma once

#include "soak/complaints.h"
#include "soak/lock.h"
#include "soak/sample_judge.h"
#include "support/camera.h"
#include "support/com.h"

#include <mfapi.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <thread>

namespace ravlo::test {

/// Numbers of all samples that a consumer has got.
struct PullStatistics {
    std::uint64_t samples = 0;
    std::uint64_t patterns = 0;
    std::uint64_t late = 0;
    double longestWaitMs = 0;

    /// One in 200, and two for a start.
    std::uint64_t LateAllowed() const { return 2 + samples / 200; }
};

/// A started camera and its consumer's thread; both end with the object. Every complaint about a sample goes to the
/// complaints, which like the others that are passed must outlive the object.
class JudgedCamera {
public:
    JudgedCamera(const ModuleUnderTest& module, const std::wstring& pipeName, SentFrames& sent,
                 const StallMeter& stalls, Complaints& complaints)
        : m_camera(module, {.geometry = kGeometry, .pipeName = pipeName}),
          m_judge(sent, stalls, MFGetSystemTime()),
          m_complaints(complaints) {
        m_camera.Start();
        m_consumer = std::thread([this] { Consume(); });
    }
    ~JudgedCamera() {
        m_stop = true;
        m_consumer.join();
    }
    JudgedCamera(const JudgedCamera&) = delete;
    JudgedCamera& operator=(const JudgedCamera&) = delete;

    /// Waits until this frame or a newer one has come out; returns when (NowMs), nothing when it has not in time.
    std::optional<double> WaitForFrame(std::uint32_t signature, DWORD timeoutMs) {
        const Deadline deadline(timeoutMs);
        const LockGuard lock(m_lock);
        while (m_newest < signature && !deadline.Passed()) {
            m_lock.Wait(deadline.Left());
        }
        return m_newest >= signature ? std::optional(m_newestCameMs) : std::nullopt;
    }
    PullStatistics Statistics() const {
        const LockGuard lock(m_lock);
        return m_statistics;
    }

private:
    void Consume() {
        try {
            const ComApartment apartment;
            while (!m_stop) {
                PulledSample pulled;
                pulled.askedMs = NowMs();
                pulled.sample = m_camera.Pull();
                pulled.cameMs = NowMs();
                pulled.cameTime = MFGetSystemTime();
                const std::string wrong = m_judge.Judge(pulled);
                if (!wrong.empty()) {
                    m_complaints.Add(wrong);
                }
                Publish(pulled.cameMs);
            }
        } catch (const std::exception& error) {
            m_complaints.Add(std::string("the consumer has to give up: ") + error.what());
        }
    }
    void Publish(double cameMs) {
        const LockGuard lock(m_lock);
        m_statistics = {m_judge.Samples(), m_judge.Patterns(), m_judge.Late(), m_judge.LongestWaitMs()};
        if (m_judge.Newest() != m_newest) {
            m_newest = m_judge.Newest();
            m_newestCameMs = cameMs;
        }
        m_lock.NotifyAll();
    }

    Camera m_camera;
    SampleJudge m_judge;
    Complaints& m_complaints;
    std::atomic<bool> m_stop{false};
    mutable Lock m_lock;
    PullStatistics m_statistics;
    std::uint32_t m_newest = 0;
    double m_newestCameMs = 0;
    std::thread m_consumer;
};

}  // namespace ravlo::test
