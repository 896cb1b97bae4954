#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomBaseInf.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomBaseInf, NewHeaderMatchesTheOneInATimecodeTrack) {
    // As in the timecode track of h264_bframes_aac_tc.mov.
    Bytes written{0, 0,    0,    0x18, 'g',  'm', 'i',  'n', 0, 0, 0, 0,
                  0, 0x40, 0x80, 0,    0x80, 0,   0x80, 0,   0, 0, 0, 0};
    QtAtomBaseInf header(nullptr);
    EXPECT_EQ(encodeToBytes(header), written);
}

TEST(QtAtomBaseInf, DecodesEachFieldInItsPlace) {
    Bytes bytes{0, 0,    0,    0x18, 'g',  'm',  'i',  'n',  0,    0,    0,    0,
                0, 0x24, 0x11, 0x11, 0x22, 0x22, 0x33, 0x33, 0xFF, 0x80, 0xAB, 0xCD};
    QtAtomBaseInf header(nullptr);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getGraphicsMode(), 0x24u);
    EXPECT_EQ(header.getOpcolor().green, 0x2222u);
    EXPECT_EQ(header.getBalance(), 0xFF80u);
    EXPECT_EQ(encodeToBytes(header), bytes);
    MessageCapture capture;
    header.show();
    EXPECT_EQ(capture.all(), "gmin: 24b@0,v0,f=0,mode36,rgb=0x1111/2222/3333,bal=0xff80\n");
}
