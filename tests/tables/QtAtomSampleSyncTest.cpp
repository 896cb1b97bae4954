#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "SyncTableTestSupport.h"
#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomSampleSync.h"

using namespace SyncTest;

namespace {

QtAtomSampleSync const* syncTable(QtAtomRoot const& root, char const* type = "stss") {
    BaseQtAtom const* stbl = root.findAtom(kStblPath, 0);
    return stbl ? dynamic_cast<QtAtomSampleSync const*>(stbl->findAtom(type, 0)) : nullptr;
}

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

std::vector<unsigned long> queryOrders(unsigned long frames, unsigned int seed) {
    std::vector<unsigned long> order;
    for (unsigned long f = 0; f < frames; ++f) order.push_back(f);               // forward
    for (unsigned long f = frames; f-- > 0;) order.push_back(f);                 // backward
    for (unsigned long f = 0; f < frames; f += 37) order.push_back(f);           // strided
    std::vector<unsigned long> shuffled(order.begin(), order.begin() + frames);  // random
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(seed));
    order.insert(order.end(), shuffled.begin(), shuffled.end());
    return order;
}

}  // namespace

// --- the corpus ---

class SyncCorpus : public ::testing::TestWithParam<std::string> {};

TEST_P(SyncCorpus, KeyOfEverySampleMatchesTheExpectationsInAnyOrder) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
    ASSERT_TRUE(root);
    for (auto const& [track, rows] : readSampleRows(GetParam())) {
        BaseQtAtom const* stbl = trackTable(*root, track - 1);
        ASSERT_NE(stbl, nullptr);
        auto const* stss = dynamic_cast<QtAtomSampleSync const*>(stbl->findAtom("stss", 0));
        FileIoClientRec agent;
        for (unsigned long s : queryOrders(rows.size(), track)) {
            bool key = stss ? stss->isKey(s, &agent) : true;
            ASSERT_EQ(key, rows[s].key) << GetParam() << " track " << track << " sample " << s;
        }
        if (!stss) continue;
        for (SampleRow const& row : rows) {
            AutoReleasePtr<QtAtomSampleSync::KeySet> keys =
                stss->getKeySet(QtFrameSet::frameToUnit(row.sample), &agent);
            ASSERT_EQ(keys->isKey(row.sample), row.key)
                << GetParam() << " track " << track << " sample " << row.sample;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, SyncCorpus, ::testing::ValuesIn(corpusMovies()), [](auto const& info) {
    std::string name = info.param.substr(0, info.param.find('.'));
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
});

TEST(QtAtomSampleSync, PartialSyncTableOfTheCorpusIsReadOneBased) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath("mpeg2_twos.mov").c_str());
    ASSERT_TRUE(root);
    auto const* stps = dynamic_cast<QtAtomSampleSync const*>(trackTable(*root, 0)->findAtom("stps", 0));
    ASSERT_NE(stps, nullptr);
    EXPECT_EQ(stps->getKeyBase(), 1u);
    EXPECT_EQ(stps->size(), 8u);
    EXPECT_STREQ(stps->getArray().name(), "stps");
}

// --- reading and writing the atom ---

TEST(QtAtomSampleSync, EmptyTableHasNoKeyFramesEvenPastItsEnd) {
    TempFile file;
    AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(10), syncAtom("stss", {})}));
    QtAtomSampleSync const* stss = syncTable(*root);
    ASSERT_NE(stss, nullptr);
    for (unsigned long f : {0ul, 5ul, 10ul, 1000ul, 0x100000000ul})
        EXPECT_FALSE(stss->isKey(f, nullptr)) << f;
}

TEST(QtAtomSampleSync, FramesPastTheLastKeyAreKeysOnlyBeyondTheSampleTable) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(120), syncAtom("stss", stored({0, 25, 50, 99}))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    ASSERT_NE(stss, nullptr);
    EXPECT_EQ(stss->getLastSample(), 99u);
    EXPECT_TRUE(stss->isKey(99, nullptr));
    EXPECT_FALSE(stss->isKey(110, nullptr));  // the samples exist: not a key
    EXPECT_TRUE(stss->isKey(130, nullptr));   // not yet recorded: taken as a key
}

