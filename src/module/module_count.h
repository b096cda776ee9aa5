#pragma once

#include <atomic>

namespace ravlo {

/// Live factories, sources, streams and server locks of this module; it may be unloaded only at 0. A leaf header:
/// constructors everywhere include it.
class ModuleCount {
public:
    /// One more reason to stay loaded. Any thread.
    static void Raise() noexcept { s_count.fetch_add(1); }
    /// One less; balances a Raise.
    static void Lower() noexcept { s_count.fetch_sub(1); }

    /// Lowers the count unless it is already below 1; false then. An unbalanced unlock must not drive it negative.
    static bool LowerIfPositive() noexcept {
        long count = s_count.load();
        while (count >= 1) {
            if (s_count.compare_exchange_weak(count, count - 1)) {
                return true;
            }
        }
        return false;
    }

    /// True when nothing keeps the module loaded.
    static bool IsZero() noexcept {
        long none = 0;
        return s_count.compare_exchange_strong(none, 0);
    }

private:
    static inline constinit std::atomic<long> s_count{0};
};

/// A member of every counted object.
class ModuleReference {
public:
    ModuleReference() noexcept { ModuleCount::Raise(); }
    ModuleReference(const ModuleReference&) = delete;
    ModuleReference& operator=(const ModuleReference&) = delete;
    ~ModuleReference() { ModuleCount::Lower(); }
};

}  // namespace ravlo
