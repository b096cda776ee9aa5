// Where calls come from, how often, and which of them shall fail. Used on every thread of the module, also under the
// loader's lock and inside the heap: nothing here allocates, waits or throws.
#pragma once

#include "faults/call_gate.h"
#include "faults/rules.h"

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace ravlo::faults {

/// Which of the threads makes a call. Ordinals shift with polling, so calls are told apart by role and place.
enum class Role : std::uint8_t { Other, Client, Loader, Reader, Gate };
const char* RoleName(Role role);
Role CurrentRole();
void SetCurrentRole(Role role);

/// One gated function: an import, a function resolved at run time, or a method of platform objects.
struct Hook {
    std::string name;
    CodeKind kind = CodeKind::None;
    std::span<const Failure> failures;
    /// Where calls go that pass: the function, or what stands in for it.
    std::atomic<void*> target{nullptr};
    /// The place is the whole stack inside the module: for calls that are made through a common function.
    bool byStack = false;
    /// Calls from elsewhere than the module are none of ours: methods are gated for the whole process.
    bool shared = false;
    /// Cannot be failed, but who calls it is kept.
    bool watched = false;
    std::uint16_t number = 0;
    std::atomic<std::uint32_t> calls{0};
};

inline constexpr std::size_t kMaxFrames = 14;

/// A place from which a gated function was called.
struct Site {
    std::atomic<std::uint64_t> key{0};
    std::atomic<bool> described{false};
    std::atomic<std::uint32_t> hits{0};  ///< in the play that runs
    Hook* hook = nullptr;
    Role role = Role::Other;
    std::size_t frameCount = 0;
    std::uint32_t frames[kMaxFrames]{};  ///< offsets into the module, innermost first
};

/// The module whose calls count; null for none. Also finds its unwind tables.
void SetModuleImage(HMODULE module);

/// Enters a hook into the list; the hook lives as long as the process. Not thread-safe.
void RegisterHook(Hook& hook);
Hook* HookByName(const std::string& name);
/// By the number that a site's key holds.
Hook* HookByNumber(std::uint16_t number);

/// Every site seen so far, in order of appearance in the table; `action` gets a described site.
template <class Action>
void ForEachSite(Action action);

/// Makes the `occurrence`-th call (1 is the first) from a site fail, or with `sticky` that one and all later ones.
/// Counts begin anew.
void Arm(std::uint64_t key, std::uint32_t occurrence, bool sticky, const Failure& failure);
/// No call fails; counts begin anew.
void Disarm();
/// The next heap call of this thread fails, whatever is armed.
void FailNextHeapCallHere();
/// The site of this thread's latest heap call; null before the first.
const Site* LastHeapSite();

/// Whether the armed call goes on failing.
bool IsSticky();
/// Failures handed out since Arm.
std::uint32_t Delivered();
/// Number of the thread that got the first one, 0 for none yet.
DWORD DeliveredThread();

/// The offsets, from the innermost caller outwards, of the return addresses inside the module.
std::size_t ModuleStack(const CallRecord& record, std::uint32_t (&frames)[kMaxFrames]);
bool IsInModule(const void* address);
/// Where in the module an address lies, whatever place the module was loaded at.
std::uint32_t ModuleOffset(const void* address);

inline constexpr std::size_t kSiteCapacity = 4096;
extern Site g_sites[kSiteCapacity];

template <class Action>
void ForEachSite(Action action) {
    for (Site& site : g_sites) {
        if (site.described.load()) {
            action(site);
        }
    }
}

}  // namespace ravlo::faults
