#include "pipe/frame_receive.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <optional>

#include "fuzz/fuzz_support.h"
#include "fuzz/wire_reference.h"

// Input: one byte that chooses what the stream accepts, one for the lengths of the pieces in which the pipe delivers,
// then a script of steps, each of which adds to what the present client writes or ends it (see MakeClients).

namespace ravlo::fuzz {
namespace {

/// How a client ends once its bytes are used up. Thrown stands for memory that runs out within a read.
enum class Ending { PeerClosed, Cancelled, Failed, Thrown };

struct Client {
    Bytes wire;
    Ending ending = Ending::PeerClosed;
};

constexpr std::uint64_t kAccepted[] = {6, 24, 36, 192, 384, 1536, 3110400, 12441600};

void Append(Bytes& wire, const Bytes& more) {
    wire.insert(wire.end(), more.begin(), more.end());
}

void AppendPayload(Bytes& wire, std::size_t count, std::uint8_t first) {
    for (std::size_t i = 0; i < count; ++i) {
        wire.push_back(static_cast<std::uint8_t>(first + 3 * i));
    }
}

std::vector<Client> MakeClients(Input& input) {
    constexpr std::size_t kMostClients = 8;
    constexpr std::size_t kMostBytes = 1 << 14;
    std::vector<Client> clients(1);
    while (!input.IsEmpty() && clients.back().wire.size() < kMostBytes) {
        Bytes& wire = clients.back().wire;
        const std::uint8_t step = input.Byte();
        const std::uint32_t width = 2U * (1 + (step >> 4));
        switch (step & 7U) {
            case 0: {  // a frame as it should be
                const std::uint32_t height = 2U * (1 + input.Byte() % 16);
                Append(wire, GoodHeader(width, height, input.Number(2)));
                AppendPayload(wire, std::size_t{width} * height * 3 / 2, input.Byte());
                break;
            }
            case 1: {  // one with a field of its header replaced
                Bytes header = GoodHeader(width, 4, input.Byte());
                const auto offset = static_cast<std::ptrdiff_t>(4U * (input.Byte() % 10U));
                const Bytes field = input.Take(4);
                std::copy(field.begin(), field.end(), header.begin() + offset);
                Append(wire, header);
                AppendPayload(wire, std::size_t{width} * 6, input.Byte());
                break;
            }
            case 2:  // anything
                Append(wire, input.Take(input.Byte()));
                break;
            case 3: {  // a good header of any size, with nothing behind it yet
                const auto anyWidth = static_cast<std::uint32_t>(input.Number(2));
                const auto anyHeight = static_cast<std::uint32_t>(input.Number(2));
                Append(wire, GoodHeader(anyWidth, anyHeight, 1));
                break;
            }
            case 4:  // some bytes of a payload
                AppendPayload(wire, input.Number(2) % 4096, step);
                break;
            case 5:  // the last bytes do not come
                wire.resize(wire.size() - std::min<std::size_t>(wire.size(), input.Byte()));
                break;
            default:  // the next client
                clients.back().ending = static_cast<Ending>(step >> 4 & 3U);
                if (clients.size() == kMostClients) {
                    return clients;
                }
                clients.emplace_back();
                break;
        }
    }
    return clients;
}

/// The pipe: exact reads, put together from pieces as they come.
class FakePipe final : public FrameSource {
public:
    FakePipe(const Client& client, unsigned pieces) : m_client(client), m_pieces(pieces) {}

    ReadOutcome ReadBytes(void* buffer, std::uint32_t length) override {
        lengths.push_back(length);
        auto* const to = static_cast<std::uint8_t*>(buffer);
        std::size_t done = 0;
        while (done < length) {
            const std::size_t left = m_client.wire.size() - consumed;
            if (left == 0) {
                return End();
            }
            const std::size_t piece = std::min({NextPiece(), left, length - done});
            std::memcpy(to + done, m_client.wire.data() + consumed, piece);
            consumed += piece;
            done += piece;
        }
        return ReadOutcome::Complete;
    }

    std::vector<std::uint32_t> lengths;  ///< of the reads asked for
    std::size_t consumed = 0;

private:
    ReadOutcome End() const {
        switch (m_client.ending) {
            case Ending::Cancelled:
                return ReadOutcome::Cancelled;
            case Ending::Failed:
                return ReadOutcome::Failed;
            case Ending::Thrown:
                throw std::bad_alloc();
            default:
                return ReadOutcome::PeerClosed;
        }
    }

    std::size_t NextPiece() {
        m_pieces = m_pieces * 1103515245U + 12345U;
        const std::size_t most = (m_pieces >> 16 & 3U) == 0 ? 1 : 64;
        return 1 + (m_pieces >> 20) % most;
    }

