// QtAtomSampleChunk ('stsc'): runs built chunk by chunk while recording, lookups that search from
// the previous answer, the last run completed from the time-to-sample table, queries, damaged
// input, room, encoding and the printout.
#include "quicktime/tables/QtAtomSampleChunk.h"

#include <gtest/gtest.h>

#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "tests/tables/TableTestSupport.h"

namespace {

using Entry = QtAtomSampleChunk::Entry;

std::vector<unsigned char> stsc(std::vector<uint64_t> const& triples, unsigned int spare = 0) {
    std::vector<uint64_t> entries = triples;
    entries.resize(triples.size() + 3 * spare, 0);
    return tableAtom("stsc", {static_cast<uint32_t>(triples.size() / 3)}, entries, 4);
}

std::vector<unsigned char> stts(unsigned int samples) { return tableAtom("stts", {1}, {samples, 100}, 4); }

void expectEntry(QtAtomSampleChunk const& table, unsigned int index, Entry expected) {
    Entry entry = table.getEntry(index);
    EXPECT_EQ(entry.firstSample, expected.firstSample) << "entry " << index;
    EXPECT_EQ(entry.firstChunk, expected.firstChunk) << "entry " << index;
    EXPECT_EQ(entry.samplesPerChunk, expected.samplesPerChunk) << "entry " << index;
    EXPECT_EQ(entry.descIndex, expected.descIndex) << "entry " << index;
}

void addChunk(QtAtomSampleChunk& table, unsigned int samples, unsigned int desc = 1) {
    QtSampleLocation location(desc, samples, true);
    ASSERT_TRUE(table.addSamples(location));
}

// Runs: chunks 1-3 of 10 samples, 4-5 of 5, then 3 per chunk in description 2 up to 46 samples,
// that is chunks 6 and 7.
MovieOnDisk threeRuns() { return MovieOnDisk(movieWithTable({stts(46), stsc({1, 10, 1, 4, 5, 1, 6, 3, 2})})); }

}  // namespace

TEST(QtAtomSampleChunkTest, ChunksOfEqualShapeMergeIntoOneRunOneChunkLate) {
    QtAtomSampleChunk table(nullptr);
    addChunk(table, 10);
    addChunk(table, 10);
    EXPECT_EQ(table.getNumEntries(), 2u);
    expectEntry(table, 0, {0, 1, 10, 1});
    expectEntry(table, 1, {10, 2, 10, 1});
    addChunk(table, 10);
    EXPECT_EQ(table.getNumEntries(), 2u);
    expectEntry(table, 1, {20, 3, 10, 1});
    expectEntry(table, 2, {30, 4, 0, 1});  // the implied end
    EXPECT_EQ(table.getNumChunks(), 3u);
    EXPECT_EQ(table.getChunkCounter(), 3u);

    QtAtomBuffer buffer(table.getEncodeSize());
    ASSERT_TRUE(table.encode(buffer));
    std::vector<unsigned char> expected = stsc({1, 10, 1, 3, 10, 1}, 2);
    EXPECT_EQ(std::vector<unsigned char>(buffer.ptrData(), buffer.ptrEnd()), expected);
}

TEST(QtAtomSampleChunkTest, LookupsSearchOnFromThePreviousAnswerInEitherDirection) {
    MovieOnDisk movie = threeRuns();
    auto const* table = movie.table<QtAtomSampleChunk>("stsc");
    QtChunkSet set;
    ASSERT_TRUE(table->getChunkSet(45, set));
    EXPECT_EQ(set.m_entryIndex, 2u);
    EXPECT_EQ(set.m_firstChunk, 5u);
    EXPECT_EQ(set.m_numChunks, 2u);
    EXPECT_EQ(set.m_firstSample, 40u);
    EXPECT_EQ(set.m_numSamples, 6u);
    EXPECT_EQ(set.m_descIndex, 2u);
    unsigned long chunkStart = 0;
    EXPECT_EQ(set.getChunk(45, chunkStart), 6u);
    EXPECT_EQ(chunkStart, 43u);

    ASSERT_TRUE(table->getChunkSet(12, set));  // backwards, past entry 1
    EXPECT_EQ(set.m_entryIndex, 0u);
    EXPECT_EQ(set.m_numChunks, 3u);
    ASSERT_TRUE(table->getChunkSet(33, set));
    EXPECT_EQ(set.m_entryIndex, 1u);

    EXPECT_FALSE(table->getChunkSet(46, set));  // past every run: the end entry
    EXPECT_EQ(set.m_numChunks, 1u);
    EXPECT_EQ(set.m_entryIndex, QtChunkSet::kNone);
    EXPECT_EQ(set.m_firstChunk, 8u);  // as the end entry holds it, 1-based
}

