#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomTrakRef.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomTrakRef, OneTimecodeReferenceEncodesAsOneEntry) {
    QtAtomTrakRef refs(nullptr);
    refs.addTrackId(qtId("tmcd"), 2);
    EXPECT_EQ(refs.resetSize(), 20u);
    EXPECT_EQ(encodeToBytes(refs),
              (Bytes{0, 0, 0, 0x14, 't', 'r', 'e', 'f', 0, 0, 0, 0x0C, 't', 'm', 'c', 'd', 0, 0, 0, 2}));
}

TEST(QtAtomTrakRef, OpenSlotsAreZeroIdsToBeFilledLater) {
    QtAtomTrakRef refs(nullptr);
    EXPECT_FALSE(refs.hasOpenSlots(qtId("tmcd")));
    EXPECT_EQ(refs.getNumTrackIds(qtId("tmcd")), 0u);
    refs.addSlots(qtId("tmcd"), 1);
    EXPECT_TRUE(refs.hasOpenSlots(qtId("tmcd")));
    EXPECT_EQ(refs.getNumTrackIds(qtId("tmcd")), 1u);
    EXPECT_EQ(refs.getQtTrackId(qtId("tmcd"), 0), 0u);
    EXPECT_FALSE(refs.hasOpenSlots(qtId("chap")));
}

TEST(QtAtomTrakRef, ListsKeepTheirOrderAndEntriesOfOneTypeMerge) {
    Bytes bytes;
    putAtomHeader(bytes, 8 + 12 + 16 + 12, "tref");
    putAtomHeader(bytes, 12, "tmcd");  // an entry has the same shape as an atom header
    putUint32(bytes, 3);
    putAtomHeader(bytes, 16, "chap");
    putUint32(bytes, 4);
    putUint32(bytes, 5);
    putAtomHeader(bytes, 12, "tmcd");
    putUint32(bytes, 6);
    QtAtomTrakRef refs(nullptr);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(refs, bytes, &consumed));
    EXPECT_EQ(consumed, 48u);
    EXPECT_EQ(refs.getNumTypes(), 2u);
    EXPECT_EQ(refs.getType(0), qtId("tmcd"));
    EXPECT_EQ(refs.getType(1), qtId("chap"));
    EXPECT_EQ(refs.getType(2), 0u);
    EXPECT_EQ(refs.getNumTrackIds(qtId("tmcd")), 2u);
    EXPECT_EQ(refs.getQtTrackId(qtId("tmcd"), 1), 6u);
    EXPECT_EQ(refs.getQtTrackId(qtId("chap"), 1), 5u);
    EXPECT_EQ(refs.getQtTrackId(qtId("chap"), 2), 0u);
    // Written back merged: one entry fewer, the rest of the atom zero.
    EXPECT_EQ(refs.getVariableSize(), 32u);
    Bytes written = encodeToBytes(refs);
    ASSERT_EQ(written.size(), 48u);
    EXPECT_EQ(Bytes(written.begin() + 8, written.begin() + 12), (Bytes{0, 0, 0, 16}));
    EXPECT_EQ(Bytes(written.end() - 8, written.end()), Bytes(8, 0));

    MessageCapture capture;
    refs.show();
    EXPECT_EQ(capture.all(), "tref: 48b@0,tmcd[2]=3,6 chap[2]=4,5\n");
}

TEST(QtAtomTrakRef, BrokenEntrySizeEndsTheListInsteadOfLooping) {
    for (uint32_t badSize : {0u, 4u, 7u, 200u}) {
        Bytes bytes;
        putAtomHeader(bytes, 8 + 12 + 12, "tref");
        putAtomHeader(bytes, 12, "tmcd");
        putUint32(bytes, 3);
        putAtomHeader(bytes, badSize, "hint");
        putUint32(bytes, 9);
        QtAtomTrakRef refs(nullptr);
        unsigned int consumed = 0;
        ASSERT_TRUE(decodeFrom(refs, bytes, &consumed)) << badSize;
        EXPECT_EQ(consumed, 32u) << badSize;
        EXPECT_EQ(refs.getNumTrackIds(qtId("tmcd")), 1u) << badSize;
        EXPECT_EQ(refs.getNumTrackIds(qtId("hint")), 0u) << badSize;
        EXPECT_EQ(encodeToBytes(refs).size(), 32u) << badSize;
    }
}

TEST(QtAtomTrakRef, GetRefCreatesAnEmptyListOnlyWhenAsked) {
    QtAtomTrakRef refs(nullptr);
    EXPECT_EQ(refs.getRef(qtId("sync"), false), nullptr);
    QtAtomTrakRef::RefList const* list = refs.getRef(qtId("sync"), true);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->type, qtId("sync"));
    EXPECT_TRUE(list->trackIds.empty());
    EXPECT_EQ(refs.getRef(qtId("sync"), false), list);
    EXPECT_EQ(refs.resetSize(), 16u);
}
