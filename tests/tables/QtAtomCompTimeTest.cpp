#include <gtest/gtest.h>

#include <random>

#include "tests/tables/TableTestSupport.h"
#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/tables/QtAtomCompTime.h"


using DiskEntry = QtAtomCompTime::DiskEntry;
using Sparse = QtAtomCompTime::Sparse;

namespace {

QtAtomCompTime const* compTable(QtAtomRoot const& root) {
    BaseQtAtom const* stbl = root.findAtom(kStblPath, 0);
    return stbl ? dynamic_cast<QtAtomCompTime const*>(stbl->findAtom("ctts", 0)) : nullptr;
}

// Runs of the I B B P B B ... pattern with offsets in frames of `ticks` each.
std::vector<std::pair<uint32_t, int32_t>> gopRuns(unsigned int gops, int32_t ticks) {
    std::vector<std::pair<uint32_t, int32_t>> runs;
    for (unsigned int g = 0; g < gops; ++g) {
        runs.push_back({1, 3 * ticks});
        runs.push_back({2, 0});
    }
    return runs;
}

// A table in a file, with room to append `reserve` more entries.
struct GrowingTable {
    GrowingTable(unsigned int reserve) {
        root = readMovie(file, movieWithTable({stszAtom(0), cttsAtom({}, reserve)}));
        ctts = root ? compTable(*root) : nullptr;
    }
    TempFile file;
    AutoPtr<QtAtomRoot> root;
    QtAtomCompTime const* ctts;
};

}  // namespace

// --- the corpus ---

class CompTimeCorpus : public ::testing::TestWithParam<std::string> {};

TEST_P(CompTimeCorpus, WalkingTheRunsGivesEverySamplesDisplayOffset) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
    ASSERT_TRUE(root);
    for (auto const& [track, rows] : readSampleRows(GetParam())) {
        auto const* ctts =
            dynamic_cast<QtAtomCompTime const*>(trackTable(*root, track - 1)->findAtom("ctts", 0));
        if (!ctts) {
            for (SampleRow const& row : rows) ASSERT_EQ(row.pts, row.dts) << GetParam() << " track " << track;
            continue;
        }
        FileIoClientRec agent;
        QtAtomCompTime::DiskIterator it(ctts->getArray(), 0, &agent);
        QtAtomCompTime::SparseArray anchors;
        for (size_t s = 0; s < rows.size(); ++s) {
            ASSERT_EQ(it.getSample(), s);
            ASSERT_EQ(it.getOffset(), rows[s].pts - rows[s].dts)
                << GetParam() << " track " << track << " sample " << s;
            if (it.onSparse()) anchors.update(it);
            bool more = it++;
            ASSERT_EQ(more, s + 1 < rows.size()) << "the walk ends with the last sample";
        }
        // Any unit is reached again from its anchor.
        for (unsigned int unit = anchors.size(); unit-- > 0;) {
            Sparse anchor = anchors.get(unit);
            ASSERT_TRUE(anchor.valid());
            QtAtomCompTime::DiskIterator from(ctts->getArray(), 0, &agent);
            from.seek(anchor);
            for (size_t s = anchor.sample; s < std::min<size_t>(rows.size(), anchor.sample + 256); ++s) {
                ASSERT_EQ(from.getOffset(), rows[s].pts - rows[s].dts) << "unit " << unit << " sample " << s;
                from++;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CompTimeCorpus, ::testing::ValuesIn(corpusMovies()), [](auto const& info) {
    std::string name = info.param.substr(0, info.param.find('.'));
    for (char& c : name)
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
});

// --- reading and writing the atom ---

TEST(QtAtomCompTime, TrailingZeroRunsAreReportedButKept) {
    TempFile file;
    MessageCapture capture;
    ScopedDebugFlag flag("quicktimeDbg", "atom errors");
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(3), cttsAtom({{1, 5}, {2, 0}, {0, 0}, {0, 0}})}));
    QtAtomCompTime const* table = compTable(*root);
    EXPECT_EQ(table->getNumEntries(), 4u);
    EXPECT_TRUE(capture.contains("ctts: 48b@") && capture.contains("[4]: last 2 of 4 zero")) << capture.all();
}

// --- walking the runs ---

TEST(QtAtomCompTime, DependOffsetCountsBackToTheReferenceFrame) {
    TempFile file;
    // I P B B P B B P P: offsets in frames of 1 tick.
    AutoPtr<QtAtomRoot> root = readMovie(
        file, movieWithTable({stszAtom(9), cttsAtom({{1, 1}, {1, 3}, {2, 0}, {1, 3}, {2, 0}, {2, 1}})}));
    QtAtomCompTime const* ctts = compTable(*root);
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
    TempFile file;
    AutoPtr<QtAtomRoot> root =
        readMovie(file, movieWithTable({stszAtom(3000), cttsAtom(gopRuns(1000, 100))}));
    QtAtomCompTime const* ctts = compTable(*root);
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

// --- recording ---

TEST(QtAtomCompTime, AppendsKeepTwoSlotsFreeAndAskForRoomInstead) {
    GrowingTable table(20);
    ASSERT_TRUE(table.ctts->hasVirtualTable());
    for (unsigned int i = 0; i < 18; ++i) {
        DiskEntry entry(1 + i % 2, static_cast<int>(i));
        ASSERT_TRUE(table.ctts->addDiskEntry(entry, i)) << i;
    }
    EXPECT_EQ(table.ctts->getHeadroom(), 2u);
    DiskEntry more(1, 99);
    EXPECT_FALSE(table.ctts->addDiskEntry(more, 18));  // nEntries = virtual size - 2
    EXPECT_EQ(table.ctts->getNumEntries(), 18u);
    EXPECT_EQ(table.ctts->movieResizeNeeded(), static_cast<uint32_t>(QtResizeReq::Samples));
    DiskEntry longer(5, 17);
    EXPECT_TRUE(table.ctts->addDiskEntry(longer, 17));  // rewriting the last entry is always possible
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
        for (unsigned int i = 0; i < c.entries; ++i) {
            DiskEntry entry(1, 0);
            ASSERT_TRUE(table.ctts->addDiskEntry(entry, i));
        }
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

// --- seeds ---

// --- siblings and printout ---

TEST(QtAtomCompTime, NeedsAllItsDataOnlyBelow145Bytes) {
    QtAtomCompTime table(nullptr);
    for (unsigned int size : {144u, 145u}) {
        table.setSize(size);
        EXPECT_EQ(table.needsAllData(), size < 145) << size;
    }
}
