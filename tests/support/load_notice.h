// Word from the loader that a module is there, before anything in it has run.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

namespace ravlo::test {

/// Calls `onLoad` each time that a module of this file name has been loaded, its imports resolved and its DllMain not
/// yet called: on the loading thread, under the loader lock. For the life of the object. Throws when the loader does
/// not take the subscription.
class LoadNotice {
public:
    LoadNotice(std::wstring fileName, std::function<void(HMODULE module)> onLoad);
    ~LoadNotice();
    LoadNotice(const LoadNotice&) = delete;
    LoadNotice& operator=(const LoadNotice&) = delete;

private:
    struct Notification;
    static void CALLBACK Notify(ULONG reason, const Notification* notification, void* context);

    const std::wstring m_fileName;
    const std::function<void(HMODULE)> m_onLoad;
    void* m_cookie = nullptr;
};

}  // namespace ravlo::test