TEST(QtAtomSampleSync, CountLargerThanTheAtomEmptiesTheTable) {
    TempFile file;
    Bytes stss = fullAtom("stss", {3, 1, 11});  // claims 3 entries, holds 2
    AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(20), stss}));
    QtAtomSampleSync const* table = syncTable(*root);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->size(), 0u);
    EXPECT_FALSE(table->isKey(0, nullptr));
}

TEST(QtAtomSampleSync, ZeroBasedStssIsKeptZeroBasedButStpsIsAlwaysOneBased) {
    TempFile file;
    Bytes stss = syncAtom("stss", {0, 10, 20});
    Bytes stps = syncAtom("stps", {0, 10, 20});
    AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(30), stss, stps}));
    QtAtomSampleSync const* zeroBased = syncTable(*root, "stss");
    QtAtomSampleSync const* partial = syncTable(*root, "stps");
    ASSERT_TRUE(zeroBased && partial);
    EXPECT_EQ(zeroBased->getKeyBase(), 0u);
    EXPECT_TRUE(zeroBased->isKey(0, nullptr));
    EXPECT_TRUE(zeroBased->isKey(10, nullptr));
    EXPECT_FALSE(zeroBased->isKey(9, nullptr));
    EXPECT_EQ(partial->getKeyBase(), 1u);
    EXPECT_TRUE(partial->isKey(9, nullptr));
    // Written back, both keep their bytes.
    TempFile copy;
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
    EXPECT_EQ(readFileBytes(copy.path()), readFileBytes(file.path()));
}

TEST(QtAtomSampleSync, TrailingZeroEntriesCountAsFramesAfterTheLastKey) {
    for (unsigned int reserve : {0u, 20u}) {  // in memory, and in the file
        TempFile file;
        std::vector<uint32_t> entries = stored({0, 10, 20});
        entries.insert(entries.end(), {0, 0});
        Bytes stss = syncAtom("stss", entries, reserve);
        AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(30), stss}));
        QtAtomSampleSync const* table = syncTable(*root);
        ASSERT_NE(table, nullptr);
        EXPECT_EQ(table->hasVirtualTable(), reserve != 0);
        EXPECT_EQ(table->getLastSample(), 22u) << reserve;
        EXPECT_TRUE(table->isKey(10, nullptr));
        TempFile copy;
        AutoRefPtr<BasicFileIO> out = BasicFileIO::open(copy.c_str(), BasicFileIO::Create);
        ASSERT_TRUE(QtAtomWriter::copyTree(*root, *out));
        EXPECT_EQ(readFileBytes(copy.path()), readFileBytes(file.path()));
    }
}

TEST(QtAtomSampleSync, SixteenEntriesStayInMemoryAndSeventeenLiveInTheFile) {
    TempFile file;
    std::vector<uint32_t> keys = irregularKeys(16, 5, 1);
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(200), syncAtom("stss", stored(keys)),
                                        syncAtom("stps", stored(irregularKeys(17, 5, 2)))}));
    QtAtomSampleSync const* small = syncTable(*root, "stss");
    QtAtomSampleSync const* large = syncTable(*root, "stps");
    ASSERT_TRUE(small && large);
    EXPECT_FALSE(small->hasVirtualTable());
    EXPECT_TRUE(small->needsAllData());
    EXPECT_TRUE(large->hasVirtualTable());
    EXPECT_FALSE(large->needsAllData());
    EXPECT_EQ(large->getEncodeSize(), 16u);
    EXPECT_EQ(small->getEncodeSize(), small->getSize());
}

// --- lookups ---

TEST(QtAtomSampleSync, IsKeyAgreesWithTheKeyListForRegularAndIrregularTables) {
    struct Case {
        std::vector<uint32_t> keys;
        char const* what;
    };
    std::vector<Case> cases;
    std::vector<uint32_t> gop;
    for (uint32_t f = 0; f < 30000; f += 15) gop.push_back(f);
    cases.push_back({gop, "regular"});
    cases.push_back({irregularKeys(3000, 40, 7), "irregular"});
    cases.push_back({irregularKeys(2000, 3, 8), "dense"});
    std::vector<uint32_t> bursts = irregularKeys(50, 2, 9);  // a dense start, then far apart
    for (int i = 0; i < 200; ++i) bursts.push_back(bursts.back() + 500 + (i % 7) * 100);
    cases.push_back({bursts, "bursts"});
    for (Case const& c : cases) {
        TempFile file;
        unsigned long frames = c.keys.back() + 40;
        AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(static_cast<uint32_t>(frames)),
                                                                   syncAtom("stss", stored(c.keys))}));
        QtAtomSampleSync const* stss = syncTable(*root);
        ASSERT_NE(stss, nullptr);
        std::set<uint32_t> model(c.keys.begin(), c.keys.end());
        FileIoClientRec agent;
        for (unsigned long f : queryOrders(frames, 3))
            ASSERT_EQ(stss->isKey(f, &agent), model.count(static_cast<uint32_t>(f)) == 1)
                << c.what << " frame " << f;
    }
}

