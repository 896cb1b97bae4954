// The root's own flush and write steps at the moments a crash hurts most: a movie reported final
// must be on disk, and an old 'moov' may lose its header only once the new one is durable.
#include <gtest/gtest.h>

#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "tests/TestSupport.h"
#include "framework/FaultyFileIO.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

// ftyp, moov (mvhd) and mdat written and durable; then the movie grows and moves to the end.
class MovieFlushSafety : public ::testing::Test {
  protected:
    void SetUp() override {
        file = FaultyFileIO::open(temp.c_str(), BasicFileIO::Create);
        ASSERT_TRUE(file);
        root.reset(new QtAtomRoot(AutoRefPtr<BasicFileIO>(file.get()), 0));
        addPreserved(root.get(), "ftyp", 12, 'f');
        moov = new QtAtomMoov(root.get(), QtAtomMoov::kMoovId);
        addPreserved(moov, "mvhd", 100, 'h');
        root->recalcOffset(QtTreeSize(true, 0, 0));
        new QtAtomMdat(root.get(), 4000);
        ASSERT_TRUE(root->writeDirty());
        ASSERT_TRUE(root->flush(moov));
        ASSERT_TRUE(root->hasFinalForm(true));
        addPreserved(moov, "udta", 300, 'u');
        ASSERT_TRUE(moov->relocate());
        root->recalcOffset(QtTreeSize(true, 0, 0));
        ASSERT_TRUE(root->writeDirty());
    }

    TempFile temp;
    AutoRefPtr<FaultyFileIO> file;
    AutoPtr<QtAtomRoot> root;
    QtAtomMoov const* moov = nullptr;
};

}  // namespace

TEST_F(MovieFlushSafety, HeaderSwitchIsDurableOnceTheFileIsReportedFinal) {
    ASSERT_TRUE(root->flush(moov));
    root->hasFinalForm(true);
    ASSERT_TRUE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    ASSERT_TRUE(root->hasFinalForm(true));
    file->simulateCrash();  // only what was synced survives
    TopLevelScan scan = scanTopLevel(temp.path());
    EXPECT_EQ(scan.count("moov"), 1);
    ASSERT_NE(scan.find("moov"), nullptr);
    EXPECT_EQ(scan.find("moov")->offset, moov->getFileOffset());
}

TEST_F(MovieFlushSafety, HeadersSwitchOnlyAfterEveryQueuedFlushOfTheMovie) {
    ASSERT_TRUE(root->flush(moov));
    root->hasFinalForm(true);
    moov->write();  // changed again: the next image still says 'skip'
    // The file layer is busy with an earlier request, so the movie's flush waits in the queue.
    MessageCapture quiet;
    file->holdWrites();
    BasicIOTypes::FlushReq earlier;
    earlier.offset = 0;
    earlier.bytes = readRange(temp.path(), 0, 20);
    ASSERT_TRUE(file->flush(std::move(earlier)));
    ASSERT_TRUE(file->waitForHeldWrite(10000));
    ASSERT_TRUE(root->flush(moov));
    EXPECT_FALSE(moov->updateDiskId());
    file->releaseWrites();
    root->hasFinalForm(true);
    ASSERT_TRUE(moov->updateDiskId());
    ASSERT_TRUE(root->writeDirty());
    EXPECT_EQ(scanTopLevel(temp.path()).count("moov"), 1);
}
