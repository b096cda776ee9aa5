#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "platform/wide_char.h"
#include "trace/formatter.h"

namespace ravlo {

/// What a conversion takes, and what an argument is.
enum class TraceArgumentKind { Number32, Number64, Pointer, NarrowString, WideString, Guid, None };

/// The kind of an argument's type. `GuidType` is whatever type of the platform has the layout of a GUID.
template <class T>
consteval TraceArgumentKind KindOfArgument() {
    using Decayed = std::decay_t<T>;
    if constexpr (std::is_pointer_v<Decayed>) {
        using Pointee = std::remove_cv_t<std::remove_pointer_t<Decayed>>;
        if constexpr (std::is_same_v<Pointee, char>) {
            return TraceArgumentKind::NarrowString;
        } else if constexpr (std::is_same_v<Pointee, WideChar>) {
            return TraceArgumentKind::WideString;
        } else if constexpr (std::is_class_v<Pointee> && requires { std::declval<Pointee&>().Data4[7]; }) {
            static_assert(sizeof(Pointee) == sizeof(TraceGuid));
            return TraceArgumentKind::Guid;
        } else if constexpr (std::is_same_v<Pointee, TraceGuid>) {
            return TraceArgumentKind::Guid;
        } else {
            return TraceArgumentKind::Pointer;
        }
    } else {
        static_assert(std::is_integral_v<Decayed>, "a trace argument is an integer or a pointer");
        return sizeof(Decayed) == 8 ? TraceArgumentKind::Number64 : TraceArgumentKind::Number32;
    }
}

namespace detail {

/// Not constexpr, so that reaching it stops the compilation with a name that says what is wrong.
void TraceFormatDoesNotFitItsArguments();

struct FormatScan {
    const char* cursor;
    bool is64 = false;
    bool isLong = false;

    explicit constexpr FormatScan(const char* behindPercent) : cursor(behindPercent) {
        while (*cursor >= '0' && *cursor <= '9') {
            ++cursor;
        }
        if (cursor[0] == 'I' && cursor[1] == '6' && cursor[2] == '4') {
            is64 = true;
            cursor += 3;
        } else if (cursor[0] == 'l' && cursor[1] == 'l') {
            is64 = true;
            cursor += 2;
        } else if (cursor[0] == 'l') {
            isLong = true;
            ++cursor;
        }
    }
};

constexpr TraceArgumentKind KindOfConversion(const FormatScan& scan) {
    switch (*scan.cursor) {
        case 'd':
        case 'i':
        case 'u':
        case 'x':
        case 'X':
            return scan.is64 ? TraceArgumentKind::Number64 : TraceArgumentKind::Number32;
        case 'c':
            return TraceArgumentKind::Number32;
        case 'p':
            return TraceArgumentKind::Pointer;
        case 's':
            return scan.isLong ? TraceArgumentKind::WideString : TraceArgumentKind::NarrowString;
        case 'S':
            return TraceArgumentKind::WideString;
        case 'G':
            return TraceArgumentKind::Guid;
        default:
            return TraceArgumentKind::None;
    }
}

}  // namespace detail

/// A format that was checked, while compiling, against the types of the arguments that will follow it. "%zu" is text to
/// the formatter; callers nevertheless hand over the byte counts it stands for, last, so a format may have as many
/// arguments left over as it has "%zu".
template <class... Arguments>
class TraceFormat {
public:
    consteval TraceFormat(const char* format) : m_text(format) {
        constexpr std::size_t kCount = sizeof...(Arguments);
        constexpr TraceArgumentKind kKinds[kCount + 1] = {KindOfArgument<Arguments>()..., TraceArgumentKind::None};
        std::size_t used = 0;
        std::size_t literalSizes = 0;
        for (const char* cursor = format; *cursor != '\0'; ++cursor) {
            if (*cursor != '%') {
                continue;
            }
            if (cursor[1] == '%') {
                ++cursor;
                continue;
            }
            if (cursor[1] == 'z' && cursor[2] == 'u') {
                ++literalSizes;
                cursor += 2;
                continue;
            }
            const detail::FormatScan scan(cursor + 1);
            const TraceArgumentKind wanted = detail::KindOfConversion(scan);
            // Behind "%zu" nothing may convert: it would read the argument that "%zu" left lying.
            const bool fits = wanted != TraceArgumentKind::None && literalSizes == 0 && used < kCount &&
                              (kKinds[used] == wanted ||
                               (wanted == TraceArgumentKind::Pointer && kKinds[used] > TraceArgumentKind::Number64));
            if (!fits) {
                detail::TraceFormatDoesNotFitItsArguments();
            }
            ++used;
            cursor = scan.cursor;
        }
        if (used + literalSizes != kCount) {
            detail::TraceFormatDoesNotFitItsArguments();
        }
    }

    const char* Text() const noexcept { return m_text; }

private:
    const char* m_text;
};

/// Packs one argument into its slot: signed numbers sign-extended, pointers as addresses.
template <class T>
TraceSlot ToTraceSlot(T argument) noexcept {
    if constexpr (std::is_pointer_v<T>) {
        return static_cast<TraceSlot>(reinterpret_cast<std::uintptr_t>(argument));
    } else if constexpr (std::is_signed_v<T>) {
        return static_cast<TraceSlot>(static_cast<std::int64_t>(argument));
    } else {
        return static_cast<TraceSlot>(argument);
    }
}

}  // namespace ravlo