TEST(QtAtomSampleSync, SetPutsAnIteratorOnTheEntryWhoseBracketHoldsTheFrame) {
    TempFile file;
    std::vector<uint32_t> keys = irregularKeys(800, 30, 11);
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(keys.back() + 50), syncAtom("stss", stored(keys))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    ASSERT_NE(stss, nullptr);
    FileIoClientRec agent;
    QtAtomSampleSync::KeyIterator iterator(stss->getArray(), &agent);
    std::mt19937 random(5);
    for (int i = 0; i < 3000; ++i) {
        unsigned long f = random() % (keys.back() + 20);
        stss->set(iterator, f);
        unsigned int index = iterator.getIndex();
        ASSERT_LE(keys[index], f) << f;
        if (index + 1 < keys.size()) {
            ASSERT_GT(keys[index + 1], f) << f;
        }
        ASSERT_EQ(iterator.frame(), f);
        ASSERT_EQ(iterator.isKey(), keys[index] == f);
    }
}

TEST(QtAtomSampleSync, KeyIteratorWalksFramesAndStepsBackToThePreviousKey) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(50), syncAtom("stss", stored({0, 3, 7, 8}))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    QtAtomSampleSync::KeyIterator it(stss->getArray(), nullptr);
    EXPECT_TRUE(it.seek(0));
    EXPECT_FALSE(it.valid());  // nothing read yet
    EXPECT_EQ(it.frame(), 0u);
    std::vector<unsigned int> keysSeen;
    while (it.valid()) {
        if (it.isKey()) keysSeen.push_back(it.frame());
        ++it;
    }
    EXPECT_EQ(keysSeen, (std::vector<unsigned int>{0, 3, 7, 8}));  // and stops at the last entry
    EXPECT_FALSE(it.seek(10));                                     // clamped to the last entry
    EXPECT_EQ(it.getIndex(), 3u);
    EXPECT_EQ(it.frame(), 8u);
    EXPECT_EQ(it--, 8u);  // postfix: the frame before the step
    EXPECT_EQ(it.frame(), 7u);
    EXPECT_EQ(--it, 3u);
    EXPECT_EQ(it.frame1(), 7u);
    EXPECT_FALSE(it.seek(-1));
    EXPECT_EQ(it.getIndex(), 0u);
    EXPECT_TRUE(it.setInBounds(2));
    EXPECT_FALSE(it.setInBounds(3));  // belongs to the next entry
    EXPECT_FALSE(it.isKey());
}

TEST(QtAtomSampleSync, DamagedZeroEntryEndsAnIteratorsWalk) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(50), syncAtom("stss", {1, 6, 0, 21})}));
    QtAtomSampleSync const* stss = syncTable(*root);
    QtAtomSampleSync::KeyIterator it(stss->getArray(), nullptr);
    it.seek(1);
    EXPECT_FALSE(it.fetch(QtAtomSampleSync::KeyIterator::Key1));
    MessageCapture capture;
    ScopedDebugFlag flag("quicktimeDbg", "atom errors");
    EXPECT_EQ(stss->getKey(2, nullptr), 0u);
    EXPECT_TRUE(capture.contains("stss.key[2]=0"));
    EXPECT_EQ(stss->getKey(9, nullptr), 0u);
    EXPECT_TRUE(capture.contains("stss.key[9] past end @4"));
}

// --- key sets ---

