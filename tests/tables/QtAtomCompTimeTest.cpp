// QtAtomCompTime ('ctts'): runs walked, samples typed and anchored rule by rule on small tables, room
// while recording, and its companions: the shift ('cslg') and the seed of anchors kept in the file.
#include "quicktime/tables/QtAtomCompTime.h"

#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomCompSeed.h"
#include "tests/tables/CompTimeTestSupport.h"

using namespace CompTest;
using DiskEntry = QtAtomCompTime::DiskEntry;
using Sparse = QtAtomCompTime::Sparse;

namespace {

// A table in a file, with room to append `reserve` more entries.
struct GrowingTable {
    explicit GrowingTable(unsigned int reserve) : movie(movieWithTable({stszAtom(0), cttsAtom({}, reserve)})) {}
    bool add(unsigned int count, int offset, unsigned int index) const {
        DiskEntry entry(count, offset);
        return ctts->addDiskEntry(entry, index);
    }
    MovieOnDisk movie;
    QtAtomCompTime const* ctts = movie.table<QtAtomCompTime>("ctts");
};

// 48000 samples of a long GOP: seed slots at 0, 16384 and 32768.
std::string seedStream() { return repeat("IBBPBBPBBPBB", 4000); }

// The seed of the stream's table, taken after a walk over all of it, as the bytes of its atom;
// `entriesClaimed` overwrites its entry count (at offset 28).
Bytes seedAtomBytes(unsigned int entriesClaimed = 0) {
    MovieOnDisk movie(gopMovie(seedStream(), 1));
    auto const* ctts = movie.table<QtAtomCompTime>("ctts");
    ctts->getSample(seedStream().size() - 1, nullptr);
    QtAtomCompSeed seed(nullptr, 3);
    EXPECT_TRUE(seed.store(*ctts, seedStream().size()));
    Bytes bytes = encodeToBytes(seed);
    if (entriesClaimed)
        for (unsigned int i = 0; i < 4; ++i) bytes[28 + i] = static_cast<unsigned char>(entriesClaimed >> (24 - 8 * i));
    return bytes;
}

}  // namespace

TEST(QtAtomCompTime, TrailingZeroRunsAreReportedButKept) {
    Bytes table = movieWithTable({stszAtom(3), cttsAtom({{1, 5}, {2, 0}, {0, 0}, {0, 0}})});
    MessageCapture capture;
    MovieOnDisk{table};  // only with "atom errors" on
    EXPECT_EQ(capture.all(), "");
    ScopedDebugFlag flag("quicktimeDbg", "atom errors");
    MovieOnDisk movie(table);
    EXPECT_EQ(movie.table<QtAtomCompTime>("ctts")->getNumEntries(), 4u);
    EXPECT_TRUE(capture.contains("ctts: 48b@") && capture.contains("[4]: last 2 of 4 zero")) << capture.all();
}

TEST(QtAtomCompTime, DependOffsetCountsBackToTheReferenceFrame) {
    // I P B B P B B P P: offsets in frames of 1 tick.
    MovieOnDisk movie(movieWithTable({stszAtom(9), cttsAtom({{1, 1}, {1, 3}, {2, 0}, {1, 3}, {2, 0}, {2, 1}})}));
    auto const* ctts = movie.table<QtAtomCompTime>("ctts");
    QtAtomCompTime::DiskIterator it(ctts->getArray(), 0, nullptr);
    std::vector<unsigned int> anchors;
    do anchors.push_back(it.getAnchor());
    while (it++);
    EXPECT_EQ(anchors, (std::vector<unsigned int>{0, 0, 1, 1, 1, 4, 4, 4, 7}));
    // With a shift that makes the reference offsets 0 instead, every sample counts back to sample 0
    // or to the last non-zero run.
    QtAtomCompTime::DiskIterator shifted(ctts->getArray(), static_cast<unsigned int>(-3), nullptr);
    for (int i = 0; i < 3; ++i) shifted++;
    EXPECT_EQ(shifted.getSample(), 3u);
    EXPECT_EQ(shifted.getDependOff(), 1u);  // the B run (offset -3 shifted) is not zero
    shifted++;
    EXPECT_EQ(shifted.getDependOff(), 1u);  // on a P whose shifted offset is 0, after a non-zero run
}

