// The relocation protocol over a real file, driven as a recorder drives it. After every step that
// writes, an independent scan of the top-level headers must find exactly one complete, current 'moov'.
#include <gtest/gtest.h>

#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

Bytes const kOldMovie = atomBytes("moov", atomBytes("mvhd", filled(100, 'h')));
Bytes const kNewMovie =
    atomBytes("moov", concat({atomBytes("mvhd", filled(100, 'h')), atomBytes("udta", filled(300, 'u'))}));

// ftyp@0 (20), skip@20 (64, free room), moov@84 (116: mvhd), mdat@200 (16 + 4000 essence): durable.
class MovieRelocation : public ::testing::Test, protected CrashableTree {
  protected:
    void SetUp() override {
        root->setDiskAlignment(4096);
        addPreserved(root.get(), "ftyp", 12, 'f');
        root->appendChild(new QtAtomSkip(QtAtomSkip::kSkipId, 64, 0ul));
        moov = new QtAtomMoov(root.get(), QtAtomMoov::kMoovId);
        addPreserved(moov, "mvhd", 100, 'h');
        root->recalcOffset(QtTreeSize(true, 0, 0));
        mdat = new QtAtomMdat(root.get(), 4000);
        Bytes essence = filled(4000, 'E');
        ASSERT_EQ(file->writeAt(mdat->getDataOffset(), essence.data(), essence.size()), 4000);
        ASSERT_TRUE(root->writeDirty());
        ASSERT_TRUE(root->flush(moov));
        EXPECT_TRUE(root->hasFinalForm(true));
    }

    // The recorder's reaction to a movie that no longer fits: the move to the end, every atom placed.
    void growAndRelocate(bool write = true) {
        addPreserved(moov, "udta", 300, 'u');
        QtTreeSize dry = moov->recalcOffset(QtTreeSize(false, 0, moov->getFileOffset()));
        ASSERT_GT(dry.size, moov->getSibling()->getFileOffset() - moov->getFileOffset());
        ASSERT_TRUE(moov->relocate());
        root->recalcOffset(QtTreeSize(true, 0, 0));
        if (write) { ASSERT_TRUE(root->writeDirty()); }
    }

    // Exactly one 'moov' header on disk, at `offset`, holding exactly `bytes`; the headers chain to
    // the end of the file.
    void expectOneMovie(unsigned long offset, Bytes const& bytes) {
        TopLevelScan scan = scanTopLevel(temp.path());
        EXPECT_TRUE(scan.coversFile);
        ASSERT_EQ(scan.count("moov"), 1);
        EXPECT_EQ(scan.find("moov")->offset, offset);
        EXPECT_EQ(scan.find("moov")->size, bytes.size());
        EXPECT_EQ(readRange(temp.path(), offset, bytes.size()), bytes);
    }

    QtAtomMoov const* moov = nullptr;
    QtAtomMdat const* mdat = nullptr;
};

}  // namespace

TEST_F(MovieRelocation, GrownMovieMovesToTheEndAndOneCompleteMoovIsOnDiskAfterEveryStep) {
    expectOneMovie(84, kOldMovie);
    EXPECT_EQ(root->pendingFlushes(), 0u);

    growAndRelocate(false);
    // The mdat ended at 4216; it grows so that the movie after it starts on a 4096 boundary.
    EXPECT_EQ(mdat->getSize(), 4016u + 3976u);
    EXPECT_EQ(moov->getFileOffset(), 8192u);
    EXPECT_EQ(moov->getDiskId(), qtId("skip"));
    ASSERT_TRUE(root->writeDirty());
    expectOneMovie(84, kOldMovie);  // the new copy is there, but still under a 'skip' header
    EXPECT_EQ(scanTopLevel(temp.path()).atoms.back().type, "skip");

    MessageCapture messages;
    ScopedDebugFlag reservations("quicktimeDbg", "reservations");
    ASSERT_TRUE(root->flush(moov));
    EXPECT_FALSE(root->hasFinalForm(true));  // durable, but its header does not say 'moov' yet
    expectOneMovie(84, kOldMovie);
    // The flush's hold and release went through the root to the new copy's desk.
    EXPECT_TRUE(messages.contains("gets resv {8192,424,hold}"));
    EXPECT_TRUE(messages.contains("loses resv {8192,424,release}, 0 left"));
    EXPECT_FALSE(moov->isReserved());

    ASSERT_TRUE(root->isIdUpdateNeeded());
    ASSERT_TRUE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    expectOneMovie(8192, kNewMovie);
    // The old place is a skip of the same size now, its bytes left as they were.
    EXPECT_EQ(readRange(temp.path(), 84, 8), (Bytes{0, 0, 0, 116, 's', 'k', 'i', 'p'}));
    EXPECT_EQ(readRange(temp.path(), 92, 108), atomBytes("mvhd", filled(100, 'h')));
    EXPECT_EQ(scanTopLevel(temp.path()).count("skip"), 2);

    ASSERT_TRUE(root->coalesceSkip());
    ASSERT_TRUE(root->writeDirty());
    expectOneMovie(8192, kNewMovie);
    TopLevelScan merged = scanTopLevel(temp.path());
    ASSERT_EQ(merged.atoms.size(), 4u);
    EXPECT_EQ(merged.atoms[1].type, "skip");
    EXPECT_EQ(merged.atoms[1].offset, 20u);
    EXPECT_EQ(merged.atoms[1].size, 64u + 116u);
    EXPECT_TRUE(root->hasFinalForm(false));
}