TEST(QtAtomSampleSync, KeySetsHoldTheKeysOfTheirUnitAsBits) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(2000), syncAtom("stss", stored({0, 300, 511, 1100}))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    FileIoClientRec agent;
    auto unit1 = stss->getKeySet(1, &agent);
    EXPECT_EQ(unit1->size(), 256u);  // the key at 511 is bit 255
    EXPECT_TRUE(unit1->get(255));
    EXPECT_TRUE(unit1->isKey(300));
    EXPECT_TRUE(unit1->isKey(511));
    EXPECT_FALSE(unit1->isKey(301));
    EXPECT_EQ(unit1->count(), 2u);
    unit1 = AutoReleasePtr<QtAtomSampleSync::KeySet>();
    auto unit2 = stss->getKeySet(2, &agent);  // frames 512..767: none
    EXPECT_EQ(unit2->size(), 0u);
    EXPECT_FALSE(unit2->isKey(600));
    unit2 = AutoReleasePtr<QtAtomSampleSync::KeySet>();
    auto unit0 = stss->getKeySet(0, &agent);
    EXPECT_EQ(unit0->size(), 1u);  // frames after the unit's last key are outside the set
    EXPECT_FALSE(unit0->holds(1));
}

TEST(QtAtomSampleSync, AgentsShareAUnitsSetAndRecycleTheirOwnForAnotherUnit) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(2000), syncAtom("stss", stored(irregularKeys(40, 40, 3)))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    FileIoClientRec a, b;
    QtAtomSampleSync::KeySet* shared;
    {
        auto fromA = stss->getKeySet(1, &a);
        auto fromB = stss->getKeySet(1, &b);
        EXPECT_EQ(fromA.get(), fromB.get());
        EXPECT_EQ(fromA->getRefCOunt(), 3);  // the list, A and B
        shared = fromA.get();
    }
    EXPECT_EQ(stss->getKeyCache().count(), 1u);
    auto second = stss->getKeySet(3, &a);  // A's own set, recycled
    EXPECT_EQ(second.get(), shared);
    EXPECT_EQ(second->getUnit(), 3u);
    EXPECT_EQ(stss->getKeyCache().count(), 1u);
    auto fromB = stss->getKeySet(2, &b);  // B has no set of its own: a new one
    EXPECT_NE(fromB.get(), shared);
    EXPECT_EQ(stss->getKeyCache().count(), 2u);
}

TEST(QtAtomSampleSync, SetHeldByAnotherReaderIsNotRecycledUnderIt) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(2000), syncAtom("stss", stored({0, 260, 600}))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    FileIoClientRec a, b;
    auto heldByB = stss->getKeySet(1, &a);  // built by A, shared with B
    auto alsoB = stss->getKeySet(1, &b);
    heldByB = AutoReleasePtr<QtAtomSampleSync::KeySet>();
    auto next = stss->getKeySet(2, &a);  // A moves on while B still reads unit 1
    EXPECT_NE(next.get(), alsoB.get());
    EXPECT_EQ(alsoB->getUnit(), 1u);
    EXPECT_TRUE(alsoB->isKey(260));
    EXPECT_EQ(stss->getKeyCache().count(), 1u);  // A's old set left the list
}

TEST(QtAtomSampleSync, ClosingTheTableForAnAgentReleasesItsSets) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(2000), syncAtom("stss", stored({0, 260, 600}))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    FileIoClientRec a, b;
    stss->getKeySet(0, &a);
    auto kept = stss->getKeySet(1, &b);
    EXPECT_EQ(stss->getKeyCache().count(), 2u);
    stss->closeVirtualTable(&b);
    EXPECT_EQ(stss->getKeyCache().count(), 1u);
    EXPECT_EQ(kept->getRefCOunt(), 1);  // only the holder's reference is left
    EXPECT_TRUE(kept->isKey(260));
    auto again = stss->getKeySet(1, &b);  // built anew
    EXPECT_NE(again.get(), kept.get());
}

TEST(QtAtomSampleSync, KeySetPrintoutListsItsFrames) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(2000), syncAtom("stss", stored({0, 260, 300, 600}))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    auto keys = stss->getKeySet(1, nullptr);
    MessageCapture capture;
    keys->dumpSet();
    EXPECT_NE(capture.all().find(",@unit 1,"), std::string::npos);
    EXPECT_NE(capture.all().find("[45]={0..2}={260,300}"), std::string::npos) << capture.all();
}

// --- recording ---

TEST(QtAtomSampleSync, AppendedKeysAreFoundByLookupsAndKeySets) {
    TempFile file;
    AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(0), syncAtom("stss", {})}));
    QtAtomSampleSync const* stss = syncTable(*root);
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

