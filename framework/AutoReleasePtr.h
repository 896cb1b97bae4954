// AutoReleasePtr<T>: holder of one reference on a reference-counted object whose count is taken
// with preserve() and given back with release() (the object destroys itself on the last release).
// Used for the cached key sets and frame sets that several readers share.
//
// Adopting a raw pointer takes over a reference the caller already holds (a cache hands sets out
// already preserved); copying takes a new one. Threads: the holder itself is not shared between
// threads; the object's count is atomic, so holders on different threads may release concurrently.
#pragma once

#include <utility>

template <class T>
class AutoReleasePtr {
public:
    AutoReleasePtr() = default;
    // Adopts one reference that the caller holds on p.
    explicit AutoReleasePtr(T* p) : m_ptr(p) {}
    AutoReleasePtr(AutoReleasePtr const& other) : m_ptr(other.m_ptr) {
        if (m_ptr) m_ptr->preserve();
    }
    AutoReleasePtr(AutoReleasePtr&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}
    AutoReleasePtr& operator=(AutoReleasePtr other) noexcept {
        std::swap(m_ptr, other.m_ptr);
        return *this;
    }
    ~AutoReleasePtr() { reset(); }

    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

    // Releases the held reference (if any) and adopts the caller's reference on p.
    void reset(T* p = nullptr) {
        T* old = std::exchange(m_ptr, p);
        if (old) old->release();
    }
    // Gives up the reference without releasing it; the caller now holds it.
    T* detach() { return std::exchange(m_ptr, nullptr); }

private:
    T* m_ptr = nullptr;
};
