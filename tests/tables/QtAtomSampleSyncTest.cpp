// The tables of frame dependencies: sync samples ('stss'/'stps') and dependency bytes ('sdtp').
#include "quicktime/tables/QtAtomSampleSync.h"

#include <random>

#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleDepend.h"
#include "tests/tables/TableTestSupport.h"

namespace {

// Stored (1-based) numbers of keys at the given 0-based frames.
std::vector<uint32_t> stored(std::vector<uint32_t> const& frames) {
    std::vector<uint32_t> out;
    for (uint32_t f : frames) out.push_back(f + 1);
    return out;
}

// Irregular key frames: gaps of 1 to maxGap frames, starting at 0.
std::vector<uint32_t> irregularKeys(unsigned int count, unsigned int maxGap, unsigned int seed) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<unsigned int> gap(1, maxGap);
    std::vector<uint32_t> keys{0};
    while (keys.size() < count) keys.push_back(keys.back() + gap(random));
    return keys;
}

// A movie whose 'sdtp' holds the given bytes.
MovieOnDisk dependMovie(Bytes const& flags) {
    return MovieOnDisk(movieWithTable({stszAtom(0), atomBytes("sdtp", concat({zeros(4), flags}))}));
}

}  // namespace

TEST(QtAtomSampleSync, TrailingZeroEntriesCountAsFramesAfterTheLastKey) {
    for (unsigned int reserve : {0u, 20u}) {  // in memory, and in the file
        MovieOnDisk movie(movieWithTable({stszAtom(30), syncAtom("stss", {1, 11, 21, 0, 0}, reserve)}));
        auto const* table = movie.table<QtAtomSampleSync>("stss");
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->hasVirtualTable(), reserve != 0);
        EXPECT_EQ(table->getLastSample(), 22u) << reserve;
        EXPECT_TRUE(table->isKey(10, nullptr));
        TempFile copy;
        AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
        ASSERT_TRUE(QtAtomWriter::copyTree(*movie.root(), *out));
        EXPECT_EQ(readFileBytes(copy.path()), readFileBytes(movie.path()));
    }
}

TEST(QtAtomSampleSync, SetPutsAnIteratorOnTheEntryWhoseBracketHoldsTheFrame) {
    std::vector<uint32_t> keys = irregularKeys(800, 30, 11);
    MovieOnDisk movie(movieWithTable({stszAtom(keys.back() + 50), syncAtom("stss", stored(keys))}));
    auto const* stss = movie.table<QtAtomSampleSync>("stss");
    ASSERT_NE(stss, nullptr);
    FileIoClientRec agent;
    QtAtomSampleSync::KeyIterator iterator(stss->getArray(), &agent);
    std::mt19937 random(5);
    for (int i = 0; i < 3000; ++i) {
        unsigned long f = random() % (keys.back() + 20);
        stss->set(iterator, f);
        unsigned int index = iterator.getIndex();
        ASSERT_LE(keys[index], f) << f;
        ASSERT_TRUE(index + 1 == keys.size() || keys[index + 1] > f) << f;
        ASSERT_EQ(iterator.frame(), f);
        ASSERT_EQ(iterator.isKey(), keys[index] == f);
    }
}

TEST(QtAtomSampleSync, AppendedKeysAreFoundByLookupsAndKeySets) {
    MovieOnDisk movie(movieWithTable({stszAtom(0), syncAtom("stss", {})}));
    auto const* stss = movie.table<QtAtomSampleSync>("stss");
    stss->setCapacity(10000, 25);
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 400u);
    EXPECT_TRUE(stss->hasVirtualTable());
    FileIoClientRec reader;
    auto early = stss->getKeySet(0, &reader);  // held while the recorder appends into unit 0
    for (unsigned long f = 0; f < 10000; f += 25) ASSERT_TRUE(stss->appendKey(f)) << f;
    EXPECT_EQ(stss->size(), 400u);
    EXPECT_EQ(stss->getLastSample(), 9975u);
    EXPECT_EQ(stss->getSamplesPerEntry(), FixedPoint<16u>(9976u) / FixedPoint<16u>(400u));
    EXPECT_TRUE(early->isKey(250));  // the reader's set got the keys without a rebuild
    for (unsigned long f = 0; f < 9976; ++f) ASSERT_EQ(stss->isKey(f, &reader), f % 25 == 0) << f;
    EXPECT_EQ(stss->movieResizeNeeded(), 0u);
    EXPECT_FALSE(stss->appendKey(10000));  // no room left: nothing stored, the movie is asked to grow
    EXPECT_EQ(stss->size(), 400u);
    EXPECT_EQ(stss->movieResizeNeeded(), static_cast<uint32_t>(QtResizeReq::Samples));
    EXPECT_TRUE(stss->isDirty());
}