TEST(QtAtomSampleSync, AppendedKeysReachTheFileAndReadBackAfterReopening) {
    TempFile file;
    {
        AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(0), syncAtom("stss", {}, 60)}));
        QtAtomSampleSync const* stss = syncTable(*root);
        ASSERT_TRUE(stss->hasVirtualTable());
        for (unsigned long f : {0ul, 30ul, 61ul, 90ul}) ASSERT_TRUE(stss->appendKey(f));
        stss->flushVirtualTable();
        ASSERT_TRUE(root->writeDirty());
    }
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(file.c_str());
    QtAtomSampleSync const* stss = syncTable(*root);
    ASSERT_EQ(stss->size(), 4u);
    EXPECT_EQ(stss->getKeyBase(), 1u);
    EXPECT_TRUE(stss->isKey(61, nullptr));
    EXPECT_FALSE(stss->isKey(60, nullptr));
    Bytes onDisk = readFileBytes(file.path());
    EXPECT_EQ(onDisk[onDisk.size() - 60 * 4 + 3], 1);  // frame 0 stored as 1
}

TEST(QtAtomSampleSync, CapacityFollowsTheKeyIntervalOrTheKeysSeenAndNeverShrinks) {
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(0), syncAtom("stss", stored({0, 10, 20, 30}))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    stss->setCapacity(1000, 0);  // ten frames per key so far: (30 + 1) / 4 = 7.75
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 129u);
    stss->setCapacity(1000, 30);
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 33u);
    stss->setCapacity(10, 30);  // never below the keys held
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 4u);
    stss->setCapacity(1ul << 40, 0x40000000);  // clamped to 32 bits first
    EXPECT_EQ(stss->getArray().getAllocatedSize(), 4u);
}

TEST(QtAtomSampleSync, ShowPrintsAShortOrAFullList) {
    TempFile file;
    std::vector<uint32_t> keys;
    for (uint32_t f = 0; f < 10; ++f) keys.push_back(f * 10);
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(100), syncAtom("stss", stored(keys))}));
    QtAtomSampleSync const* stss = syncTable(*root);
    MessageCapture capture;
    stss->show();
    EXPECT_NE(capture.all().find(",cap=10,keyframes[10]={1,11,21,...,91}\n"), std::string::npos)
        << capture.all();
    capture.clear();
    ScopedDebugFlag all("quicktimeDbg", "all sizes");
    stss->show();
    EXPECT_NE(capture.all().find("={\n" + std::string(14, ' ') + "0:1,11,21,31,41,51,61,71,\n" +
                                 std::string(14, ' ') + "8:81,91}\n"),
              std::string::npos)
        << capture.all();
}

// --- threads ---

TEST(QtAtomSampleSync, ReadersWithTheirOwnAgentsAgreeWithTheTableWhileTheRecorderAppends) {
    TempFile file;
    AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(0), syncAtom("stss", {})}));
    QtAtomSampleSync const* stss = syncTable(*root);
    constexpr unsigned long kFrames = 400000;
    stss->setCapacity(kFrames, 12);
    // A GOP of 12 frames with a gap of 30 every 100th GOP, so that guesses miss now and then.
    auto isKeyFrame = [](unsigned long f) {
        unsigned long gop = f / 12;
        return f % 12 == 0 && gop % 100 != 1;
    };
    std::atomic<unsigned long> recorded{0};  // frames below this are final
    std::atomic<bool> done{false};
    std::atomic<unsigned long> checks{0}, checksWhileRecording{0}, wrong{0};
    auto reader = [&](unsigned int seed) {
        FileIoClientRec agent;
        std::mt19937 random(seed);
        while (!done.load()) {
            unsigned long known = recorded.load();
            if (known < 512) continue;
            // Whole units only, so that the recorder no longer touches them.
            QtFrameSet::Unit units = QtFrameSet::frameToUnit(known) - 1;
            QtFrameSet::Unit unit = static_cast<QtFrameSet::Unit>(random() % (units + 1));
            auto keys = stss->getKeySet(unit, &agent);
            for (unsigned long f = QtFrameSet::unitToFrame(unit); f < QtFrameSet::unitToFrame(unit + 1);
                 f += 7) {
                wrong += keys->isKey(f) != isKeyFrame(f);
                wrong += stss->isKey(f, &agent) != isKeyFrame(f);
                ++checks;
            }
            unsigned long f = random() % known;
            wrong += stss->isKey(f, &agent) != isKeyFrame(f);
            if (!done.load()) ++checksWhileRecording;
        }
        stss->closeVirtualTable(&agent);
    };
    std::vector<std::thread> readers;
    for (unsigned int i = 0; i < 3; ++i) readers.emplace_back(reader, i + 1);
    for (unsigned long f = 0; f < kFrames; ++f) {
        if (!isKeyFrame(f)) continue;
        ASSERT_TRUE(stss->appendKey(f));
        recorded.store(f);                           // every frame before the last key appended is final
        if (f % 96 == 0) std::this_thread::yield();  // let the readers in while the table grows
    }
    done.store(true);
    for (auto& t : readers) t.join();
    EXPECT_GT(checks.load(), 1000u);
    EXPECT_GT(checksWhileRecording.load(), 0u);
    EXPECT_EQ(wrong.load(), 0u);
}

