// COM holders for tests. The toolchain's own ComPtr adds a reference in Attach and copies on move assignment,
// so the tests count references with this one.
#pragma once

#include <windows.h>

#include <mfapi.h>
#include <objbase.h>
#include <propidl.h>

#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

namespace ravlo::test {

/// "`what` failed, hr=0x8..." as an exception, which GoogleTest reports as a failure of the running test.
[[noreturn]] inline void ThrowFailed(const std::string& what, HRESULT hr) {
    char text[32];
    std::snprintf(text, sizeof text, " failed, hr=0x%08lX", static_cast<unsigned long>(hr));
    throw std::runtime_error(what + text);
}

/// Throws when `hr` is a failure. For the arrangement of a test; results under test belong in EXPECT_EQ.
inline void Require(HRESULT hr, const char* what) {
    if (FAILED(hr)) {
        ThrowFailed(what, hr);
    }
}

/// Owns one reference on a COM interface, or none.
template <class T>
class ComPtr {
public:
    ComPtr() = default;
    ComPtr(std::nullptr_t) {}
    ComPtr(const ComPtr& other) : m_pointer(other.m_pointer) {
        if (m_pointer) {
            m_pointer->AddRef();
        }
    }
    ComPtr(ComPtr&& other) noexcept : m_pointer(other.Detach()) {}
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_pointer, other.m_pointer);
        return *this;
    }
    ~ComPtr() { Reset(); }

    /// Takes over the reference that the caller holds; adds none.
    static ComPtr Adopt(T* pointer) {
        ComPtr result;
        result.m_pointer = pointer;
        return result;
    }
    /// Adds a reference of its own.
    static ComPtr Share(T* pointer) {
        if (pointer) {
            pointer->AddRef();
        }
        return Adopt(pointer);
    }

    T* Get() const { return m_pointer; }
    T* operator->() const { return m_pointer; }
    explicit operator bool() const { return m_pointer != nullptr; }
    bool operator==(std::nullptr_t) const { return m_pointer == nullptr; }

    /// Releases what it holds and offers itself as an output pointer.
    T** Put() {
        Reset();
        return &m_pointer;
    }
    void** PutVoid() { return reinterpret_cast<void**>(Put()); }
    T* Detach() { return std::exchange(m_pointer, nullptr); }
    void Reset() {
        if (T* old = Detach()) {
            old->Release();
        }
    }

    /// QueryInterface for U; empty when the object refuses or nothing is held.
    template <class U>
    ComPtr<U> As() const {
        ComPtr<U> result;
        if (m_pointer) {
            m_pointer->QueryInterface(__uuidof(U), result.PutVoid());
        }
        return result;
    }

private:
    T* m_pointer = nullptr;
};

/// The number of references on `object`, by taking one and giving it back.
template <class T>
ULONG ReferenceCount(T* object) {
    object->AddRef();
    return object->Release();
}

/// True when both pointers are faces of one COM object (equal IUnknown identities).
inline bool IsSameObject(IUnknown* left, IUnknown* right) {
    ComPtr<IUnknown> leftIdentity;
    ComPtr<IUnknown> rightIdentity;
    return left && right && SUCCEEDED(left->QueryInterface(IID_IUnknown, leftIdentity.PutVoid())) &&
           SUCCEEDED(right->QueryInterface(IID_IUnknown, rightIdentity.PutVoid())) &&
           leftIdentity.Get() == rightIdentity.Get();
}

/// A PROPVARIANT that clears itself. Starts as VT_EMPTY.
class PropVariant {
public:
    PropVariant() { PropVariantInit(&m_value); }
    explicit PropVariant(LONGLONG value) : PropVariant() {
        m_value.vt = VT_I8;
        m_value.hVal.QuadPart = value;
    }
    PropVariant(PropVariant&& other) noexcept : m_value(other.m_value) { PropVariantInit(&other.m_value); }
    PropVariant(const PropVariant&) = delete;
    PropVariant& operator=(const PropVariant&) = delete;
    ~PropVariant() { PropVariantClear(&m_value); }

    PROPVARIANT* Put() {
        PropVariantClear(&m_value);
        return &m_value;
    }
    /// The variant itself, for filling in or reading its members.
    PROPVARIANT* operator->() { return &m_value; }
    const PROPVARIANT* operator->() const { return &m_value; }
    const PROPVARIANT* Get() const { return &m_value; }
    VARTYPE Type() const { return m_value.vt; }

private:
    PROPVARIANT m_value;
};

/// COM on this thread for the holder's life. The test program's main thread is in the multithreaded apartment
/// already.
class ComApartment {
public:
    explicit ComApartment(DWORD model = COINIT_MULTITHREADED) {
        Require(CoInitializeEx(nullptr, model), "CoInitializeEx");
    }
    ~ComApartment() { CoUninitialize(); }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;
};

/// Media Foundation for the holder's life. The module starts it for itself; a test needs this only for what
/// it creates before or after the source (source readers, attribute stores, descriptors of its own).
class MediaFoundation {
public:
    MediaFoundation() { Require(MFStartup(MF_VERSION, MFSTARTUP_FULL), "MFStartup"); }
    ~MediaFoundation() { MFShutdown(); }
    MediaFoundation(const MediaFoundation&) = delete;
    MediaFoundation& operator=(const MediaFoundation&) = delete;
};

}  // namespace ravlo::test
