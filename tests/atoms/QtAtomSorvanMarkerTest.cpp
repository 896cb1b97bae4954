#include <gtest/gtest.h>

#include <cstring>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomSorvanMarker.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomSorvanMarker, IsASkipAtomHoldingTheVersionTextAndItsTerminator) {
    QtAtomSorvanMarker marker(nullptr);
    EXPECT_EQ(marker.getId(), qtId("skip"));
    EXPECT_EQ(strlen(QtAtomSorvanMarker::kText) + 1, 40u);
    EXPECT_EQ(marker.getSize(), 48u);
    Bytes bytes = encodeToBytes(marker);
    ASSERT_EQ(bytes.size(), 48u);
    EXPECT_EQ(std::string(bytes.begin() + 8, bytes.end() - 1), QtAtomSorvanMarker::kText);
    EXPECT_EQ(bytes.back(), 0);
}

TEST(QtAtomSorvanMarker, GrowsANewParentByItsWholeSize) {
    QtAtomHeader moov(qtId("moov"), nullptr);
    new QtAtomSorvanMarker(&moov);
    EXPECT_EQ(moov.getSize(), 8u + 48u);
}

TEST(QtAtomSorvanMarker, ComplainsWhenTreatedAsUserData) {
    QtAtomHeader udta(qtId("udta"), nullptr);
    auto* marker = new QtAtomSorvanMarker(&udta);
    MessageCapture capture;
    marker->updateUserData(nullptr);
    ASSERT_EQ(capture.count(MsgLevel::Error), 1u);
    EXPECT_EQ(capture.all(), "udta.skip: this should not be a user data atom\n");
}