TEST_F(MovieRelocation, CrashBeforeTheFlushIsDurableLeavesTheOldMovieValid) {
    growAndRelocate();
    ASSERT_TRUE(file->sync());
    file->holdWrites();
    ASSERT_TRUE(root->flush(moov));
    ASSERT_TRUE(file->waitForHeldWrite(10000));
    file->simulateCrash();  // power lost while the flush thread is about to write
    expectOneMovie(84, kOldMovie);
    MessageCapture quiet;  // the flush now fails on the dead file
    file->releaseWrites();
    root->hasFinalForm(true);
    EXPECT_FALSE(moov->updateDiskId());
    expectOneMovie(84, kOldMovie);
}

TEST_F(MovieRelocation, FailedFlushSyncKeepsTheOldMovieUntilAFlushSucceeds) {
    growAndRelocate();
    file->failSync(1);
    {
        MessageCapture messages;
        ASSERT_TRUE(root->flush(moov));
        EXPECT_FALSE(root->hasFinalForm(true));
        EXPECT_TRUE(messages.contains("flush moov@8192 failed"));
    }
    EXPECT_FALSE(root->isIdUpdateNeeded());
    EXPECT_FALSE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    expectOneMovie(84, kOldMovie);

    ASSERT_TRUE(root->flush(moov));  // not final: flushed again
    root->hasFinalForm(true);
    ASSERT_TRUE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    expectOneMovie(8192, kNewMovie);
}

TEST_F(MovieRelocation, CrashBetweenTheHeaderSwitchesLeavesBothCopiesValidNeverNone) {
    growAndRelocate();
    ASSERT_TRUE(root->flush(moov));
    root->hasFinalForm(true);
    ASSERT_TRUE(moov->updateDiskId());
    // The new header is written and synced first; the power goes before the old one is switched.
    file->cutPowerAfterSyncs(1);
    ASSERT_TRUE(root->writeDirty());
    file->simulateCrash();
    TopLevelScan scan = scanTopLevel(temp.path());
    EXPECT_TRUE(scan.coversFile);
    ASSERT_EQ(scan.count("moov"), 2);
    EXPECT_EQ(readRange(temp.path(), 84, kOldMovie.size()), kOldMovie);
    EXPECT_EQ(readRange(temp.path(), 8192, kNewMovie.size()), kNewMovie);
}

TEST_F(MovieRelocation, HeaderSwitchIsDurableOnceTheFileIsReportedFinal) {
    growAndRelocate();
    ASSERT_TRUE(root->flush(moov));
    root->hasFinalForm(true);
    ASSERT_TRUE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    ASSERT_TRUE(root->hasFinalForm(true));
    file->simulateCrash();  // only what was synced survives
    expectOneMovie(8192, kNewMovie);
}

TEST_F(MovieRelocation, HeadersSwitchOnlyAfterEveryQueuedFlushOfTheMovie) {
    growAndRelocate();
    ASSERT_TRUE(root->flush(moov));
    root->hasFinalForm(true);
    moov->write();  // changed again: the next image still says 'skip'
    // The file layer is busy with an earlier request, so the movie's flush waits in the queue.
    MessageCapture quiet;
    file->holdWrites();
    ASSERT_TRUE(file->flush({nullptr, nullptr, 0, readRange(temp.path(), 0, 20), {}, 0}));
    ASSERT_TRUE(file->waitForHeldWrite(10000));
    ASSERT_TRUE(root->flush(moov));
    EXPECT_FALSE(moov->updateDiskId());
    file->releaseWrites();
    root->hasFinalForm(true);
    ASSERT_TRUE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    expectOneMovie(8192, kNewMovie);
}
