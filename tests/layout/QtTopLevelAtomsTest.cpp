// The top-level atoms of the layout: the movie, the media data and the free room between them.
#include <gtest/gtest.h>

#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

TEST(QtAtomMoov, MovieReadFromAFileIsFinalWhileCleanAndInPlace) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath("h264_faststart.mov").c_str());
    ASSERT_TRUE(root);
    QtAtomMoov const* moov = root->checkStructure("read");
    ASSERT_NE(moov, nullptr);
    EXPECT_EQ(moov->getFlushedOffset(), 20u);
    EXPECT_EQ(moov->getEncodedSize(), 9096u);
    EXPECT_TRUE(moov->hasFinalForm());
    EXPECT_TRUE(root->hasFinalForm(true));
    moov->write();
    EXPECT_FALSE(moov->hasFinalForm());
    EXPECT_FALSE(root->hasFinalForm(false));
}

TEST(QtAtomMoov, RelocatingTheLastAtomLeavesItsEncodedSizeBehind) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    addPreserved(&root, "ftyp", 12, 'f');
    auto* moov = new QtAtomMoov(&root, QtAtomMoov::kMoovId);
    addPreserved(moov, "mvhd", 92, 'h');
    root.recalcOffset(QtTreeSize(true, 0, 0));
    encodeToBytes(*moov);  // on disk with 108 bytes
    addPreserved(moov, "udta", 40, 'u');
    root.recalcOffset(QtTreeSize(true, 0, 0));
    ASSERT_EQ(moov->getSize(), 156u);
    ASSERT_TRUE(moov->relocate());
    BaseQtAtom const* left = root.getChild()->getSibling();
    EXPECT_EQ(left->getId(), QtAtomSkip::kSkipId);
    EXPECT_EQ(left->getDiskId(), QtAtomMoov::kMoovId);
    EXPECT_EQ(left->getFileOffset(), 20u);
    EXPECT_EQ(left->getSize(), 108u);
    EXPECT_EQ(left->getSibling(), moov);
    EXPECT_EQ(moov->getFileOffset(), 128u);
    EXPECT_EQ(moov->getDiskId(), QtAtomSkip::kSkipId);
    EXPECT_TRUE(moov->isDirty());
}

TEST(QtAtomMoov, RelocationPastAnUnalignedMdatGrowsItToTheNextBoundary) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    root.setDiskAlignment(4096);
    auto* moov = new QtAtomMoov(&root, QtAtomMoov::kMoovId);
    addPreserved(moov, "mvhd", 84, 'h');  // a 100-byte movie
    root.recalcOffset(QtTreeSize(true, 0, 0));
    auto* mdat = new QtAtomMdat(&root, 9900 - 16);  // 100..10000
    ASSERT_EQ(mdat->getFileOffset() + mdat->getSize(), 10000u);
    MessageCapture messages;
    ScopedDebugFlag flag("quicktimeDbg", "reservations");
    ASSERT_TRUE(moov->relocate());
    EXPECT_EQ(mdat->getSize(), 9900u + 2288u);
    EXPECT_EQ(mdat->getFileOffset(), 100u);
    EXPECT_EQ(moov->getFileOffset(), 12288u);
    EXPECT_EQ(root.getChild()->getSize(), 100u);  // the room up to the mdat
    EXPECT_TRUE(messages.contains(": add skip(as moov)@0, relocate moov(as skip)@12288\n"));
}

