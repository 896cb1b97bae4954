#include "framework/Bitset.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

TEST(Bitset, FillSetsExactlyTheBitsOfTheSize) {
    Bitset full(70, true);
    EXPECT_EQ(full.size(), 70u);
    EXPECT_EQ(full.count(), 70u);
    EXPECT_TRUE(full.get(69));
    EXPECT_FALSE(full.get(70));
    full.resize(128);
    EXPECT_FALSE(full.get(70));
    EXPECT_EQ(full.count(), 70u);
}

TEST(Bitset, ShrinkingClearsSoThatRegrowingShowsClearBits) {
    Bitset bits(256);
    bits.set(3);
    bits.set(200);
    bits.resize(0);
    EXPECT_TRUE(bits.empty());
    EXPECT_FALSE(bits.get(3));
    bits.resize(256);
    EXPECT_EQ(bits.count(), 0u);
    EXPECT_EQ(bits.capacity(), 256u);
}

TEST(Bitset, SetOutsideTheSizeIsIgnoredButSetAndGrowExtendsIt) {
    Bitset bits(256);
    bits.resize(0);
    EXPECT_FALSE(bits.set(10));
    EXPECT_FALSE(bits.get(10));
    bits.setAndGrow(10);
    EXPECT_EQ(bits.size(), 11u);
    EXPECT_TRUE(bits.get(10));
    bits.setAndGrow(4);
    EXPECT_EQ(bits.size(), 11u);  // never shrinks
    bits.setAndGrow(300);          // past the capacity: reallocates and keeps the bits
    EXPECT_EQ(bits.size(), 301u);
    EXPECT_TRUE(bits.get(4));
    EXPECT_TRUE(bits.get(10));
    EXPECT_TRUE(bits.get(300));
    EXPECT_EQ(bits.count(), 3u);
}

TEST(Bitset, OrMergesBitsAndTakesTheLargerSize) {
    Bitset a(10), b(100);
    a.set(1);
    b.set(1);
    b.set(99);
    a |= b;
    EXPECT_EQ(a.size(), 100u);
    EXPECT_EQ(a.count(), 2u);
    Bitset c(5);
    c.set(4);
    a |= c;
    EXPECT_EQ(a.size(), 100u);
    EXPECT_TRUE(a.get(4));
    EXPECT_TRUE(a.get(99));
}

TEST(Bitset, FindNextWalksSetBitsAcrossWords) {
    Bitset bits(256);
    for (unsigned b : {0u, 63u, 64u, 190u, 255u}) bits.set(b);
    std::vector<unsigned> found;
    for (unsigned b = bits.findNext(0); b < bits.size(); b = bits.findNext(b + 1)) found.push_back(b);
    EXPECT_EQ(found, (std::vector<unsigned>{0, 63, 64, 190, 255}));
    bits.resize(190);
    EXPECT_EQ(bits.findNext(65), 190u);  // nothing left: the size
}

TEST(Bitset, CopiesAreIndependentAndCompareEqual) {
    Bitset a(130);
    a.set(129);
    Bitset b(a);
    EXPECT_TRUE(a == b);
    b.set(0);
    EXPECT_FALSE(a == b);
    EXPECT_FALSE(a.get(0));
    a = b;
    EXPECT_TRUE(a == b);
}

TEST(Bitset, ConcurrentSettersWithinTheCapacityLoseNoBit) {
    Bitset bits(256);
    bits.resize(0);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([&bits, t] {
            for (unsigned b = t; b < 256; b += 4) bits.setAndGrow(b);
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(bits.size(), 256u);
    EXPECT_EQ(bits.count(), 256u);
}