TEST(QtAtomSampleSync, MovingTheAtomTakesItsEntriesAlong) {
    TempFile file;
    std::vector<uint32_t> keys = irregularKeys(40, 9, 4);
    Bytes bytes = movieWithTable({stszAtom(500), syncAtom("stss", stored(keys))});
    AutoPtr<QtAtomRoot> root = readMovie(file, bytes);
    QtAtomSampleSync const* stss = syncTable(*root);
    ASSERT_TRUE(stss->hasVirtualTable());
    unsigned long from = stss->getFileOffset(), to = from + 4096;
    MessageCapture capture;
    ScopedDebugFlag flag("quicktimeDbg", "resize1");
    stss->setSizeAndOffset(QtTreeSize(true, stss->getSize(), to));
    EXPECT_EQ(stss->getFileOffset(), to);
    EXPECT_TRUE(capture.contains("stss::set(176b@" + std::to_string(to) + ")")) << capture.all();
    Bytes moved = readFileBytes(file.path());
    ASSERT_GE(moved.size(), to + stss->getSize());
    EXPECT_EQ(
        Bytes(moved.begin() + static_cast<long>(to + 16), moved.begin() + static_cast<long>(to + 176)),
        Bytes(bytes.begin() + static_cast<long>(from + 16), bytes.begin() + static_cast<long>(from + 176)));
    FileIoClientRec agent;
    for (uint32_t k : keys) EXPECT_TRUE(stss->isKey(k, &agent)) << k;
}

TEST(QtAtomSampleSync, RandomDamageNeverBreaksLookups) {
    // Counts that lie, keys out of order, zeros and cut-off atoms: lookups answer something and
    // stay inside the table (the sanitizer builds check the memory side).
    std::mt19937 random(17);
    MessageCapture quiet;
    for (int round = 0; round < 60; ++round) {
        unsigned int slots = random() % 40;
        std::vector<uint32_t> words{static_cast<uint32_t>(random() % 2 ? slots : random() % 100)};
        for (unsigned int i = 0; i < slots; ++i) words.push_back(random() % 3 ? random() % 500 : 0);
        Bytes stss = fullAtom(round % 2 ? "stss" : "stps", words);
        stss.resize(stss.size() - random() % 4);  // a size that is not a whole number of entries
        stss[3] = static_cast<unsigned char>(stss.size());
        TempFile file;
        AutoPtr<QtAtomRoot> root = readMovie(file, movieWithTable({stszAtom(random() % 600), stss}));
        ASSERT_TRUE(root);
        QtAtomSampleSync const* table = syncTable(*root, round % 2 ? "stss" : "stps");
        if (!table) continue;
        FileIoClientRec agent;
        for (unsigned long f = 0; f < 600; f += 1 + random() % 5) table->isKey(f, &agent);
        for (QtFrameSet::Unit unit = 0; unit < 3; ++unit) table->getKeySet(unit, &agent);
        table->show();
    }
}

TEST(QtAtomSampleSync, NeedsAllItsDataOnlyBelow81Bytes) {
    for (QtAtomIdType type : {qtId("stss"), qtId("stps")}) {
        QtAtomSampleSync table(nullptr, true, type);
        for (unsigned int size : {80u, 81u}) {
            table.setSize(size);
            EXPECT_EQ(table.needsAllData(), size < 81) << QtIdName(type).render() << " " << size;
        }
    }
}