TEST(QtAtomCompTime, SparseAnchorsOnUnitBoundariesRestartWalksInTheMiddle) {
    MovieOnDisk movie(movieWithTable({stszAtom(3000), cttsAtom(derivedRuns(repeat("IBB", 1000), 100))}));
    auto const* ctts = movie.table<QtAtomCompTime>("ctts");
    ASSERT_TRUE(ctts->hasVirtualTable());
    QtAtomCompTime::DiskIterator it(ctts->getArray(), 0, nullptr);
    QtAtomCompTime::SparseArray& anchors = ctts->getSparseArray();
    do
        if (it.sparseNeedsUpdate()) anchors.update(it);
    while (it++);
    EXPECT_EQ(anchors.size(), 12u);  // 3000 samples: units 0 to 11
    // Sample 768 is an I frame (768 % 3 == 0): it counts back over the two B frames to the I at 765.
    EXPECT_EQ(anchors.get(3), Sparse(512, 1, 768, 765));
    // Sample 256 is the first B after the I at 255.
    EXPECT_EQ(anchors.get(1), Sparse(171, 1, 256, 255));
    FileIoClientRec agent;
    QtAtomCompTime::DiskIterator from(ctts->getArray(), 0, &agent);
    from.seek(anchors.get(7));
    for (unsigned int s = 7 * 256; s < 8 * 256; ++s) {
        ASSERT_EQ(from.getOffset(), s % 3 == 0 ? 300 : 0) << s;
        from++;
    }
}

// Each sample of small tables as its printout shows it: type and number, anchor, display offset.
TEST(QtAtomCompTimeFrames, SmallTablesFollowTheRulesOfTypesAnchorsAndOffsets) {
    Bytes stts = fullAtom("stts", {1, 3, 100});
    Bytes cslg = fullAtom("cslg", {100, static_cast<uint32_t>(-100), 200, 0, 300});
    // The last four marked: not depended on; depends, depended on; not depended on; independent.
    Bytes sdtp = atomBytes("sdtp", Bytes{0, 0, 0, 0, 0x20, 0x08, 0x10, 0x18, 0x20});
    struct Case {
        char const* rule;
        std::vector<Bytes> tables;
        std::vector<std::string> samples;
    } const cases[] = {
        {"zero offsets are B frames, the first a key frame",
         {stszAtom(3), syncAtom("stss", {1}), cttsAtom({{1, 1}, {2, 0}})},
         {"p=I0,a=0,d=+0", "p=B1,a=0,d=-1", "p=B2,a=0,d=-1"}},
        {"the first not a key frame", {stszAtom(3), syncAtom("stss", {3}), cttsAtom({{1, 1}, {2, 0}})},
         {"p=P0,a=0,d=+0", "p=B1,a=0,d=-1", "p=B2,a=0,d=-1"}},
        {"offsets in frames, one lower without a shift",
         {stts, stszAtom(3), syncAtom("stss", {1}), cttsAtom({{1, 200}, {2, 0}})}, {"p=I0,a=0,d=+1"}},
        {"a shift of one frame: the B frames stored at -100 are the zeros",
         {stts, stszAtom(3), syncAtom("stss", {1}), cslg, cttsAtom({{1, 200}, {2, -100}})},
         {"p=I0,a=0,d=+2", "p=B1,a=0,d=-1", "p=B2,a=0,d=-1"}},
        {"dependency bytes: a reference before a disposable frame stays P",
         {stszAtom(5), syncAtom("stss", {1}), cttsAtom({{5, 1}}), sdtp},
         {"p=I0,a=0,d=+0", "p=B1,a=0,d=+0", "p=P2,a=0,d=+0", "p=B3,a=2,d=+0", "p=B4,a=2,d=+0,r"}},
    };
    for (Case const& c : cases) {
        MovieOnDisk movie(movieWithTable(c.tables));
        auto const* ctts = movie.table<QtAtomCompTime>("ctts");
        for (unsigned int s = 0; s < c.samples.size(); ++s)
            EXPECT_EQ(text(ctts->getSample(s, nullptr)), c.samples[s]) << c.rule << ", sample " << s;
    }
}

TEST(QtAtomCompTimeFrames, AWalkStoresTheAnchorsItPassesAndDropsOnesThatDoNotFit) {
    std::string types = repeat("IBBPBBPBBPBB", 300);
    MovieOnDisk movie(gopMovie(types, 1));
    auto const* ctts = movie.table<QtAtomCompTime>("ctts");
    std::vector<Sample> expected = referenceDecode(*ctts, types.size());
    EXPECT_EQ(text(ctts->getSample(3500, nullptr)), text(expected[3500]));
    QtAtomCompTime::SparseArray& anchors = ctts->getSparseArray();
    EXPECT_EQ(anchors.size(), 15u);  // up to the unit after the one asked for
    for (unsigned int unit = 0; unit < 15; ++unit) EXPECT_TRUE(anchors.get(unit).valid()) << unit;
    // An anchor past its run (a damaged seed, say) is dropped and the walk starts lower.
    QtAtomCompTime::Sparse good = anchors.get(5), bad = good;
    bad.count = 99;
    anchors.set(5, bad);
    FileIoClientRec agent;
    EXPECT_EQ(text(ctts->getSample(5 * 256 + 5, &agent)), text(expected[5 * 256 + 5]));
    EXPECT_EQ(anchors.get(5), good) << "rebuilt by the walk from unit 4";
}

