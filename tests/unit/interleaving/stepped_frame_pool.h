#pragma once

// Everything that the pool's source includes comes first and keeps its meaning.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "unit/interleaving/steps.h"
#include "stream/frame_copy.h"
#include "stream/geometry.h"

namespace ravlo::stepped {

/// Code inside `ravlo::stepped` that says `std::` comes here: all is as ever, but an atomic is a place whose every
/// access is a step.
namespace std {

using namespace ::std;

template <class T>
class atomic {
public:
    explicit atomic(T initial) : m_location(static_cast<int>(interleaving::g_initialValues.size())) {
        interleaving::g_initialValues.push_back(Widen(initial));
    }
    atomic(const atomic&) = delete;
    atomic& operator=(const atomic&) = delete;

    T load(memory_order order = memory_order_seq_cst) const noexcept {
        return Narrow(interleaving::g_stepper->Load(m_location, order));
    }
    void store(T value, memory_order order = memory_order_seq_cst) noexcept {
        interleaving::g_stepper->Store(m_location, Widen(value), order);
    }
    T fetch_add(T value, memory_order order = memory_order_seq_cst) noexcept {
        return Narrow(interleaving::g_stepper->Add(m_location, Widen(value), order));
    }
    T exchange(T value, memory_order order = memory_order_seq_cst) noexcept {
        return Narrow(interleaving::g_stepper->Exchange(m_location, Widen(value), order));
    }
    bool compare_exchange_strong(T& expected, T desired, memory_order order = memory_order_seq_cst) noexcept {
        uint64_t seen = Widen(expected);
        const bool exchanged = interleaving::g_stepper->CompareExchange(m_location, seen, Widen(desired), order);
        expected = Narrow(seen);
        return exchanged;
    }

private:
    static uint64_t Widen(T value) noexcept { return static_cast<uint64_t>(value); }
    static T Narrow(uint64_t value) noexcept { return static_cast<T>(value); }

    const int m_location;
};

}  // namespace std

/// Found before the pool's own copy, whose namespace is one further out.
inline void CopyFrameBytes(void* destination, const void* source, ::std::size_t count) noexcept {
    interleaving::g_stepper->Copy(destination, source, count);
}

}  // namespace ravlo::stepped

// The pool's source itself, a second time, as ravlo::stepped::FramePool. No file that includes this one may include
// the pool's header by itself.
#define ravlo ravlo::stepped
#include "stream/frame_pool.cpp"  // NOLINT(bugprone-suspicious-include)
#undef ravlo
