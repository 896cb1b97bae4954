#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomVideoInf.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomVideoInf, NewHeaderEncodesFlagOneModeDitherCopyAndGreyOpcolor) {
    QtAtomVideoInf header(nullptr);
    EXPECT_EQ(encodeToBytes(header),
              (Bytes{0, 0, 0, 0x14, 'v', 'm', 'h', 'd', 0, 0, 0, 1, 0, 0x40, 0x80, 0, 0x80, 0, 0x80, 0}));
}

TEST(QtAtomVideoInf, DecodesModeAndOpcolorInOrder) {
    Bytes bytes{0, 0, 0, 0x14, 'v', 'm', 'h', 'd', 0, 0, 0, 0, 0, 0x24, 0x11, 0x11, 0x22, 0x22, 0x33, 0x33};
    QtAtomVideoInf header(nullptr);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getGraphicsMode(), 0x24u);
    EXPECT_EQ(header.getOpcolor().red, 0x1111u);
    EXPECT_EQ(header.getOpcolor().blue, 0x3333u);
    EXPECT_EQ(encodeToBytes(header), bytes);
}

TEST(QtAtomVideoInf, ShowCallsAHeaderWithoutFlagOneLean) {
    QtAtomVideoInf header(nullptr);
    MessageCapture capture;
    header.show();
    EXPECT_EQ(capture.all(), "vmhd: 20b@0,v0,f=1,mode64,rgb=0x8000/8000/8000\n");
    Bytes lean{0, 0, 0, 0x14, 'v', 'm', 'h', 'd', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    ASSERT_TRUE(decodeFrom(header, lean));
    capture.clear();
    header.show();
    EXPECT_EQ(capture.all(), "vmhd: 20b@0,v0,f=0,lean,mode0,rgb=0x0/0/0\n");
}
