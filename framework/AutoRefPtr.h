// AutoRefPtr<T>: holder of one reference on an intrusively reference-counted object. T provides
// addRef() and release(); RefCounted is the usual base that gives both, deleting on the last release.
#pragma once

#include <utility>

#include "framework/AtomicCounter.h"

class RefCounted {
public:
    void addRef() const { m_refs.increment(); }
    void release() const {
        if (m_refs.decrement() == 0) delete this;
    }
    int refCount() const { return m_refs.value(); }

protected:
    RefCounted() = default;
    RefCounted(RefCounted const&) = delete;
    RefCounted& operator=(RefCounted const&) = delete;
    virtual ~RefCounted() = default;

private:
    mutable AtomicCounter m_refs{0};
};

template <class T>
class AutoRefPtr {
public:
    AutoRefPtr() = default;
    // Takes a new reference on p.
    AutoRefPtr(T* p) : m_ptr(p) {
        if (m_ptr) m_ptr->addRef();
    }
    AutoRefPtr(AutoRefPtr const& other) : AutoRefPtr(other.m_ptr) {}
    AutoRefPtr(AutoRefPtr&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}
    AutoRefPtr& operator=(AutoRefPtr other) noexcept {
        std::swap(m_ptr, other.m_ptr);
        return *this;
    }
    ~AutoRefPtr() {
        if (m_ptr) m_ptr->release();
    }

    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }
    bool operator==(AutoRefPtr const& other) const { return m_ptr == other.m_ptr; }
    void reset() { AutoRefPtr().swap(*this); }
    void swap(AutoRefPtr& other) noexcept { std::swap(m_ptr, other.m_ptr); }

private:
    T* m_ptr = nullptr;
};