    const Client& m_client;
    std::uint32_t m_pieces;
};

/// What the next receipt must come to, found by looking at all of the client's bytes at once.
struct Expectation {
    Expectation(const Client& client, std::size_t at, std::uint64_t accepted) {
        const std::size_t left = client.wire.size() - at;
        status = StatusAtEnd(client.ending);
        consumed = left;
        if (left < 40) {
            return;
        }
        const std::uint8_t* const wire = client.wire.data() + at;
        header.assign(wire, wire + 40);
        const ReferenceHeader read(wire);
        if (read.Verdict() != HeaderVerdict::Ok) {
            status = RecvStatus::BadHeader;
            verdict = read.Verdict();
            consumed = 40;
        } else if (read.bytes > accepted) {
            status = RecvStatus::Oversized;
            consumed = 40;
        } else {
            bytes = read.bytes;
            if (left - 40 >= read.bytes) {
                status = RecvStatus::Ok;
                consumed = 40 + static_cast<std::size_t>(read.bytes);
            }
        }
    }

    static RecvStatus StatusAtEnd(Ending ending) {
        switch (ending) {
            case Ending::PeerClosed:
                return RecvStatus::PeerClosed;
            case Ending::Cancelled:
                return RecvStatus::Cancelled;
            default:
                return RecvStatus::IoFault;
        }
    }

    RecvStatus status;
    std::size_t consumed;
    Bytes header;                          ///< empty when it does not come whole
    std::optional<HeaderVerdict> verdict;  ///< of a refused header
    std::optional<std::uint64_t> bytes;    ///< of the payload that is asked for
};

/// The reader's side, which outlives its clients.
class Reader {
public:
    explicit Reader(std::uint64_t accepted) : m_accepted(accepted) {}

    /// True when a frame came and the client is kept.
    bool ReceiveOne(FakePipe& pipe, const Client& client) {
        const std::size_t before = pipe.consumed;
        const Expectation expected(client, before, m_accepted);
        pipe.lengths.clear();
        const std::uint8_t* const storage = m_buffer.Data();
        const std::uint32_t size = m_buffer.Size();
        const std::uint32_t capacity = m_buffer.Capacity();
        FrameHeader header{};
        auto status = static_cast<RecvStatus>(99);
        HeaderVerdict verdict = kUntouched;
        try {
            ReceiveFrame(pipe, header, m_buffer, m_accepted, status, verdict);
        } catch (const std::bad_alloc&) {
            Require(client.ending == Ending::Thrown, "nothing throws but the read that was told to");
        }

        Require(status == expected.status, "the receipt ends as the bytes of the client say");
        Require(pipe.consumed - before == expected.consumed, "exactly one header and its payload are taken");
        Require(!pipe.lengths.empty() && pipe.lengths.front() == 40, "a receipt begins with a read of the header");
        Require(verdict == expected.verdict.value_or(kUntouched), "a verdict is left behind only by a refused header");
        Require(expected.header.empty() || std::memcmp(&header, expected.header.data(), 40) == 0,
                "the header is handed over as it came");
        if (expected.bytes) {
            Require(pipe.lengths.size() == 2 && pipe.lengths[1] == *expected.bytes, "the payload is read in one go");
            Require(m_buffer.Size() == *expected.bytes, "the buffer has the length of the payload");
            Require(m_buffer.Capacity() == std::max<std::uint64_t>(capacity, *expected.bytes),
                    "the buffer grows to what is needed and never shrinks");
            Require(m_buffer.Capacity() <= m_accepted, "the buffer never exceeds what the stream accepts");
        } else {
            Require(pipe.lengths.size() == 1, "no payload is asked for without an acceptable header");
            Require(m_buffer.Data() == storage && m_buffer.Size() == size && m_buffer.Capacity() == capacity,
                    "the buffer is not touched before a header is accepted");
        }
        if (status != RecvStatus::Ok) {
            return false;
        }
        Require(std::memcmp(m_buffer.Data(), client.wire.data() + before + 40, m_buffer.Size()) == 0,
                "the payload is the one that was sent");
        return true;
    }

private:
    static constexpr auto kUntouched = static_cast<HeaderVerdict>(77);

    std::uint64_t m_accepted;
    ReceiveBuffer m_buffer;
};

void Serve(Input input) {
    Reader reader(kAccepted[input.Byte() % std::size(kAccepted)]);
    const unsigned pieces = input.Byte();
    for (const Client& client : MakeClients(input)) {
        FakePipe pipe(client, pieces);
        while (reader.ReceiveOne(pipe, client)) {}
    }
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Serve(ravlo::fuzz::Input(data, size));
    return 0;
}
