#include "support/load_notice.h"

#include <winternl.h>

#include <cwchar>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace ravlo::test {
namespace {

constexpr ULONG kReasonLoaded = 1;

template <class F>
F FromNtdll(const char* name) {
    return reinterpret_cast<F>(reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

bool EqualIgnoringCase(std::wstring_view left, std::wstring_view right) {
    return left.size() == right.size() && _wcsnicmp(left.data(), right.data(), left.size()) == 0;
}

}  // namespace

struct LoadNotice::Notification {
    ULONG flags;
    const UNICODE_STRING* fullName;
    const UNICODE_STRING* baseName;
    void* base;
    ULONG size;
};

LoadNotice::LoadNotice(std::wstring fileName, std::function<void(HMODULE module)> onLoad)
    : m_fileName(std::move(fileName)), m_onLoad(std::move(onLoad)) {
    using Callback = void(CALLBACK*)(ULONG reason, const Notification* notification, void* context);
    using Subscribe = LONG(NTAPI*)(ULONG flags, Callback callback, void* context, void** cookie);
    const auto subscribe = FromNtdll<Subscribe>("LdrRegisterDllNotification");
    if (!subscribe || subscribe(0, &Notify, this, &m_cookie) < 0) {
        throw std::runtime_error("LdrRegisterDllNotification failed");
    }
}

LoadNotice::~LoadNotice() {
    FromNtdll<LONG(NTAPI*)(void* cookie)>("LdrUnregisterDllNotification")(m_cookie);
}

void CALLBACK LoadNotice::Notify(ULONG reason, const Notification* notification, void* context) {
    const auto& self = *static_cast<const LoadNotice*>(context);
    const std::wstring_view name(notification->baseName->Buffer, notification->baseName->Length / sizeof(wchar_t));
    if (reason == kReasonLoaded && EqualIgnoringCase(name, self.m_fileName)) {
        self.m_onLoad(static_cast<HMODULE>(notification->base));
    }
}

}  // namespace ravlo::test