TEST(QtAtomCompTime, AppendsKeepTwoSlotsFreeAndAskForRoomInstead) {
    GrowingTable table(20);
    ASSERT_TRUE(table.ctts->hasVirtualTable());
    for (unsigned int i = 0; i < 18; ++i) ASSERT_TRUE(table.add(1 + i % 2, static_cast<int>(i), i)) << i;
    EXPECT_EQ(table.ctts->getHeadroom(), 2u);
    EXPECT_FALSE(table.add(1, 99, 18));  // nEntries = virtual size - 2
    EXPECT_EQ(table.ctts->getNumEntries(), 18u);
    EXPECT_EQ(table.ctts->movieResizeNeeded(), static_cast<uint32_t>(QtResizeReq::Samples));
    EXPECT_TRUE(table.add(5, 17, 17));  // rewriting the last entry is always possible
    EXPECT_EQ(table.ctts->getEntry(17, nullptr), DiskEntry(5, 17));
    EXPECT_TRUE(table.ctts->isDirty());
}

TEST(QtAtomCompTime, CapacityIsPlannedFromTheEntriesPerSampleSeen) {
    struct Case {
        unsigned int entries, lastSample;
        unsigned long expected;
    };
    // 50 samples: too few to trust, 2/3; 550 of 1001: between 1/2 and 2/3, so 2/3; 400 of 1001 kept.
    for (Case c : {Case{30, 49, 2000}, Case{550, 1000, 2000}, Case{400, 1000, 1199}, Case{700, 1000, 2098}}) {
        GrowingTable table(1000);
        for (unsigned int i = 0; i < c.entries; ++i) ASSERT_TRUE(table.add(1, 0, i));
        table.ctts->setLastRecordedSample(c.lastSample);
        table.ctts->setCapacity(3000);
        EXPECT_EQ(table.ctts->getArray().getVirtualSize(), c.expected)
            << c.entries << " of " << c.lastSample + 1;
    }
    GrowingTable empty(1000);
    empty.ctts->setCapacity(100);  // never shrinks
    EXPECT_EQ(empty.ctts->getArray().getVirtualSize(), 1000u);
    empty.ctts->setCapacity(5000);  // nothing seen yet: one entry per sample
    EXPECT_EQ(empty.ctts->getArray().getVirtualSize(), 5000u);
}

TEST(QtAtomCompShift, VersionOneFieldsAreSixtyFourBitsWide) {
    Bytes body{1, 0, 0, 0};
    for (int64_t field : {int64_t(200), int64_t(-100), int64_t(300), int64_t(0), int64_t(1) << 40})
        put64(body, static_cast<uint64_t>(field));
    Bytes bytes = movieWithTable({stszAtom(1), atomBytes("cslg", body)});
    MovieOnDisk movie(bytes);
    auto const* cslg = movie.table<QtAtomCompShift>("cslg");
    ASSERT_NE(cslg, nullptr);
    EXPECT_EQ(cslg->getShift(), 200);
    EXPECT_EQ(cslg->getLsDelta(), -100);
    EXPECT_EQ(cslg->getEndTm(), INT32_MAX);  // kept to 32 bits
    Bytes written = encodeToBytes(*cslg);
    EXPECT_EQ(written.size(), 52u);
    EXPECT_EQ(Bytes(written.begin(), written.begin() + 36), Bytes(bytes.end() - 52, bytes.end() - 16));
}

TEST(QtAtomCompSeed, AFreshReaderStartsFromTheKeptAnchors) {
    Bytes seed = seedAtomBytes();
    ASSERT_EQ(seed.size(), QtAtomCompSeed::kHeadSize + 3 * QtAtomCompSeed::kSlotSize);
    for (bool matching : {true, false}) {
        MovieOnDisk movie(gopMovie(seedStream(), 1, {matching ? seed : seedAtomBytes(12345)}));
        auto const* ctts = movie.table<QtAtomCompTime>("ctts");
        QtAtomCompSeed const* found = QtAtomCompSeed::findFor(*ctts);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->getSeed().used, 3u);
        unsigned long far = 33000;  // unit 128 holds the third anchor
        Sample expected = referenceDecode(*ctts, far + 1)[far];
        FileIoClientRec agent;
        EXPECT_EQ(ctts->getSample(far, &agent), expected);
        // Kept anchors: the walk began at unit 128, so nothing below it was walked.
        EXPECT_EQ(ctts->getSparseArray().get(1).valid(), !matching) << (matching ? "kept" : "stale");
        EXPECT_TRUE(ctts->getSparseArray().get(128).valid());
    }
}
