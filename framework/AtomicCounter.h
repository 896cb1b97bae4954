// AtomicCounter: a thread-safe counter used for reference counts that are released without a lock.
#pragma once

#include <atomic>
#include <cstdint>

class AtomicCounter {
public:
    explicit AtomicCounter(int32_t start = 0) : m_value(start) {}
    // Returns the value after the change.
    int32_t increment() { return m_value.fetch_add(1, std::memory_order_acq_rel) + 1; }
    int32_t decrement() { return m_value.fetch_sub(1, std::memory_order_acq_rel) - 1; }
    int32_t add(int32_t delta) { return m_value.fetch_add(delta, std::memory_order_acq_rel) + delta; }
    int32_t value() const { return m_value.load(std::memory_order_acquire); }
    void set(int32_t v) { m_value.store(v, std::memory_order_release); }

private:
    std::atomic<int32_t> m_value;
};
