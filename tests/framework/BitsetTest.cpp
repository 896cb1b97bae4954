#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "framework/Bitset.h"

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
    bits.setAndGrow(300);         // past the capacity: reallocates and keeps the bits
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
