// QtAtomSampleChunk ('stsc'): runs built while recording, lookups from the previous answer, the last
// run completed from the time-to-sample table, damaged input, room and contiguity.
#include "quicktime/tables/QtAtomSampleChunk.h"

#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "tests/tables/TableTestSupport.h"

namespace {

Bytes stsc(std::vector<uint64_t> triples, unsigned int spare = 0) {
    uint32_t count = static_cast<uint32_t>(triples.size() / 3);
    triples.resize(triples.size() + 3 * spare, 0);
    return tableAtom("stsc", {count}, triples, 4);
}

Bytes stts(unsigned int samples) { return tableAtom("stts", {1}, {samples, 100}, 4); }

void expectEntry(QtAtomSampleChunk const& table, unsigned int index, QtAtomSampleChunk::Entry e) {
    QtAtomSampleChunk::Entry got = table.getEntry(index);
    EXPECT_EQ(std::tie(got.firstSample, got.firstChunk, got.samplesPerChunk, got.descIndex),
              std::tie(e.firstSample, e.firstChunk, e.samplesPerChunk, e.descIndex))
        << "entry " << index;
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
    EXPECT_EQ(Bytes(buffer.ptrData(), buffer.ptrEnd()), stsc({1, 10, 1, 3, 10, 1}, 2));
}

TEST(QtAtomSampleChunkTest, LookupsSearchOnFromThePreviousAnswerInEitherDirection) {
    MovieOnDisk movie = threeRuns();
    auto const* table = movie.table<QtAtomSampleChunk>("stsc");
    QtChunkSet set;
    ASSERT_TRUE(table->getChunkSet(45, set));
    EXPECT_EQ(std::tie(set.m_entryIndex, set.m_firstChunk, set.m_numChunks, set.m_firstSample, set.m_numSamples,
                       set.m_descIndex),
              std::make_tuple(2u, 5u, 2u, 40ul, 6u, 2u));
    unsigned long chunkStart = 0;
    EXPECT_EQ(set.getChunk(45, chunkStart), 6u);
    EXPECT_EQ(chunkStart, 43u);

    ASSERT_TRUE(table->getChunkSet(12, set));  // backwards, past entry 1
    EXPECT_EQ(std::tie(set.m_entryIndex, set.m_numChunks), std::make_tuple(0u, 3u));
    ASSERT_TRUE(table->getChunkSet(33, set));
    EXPECT_EQ(set.m_entryIndex, 1u);

    EXPECT_FALSE(table->getChunkSet(46, set));  // past every run: the end entry, its first chunk 1-based
    EXPECT_EQ(std::tie(set.m_numChunks, set.m_entryIndex, set.m_firstChunk),
              std::make_tuple(1u, QtChunkSet::kNone, 8u));
}

TEST(QtAtomSampleChunkTest, TheLastRunIsCompletedFromTheTimeToSampleTable) {
    MovieOnDisk movie = threeRuns();
    auto const* table = movie.table<QtAtomSampleChunk>("stsc");
    EXPECT_EQ(table->getNumChunks(), 7u);
    EXPECT_EQ(table->getChunkCounter(), 5u);
    for (auto [chunk, samples] : {std::pair{0u, 10u}, {4u, 5u}, {6u, 3u}, {7u, 0u}})
        EXPECT_EQ(table->getNumChunkSamples(chunk), samples) << chunk;
    EXPECT_EQ(table->getChunkDesc(41), 2u);
    EXPECT_EQ(table->getChunkDesc(1000), 2u);

    MovieOnDisk alone(movieWithTable({stsc({1, 10, 1, 4, 5, 1, 6, 3, 2})}));
    EXPECT_EQ(alone.table<QtAtomSampleChunk>("stsc")->getNumChunks(), 6u);  // the last run is one chunk
}

TEST(QtAtomSampleChunkTest, DamagedInputIsHandledSoftly) {
    Bytes claimsTooMany = stsc({1, 10, 1});
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
    Bytes atom = stsc({1, 10, 1}, 2);
    MovieOnDisk movie(movieWithTable({stts(100), atom}));
    QtAtomSampleChunk* table = movie.table<QtAtomSampleChunk>("stsc")->write();
    EXPECT_EQ(table->getCapacity(), 3u);
    QtAtomBuffer buffer(table->getEncodeSize());
    ASSERT_TRUE(table->encode(buffer));
    EXPECT_EQ(Bytes(buffer.ptrData(), buffer.ptrEnd()), atom);

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
    MovieOnDisk movie(movieWithTable({stts(12), stsc({1, 4, 1, 2, 4, 2, 3, 4, 1}), tableAtom("stsz", {10, 12}, {}, 4),
                                      tableAtom("stco", {3}, {1000, 3000, 1040}, 4), tableAtom("stsz", {0, 0}, {}, 4)}));
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
