#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomHintMediaHdr.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomHintMediaHdr, DecodesPduSizesAndBitRatesInOrder) {
    Bytes bytes;
    putAtomHeader(bytes, 28, "hmhd");
    putUint32(bytes, 0);
    putUint16(bytes, 1450);
    putUint16(bytes, 1200);
    for (uint32_t v : {4000000u, 3000000u, 3500000u}) putUint32(bytes, v);
    QtAtomHintMediaHdr header(nullptr);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getMaxPduSize(), 1450u);
    EXPECT_EQ(header.getAvgPduSize(), 1200u);
    EXPECT_EQ(header.getMaxBitRate(), 4000000u);
    EXPECT_EQ(header.getAvgBitRate(), 3000000u);
    EXPECT_EQ(header.getSlidingAvgBitRate(), 3500000u);
    EXPECT_EQ(encodeToBytes(header), bytes);
    MessageCapture capture;
    header.show();
    EXPECT_EQ(capture.all(),
              "hmhd: 28b@0,v0,f=0,max/avg pdu=1450/1200, max/avg/sliding bps=4000000/3000000/3500000\n");
}

TEST(QtAtomHintMediaHdr, NewHeaderIsAllZero) {
    Bytes expected;
    putAtomHeader(expected, 28, "hmhd");
    expected.insert(expected.end(), 20, 0);
    EXPECT_EQ(encodeToBytes(QtAtomHintMediaHdr(nullptr)), expected);
}
