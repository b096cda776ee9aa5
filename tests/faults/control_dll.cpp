// Almost nothing, linked with the same static runtime as the module: what this leaves behind when it is unloaded is
// what the runtime leaves, and a module may leave no more.
#include <windows.h>

#include <new>

namespace {

volatile bool g_throws = true;

[[gnu::noinline]] void ThrowIfAsked() {
    if (g_throws) {
        throw std::bad_alloc();
    }
}

}  // namespace

/// Throws once and catches it.
extern "C" __declspec(dllexport) int RavloControlThrow() {
    try {
        ThrowIfAsked();
    } catch (const std::bad_alloc&) {
        return 1;
    }
    return 0;
}
