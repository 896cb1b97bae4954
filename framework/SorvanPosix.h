// Locks and waiting for the library's few shared structures: a plain mutex (JMutex) taken by scope
// (ScopeLock), a counting semaphore (JLWSemaphore) with an untimed and a timed wait, and a sleep in
// milliseconds (waitMsec). All of them may be used from any thread.
#pragma once

#include <condition_variable>
#include <mutex>

namespace SorvanPosix {

// A non-recursive mutex. Locking it twice from one thread is a deadlock, as with any plain mutex.
// It also meets the standard BasicLockable requirements, so std::unique_lock and
// std::condition_variable_any work with it.
class JMutex {
  public:
    JMutex() = default;
    JMutex(JMutex const&) = delete;
    JMutex& operator=(JMutex const&) = delete;

    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }
    bool tryLock() { return m_mutex.try_lock(); }
    bool try_lock() { return m_mutex.try_lock(); }

  private:
    std::mutex m_mutex;
};

// Holds a JMutex from construction to the end of the scope.
class ScopeLock {
  public:
    explicit ScopeLock(JMutex& mutex) : m_mutex(mutex) { m_mutex.lock(); }
    ~ScopeLock() { m_mutex.unlock(); }
    ScopeLock(ScopeLock const&) = delete;
    ScopeLock& operator=(ScopeLock const&) = delete;

  private:
    JMutex& m_mutex;
};

// A counting semaphore. `post` adds one to the count and wakes one waiter; `wait` blocks until the
// count is above zero and takes one. Posts are never lost: a post made before anyone waits lets the
// next wait pass at once.
class JLWSemaphore {
  public:
    explicit JLWSemaphore(unsigned int initialCount);
    JLWSemaphore(JLWSemaphore const&) = delete;
    JLWSemaphore& operator=(JLWSemaphore const&) = delete;

    void post();
    void wait();
    // Waits at most `milliseconds`; true when a count was taken, false on time-out.
    bool timedWait(unsigned int milliseconds);
    // Takes a count only when one is there; never blocks.
    bool tryWait();
    // The count at this instant (for diagnostics and tests; it may change at once).
    unsigned int count() const;

  private:
    mutable std::mutex m_mutex;
    std::condition_variable m_available;
    unsigned int m_count;  // guarded by m_mutex
};

}  // namespace SorvanPosix

// Sleeps the calling thread for at least `milliseconds`.
void waitMsec(unsigned int milliseconds);