TEST(QtAtomSampleChunkTest, TheLastRunIsCompletedFromTheTimeToSampleTable) {
    MovieOnDisk movie = threeRuns();
    auto const* table = movie.table<QtAtomSampleChunk>("stsc");
    EXPECT_EQ(table->getNumChunks(), 7u);
    EXPECT_EQ(table->getChunkCounter(), 5u);
    EXPECT_EQ(table->getNumChunkSamples(0), 10u);
    EXPECT_EQ(table->getNumChunkSamples(4), 5u);
    EXPECT_EQ(table->getNumChunkSamples(6), 3u);
    EXPECT_EQ(table->getNumChunkSamples(7), 0u);
    EXPECT_EQ(table->getChunkDesc(41), 2u);
    EXPECT_EQ(table->getChunkDesc(1000), 2u);

    MovieOnDisk alone(movieWithTable({stsc({1, 10, 1, 4, 5, 1, 6, 3, 2})}));
    EXPECT_EQ(alone.table<QtAtomSampleChunk>("stsc")->getNumChunks(), 6u);  // the last run is one chunk
}

TEST(QtAtomSampleChunkTest, DamagedInputIsHandledSoftly) {
    std::vector<unsigned char> claimsTooMany = stsc({1, 10, 1});
    claimsTooMany[15] = 2;
    MovieOnDisk damaged(movieWithTable({claimsTooMany}));
    auto const* table = damaged.table<QtAtomSampleChunk>("stsc");
    EXPECT_EQ(table->getNumEntries(), 0u);
    EXPECT_EQ(table->getCapacity(), 0u);
    QtChunkSet set;
    EXPECT_FALSE(table->getChunkSet(0, set));
    EXPECT_EQ(table->getChunkDesc(0), 0u);

    MessageCapture capture;
    MovieOnDisk zeroDescription(movieWithTable({stsc({1, 10, 0})}));
    EXPECT_TRUE(capture.contains("Invalid STSC entry (desc = 0) found at ")) << capture.all();
    EXPECT_EQ(zeroDescription.table<QtAtomSampleChunk>("stsc")->getEntry(0).descIndex, 0u);
}

TEST(QtAtomSampleChunkTest, RoomIsDoubledOnlyWhenNoneIsLeftAndKeptOnDiskAsZeros) {
    std::vector<unsigned char> atom = stsc({1, 10, 1}, 2);
    MovieOnDisk movie(movieWithTable({stts(100), atom}));
    QtAtomSampleChunk* table = movie.table<QtAtomSampleChunk>("stsc")->write();
    EXPECT_EQ(table->getCapacity(), 3u);
    QtAtomBuffer buffer(table->getEncodeSize());
    ASSERT_TRUE(table->encode(buffer));
    EXPECT_EQ(std::vector<unsigned char>(buffer.ptrData(), buffer.ptrEnd()), atom);

    table->addCapacity();
    EXPECT_EQ(table->getCapacity(), 3u);
    addChunk(*table, 7);
    addChunk(*table, 8);
    EXPECT_EQ(table->getHeadroom(), 0u);
    table->addCapacity();
    EXPECT_EQ(table->getCapacity(), 7u);
    EXPECT_EQ(table->getVariableSize(), 7u * 12);
    // The new run starts after the ten chunks that the time table implied for the first.
    EXPECT_EQ(table->getEntry(1).firstChunk, 11u);
    EXPECT_EQ(table->getEntry(1).samplesPerChunk, 7u);
}

TEST(QtAtomSampleChunkTest, RunsOfConstantSizeSamplesAreContiguousWhenBackToBack) {
    // Description 1 in chunks 1 and 3, description 2 in chunk 2; 4 samples of 10 bytes a chunk.
    std::vector<unsigned char> offsets = tableAtom("stco", {3}, {1000, 3000, 1040}, 4);
    MovieOnDisk movie(movieWithTable({stts(12), stsc({1, 4, 1, 2, 4, 2, 3, 4, 1}), tableAtom("stsz", {10, 12}, {}, 4),
                                       offsets, tableAtom("stsz", {0, 0}, {}, 4)}));
    auto const* table = movie.table<QtAtomSampleChunk>("stsc");
    auto const* stco = movie.table<QtAtomSampleChunkOff>("stco");
    auto const* stsz = movie.table<QtAtomSampleSize>("stsz");
    EXPECT_TRUE(table->contiguous(stco, stsz, 1));
    EXPECT_TRUE(table->contiguous(stco, stsz, 2));
    auto const* variable = dynamic_cast<QtAtomSampleSize const*>(stco->getSibling());
    EXPECT_FALSE(table->contiguous(stco, variable, 1));  // only for constant sizes
    stco->write()->assignAt(2, 1041);  // a byte of gap after chunk 1
    EXPECT_FALSE(table->contiguous(stco, stsz, 1));
    stco->write()->assignAt(2, 996);  // starting before the first run
    EXPECT_FALSE(table->contiguous(stco, stsz, 1));
}
