#include "faults/sites.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace ravlo::faults {

Site g_sites[kSiteCapacity];

namespace {

struct Image {
    std::atomic<std::uint64_t> base{0};
    std::uint64_t size = 0;
    const RUNTIME_FUNCTION* functions = nullptr;
    std::size_t functionCount = 0;
};
Image g_image;
const DWORD g_roleSlot = TlsAlloc();
const DWORD g_heapSiteSlot = TlsAlloc();
std::vector<Hook*> g_hooks;

std::atomic<std::uint64_t> g_armedKey{0};
std::atomic<std::uint32_t> g_armedOccurrence{0};
std::atomic<bool> g_sticky{false};
Failure g_failure;
std::atomic<std::uint32_t> g_delivered{0};
std::atomic<DWORD> g_deliveredThread{0};
std::atomic<DWORD> g_heapFaultThread{0};

/// The unwind record of the function at this offset, found in the module's own table: the platform's lookup would take
/// the loader's lock.
const RUNTIME_FUNCTION* FunctionAt(std::uint64_t offset) {
    const RUNTIME_FUNCTION* const end = g_image.functions + g_image.functionCount;
    const RUNTIME_FUNCTION* const next =
        std::upper_bound(g_image.functions, end, offset,
                         [](std::uint64_t wanted, const RUNTIME_FUNCTION& f) { return wanted < f.BeginAddress; });
    if (next == g_image.functions || (next - 1)->EndAddress <= offset) {
        return nullptr;
    }
    return next - 1;
}

std::uint32_t HashFrames(const std::uint32_t* frames, std::size_t count) {
    std::uint32_t hash = 2166136261U;
    for (std::size_t i = 0; i < count; ++i) {
        hash = (hash ^ frames[i]) * 16777619U;
        hash ^= hash >> 15;
    }
    return hash;
}

Site* FindSite(const CallRecord& record) {
    std::uint32_t frames[kMaxFrames];
    std::size_t count = 0;
    std::uint32_t place = 0;
    if (record.hook->byStack) {
        count = ModuleStack(record, frames);
        place = HashFrames(frames, count);
    } else {
        place = ModuleOffset(record.returnAddress);
    }
    const Role role = CurrentRole();
    const std::uint64_t key =
        std::uint64_t{static_cast<std::uint8_t>(role)} << 60 | std::uint64_t{record.hook->number} << 32 | place;
    std::size_t index = static_cast<std::size_t>((key * 0x9E3779B97F4A7C15ULL) >> 52) % kSiteCapacity;
    for (std::size_t looked = 0; looked < kSiteCapacity; ++looked, index = (index + 1) % kSiteCapacity) {
        Site& site = g_sites[index];
        std::uint64_t found = site.key.load();
        if (found == 0 && site.key.compare_exchange_strong(found, key)) {
            site.hook = record.hook;
            site.role = role;
            site.frameCount = ModuleStack(record, site.frames);
            site.described.store(true);
            return &site;
        }
        if (found == key) {
            return &site;
        }
    }
    return nullptr;
}

bool MustFail(const CallRecord& record) {
    Site* const site = FindSite(record);
    if (record.hook->byStack) {
        TlsSetValue(g_heapSiteSlot, site);
    }
    if (site == nullptr) {
        return false;
    }
    const std::uint32_t occurrence = site->hits.fetch_add(1) + 1;
    if (site->key.load() != g_armedKey.load()) {
        return false;
    }
    const std::uint32_t wanted = g_armedOccurrence.load();
    return g_sticky.load() ? occurrence >= wanted : occurrence == wanted;
}

}  // namespace

const char* RoleName(Role role) {
    constexpr const char* kNames[] = {"other", "client", "loader", "reader", "gate"};
    return kNames[static_cast<std::size_t>(role)];
}

Role CurrentRole() {
    const DWORD lastError = GetLastError();  // which TlsGetValue clears
    const auto role = static_cast<Role>(reinterpret_cast<std::uintptr_t>(TlsGetValue(g_roleSlot)));
    SetLastError(lastError);
    return role;
}

void SetCurrentRole(Role role) {
    TlsSetValue(g_roleSlot, reinterpret_cast<void*>(static_cast<std::uintptr_t>(role)));
}

void SetModuleImage(HMODULE module) {
    g_image.base = 0;
    if (module == nullptr) {
        return;
    }
    auto* const image = reinterpret_cast<BYTE*>(module);
    const auto* const headers =
        reinterpret_cast<IMAGE_NT_HEADERS*>(image + reinterpret_cast<IMAGE_DOS_HEADER*>(image)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXCEPTION];
    g_image.size = headers->OptionalHeader.SizeOfImage;
    g_image.functions = reinterpret_cast<const RUNTIME_FUNCTION*>(image + table.VirtualAddress);
    g_image.functionCount = table.Size / sizeof(RUNTIME_FUNCTION);
    g_image.base = reinterpret_cast<std::uint64_t>(module);
}

