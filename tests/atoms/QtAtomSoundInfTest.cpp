#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomSoundInf.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomSoundInf, NewHeaderIsCentredAndSixteenBytes) {
    QtAtomSoundInf header(nullptr);
    EXPECT_EQ(encodeToBytes(header), (Bytes{0, 0, 0, 16, 's', 'm', 'h', 'd', 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(QtAtomSoundInf, KeepsBalanceAndReservedWordAsRead) {
    Bytes bytes{0, 0, 0, 16, 's', 'm', 'h', 'd', 0, 0, 0, 0, 0xFF, 0x80, 0x12, 0x34};
    QtAtomSoundInf header(nullptr);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getBalance(), 0xFF80u);
    EXPECT_EQ(encodeToBytes(header), bytes);
    MessageCapture capture;
    header.show();
    EXPECT_EQ(capture.all(), "smhd: 16b@0,v0,f=0,balance=0xff80\n");
}
