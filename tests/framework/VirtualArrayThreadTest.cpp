// Concurrency of VirtualArray: readers on their own threads, each with its own agent, read every
// published element while the owner appends, flushes, and moves the array in the file. Meant to be
// run under ThreadSanitizer as well (-DQT_TSAN=ON).
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "framework/VirtualArray.h"
#include "tests/framework/TempMovieFile.h"

namespace {

unsigned int valueOf(unsigned int index) { return index * 2654435761u + 1; }

}  // namespace

TEST(VirtualArrayThreadTest, ReadersWithTheirOwnAgentsSeeEveryPublishedElementWhileTheOwnerAppends) {
    constexpr unsigned int kCount = 300000;
    TempMovieFile temp;
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.path(), BasicFileIO::ReadWrite);
    VirtualArray<unsigned int> array("live");
    array.setIoPrep(&bigEndian32);
    array.setVirtualSize(kCount);
    array.setMap(4096);
    ASSERT_TRUE(array.setBackingStore(file));

    std::atomic<unsigned int> published{0};
    std::atomic<bool> done{false};
    std::atomic<unsigned long> mismatches{0}, reads{0};

    auto reader = [&](unsigned int seed) {
        FileIoClientRec agent(6);
        std::mt19937 random(seed);
        unsigned int cursor = 0;
        while (!done.load(std::memory_order_acquire)) {
            unsigned int count = published.load(std::memory_order_acquire);
            if (count == 0) continue;
            unsigned int at = seed % 2 ? static_cast<unsigned int>(random() % count) : cursor++ % count;
            if (array.elementAt(at, &agent) != valueOf(at)) mismatches.fetch_add(1);
            reads.fetch_add(1, std::memory_order_relaxed);
        }
        array.close(&agent);
    };
    std::vector<std::thread> readers;
    for (unsigned int seed = 1; seed <= 3; ++seed) readers.emplace_back(reader, seed);

    // The owner's failures are collected rather than asserted, so that the readers are always joined.
    unsigned long place = 4096;
    unsigned int ownerFailures = 0;
    for (unsigned int i = 0; i < kCount; ++i) {
        ownerFailures += !array.setElementAt(i, valueOf(i), nullptr);
        published.store(i + 1, std::memory_order_release);
        if (i % 20000 == 19999) ownerFailures += !array.flush();
        if (i % 100000 == 99999) {
            place += (i / 100000) % 2 ? 40 : 8 * 1024 * 1024;  // one overlapping move, one far away
            ownerFailures += !array.mapIndex(i + 1, place);
        }
    }
    while (reads.load() < 100000) std::this_thread::yield();
    done.store(true, std::memory_order_release);
    for (std::thread& t : readers) t.join();
    EXPECT_EQ(ownerFailures, 0u);
    EXPECT_EQ(mismatches.load(), 0u);
    ASSERT_TRUE(array.flush());
    FileIoClientRec agent;
    for (unsigned int i = 0; i < kCount; i += 7) ASSERT_EQ(array.elementAt(i, &agent), valueOf(i));
}