TEST(QtAtomSampleSync, CapacityFollowsTheKeyIntervalOrTheKeysSeenAndNeverShrinks) {
    MovieOnDisk movie(movieWithTable({stszAtom(0), syncAtom("stss", {1, 11, 21, 31})}));
    auto const* stss = movie.table<QtAtomSampleSync>("stss");
    stss->setCapacity(1000, 0);  // ten frames per key so far: (30 + 1) / 4 = 7.75
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 129u);
    stss->setCapacity(1000, 30);
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 33u);
    stss->setCapacity(10, 30);  // never below the keys held
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 4u);
    stss->setCapacity(1ul << 40, 0x40000000);  // clamped to 32 bits first
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 4u);
}

// Small tables are read whole, larger ones stay on disk.
TEST(QtAtomSampleSync, SyncAndCompositionTablesNeedAllTheirDataOnlyBelowTheirLimit) {
    QtAtomSampleSync stss(nullptr, true, qtId("stss")), stps(nullptr, true, qtId("stps"));
    QtAtomCompTime ctts(nullptr);
    for (auto [table, limit] : {std::pair<BaseQtAtom*, unsigned int>{&stss, 81}, {&stps, 81}, {&ctts, 145}}) {
        for (unsigned int size : {limit - 1, limit}) {
            table->setSize(size);
            EXPECT_EQ(table->needsAllData(), size < limit) << QtIdName(table->getId()).render() << " " << size;
        }
    }
}

TEST(QtAtomSampleDepend, ReadsEveryByteOfTheCorpusTableThroughAReadersAgent) {
    std::string path = testDataPath("hevc_sdtp.mov");
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    ASSERT_TRUE(root);
    auto const* sdtp = dynamic_cast<QtAtomSampleDepend const*>(root->findAtom("moov.trak.mdia.minf.stbl.sdtp", 0));
    ASSERT_NE(sdtp, nullptr);
    EXPECT_EQ(sdtp->getFileOffset(), 13073u);
    EXPECT_EQ(sdtp->getNumEntries(), 60u);  // the 'stsz' after it has 60 samples
    EXPECT_TRUE(sdtp->hasVirtualTable());
    Bytes file = readFileBytes(path);
    FileIoClientRec agent;
    for (unsigned int i = 0; i < 60; ++i) ASSERT_EQ(sdtp->getSampleDepend(i, &agent), file[13073 + 12 + i]) << i;
    EXPECT_EQ(sdtp->getSampleDepend(60, &agent), 0);
}

TEST(QtAtomSampleDepend, StoresUpToItsCapacityAndAsksForRoomPastIt) {
    MovieOnDisk movie = dependMovie(zeros(4));
    auto const* sdtp = movie.table<QtAtomSampleDepend>("sdtp");
    EXPECT_TRUE(sdtp->addSamples(3, 0x24));
    EXPECT_EQ(sdtp->getSampleDepend(3, nullptr), 0x24);
    EXPECT_FALSE(sdtp->addSamples(4, 0x18));
    EXPECT_EQ(sdtp->getSizeNeeded(), 5u);
    EXPECT_EQ(sdtp->movieResizeNeeded(), static_cast<uint32_t>(QtResizeReq::Samples));
    EXPECT_EQ(sdtp->getSampleDepend(4, nullptr), 0);
    EXPECT_FALSE(sdtp->addSamples(0xFFFFFFFFul, 1));
    sdtp->setCapacity(5);
    EXPECT_EQ(sdtp->getSizeNeeded(), 0u);
    EXPECT_TRUE(sdtp->addSamples(4, 0x18));
    EXPECT_EQ(encodeToBytes(*sdtp).size(), 12u + 5);  // still in memory, written whole with its room
}

TEST(QtAtomSampleDepend, CapacityIsTheRequestedCountEvenWhenSmaller) {
    MovieOnDisk movie = dependMovie(filled(100, 7));
    auto const* sdtp = movie.table<QtAtomSampleDepend>("sdtp");
    ASSERT_EQ(sdtp->getArray().getVirtualSize(), 100u);
    sdtp->setCapacity(10);
    EXPECT_EQ(sdtp->getArray().getVirtualSize(), 10u);
    EXPECT_EQ(sdtp->getSampleDepend(9, nullptr), 7);
    EXPECT_EQ(sdtp->getSampleDepend(10, nullptr), 0);
}
