// The root's flush against a file that loses what was not synced: a flush leaves the tables' entries
// as the arrays hold them, a failed flush is written again, a moved movie takes its bodies on disk along.
#include <gtest/gtest.h>

#include "framework/BridgeAnchor.h"
#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

// Holds the file layer's thread inside the notice of a request queued before the movie's flush,
// so that the test acts between the flush's request and its write.
struct FlushGate {
    bool notice(BasicIOTypes::FlushNotify const&) {
        entered.post();
        open.wait();
        return true;
    }
    SorvanPosix::JLWSemaphore entered{0};
    SorvanPosix::JLWSemaphore open{0};
    BridgeAnchor anchor{this, &FlushGate::notice};
};

// ftyp, moov (mvhd, a disk-backed stsz of 600 sizes), mdat: written and durable.
class RootFlushSafety : public ::testing::Test, protected CrashableTree {
  protected:
    void SetUp() override {
        addPreserved(root.get(), "ftyp", 12, 'f');
        moov = new QtAtomMoov(root.get(), QtAtomMoov::kMoovId);
        addPreserved(moov, "mvhd", 100, 'h');
        stsz = new QtAtomSampleSize(moov);
        stsz->write()->setCapacity(1000);
        root->recalcOffset(QtTreeSize(true, 0, 0));
        mdat = new QtAtomMdat(root.get(), 100);
        for (unsigned int i = 0; i < 600; ++i) ASSERT_TRUE(stsz->write()->addSamples(i, 1, 1000 + i));
        ASSERT_TRUE(root->writeDirty());
        ASSERT_TRUE(root->flush(moov));
        ASSERT_TRUE(root->hasFinalForm(true));
    }

    // The sizes on disk, read past the library.
    std::vector<unsigned int> sizesOnDisk(unsigned int count) const {
        std::vector<unsigned char> bytes = readRange(temp.path(), stsz->getFileOffset() + 20, 4ul * count);
        std::vector<unsigned int> sizes;
        for (size_t at = 0; at + 4 <= bytes.size(); at += 4)
            sizes.push_back((static_cast<unsigned int>(bytes[at]) << 24) | (bytes[at + 1] << 16) | (bytes[at + 2] << 8) | bytes[at + 3]);
        return sizes;
    }

    QtAtomMoov const* moov = nullptr;
    QtAtomSampleSize const* stsz = nullptr;
    QtAtomMdat const* mdat = nullptr;
};

}  // namespace

TEST_F(RootFlushSafety, FlushLeavesTheTablesEntriesAsTheirArraysHoldThem) {
    std::vector<unsigned int> expected;
    for (unsigned int i = 0; i < 800; ++i) expected.push_back(i < 600 ? 1000 + i : 5000 + i);
    // Before the flush: changed sizes still in the array's cache.
    for (unsigned int i = 0; i < 100; ++i) stsz->write()->addSamples(i, 1, expected[i] = 3000 + i);
    for (unsigned int i = 600; i < 800; ++i) stsz->write()->addSamples(i, 1, expected[i]);
    FlushGate gate;
    ASSERT_TRUE(file->flush({&gate.anchor, nullptr, mdat->getDataOffset(), {'E'}, {}, 0}));
    ASSERT_TRUE(gate.entered.timedWait(10000));
    moov->write();
    bool queued = root->flush(moov);
    // Between the flush's request and its write: more sizes, written by their array at once.
    for (unsigned int i = 100; i < 200; ++i) stsz->write()->addSamples(i, 1, expected[i] = 4000 + i);
    stsz->flushVirtualTable();
    gate.open.post();
    ASSERT_TRUE(queued);
    root->hasFinalForm(true);
    file->simulateCrash();  // only what was synced survives
    EXPECT_EQ(sizesOnDisk(800), expected);
}

TEST_F(RootFlushSafety, FailedFlushLeavesTheMovieToBeWrittenAgain) {
    addPreserved(moov, "udta", 300, 'u');  // the movie outgrows its place and moves to the end
    ASSERT_TRUE(moov->relocate());
    root->recalcOffset(QtTreeSize(true, 0, 0));
    BaseQtAtom const* grown = moov->getLastChild();
    file->failSync(1);
    {
        MessageCapture quiet;
        ASSERT_TRUE(root->flush(moov));
        EXPECT_FALSE(root->hasFinalForm(true));
    }
    ASSERT_TRUE(root->writeDirty());
    file->simulateCrash();
    EXPECT_EQ(readRange(temp.path(), grown->getFileOffset(), 308), atomBytes("udta", filled(300, 'u')));
}

// A movie read from a file with an uninterpreted atom too large to be held in memory: its body
// stays on disk, and must be at the new place before the moved movie is switched in, however the
// atom was shifted in the tree before.
TEST(RootFlushRelocation, MovedMovieTakesTheBodiesLeftOnDiskAlong) {
    std::vector<unsigned char> body(2000);
    for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<unsigned char>(i * 7 % 251);
    std::vector<unsigned char> blob = atomBytes("blob", body);
    TempFile temp;
    temp.write(concat({atomBytes("ftyp", filled(12, 'f')),
                       atomBytes("moov", concat({atomBytes("mvhd", filled(100, 'h')), blob})),
                       atomBytes("mdat", filled(100, 'E'))}));
    AutoRefPtr<FaultyFileIO> file = FaultyFileIO::open(temp.c_str(), BasicFileIO::ReadWrite);
    ASSERT_TRUE(file);
    AutoPtr<QtAtomRoot> root(new QtAtomRoot(AutoRefPtr<BasicFileIO>(file.get()), file->length()));
    ASSERT_TRUE(QtAtomReader::readTree(*root));
    QtAtomMoov const* moov = root->checkStructure("read");
    ASSERT_NE(moov, nullptr);
    BaseQtAtom const* blobAtom = moov->findAtom("blob", 0);
    ASSERT_NE(blobAtom, nullptr);
    ASSERT_TRUE(blobAtom->hasUntouchedData());
    unsigned long oldPlace = blobAtom->getFileOffset();

    blobAtom->insertSibling(addPreserved(nullptr, "free", 8, 0));  // shifted by a relink first
    addPreserved(moov, "udta", 300, 'u');
    ASSERT_TRUE(moov->relocate());
    root->recalcOffset(QtTreeSize(true, 0, 0));
    ASSERT_TRUE(root->flush(moov));
    root->hasFinalForm(true);
    ASSERT_TRUE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    file->simulateCrash();
    EXPECT_EQ(scanTopLevel(temp.path()).find("moov")->offset, moov->getFileOffset());
    EXPECT_EQ(readRange(temp.path(), blobAtom->getFileOffset(), blob.size()), blob);
    EXPECT_EQ(readRange(temp.path(), oldPlace, blob.size()), blob);  // the old copy is untouched
}