TEST(QtAtomMoov, SwitchWaitsUntilTheCopyHereIsDurableAndUnreserved) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    auto* moov = new QtAtomMoov(&root, QtAtomMoov::kMoovId);
    addPreserved(moov, "mvhd", 84, 'h');  // a 100-byte movie
    root.recalcOffset(QtTreeSize(true, 0, 0));
    new QtAtomMdat(&root, 100);
    ASSERT_TRUE(moov->relocate());
    root.recalcOffset(QtTreeSize(true, 0, 0));
    QtAtomSkip const* left = static_cast<QtAtomSkip const*>(root.getChild());

    MessageCapture messages;
    ScopedDebugFlag flag("quicktimeDbg", "reservations");
    EXPECT_FALSE(moov->updateDiskId());  // never flushed here
    EXPECT_TRUE(messages.contains(": update from 'skip' to 'moov' @216 not ready\n"));

    moov->flushDone(216);
    EXPECT_TRUE(root.isIdUpdateNeeded());
    ASSERT_TRUE(moov->update(VirtualBase::Reservation{216, 100, false}));
    EXPECT_FALSE(moov->updateDiskId());  // a write on it is still outstanding
    EXPECT_EQ(moov->getDiskId(), QtAtomSkip::kSkipId);
    EXPECT_EQ(left->getDiskId(), QtAtomMoov::kMoovId);

    ASSERT_TRUE(moov->update(VirtualBase::Reservation{216, 100, true}));
    root.writeDirty();  // no file: nothing written, the flags stay
    EXPECT_TRUE(moov->updateDiskId());
    EXPECT_FALSE(root.isIdUpdateNeeded());
    EXPECT_EQ(moov->getDiskId(), QtAtomMoov::kMoovId);
    EXPECT_EQ(left->getDiskId(), QtAtomSkip::kSkipId);
    EXPECT_TRUE(left->isDirty());
    EXPECT_EQ(encodeToBytes(*left), (std::vector<unsigned char>{0, 0, 0, 100, 's', 'k', 'i', 'p'}));
    EXPECT_TRUE(messages.contains("==> moov@216\n"));
    EXPECT_TRUE(messages.contains("skip(moov)@"));
    EXPECT_FALSE(moov->updateDiskId());  // already a moov
}

TEST(QtAtomMoov, OnlyAMovieAtTheTopLevelIsRelocated) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    auto* wrap = new QtAtomHeader(qtId("wrap"), &root);
    auto* moov = new QtAtomMoov(wrap, QtAtomMoov::kMoovId);
    addPreserved(wrap, "free", 8, 0);
    EXPECT_FALSE(moov->relocate());
    EXPECT_EQ(moov->getParent(), wrap);
}

TEST(QtAtomMoov, ANeverWrittenLastMovieWithDiskTablesIsRelocatedByItsSize) {
    TempFile temp;
    QtAtomRoot root(BasicFileIO::open(temp.c_str(), BasicFileIO::Create), 0);
    auto* moov = new QtAtomMoov(&root, QtAtomMoov::kMoovId);
    auto* stsz = new QtAtomSampleSize(new QtAtomHeader(qtId("stbl"), new QtAtomHeader(qtId("trak"), moov)));
    stsz->setCapacity(1000);
    root.recalcOffset(QtTreeSize(true, 0, 0));
    ASSERT_TRUE(stsz->hasVirtualTable());
    EXPECT_TRUE(moov->relocate());
}

TEST(QtAtomMdat, OnlyTheLastTopLevelAtomGrows) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    auto* first = new QtAtomMdat(&root, 100);
    auto* last = new QtAtomMdat(&root, 100);
    EXPECT_FALSE(first->grow(50));
    EXPECT_EQ(first->getSize(), 116u);
    EXPECT_TRUE(last->grow(50));
    EXPECT_EQ(last->getSize(), 166u);
    EXPECT_TRUE(last->isDirty());
}

TEST(QtAtomMdat, MoveIsReportedAndTakenAllTheSame) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    auto* mdat = new QtAtomMdat(&root, 100);
    MessageCapture messages;
    mdat->setOffset(0);
    EXPECT_TRUE(messages.all().empty());
    mdat->setSizeAndOffset(QtTreeSize(true, 116, 64));
    EXPECT_EQ(mdat->getFileOffset(), 64u);
    EXPECT_TRUE(messages.contains("<no movie path>:Root.mdat offset change 0->64\n"));
    messages.clear();
    mdat->setOffset(32);
    EXPECT_TRUE(messages.contains("offset change 64->32\n"));
}

TEST(QtAtomSkip, SkipReadFromAFileIsASkipOnDiskAndRewritesOnlyItsHeader) {
    TempFile temp;
    temp.write(concat({atomBytes("ftyp", filled(12, 'f')), atomBytes("skip", filled(40, 's'))}));
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.c_str(), BasicFileIO::ReadWrite);
    QtAtomRoot root(file, file->length());
    ASSERT_TRUE(QtAtomReader::readTree(root));
    auto const* skip = dynamic_cast<QtAtomSkip const*>(root.getChild()->getSibling());
    ASSERT_NE(skip, nullptr);
    EXPECT_EQ(skip->getDiskId(), QtAtomSkip::kSkipId);
    EXPECT_EQ(skip->getSize(), 48u);
    EXPECT_EQ(skip->getEncodeSize(), 8u);
    skip->write();
    ASSERT_TRUE(root.writeDirty());
    EXPECT_EQ(readFileBytes(temp.path()),
              concat({atomBytes("ftyp", filled(12, 'f')), atomBytes("skip", filled(40, 's'))}));
}
