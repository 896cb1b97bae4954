#include "framework/SharedCharPtr.h"

void SharedCharPtr::reserve(uint32_t n) {
    if (n <= m_size) return;
    delete[] m_buffer;
    m_buffer = new char[n];
    m_size = n;
}

void SharedCharPtr::release() { m_set->giveBack(this); }

SharedCharPtrSet::~SharedCharPtrSet() {
    for (SharedCharPtr* p : m_free) delete p;
}

SharedCharPtr* SharedCharPtrSet::alloc(uint32_t n) {
    SharedCharPtr* p = nullptr;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_free.empty()) {
            p = m_free.front();
            m_free.pop_front();
        } else {
            ++m_created;
        }
    }
    if (!p) p = new SharedCharPtr(this);
    p->reserve(n);
    return p;
}

void SharedCharPtrSet::giveBack(SharedCharPtr* p) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_recycled;
    m_free.push_back(p);
}

uint32_t SharedCharPtrSet::created() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_created;
}

uint32_t SharedCharPtrSet::recycled() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_recycled;
}

size_t SharedCharPtrSet::freeCount() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_free.size();
}
