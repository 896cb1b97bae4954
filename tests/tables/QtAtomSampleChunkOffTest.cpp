// QtAtomSampleChunkOff ('stco'/'co64'): both widths in memory or on disk, the switch to 64 bits
// near 4 GiB, widening in place and elsewhere, recording offsets and laying out contiguous chunks.
#include "quicktime/tables/QtAtomSampleChunkOff.h"

#include "framework/FileIoClientRec.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtAtomSampleTime.h"
#include "tests/tables/TableTestSupport.h"

namespace {

// A table of `count` offsets followed by `spare` reserved (zero) slots.
Bytes chunkOffsets(char const* type, unsigned int count, unsigned int spare, uint64_t first = 0, uint64_t step = 0) {
    std::vector<uint64_t> entries = series(count, first, step);
    entries.resize(count + spare, 0);
    return tableAtom(type, {count}, entries, type[0] == 'c' ? 8 : 4);
}

}  // namespace

TEST(QtAtomSampleChunkOffTest, BothWidthsDecodeIntoMemoryUpTo16EntriesAndOntoDiskBeyond) {
    for (char const* type : {"stco", "co64"}) {
        for (unsigned int count : {16u, 17u}) {
            uint64_t first = type[0] == 'c' ? (5ul << 32) : 1000;
            MovieOnDisk movie(movieWithTable({chunkOffsets(type, count, 0, first, 4096)}));
            auto const* table = movie.table<QtAtomSampleChunkOff>(type);
            ASSERT_NE(table, nullptr) << type;
            EXPECT_EQ(table->is64Bit(), type[0] == 'c');
            EXPECT_EQ(table->hasVirtualTable(), count == 17) << type << count;
            EXPECT_EQ(table->needsAllData(), count == 16);
            EXPECT_EQ(table->getNumChunks(), count);
            FileIoClientRec agent;
            for (unsigned int i = 0; i < count; ++i) EXPECT_EQ(table->getChunkOffset(i, &agent), first + i * 4096);
            EXPECT_EQ(table->getChunkOffset(count, &agent), 0u);
        }
    }
}

// 1000 chunks ending at 3,000,000,000: 3,000,000 bytes apart, so 2^32 / 3,000,000 - 2 = 1429 fit
// below 4 GiB. Chunks 1000 bytes apart would fit, but room for 2048 chunks or more is made 64-bit.
TEST(QtAtomSampleChunkOffTest, TheOffsetsProjectedForTheRoomDecideWhetherAStcoBecomesCo64) {
    struct Case {
        unsigned int request;
        long spacing;
        bool wide;
    } const cases[] = {{1500, 3000000, true}, {1400, 3000000, false}, {2048, 1000, true}, {2047, 1000, false}};
    for (auto [request, spacing, wide] : cases) {
        MovieOnDisk movie(movieWithTable({chunkOffsets("stco", 0, 1000)}));
        QtAtomSampleChunkOff* table = movie.table<QtAtomSampleChunkOff>("stco")->write();
        for (unsigned int i = 1; i <= 1000; ++i) ASSERT_TRUE(table->addOffset(i * spacing));
        EXPECT_FALSE(table->need64BitChunkOff(nullptr));
        table->setCapacity(request);
        EXPECT_EQ(table->is64Bit(), wide) << request;
        EXPECT_EQ(table->nArrayEntries(), request);
        EXPECT_EQ(table->getHeadroom(), request - 1000);
    }
}

TEST(QtAtomSampleChunkOffTest, AnOffsetPast4GiBMakesAnEmptyStcoACo64AndIsStored) {
    MovieOnDisk movie(movieWithTable({chunkOffsets("stco", 0, 4)}));
    QtAtomSampleChunkOff* table = movie.table<QtAtomSampleChunkOff>("stco")->write();
    EXPECT_TRUE(table->addOffset(1l << 32));
    EXPECT_TRUE(table->is64Bit());
    EXPECT_EQ(table->getChunkOffset(0, nullptr), 1ul << 32);
    EXPECT_EQ(table->getSize(), 16u + 4 * 8);
    EXPECT_TRUE(table->need64BitChunkOff(nullptr));
    EXPECT_NE(movie.root()->findAtom("moov", 0)->movieResizeNeeded() & QtResizeReq::Samples, 0u);
}

