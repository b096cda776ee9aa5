// The single things that producers do to the camera's frame pipe, good and bad.
#pragma once

#include "soak/seeded_run.h"
#include "soak/complaints.h"
#include "soak/sample_judge.h"
#include "soak/sent_frames.h"
#include "soak/stall_meter.h"
#include "support/frames.h"
#include "support/pipe_client.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace ravlo::test {

/// One producer. Everything that should work and does not becomes a complaint.
class ProducerPlayer {
public:
    /// A server that must hang up has this long (ms), beyond the machine's own stalls.
    static constexpr double kHangUpMs = 150;
    static constexpr unsigned kHangUpHandOvers = 4;

    ProducerPlayer(const std::wstring& pipeName, SentFrames& sent, const StallMeter& stalls, Choices& choices,
                   Complaints& complaints)
        : m_sent(sent), m_stalls(stalls), m_choices(choices), m_complaints(complaints) {
        if (!m_client.Connect(pipeName)) {
            complaints.Add(Printed("a producer cannot connect, error %lu", m_client.LastError()));
        }
    }

    /// A whole right frame in two pieces; returns its signature.
    std::uint32_t SendFrame() {
        const std::uint32_t signature = m_sent.Take();
        const std::vector<std::uint8_t> frame = MakeFrame(kWidth, kHeight, signature);
        const WireHeader header = HeaderFor(kWidth, kHeight, signature);
        Send(&header, sizeof header);
        FinishFrame(signature, frame.data(), frame.size());
        return signature;
    }
    /// A whole right frame: its header and `slowBytes` of its payload byte by byte, the rest in random pieces.
    std::uint32_t DribbleFrame(std::size_t slowBytes) {
        const std::uint32_t signature = m_sent.Take();
        const std::vector<std::uint8_t> frame = MakeFrame(kWidth, kHeight, signature);
        const WireHeader header = HeaderFor(kWidth, kHeight, signature);
        const auto* const headerBytes = reinterpret_cast<const std::uint8_t*>(&header);
        for (std::size_t i = 0; i < sizeof header; ++i) {
            Send(headerBytes + i, 1);
        }
        std::size_t sent = 0;
        for (; sent < slowBytes; ++sent) {
            Send(frame.data() + sent, 1);
        }
        while (frame.size() - sent > 1) {
            const std::size_t piece = std::min<std::size_t>(1 + m_choices.Below(3000), frame.size() - sent - 1);
            Send(frame.data() + sent, piece);
            sent += piece;
        }
        FinishFrame(signature, frame.data() + sent, frame.size() - sent);
        return signature;
    }
    /// A whole right frame with a pause after `before` bytes of header and payload.
    std::uint32_t SendFrameWithPause(std::size_t before, DWORD pauseMs) {
        const std::uint32_t signature = m_sent.Take();
        const std::vector<std::uint8_t> wire = Wire(HeaderFor(kWidth, kHeight, signature), signature);
        Send(wire.data(), before);
        Sleep(pauseMs);
        FinishFrame(signature, wire.data() + before, wire.size() - before);
        return signature;
    }
    /// The first `bytes` of a frame and of the header in front of it; it is never finished.
    void SendBeginning(std::size_t bytes) {
        const std::uint32_t signature = m_sent.Take();
        const std::vector<std::uint8_t> wire = Wire(HeaderFor(kWidth, kHeight, signature), signature);
        Send(wire.data(), bytes);
    }
    /// A whole frame of another shape. Its bytes begin like a right one's, so that it would be taken for one.
    void SendForeignFrame(std::uint32_t width, std::uint32_t height) {
        const std::uint32_t signature = m_sent.Take();
        const WireHeader header = HeaderFor(width, height, signature);
        const std::vector<std::uint8_t> frame = MakeFrame(width, height, signature);
        Send(&header, sizeof header);
        Send(frame.data(), frame.size());
    }
    /// A header that must be refused, and up to `payload` bytes behind it: the server hangs up on the header alone, so
    /// it may do so while they are written.
    void SendRefused(const WireHeader& header, std::size_t payload) {
        Send(&header, sizeof header);
        const std::vector<std::uint8_t> bytes(payload, 0x55);
        m_client.SendBytes(bytes.data(), bytes.size());
        ExpectHangUp();
    }
    /// Random bytes. As many as a header has, or more, make the server hang up.
    void SendGarbage(std::size_t count) {
        std::vector<std::uint8_t> bytes(count);
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(m_choices.Below(256));
        }
        bytes.at(0) = 'X';  // begins no header, whatever the dice say
        m_client.SendBytes(bytes.data(), bytes.size());
        if (count >= sizeof(WireHeader)) {
            ExpectHangUp();
        }
    }

private:
    static std::vector<std::uint8_t> Wire(const WireHeader& header, std::uint32_t signature) {
        const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&header);
        std::vector<std::uint8_t> wire(bytes, bytes + sizeof header);
        const std::vector<std::uint8_t> frame = MakeFrame(kWidth, kHeight, signature);
        wire.insert(wire.end(), frame.begin(), frame.end());
        return wire;
    }
    void Send(const void* data, std::size_t size) {
        if (m_client.Handle() != INVALID_HANDLE_VALUE && !m_client.SendBytes(data, size)) {
            m_complaints.Add(Printed("the camera hangs up on a right producer, error %lu", m_client.LastError()));
        }
    }
    void FinishFrame(std::uint32_t signature, const std::uint8_t* rest, std::size_t size) {
        m_sent.MarkSent(signature, 1, NowMs());
        Send(rest, size);
    }
    void ExpectHangUp() {
        const double begin = NowMs();
        const bool hungUp = m_client.WaitForDisconnect();
        const double took = NowMs() - begin;
        if (!hungUp || took > kHangUpMs + m_stalls.AllowanceBetween(begin, begin + took, kHangUpHandOvers)) {
            m_complaints.Add(Printed("the camera %s after %.1f ms", hungUp ? "hung up" : "has not hung up", took));
        }
    }

    SentFrames& m_sent;
    const StallMeter& m_stalls;
    Choices& m_choices;
    Complaints& m_complaints;
    PipeClient m_client;
};

}  // namespace ravlo::test
