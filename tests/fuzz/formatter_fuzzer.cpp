#include "trace/formatter.h"

#include <cstring>

#include "fuzz/format_reference.h"
#include "fuzz/fuzz_support.h"
#include "trace/format_string.h"
#include "trace/line_layout.h"

// Input: the buffer's capacity (one byte; from 200 on, a whole trace line is built instead), one byte that takes up to
// three arguments away, the format up to a zero byte, then what the format's conversions take: eight bytes a number,
// the text up to a zero byte a string, 16 bytes a GUID; strings and GUIDs come behind a byte that is 0 for a null
// pointer. A wide string is a text whose bytes are units, as in Input::WideRest.

namespace ravlo::fuzz {
namespace {

constexpr char kFill = '\xA5';
constexpr std::size_t kGuardBytes = 64;

/// A buffer between guards. What is behind the text and its terminator must never change.
class GuardedLine {
public:
    explicit GuardedLine(std::uint32_t capacity)
        : m_room(kGuardBytes + capacity + kGuardBytes, kFill), m_capacity(capacity) {}

    char* Text() { return m_room.data() + kGuardBytes; }

    /// The line holds as much of `expected` as `most` characters are, is terminated, and nothing else was written.
    void RequireHolds(const RvLineBuffer& line, const std::string& expected, std::size_t most) {
        const std::string text = expected.substr(0, most);
        Require(line.text == Text(), "the line stays where it is");
        Require(static_cast<std::size_t>(line.length) == text.size(), "as much is printed as there is, or room for");
        Require(std::memcmp(Text(), text.data(), text.size()) == 0, "what is printed is what the format says");
        const std::size_t written = kGuardBytes + text.size() + (m_capacity > 0 ? 1 : 0);
        Require(m_capacity == 0 || Text()[text.size()] == '\0', "a line is always terminated");
        Require(written <= kGuardBytes + m_capacity, "text and terminator fit the buffer");
        const auto isUntouched = [](char c) { return c == kFill; };
        Require(std::all_of(m_room.begin(), m_room.begin() + kGuardBytes, isUntouched),
                "nothing is written before the buffer");
        Require(std::all_of(m_room.begin() + static_cast<std::ptrdiff_t>(written), m_room.end(), isUntouched),
                "nothing is written behind the terminator");
    }

private:
    std::vector<char> m_room;
    std::uint32_t m_capacity;
};

Argument TakeArgument(const Piece& piece, Input& input) {
    Argument argument;
    if (piece.takes == Piece::Takes::Number) {
        argument.number = input.Number64();
        return argument;
    }
    if (input.Byte() == 0) {
        return argument;
    }
    if (piece.takes == Piece::Takes::Guid) {
        argument.guid = TraceGuid{input.Number32(),
                                  static_cast<std::uint16_t>(input.Number(2)),
                                  static_cast<std::uint16_t>(input.Number(2)),
                                  {}};
        for (std::uint8_t& byte : argument.guid->data4) {
            byte = input.Byte();
        }
        return argument;
    }
    const std::string line = input.Line();
    if (piece.takes == Piece::Takes::Narrow) {
        argument.narrow.emplace(line.c_str(), line.c_str() + line.size() + 1);
    } else {
        Input units(reinterpret_cast<const std::uint8_t*>(line.data()), line.size());
        argument.wide = Terminated(UpToTerminator(units.WideRest()));
    }
    return argument;
}

TraceSlot SlotOf(const Piece& piece, const Argument& argument) {
    switch (piece.takes) {
        case Piece::Takes::Narrow:
            return ToTraceSlot(argument.narrow ? argument.narrow->data() : nullptr);
        case Piece::Takes::Wide:
            return ToTraceSlot(argument.wide ? argument.wide->data() : nullptr);
        case Piece::Takes::Guid:
            return ToTraceSlot(argument.guid ? &*argument.guid : nullptr);
        default:
            return argument.number;
    }
}

/// The compiler's check of a format and the formatter must read a conversion alike.
void RequireSameReadingWhileCompiling(const std::string& format, const Piece& piece) {
    const detail::FormatScan scan(format.c_str() + piece.offset);
    const TraceArgumentKind kind = detail::KindOfConversion(scan);
    const auto expected = [&piece] {
        switch (piece.takes) {
            case Piece::Takes::Number:
                return piece.character == 'p'                 ? TraceArgumentKind::Pointer
                       : piece.is64 && piece.character != 'c' ? TraceArgumentKind::Number64
                                                              : TraceArgumentKind::Number32;
            case Piece::Takes::Narrow:
                return TraceArgumentKind::NarrowString;
            case Piece::Takes::Wide:
                return TraceArgumentKind::WideString;
            case Piece::Takes::Guid:
                return TraceArgumentKind::Guid;
            default:
                return TraceArgumentKind::None;
        }
    };
    Require(kind == expected(), "a format is checked as it will be expanded");
}

/// A format with its arguments, and what they expand to.
struct Message {
    Message(Input& input, unsigned missing) : format(input.Line()) {
        const std::vector<Piece> pieces = Pieces(format);
        for (const Piece& piece : pieces) {
            if (piece.character != '\0') {
                RequireSameReadingWhileCompiling(format, piece);
            }
        }
        std::vector<Piece> takers;
        std::copy_if(pieces.begin(), pieces.end(), std::back_inserter(takers),
                     [](const Piece& piece) { return piece.takes != Piece::Takes::Nothing; });
        // All of them before any address is taken: a vector that grows moves what it holds.
        for (const Piece& piece : takers) {
            arguments.push_back(TakeArgument(piece, input));
        }
        arguments.resize(arguments.size() - std::min<std::size_t>(missing, arguments.size()));
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            slots.push_back(SlotOf(takers[i], arguments[i]));
        }
        slots.shrink_to_fit();
        std::size_t next = 0;
        for (const Piece& piece : pieces) {
            const Argument* argument = nullptr;
            if (piece.takes != Piece::Takes::Nothing) {
                argument = next < arguments.size() ? &arguments[next] : nullptr;
                ++next;
            }
            expansion += Expand(piece, argument);
        }
    }