bool IsInModule(const void* address) {
    const std::uint64_t base = g_image.base.load();
    return base != 0 && reinterpret_cast<std::uint64_t>(address) - base < g_image.size;
}

std::uint32_t ModuleOffset(const void* address) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uint64_t>(address) - g_image.base.load());
}

std::size_t ModuleStack(const CallRecord& record, std::uint32_t (&frames)[kMaxFrames]) {
    const std::uint64_t base = g_image.base.load();
    CONTEXT context{};
    context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER;
    DWORD64* const kept[] = {&context.Rbx, &context.Rbp, &context.Rsi, &context.Rdi,
                             &context.R12, &context.R13, &context.R14, &context.R15};
    for (std::size_t i = 0; i < std::size(kept); ++i) {
        *kept[i] = record.kept[i];
    }
    context.Rsp = record.StackPointer();
    context.Rip = reinterpret_cast<std::uint64_t>(record.returnAddress);
    std::size_t count = 0;
    while (count < kMaxFrames && base != 0 && context.Rip - base < g_image.size) {
        frames[count++] = static_cast<std::uint32_t>(context.Rip - base);
        // The call before the return address: a function may end with a call that does not return.
        const RUNTIME_FUNCTION* const function = FunctionAt(context.Rip - base - 1);
        if (function == nullptr) {
            context.Rip = *reinterpret_cast<const std::uint64_t*>(context.Rsp);
            context.Rsp += 8;
            continue;
        }
        void* handlerData = nullptr;
        DWORD64 frame = 0;
        RtlVirtualUnwind(UNW_FLAG_NHANDLER, base, context.Rip, const_cast<RUNTIME_FUNCTION*>(function), &context,
                         &handlerData, &frame, nullptr);
    }
    return count;
}

void RegisterHook(Hook& hook) {
    g_hooks.push_back(&hook);
    hook.number = static_cast<std::uint16_t>(g_hooks.size());
}

Hook* HookByName(const std::string& name) {
    const auto found = std::find_if(g_hooks.begin(), g_hooks.end(), [&](const Hook* h) { return h->name == name; });
    return found == g_hooks.end() ? nullptr : *found;
}

Hook* HookByNumber(std::uint16_t number) {
    return number >= 1 && number <= g_hooks.size() ? g_hooks[number - 1] : nullptr;
}

void Arm(std::uint64_t key, std::uint32_t occurrence, bool sticky, const Failure& failure) {
    Disarm();
    g_failure = failure;
    g_sticky = sticky;
    g_armedOccurrence = occurrence;
    g_armedKey = key;
}

void Disarm() {
    g_armedKey = 0;
    g_delivered = 0;
    g_deliveredThread = 0;
    for (Site& site : g_sites) {
        site.hits = 0;
    }
    for (Hook* hook : g_hooks) {
        hook->calls = 0;
    }
}

void FailNextHeapCallHere() {
    g_heapFaultThread = GetCurrentThreadId();
}

const Site* LastHeapSite() {
    const DWORD lastError = GetLastError();
    const auto* const site = static_cast<const Site*>(TlsGetValue(g_heapSiteSlot));
    SetLastError(lastError);
    return site;
}

bool IsSticky() {
    return g_armedKey.load() != 0 && g_sticky.load();
}

std::uint32_t Delivered() {
    return g_delivered.load();
}

DWORD DeliveredThread() {
    return g_deliveredThread.load();
}

}  // namespace ravlo::faults

/// Decides about one call: 0 lets it pass to record->target, 1 makes it return record->result.
extern "C" int RavloDispatchCall(ravlo::faults::CallRecord* record) noexcept {
    using namespace ravlo::faults;
    Hook& hook = *record->hook;
    record->target = hook.target.load();
    if (hook.shared && !IsInModule(record->returnAddress)) {
        return 0;
    }
    hook.calls.fetch_add(1);
    if (hook.failures.empty() && !hook.watched) {
        return 0;
    }
    DWORD thread = GetCurrentThreadId();
    if (hook.byStack && g_heapFaultThread.compare_exchange_strong(thread, 0)) {
        record->result = 0;
        return 1;
    }
    const DWORD lastError = GetLastError();
    if (!MustFail(*record)) {
        SetLastError(lastError);
        return 0;
    }
    const Failure failure = g_failure;
    if (failure.performs) {
        using Function = std::uint64_t (*)(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t);
        reinterpret_cast<Function>(record->target)(record->arguments[0], record->arguments[1], record->arguments[2],
                                                   record->arguments[3]);
    }
    DWORD none = 0;
    g_deliveredThread.compare_exchange_strong(none, GetCurrentThreadId());
    g_delivered.fetch_add(1);
    record->result = failure.result;
    SetLastError(failure.setsLastError ? failure.lastError : lastError);
    return 1;
}
