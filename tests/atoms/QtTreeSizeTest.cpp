// Size and offset propagation through a tree: the dry and the applied pass of recalcOffset, the
// resize reasons a movie collects, and their printed forms.
#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/atoms/QtTreeSize.h"
#include "tests/TestSupport.h"
#include "tests/layout/LayoutTestSupport.h"

namespace {

// A table whose entries live on disk: moving it is what the dry pass must announce.
class DiskTable : public QtAtomPreserved {
  public:
    explicit DiskTable(BaseQtAtom const* parent) : QtAtomPreserved(parent, qtId("stsz")) {}
    bool hasVirtualTable() const override { return true; }
};

// ftyp@0 (20), moov@20 { mvhd (108), trak { stsz (8) } }.
class Propagation : public ::testing::Test {
  protected:
    void SetUp() override {
        addPreserved(&root, "ftyp", 12, 'f');
        moov = new QtAtomMoov(&root, QtAtomMoov::kMoovId);
        mvhd = addPreserved(moov, "mvhd", 100, 'h');
        trak = new QtAtomHeader(qtId("trak"), moov);
        table = new DiskTable(trak);
        root.recalcOffset(QtTreeSize(true, 0, 0));
        markClean(&root);
    }
    static void markClean(BaseQtAtom const* atom) {
        atom->setClean();
        for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) markClean(child);
    }

    QtAtomRoot root{AutoRefPtr<BasicFileIO>(), 0};
    QtAtomMoov const* moov = nullptr;
    BaseQtAtom const* mvhd = nullptr;
    BaseQtAtom const* trak = nullptr;
    BaseQtAtom const* table = nullptr;
};

}  // namespace

TEST_F(Propagation, DryRunChangesNothingAndSaysWhatWouldChangeOrMove) {
    addPreserved(moov, "udta", 0, 'u');                            // before nothing: the movie grows by 8
    moov->insertSibling(new QtAtomHeader(qtId("free"), nullptr));  // 8 bytes before the movie
    markClean(&root);
    unsigned long before = table->getFileOffset();
    MessageCapture messages;
    ScopedDebugFlag flag("quicktimeDbg", "move reason");
    QtTreeSize dry = root.recalcOffset(QtTreeSize(false, 0, 0));
    EXPECT_FALSE(dry.apply);
    EXPECT_TRUE(dry.moved);
    EXPECT_EQ(dry.size, 20u + 8u + 140u);
    EXPECT_EQ(table->getFileOffset(), before);
    EXPECT_FALSE(root.checkForDirty());
    EXPECT_TRUE(messages.contains("Root.moov.trak.stsz will move: 8b@144==>8b@152\n"));
    EXPECT_TRUE(messages.contains("Root.moov will move: 140b@28==>140b@28\n"));
    EXPECT_TRUE(messages.contains("Root will move: 160b@0==>168b@0\n"));
    EXPECT_FALSE(messages.contains("mvhd"));
}

TEST_F(Propagation, AppliedRunSaysMovedAndChangedAndMarksOnlyWhatChanged) {
    trak->insertSibling(new QtAtomHeader(qtId("free"), nullptr));  // 8 bytes before the track
    markClean(&root);
    MessageCapture messages;
    ScopedDebugFlag flag("quicktimeDbg", "move reason");
    QtTreeSize applied = root.recalcOffset(QtTreeSize(true, 0, 0));
    EXPECT_TRUE(applied.moved);
    EXPECT_EQ(table->getFileOffset(), 152u);
    EXPECT_TRUE(messages.contains("Root.moov.trak.stsz moved: 8b@144==>8b@152\n"));
    EXPECT_TRUE(messages.contains("Root.moov.trak moved: 16b@144==>16b@144\n"));
    EXPECT_TRUE(messages.contains("Root.moov moved: 132b@20==>140b@20\n"));
    EXPECT_TRUE(table->isDirty());
    EXPECT_TRUE(moov->isDirty());
    EXPECT_FALSE(trak->isDirty());  // already in place: the insert moved it
    EXPECT_FALSE(mvhd->isDirty());  // size and offset unchanged: not marked
    EXPECT_FALSE(root.getChild()->isDirty());
}

TEST_F(Propagation, SetSizeAndOffsetMarksOnlyARealChange) {
    mvhd->setSizeAndOffset(QtTreeSize(true, mvhd->getSize(), mvhd->getFileOffset()));
    EXPECT_FALSE(mvhd->isDirty());
    mvhd->setOffset(mvhd->getFileOffset());
    EXPECT_FALSE(mvhd->isDirty());
    mvhd->setOffset(mvhd->getFileOffset() + 1);
    EXPECT_TRUE(mvhd->isDirty());
}

TEST_F(Propagation, ResizeReasonsAreCollectedOnTheEnclosingMovie) {
    EXPECT_FALSE(table->addMovieResizeNeeded(QtResizeReq::Samples));
    EXPECT_FALSE(trak->addMovieResizeNeeded(QtResizeReq::ResizeNoFlush));
    EXPECT_EQ(moov->getResizeNeeded().value(), 0x21u);
    EXPECT_EQ(table->movieResizeNeeded(), 0x21u);
    EXPECT_EQ(moov->movieResizeNeeded(), 0x21u);
    EXPECT_FALSE(moov->isDirty());
}

TEST(QtResizeAction, CombiningEscalatesAndNeverLowers) {
    QtResizeAction action(2);
    action += QtResizeAction(1);
    EXPECT_EQ(action.level(), 2);
    action += QtResizeAction(3);
    EXPECT_EQ(action.level(), 3);
}
