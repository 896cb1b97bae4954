// SharedCharPtrSet: a named pool of reusable character buffers. `alloc` hands out a buffer of at
// least the asked size (buffers grow but never shrink, and growing discards their contents);
// `SharedCharPtr::release` gives it back to the pool. The pool's list is guarded by its own mutex,
// so buffers may be taken and given back from any thread.
#pragma once

#include <cstdint>
#include <list>
#include <mutex>

class SharedCharPtrSet;

class SharedCharPtr {
public:
    explicit SharedCharPtr(SharedCharPtrSet* set) : m_set(set) {}
    ~SharedCharPtr() { delete[] m_buffer; }
    SharedCharPtr(SharedCharPtr const&) = delete;
    SharedCharPtr& operator=(SharedCharPtr const&) = delete;

    char* get() const { return m_buffer; }
    uint32_t size() const { return m_size; }
    // Grows the buffer to at least n bytes.
    void reserve(uint32_t n);
    // Returns the buffer to its pool.
    void release();

private:
    SharedCharPtrSet* m_set;
    char* m_buffer = nullptr;
    uint32_t m_size = 0;
};

class SharedCharPtrSet {
public:
    explicit SharedCharPtrSet(char const* name = "SharedCharPtrSet") : m_name(name) {}
    ~SharedCharPtrSet();
    SharedCharPtrSet(SharedCharPtrSet const&) = delete;
    SharedCharPtrSet& operator=(SharedCharPtrSet const&) = delete;

    SharedCharPtr* alloc(uint32_t n);
    char const* name() const { return m_name; }
    uint32_t created() const;
    uint32_t recycled() const;
    size_t freeCount() const;

private:
    friend class SharedCharPtr;
    void giveBack(SharedCharPtr* p);

    char const* m_name;
    std::list<SharedCharPtr*> m_free;
    uint32_t m_created = 0;
    mutable std::mutex m_mutex;
    uint32_t m_recycled = 0;
};
