#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "framework/SorvanPosix.h"

using SorvanPosix::JLWSemaphore;
using SorvanPosix::JMutex;
using SorvanPosix::ScopeLock;

TEST(SorvanPosix, ScopeLockMakesIncrementsFromManyThreadsExclusive) {
    JMutex mutex;
    long counter = 0;  // deliberately not atomic: only the lock protects it
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                ScopeLock lock(mutex);
                ++counter;
            }
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(counter, 80000);
}

TEST(SorvanPosix, ScopeLockReleasesAtTheEndOfItsScope) {
    JMutex mutex;
    {
        ScopeLock lock(mutex);
        std::thread other([&] { EXPECT_FALSE(mutex.tryLock()); });
        other.join();
    }
    ASSERT_TRUE(mutex.tryLock());
    mutex.unlock();
}

TEST(SorvanPosix, SemaphoreLetsAsManyWaitsPassAsItsCount) {
    JLWSemaphore semaphore(2);
    EXPECT_TRUE(semaphore.tryWait());
    EXPECT_TRUE(semaphore.timedWait(0));
    EXPECT_FALSE(semaphore.tryWait());
    EXPECT_FALSE(semaphore.timedWait(5));
    EXPECT_EQ(semaphore.count(), 0u);
}

TEST(SorvanPosix, SemaphoreKeepsPostsMadeBeforeAnyWait) {
    JLWSemaphore semaphore(0);
    semaphore.post();
    semaphore.post();
    EXPECT_EQ(semaphore.count(), 2u);
    semaphore.wait();
    semaphore.wait();
    EXPECT_FALSE(semaphore.tryWait());
}

TEST(SorvanPosix, SemaphoreWaitBlocksUntilAnotherThreadPosts) {
    JLWSemaphore semaphore(0);
    std::atomic<bool> passed{false};
    std::thread waiter([&] {
        semaphore.wait();
        passed = true;
    });
    waitMsec(30);
    EXPECT_FALSE(passed.load());
    semaphore.post();
    waiter.join();
    EXPECT_TRUE(passed.load());
    EXPECT_EQ(semaphore.count(), 0u);
}

TEST(SorvanPosix, EachPostWakesOneOfSeveralWaiters) {
    JLWSemaphore semaphore(0);
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
        waiters.emplace_back([&] {
            semaphore.wait();
            ++woken;
        });
    semaphore.post();
    semaphore.post();
    while (woken.load() < 2) waitMsec(1);
    waitMsec(20);
    EXPECT_EQ(woken.load(), 2);
    semaphore.post();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(woken.load(), 3);
}

TEST(SorvanPosix, TimedWaitGivesUpOnlyAfterItsTime) {
    JLWSemaphore semaphore(0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(semaphore.timedWait(20));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    std::thread poster([&] {
        waitMsec(10);
        semaphore.post();
    });
    EXPECT_TRUE(semaphore.timedWait(10000));
    poster.join();
}

TEST(SorvanPosix, WaitMsecSleepsAtLeastTheTimeAsked) {
    auto start = std::chrono::steady_clock::now();
    waitMsec(15);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(15));
}
