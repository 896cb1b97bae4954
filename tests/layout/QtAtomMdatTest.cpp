#include <gtest/gtest.h>

#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "tests/TestSupport.h"

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
