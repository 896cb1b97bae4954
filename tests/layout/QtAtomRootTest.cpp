#include <gtest/gtest.h>
#include <sys/stat.h>

#include <future>

#include "quicktime/layout/QtAtomReader.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

// A root over a new file holding ftyp and a movie that has not been flushed yet.
class RootWithMovie : public ::testing::Test, protected CrashableTree {
  protected:
    void SetUp() override {
        addPreserved(root.get(), "ftyp", 12, 'f');
        moov = new QtAtomMoov(root.get(), QtAtomMoov::kMoovId);
        addPreserved(moov, "mvhd", 100, 'h');
        root->recalcOffset(QtTreeSize(true, 0, 0));
        ASSERT_TRUE(root->writeDirty());
        ASSERT_FALSE(moov->hasFinalForm());  // written, but never flushed
    }
    void TearDown() override {
        file->releaseWrites();
        root.reset();
    }

    QtAtomMoov const* moov = nullptr;
};

}  // namespace

TEST_F(RootWithMovie, WriteDirtyLeavesAMovieWithAFlushInFlightToThatFlush) {
    file->holdWrites();
    ASSERT_TRUE(root->flush(moov));
    ASSERT_TRUE(file->waitForHeldWrite(10000));
    unsigned int writes = file->writeCount();
    addPreserved(moov, "udta", 8, 'u');  // changed again while its image is queued
    root->recalcOffset(QtTreeSize(true, 0, 0));
    // A write of the movie would wait at the gate; none is made.
    auto written = std::async(std::launch::async, [&] { return root->writeDirty(); });
    ASSERT_EQ(written.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_TRUE(written.get());
    EXPECT_EQ(file->writeCount(), writes);
    file->releaseWrites();
    file->waitForFlushes();
    EXPECT_TRUE(moov->isDirty());
    EXPECT_FALSE(root->hasFinalForm(false));
    ASSERT_TRUE(root->writeDirty());
    EXPECT_EQ(readRange(temp.path(), 20, 8), (std::vector<unsigned char>{0, 0, 0, 132, 'm', 'o', 'o', 'v'}));
}

TEST(QtAtomRoot, StructureWithoutExactlyOneMoovIsReportedOnceUnlessAtomErrorsIsOn) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    addPreserved(&root, "ftyp", 12, 'f');
    root.appendChild(new QtAtomSkip(QtAtomSkip::kSkipId, 100, 0ul));
    MessageCapture messages;
    EXPECT_EQ(root.checkStructure("first"), nullptr);
    ASSERT_EQ(messages.count(MsgLevel::Debug), 2u);  // the line grows by one atom per message
    EXPECT_EQ(messages.messages()[0].text, "<no movie path>: first: 1 skip, 0 moov: ftyp@0");
    EXPECT_NE(
        messages.messages()[1].text.find("<no movie path>: first: 1 skip, 0 moov: ftyp@0 skip@20={skip@0x"),
        std::string::npos);
    EXPECT_NE(messages.messages()[1].text.find(",<empty>}"), std::string::npos);
    messages.clear();
    root.checkStructure("again");
    EXPECT_TRUE(messages.messages().empty());
    ScopedDebugFlag atomErrors("quicktimeDbg", "atom errors");
    root.checkStructure("flagged");
    EXPECT_TRUE(messages.contains("flagged: 1 skip, 0 moov:"));
}

TEST(QtAtomRoot, AdjacentSkipsMergeIntoOneWithTheSummedSize) {
    QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
    addPreserved(&root, "ftyp", 12, 'f');
    for (unsigned long size : {100ul, 50ul, 25ul})
        root.appendChild(new QtAtomSkip(QtAtomSkip::kSkipId, size, 0ul));
    auto* mdat = new QtAtomMdat(&root, 100);
    MessageCapture messages;
    EXPECT_TRUE(root.coalesceSkip());
    ASSERT_EQ(root.countChildren(), 3u);
    BaseQtAtom const* merged = root.getChild()->getSibling();
    EXPECT_EQ(merged->getId(), QtAtomSkip::kSkipId);
    EXPECT_EQ(merged->getSize(), 175u);
    EXPECT_EQ(merged->getFileOffset(), 20u);
    EXPECT_TRUE(merged->isDirty());
    EXPECT_EQ(merged->getSibling(), mdat);
    EXPECT_EQ(mdat->getFileOffset(), 195u);  // the atom after the run keeps its place
    EXPECT_FALSE(root.coalesceSkip());
}

TEST(QtAtomRoot, ClosingAnOpenEndedMdatPast4GiBTurnsAPrecedingWideIntoItsHeader) {
    TempFile temp;
    std::vector<unsigned char> bytes = concat({atomBytes("wide", {}), {0, 0, 0, 0, 'm', 'd', 'a', 't'}});
    temp.write(bytes);
    unsigned long length = 5ul << 30;
    ASSERT_EQ(::truncate(temp.c_str(), static_cast<off_t>(length)), 0);  // sparse: no real space used
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.c_str(), BasicFileIO::ReadWrite);
    QtAtomRoot root(file, file->length());
    ASSERT_TRUE(QtAtomReader::readTree(root));
    BaseQtAtom const* mdat = root.getChild()->getSibling();
    ASSERT_TRUE(mdat->isOpenEnded());
    ASSERT_EQ(mdat->getSize(), length - 8);
    EXPECT_TRUE(root.closeOpenEndedAtom());  // still the last atom: stays open-ended
    EXPECT_TRUE(mdat->isOpenEnded());

    auto* moov = new QtAtomMoov(&root, QtAtomMoov::kMoovId);
    EXPECT_TRUE(root.closeOpenEndedAtom());
    EXPECT_FALSE(mdat->isOpenEnded());
    EXPECT_EQ(root.getChild(), mdat);
    EXPECT_EQ(mdat->getFileOffset(), 0u);
    EXPECT_EQ(mdat->getSize(), length);
    EXPECT_EQ(mdat->getHeaderSize(), 16u);
    EXPECT_EQ(static_cast<QtAtomMdat const*>(mdat)->getDataOffset(), 16u);  // the data did not move
    EXPECT_EQ(mdat->getSibling(), moov);
}

TEST(QtAtomRoot, OpenEndedMdatPast4GiBWithoutAWideBeforeItCannotBeClosed) {
    TempFile temp;
    temp.write({0, 0, 0, 0, 'm', 'd', 'a', 't'});
    ASSERT_EQ(::truncate(temp.c_str(), static_cast<off_t>(5ul << 30)), 0);
    AutoRefPtr<BasicFileIO> file = BasicFileIO::open(temp.c_str(), BasicFileIO::ReadWrite);
    QtAtomRoot root(file, file->length());
    ASSERT_TRUE(QtAtomReader::readTree(root));
    BaseQtAtom const* mdat = root.getChild();
    new QtAtomMoov(&root, QtAtomMoov::kMoovId);
    EXPECT_FALSE(root.closeOpenEndedAtom());
    EXPECT_FALSE(mdat->isOpenEnded());
    EXPECT_EQ(mdat->getHeaderSize(), 8u);
}
