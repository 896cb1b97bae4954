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

TEST(SorvanPosix, SemaphoreLetsAsManyWaitsPassAsItsCount) {
    JLWSemaphore semaphore(2);
    EXPECT_TRUE(semaphore.tryWait());
    EXPECT_TRUE(semaphore.timedWait(0));
    EXPECT_FALSE(semaphore.tryWait());
    EXPECT_FALSE(semaphore.timedWait(5));
    EXPECT_EQ(semaphore.count(), 0u);
}
