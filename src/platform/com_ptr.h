#pragma once

#include <cstddef>
#include <utility>

namespace ravlo {

/// Owns one COM reference. Written here because the toolchain's own smart pointer adds a reference when it attaches.
template <class T>
class ComPtr {
public:
    ComPtr() noexcept = default;
    ComPtr(std::nullptr_t) noexcept {}
    ComPtr(ComPtr&& other) noexcept : m_pointer(other.Detach()) {}
    ComPtr(const ComPtr& other) noexcept : m_pointer(other.m_pointer) { AddReference(); }
    ComPtr& operator=(ComPtr other) noexcept {
        std::swap(m_pointer, other.m_pointer);
        return *this;
    }
    ~ComPtr() { Reset(); }

    /// Takes over a reference that the caller owns.
    static ComPtr Attach(T* pointer) noexcept {
        ComPtr result;
        result.m_pointer = pointer;
        return result;
    }

    /// Adds a reference of its own.
    static ComPtr Share(T* pointer) noexcept {
        ComPtr result = Attach(pointer);
        result.AddReference();
        return result;
    }

    T* Get() const noexcept { return m_pointer; }
    T* operator->() const noexcept { return m_pointer; }
    explicit operator bool() const noexcept { return m_pointer != nullptr; }

    /// Address for a function that returns a reference; what was held is released first.
    T** Put() noexcept {
        Reset();
        return &m_pointer;
    }

    /// Gives the reference to the caller.
    T* Detach() noexcept { return std::exchange(m_pointer, nullptr); }

    void Reset() noexcept {
        if (T* const old = Detach()) {
            old->Release();
        }
    }

private:
    void AddReference() const noexcept {
        if (m_pointer != nullptr) {
            m_pointer->AddRef();
        }
    }

    T* m_pointer = nullptr;
};

}  // namespace ravlo
