#include "framework/SorvanPosix.h"

#include <chrono>
#include <thread>

namespace SorvanPosix {

JLWSemaphore::JLWSemaphore(unsigned int initialCount) : m_count(initialCount) {}

void JLWSemaphore::post() {
    // Notified under the lock, so that a waiter that takes the count and then destroys the
    // semaphore cannot do so before this call has stopped touching it.
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_count;
    m_available.notify_one();
}

void JLWSemaphore::wait() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_available.wait(lock, [this] { return m_count > 0; });
    --m_count;
}

bool JLWSemaphore::timedWait(unsigned int milliseconds) {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_available.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return m_count > 0; }))
        return false;
    --m_count;
    return true;
}

bool JLWSemaphore::tryWait() {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_count == 0) return false;
    --m_count;
    return true;
}

unsigned int JLWSemaphore::count() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_count;
}

}  // namespace SorvanPosix

void waitMsec(unsigned int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
