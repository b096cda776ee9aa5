#include "stream/string_move.h"

#include <cstring>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define RAVLO_MEMORY_IS_WATCHED
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define RAVLO_MEMORY_IS_WATCHED
#endif
#endif

#if defined(__x86_64__) && !defined(RAVLO_MEMORY_IS_WATCHED)
#define RAVLO_HAS_STRING_MOVES
#include <cpuid.h>

#include <atomic>
#endif

namespace ravlo {

#if defined(RAVLO_HAS_STRING_MOVES)

namespace {

enum class Moves : signed char { Unknown, Slow, Fast };

// Asked once: the question takes a virtual machine longer than a small copy.
constinit std::atomic<Moves> g_moves{Moves::Unknown};

struct CpuidLeaf {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
};

/// What the processor says of itself; all zeros for a leaf that it does not have.
CpuidLeaf AskProcessor(unsigned number) noexcept {
    CpuidLeaf leaf;
    if (__get_cpuid_count(number, 0, &leaf.eax, &leaf.ebx, &leaf.ecx, &leaf.edx) == 0) {
        return {};
    }
    return leaf;
}

/// AMD's family 19h (Zen 3 and 4) has the feature, but moves many times slower for some distances between source and
/// destination.
bool IsSlowFamily() noexcept {
    constexpr unsigned kAuth = 0x68747541;  // "Auth", the first letters of "AuthenticAMD"
    constexpr unsigned kSlowFamily = 0x19;
    const unsigned signature = AskProcessor(1).eax;
    const unsigned family = (signature >> 8 & 0xF) + (signature >> 20 & 0xFF);
    return AskProcessor(0).ebx == kAuth && family == kSlowFamily;
}

/// Enhanced string moves, "ERMS": leaf 7, EBX bit 9.
Moves JudgeProcessor() noexcept {
    constexpr unsigned kFeatureLeaf = 7;
    constexpr unsigned kEnhancedMoves = 1U << 9;
    return (AskProcessor(kFeatureLeaf).ebx & kEnhancedMoves) != 0 && !IsSlowFamily() ? Moves::Fast : Moves::Slow;
}

}  // namespace

void StringMove(void* destination, const void* source, std::size_t count) noexcept {
    Moves moves = g_moves.load(std::memory_order_relaxed);
    if (moves == Moves::Unknown) {
        moves = JudgeProcessor();
        g_moves.store(moves, std::memory_order_relaxed);
    }
    if (moves == Moves::Fast) {
        asm volatile("rep movsb" : "+D"(destination), "+S"(source), "+c"(count) : : "memory");
    } else {
        std::memcpy(destination, source, count);
    }
}

#else

void StringMove(void* destination, const void* source, std::size_t count) noexcept {
    std::memcpy(destination, source, count);
}

#endif

}  // namespace ravlo
