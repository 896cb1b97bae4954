#include <gtest/gtest.h>

#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "quicktime/layout/ReservationDesk.h"
#include "tests/TestSupport.h"

namespace {

VirtualBase::Reservation hold(unsigned long offset, unsigned int size) { return {offset, size, false}; }
VirtualBase::Reservation release(unsigned long offset, unsigned int size) { return {offset, size, true}; }

// skip@0 (100), mdat@100 (16 + 84), moov@200 (8).
class DeskAtoms : public ::testing::Test {
  protected:
    void SetUp() override {
        root.appendChild(skip = new QtAtomSkip(QtAtomSkip::kSkipId, 100, 0ul));
        mdat = new QtAtomMdat(&root, 84);
        moov = new QtAtomMoov(&root, QtAtomMoov::kMoovId);
        root.recalcOffset(QtTreeSize(true, 0, 0));
    }
    QtAtomRoot root{AutoRefPtr<BasicFileIO>(), 0};
    QtAtomSkip const* skip = nullptr;
    QtAtomMdat const* mdat = nullptr;
    QtAtomMoov const* moov = nullptr;
};

}  // namespace

TEST_F(DeskAtoms, HoldThenReleaseOfTheSameOffsetLeavesTheDeskEmpty) {
    ReservationDesk& desk = skip->getReservations();
    EXPECT_TRUE(desk.update(hold(10, 20)));
    EXPECT_TRUE(desk.update(hold(40, 20)));
    EXPECT_TRUE(skip->isReserved());
    EXPECT_STREQ(desk.toString().get(), "{10,20,hold},{40,20,hold}");
    EXPECT_TRUE(desk.update(release(10, 20)));
    EXPECT_TRUE(desk.update(release(40, 20)));
    EXPECT_FALSE(skip->isReserved());
    EXPECT_STREQ(desk.toString().get(), "<empty>");
}

TEST_F(DeskAtoms, ReleaseOfAnOffsetNeverHeldIsOnlyReportedAndStillClaimed) {
    MessageCapture messages;
    EXPECT_TRUE(skip->update(release(10, 20)));
    EXPECT_TRUE(messages.all().empty());
    ScopedDebugFlag flag("quicktimeDbg", "reservations");
    EXPECT_TRUE(skip->update(release(10, 20)));
    EXPECT_TRUE(messages.contains("unk resv released {10,20,release} in skip@"));
    EXPECT_TRUE(messages.contains("{0,100} w/ <empty>\n"));
}

TEST_F(DeskAtoms, ReservationPastAMoovsEndIsTheMoovsButPastASkipsEndIsNot) {
    MessageCapture messages;
    EXPECT_TRUE(mdat->update(hold(100, 50)));  // from the atom's first byte: no overlap
    EXPECT_EQ(messages.count(MsgLevel::Error), 0u) << messages.all();
    EXPECT_FALSE(skip->update(hold(100, 8)));  // starts where the skip ends
    EXPECT_FALSE(skip->update(hold(0, 0)));    // ends where the skip starts
    EXPECT_TRUE(moov->update(hold(208, 8)));   // starts where the moov ends: it may grow there
    EXPECT_TRUE(moov->update(hold(5000, 8)));
    EXPECT_FALSE(moov->update(hold(100, 100)));  // ends where the moov starts
    EXPECT_EQ(moov->getReservations().size(), 2u);
}

TEST_F(DeskAtoms, TakeOverMovesEveryReservationAndEmptiesTheOldDesk) {
    moov->update(hold(200, 8));
    moov->update(hold(204, 4));
    MessageCapture messages;
    ScopedDebugFlag flag("quicktimeDbg", "reservations");
    QtAtomSkip replacement(QtAtomMoov::kMoovId, 8, moov->getReservations());
    EXPECT_EQ(replacement.getReservations().size(), 2u);
    EXPECT_FALSE(moov->isReserved());
    EXPECT_TRUE(messages.contains("gets {200,8,hold},{204,4,hold} from atom moov@"));
}

// skip A@0 (100 bytes) and a new skip B of 50 bytes, linked by each relink. A hold on [120, 130)
// belongs to whichever now covers it, and keeps it from being merged.
TEST(ReservationDeskRelink, DeskAnswersForTheAtomsPlaceAfterEveryRelink) {
    struct Case {
        char const* name;
        void (*link)(QtAtomRoot const&, QtAtomSkip const*, QtAtomSkip const*);
        bool bHolds;
    };
    Case const cases[] = {
        {"appendChild",
         [](QtAtomRoot const& root, QtAtomSkip const*, QtAtomSkip const* b) { root.appendChild(b); }, true},
        {"appendSibling",
         [](QtAtomRoot const&, QtAtomSkip const* a, QtAtomSkip const* b) { a->appendSibling(b); }, true},
        {"insertSibling",
         [](QtAtomRoot const&, QtAtomSkip const* a, QtAtomSkip const* b) { a->insertSibling(b); }, false},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        MessageCapture quiet;
        QtAtomRoot root(AutoRefPtr<BasicFileIO>(), 0);
        auto const* a = new QtAtomSkip(QtAtomSkip::kSkipId, 100, 0ul);
        root.appendChild(a);
        auto const* b = new QtAtomSkip(QtAtomSkip::kSkipId, 50, 0ul);
        c.link(root, a, b);
        root.reserveCb({120, 10, false});
        EXPECT_EQ(b->isReserved(), c.bHolds);
        EXPECT_EQ(a->isReserved(), !c.bHolds);
        EXPECT_FALSE(root.coalesceSkip());
        EXPECT_EQ(root.countChildren(), 2u);
    }
}