TEST(QtAtomSampleChunkOffTest, AStcoWithOffsetsDoesNotTakeOneBeyond32BitsButAsksForRoom) {
    MovieOnDisk movie(movieWithTable({chunkOffsets("stco", 0, 8)}));
    QtAtomSampleChunkOff* table = movie.table<QtAtomSampleChunkOff>("stco")->write();
    ASSERT_TRUE(table->addOffset(4000000000l));
    EXPECT_FALSE(table->addOffset(5000000000l));
    EXPECT_EQ(table->getNumChunks(), 1u);
    EXPECT_EQ(table->getSizeNeeded(), 2u);
    // The resize the caller makes turns it into a co64, after which the offset goes in.
    table->setCapacity(table->getSizeNeeded());
    EXPECT_TRUE(table->is64Bit());
    table->setSizeAndOffset(QtTreeSize(true, table->getFixedSize() + table->getVariableSize(), table->getFileOffset()));
    EXPECT_TRUE(table->addOffset(5000000000l));
    EXPECT_EQ(table->getChunkOffset(0, nullptr), 4000000000ul);
    EXPECT_EQ(table->getChunkOffset(1, nullptr), 5000000000ul);
}

// Widening in place must copy from the last offset down; enough chunks that the caches' lag cannot
// hide a copy in the wrong direction.
TEST(QtAtomSampleChunkOffTest, WideningInPlaceOrElsewhereKeepsEveryOffset) {
    constexpr unsigned int kChunks = 100000;
    for (bool inPlace : {true, false}) {
        MovieOnDisk movie(movieWithTable({chunkOffsets("stco", kChunks, 1, 48, 1000)}));
        QtAtomSampleChunkOff* table = movie.table<QtAtomSampleChunkOff>("stco")->write();
        ASSERT_TRUE(table->hasVirtualTable());
        ASSERT_TRUE(table->addOffset(48 + kChunks * 1000l));
        table->setCapacity(kChunks + 100);
        ASSERT_TRUE(table->is64Bit());
        unsigned long place = inPlace ? table->getFileOffset() : 1 << 20;
        table->setSizeAndOffset(QtTreeSize(true, table->getFixedSize() + table->getVariableSize(), place));
        EXPECT_EQ(table->getNumChunks(), kChunks + 1);
        FileIoClientRec agent;
        for (unsigned int i = 0; i <= kChunks; ++i) ASSERT_EQ(table->getChunkOffset(i, &agent), 48 + i * 1000ul) << i;
        table->flushVirtualTable();
        Bytes file = readFileBytes(movie.path());
        unsigned long entries = place + 16;
        ASSERT_GE(file.size(), entries + (kChunks + 100) * 8ul);
        for (unsigned int i = 0; i <= kChunks; ++i) ASSERT_EQ(bigEndianAt(file, entries + i * 8ul, 8), 48 + i * 1000ul);
        EXPECT_EQ(bigEndianAt(file, entries + (kChunks + 99) * 8ul, 8), 0u);  // reserved room
    }
}

TEST(QtAtomSampleChunkOffTest, CreateOffsetsLaysOutChunksOneAfterAnother) {
    // Three chunks: two of 2 samples of 100 bytes, then one of 1 sample.
    MovieOnDisk movie(movieWithTable({tableAtom("stts", {1}, {5, 10}, 4), tableAtom("stsc", {2}, {1, 2, 1, 3, 1, 1}, 4),
                                      tableAtom("stsz", {100, 5}, {}, 4), chunkOffsets("stco", 0, 0)}));
    QtAtomSampleChunkOff* table = movie.table<QtAtomSampleChunkOff>("stco")->write();
    table->createOffsets(5000, movie.table<QtAtomSampleTime>("stts"), movie.table<QtAtomSampleChunk>("stsc"),
                         movie.table<QtAtomSampleSize>("stsz"));
    EXPECT_TRUE(table->is64Bit());  // new tables are 64-bit unless "use stco" is set
    EXPECT_EQ(table->getNumChunks(), 3u);
    EXPECT_EQ(table->nArrayEntries(), 16u);
    for (unsigned int i = 0; i < 3; ++i) EXPECT_EQ(table->getChunkOffset(i, nullptr), 5000u + 200 * i);
    EXPECT_EQ(table->getHeadroom(), 13u);
}
