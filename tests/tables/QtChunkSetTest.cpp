// QtChunkSet, the answer and cache of a sample-to-chunk lookup.
#include "quicktime/tables/QtChunkSet.h"

#include <gtest/gtest.h>

#include <string>

TEST(QtChunkSetTest, ANewSetIsUnsetUntilInitialised) {
    QtChunkSet set;
    EXPECT_TRUE(set.isUnset());
    EXPECT_EQ(set.m_firstSample, 0xFFFFFFFFul);  // all ones in 32 bits only
    EXPECT_EQ(set.m_samplesPerChunk, 0u);
    EXPECT_EQ(set.m_entryIndex, QtChunkSet::kNone);
    set.init(7);
    EXPECT_FALSE(set.isUnset());
    EXPECT_EQ(std::string(set.toString().get()), "c=0@0,s=0@0,spc=0/7,desc=1");
}

TEST(QtChunkSetTest, EqualityIgnoresWhichEntryMadeTheSet) {
    QtChunkSet a, b;
    a.init(2);
    b.init(2);
    a.m_entryIndex = 3;
    EXPECT_EQ(a, b);
    b.m_descIndex = 2;
    EXPECT_NE(a, b);
}

TEST(QtChunkSetTest, GetChunkCountsWholeChunksFromTheRunsStart) {
    QtChunkSet set;
    set.init(1);
    set.m_firstChunk = 10;
    set.m_firstSample = 500;
    set.m_samplesPerChunk = 4;
    unsigned long chunkStart = 0;
    EXPECT_EQ(set.getChunk(509, chunkStart), 12u);
    EXPECT_EQ(chunkStart, 508u);
}
