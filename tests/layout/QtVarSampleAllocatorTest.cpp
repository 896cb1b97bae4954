#include <gtest/gtest.h>

#include <cstring>

#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtVarSampleAllocator.h"
#include "quicktime/tables/QtSampleLocation.h"

namespace {

QtSampleLocation samples(unsigned int bytes, unsigned int count) {
    QtSampleLocation location(1, count, true);
    location.numBytes = bytes;
    return location;
}

}  // namespace

// Two samples per chunk, a pad of 8. The first chunk is estimated from its first sample of 100
// bytes: (100 + 8) x 2 = 216, plus the pad.
TEST(QtVarSampleAllocator, SmoothsTheChunkSizeOverTwoToThePerChunksOrReestimatesFromBytesPerSample) {
    struct Case {
        unsigned int per;
        std::vector<unsigned int> placed;  // samples put in the first chunk
        unsigned int next;                 // bytes of the sample that opens the next chunk
        unsigned int average;
    } const cases[] = {
        {0, {90, 80}, 50, 170},  // k = 0: the average becomes what the chunk took
        {1, {90, 80}, 50, 216 - 108 + 85},
        {2, {90, 80}, 50, 216 - 54 + 42},
        {2, {90, 80}, 300, 314},  // does not fit: ceil((300 + 170) / 3) x 2
        {2, {90}, 50, 140},       // fewer samples than a chunk holds: ceil((50 + 90) / 2) x 2
        {2, {90, 80}, 400, 400},  // the estimate (380) is below the sample: the sample's size
    };
    for (Case const& c : cases) {
        QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
        QtChunkAllocator chunks;
        QtVarSampleAllocator allocator(chunks, 2, 8, c.per);
        QtChunkAllocator::Chunk first = allocator.allocChunk(samples(100, 1), &root, true);
        ASSERT_EQ(first.size, 216u + 8u);
        unsigned long offset;
        for (unsigned int bytes : c.placed) ASSERT_TRUE(allocator.place(bytes, 1, offset));
        QtChunkAllocator::Chunk next = allocator.allocChunk(samples(c.next, 1), &root, true);
        EXPECT_EQ(allocator.getAverage(), c.average) << "per " << c.per << ", next " << c.next;
        EXPECT_EQ(next, (QtChunkAllocator::Chunk{first.offset + first.size, c.average + 8u}));
    }
}

TEST(QtVarSampleAllocator, VariableSizeSamplesFillChunksOfAboutTheIntendedCount) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    QtChunkAllocator chunks;
    QtVarSampleAllocator allocator(chunks, 10, 0, 2);
    unsigned int seed = 12345;
    unsigned long sampleBytes = 0, chunkBytes = 0, chunkCount = 0;
    for (int i = 0; i < 5000; ++i) {
        seed = seed * 1103515245u + 12345u;
        unsigned int bytes = 500 + (seed >> 16) % 1001;  // 500..1500, 1000 on average
        unsigned long offset = 0, opened = 0;
        if (!allocator.place(bytes, 1, offset)) {  // a new chunk when the sample does not fit
            opened = allocator.allocChunk(samples(bytes, 1), &root, true).size;
            EXPECT_TRUE(allocator.place(bytes, 1, offset));
        }
        if (i < 100) continue;  // past the first estimates
        sampleBytes += bytes;
        if (opened) {
            chunkBytes += opened;
            ++chunkCount;
            EXPECT_GT(opened, 5000u);
            EXPECT_LT(opened, 15000u);
        }
    }
    double samplesPerChunk = 4900.0 / static_cast<double>(chunkCount);
    EXPECT_GT(samplesPerChunk, 8.0);
    EXPECT_LT(samplesPerChunk, 12.0);
    EXPECT_GT(static_cast<double>(sampleBytes) / static_cast<double>(chunkBytes), 0.85);
}
