// AutoPtr<T>: the framework's single-owner pointer. Text results are handed out as AutoPtr<char>,
// which owns a new[]-allocated, zero-terminated array; any other T is owned as a single object.
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

template <class T>
class AutoPtr {
public:
    AutoPtr() = default;
    explicit AutoPtr(T* p) : m_ptr(p) {}
    AutoPtr(AutoPtr&& other) noexcept : m_ptr(other.release()) {}
    AutoPtr& operator=(AutoPtr&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    AutoPtr(AutoPtr const&) = delete;
    AutoPtr& operator=(AutoPtr const&) = delete;
    ~AutoPtr() { destroy(m_ptr); }

    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

    // Gives up ownership without destroying.
    T* release() { return std::exchange(m_ptr, nullptr); }
    void reset(T* p = nullptr) {
        T* old = std::exchange(m_ptr, p);
        if (old != p) destroy(old);
    }

private:
    // Character and byte buffers are arrays; everything else is a single object.
    static constexpr bool kIsArray = std::is_same_v<T, char> || std::is_same_v<T, unsigned char>;
    static void destroy(T* p) {
        if constexpr (kIsArray)
            delete[] p;
        else
            delete p;
    }

    T* m_ptr = nullptr;
};