    void AppendTo(RvLineBuffer& line) const { RvFormat(line, format.c_str(), slots.data(), slots.size()); }

    std::string format;
    std::vector<Argument> arguments;
    std::vector<TraceSlot> slots;
    std::string expansion;
};

/// The formatter alone, twice into the same buffer.
void FormatInto(std::uint32_t capacity, const Message& message) {
    GuardedLine room(capacity);
    RvLineBuffer line(room.Text(), capacity);
    const std::size_t most = capacity > 0 ? capacity - 1 : 0;
    room.RequireHolds(line, "", most);
    message.AppendTo(line);
    room.RequireHolds(line, message.expansion, most);
    message.AppendTo(line);
    room.RequireHolds(line, message.expansion.substr(0, most) + message.expansion, most);
}

/// A line of the log: prefix, message and an end that always has room.
void BuildLine(Input& input, const Message& message) {
    const std::uint32_t process = input.Number32();
    const std::uint32_t thread = input.Number32();
    const bool hasTime = input.Byte() % 4 != 0;
    const TimeOfDay time{static_cast<std::uint16_t>(input.Byte() % 24), static_cast<std::uint16_t>(input.Byte() % 60),
                         static_cast<std::uint16_t>(input.Byte() % 60),
                         static_cast<std::uint16_t>(input.Number(2) % 1000)};
    const std::string name = input.Line().substr(0, 63);
    char clock[32];
    std::snprintf(clock, sizeof(clock), "%02d:%02d:%02d.%03d", time.hour, time.minute, time.second, time.millisecond);
    const std::string expected = "[" + std::to_string(process) + ":" + std::to_string(thread) + " " + name + "] " +
                                 (hasTime ? clock : "??:??:??.???") + " " + message.expansion;

    GuardedLine room(1024);
    RvLineBuffer line(room.Text(), kMessageCapacity);
    AppendLinePrefix(line, process, thread, name.c_str(), hasTime ? &time : nullptr);
    message.AppendTo(line);
    room.RequireHolds(line, expected, 1021);
    FinishLine(line);
    Require(line.length <= 1023, "a line has at most 1023 bytes");
    room.RequireHolds(line, expected.substr(0, 1021) + "\r\n", 1023);
}

void Format(Input input) {
    const std::uint32_t capacity = input.Byte();
    const unsigned missing = input.Byte() % 4;
    const Message message(input, missing);
    if (capacity < 200) {
        FormatInto(capacity, message);
    } else {
        BuildLine(input, message);
    }
}

}  // namespace
}  // namespace ravlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ravlo::fuzz::Format(ravlo::fuzz::Input(data, size));
    return 0;
}
