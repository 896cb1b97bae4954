#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomMediaHdr.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomMediaHdr, NewHeaderCountsInUnitsOfOneSecond) {
    QtAtomMediaHdr header(nullptr);
    EXPECT_EQ(header.getTimeScale(), 1u);
    Bytes expected;
    putAtomHeader(expected, 32, "mdhd");
    for (uint32_t v : {0u, 0u, 0u, 1u, 0u, 0u}) putUint32(expected, v);
    EXPECT_EQ(encodeToBytes(header), expected);
}

TEST(QtAtomMediaHdr, DecodesFieldsInOrderAndWritesTheSameBytes) {
    Bytes bytes;
    putAtomHeader(bytes, 32, "mdhd");
    for (uint32_t v : {0u, 0xC1u, 0xC2u, 48000u, 481024u}) putUint32(bytes, v);
    putUint16(bytes, 0x55C4);  // language
    putUint16(bytes, 0x0100);  // quality
    QtAtomMediaHdr header(nullptr);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getTimeScale(), 48000u);
    EXPECT_EQ(header.getDuration(), 481024u);
    EXPECT_EQ(header.getLanguage(), 0x55C4u);
    EXPECT_EQ(header.getQuality(), 0x0100u);
    EXPECT_EQ(encodeToBytes(header), bytes);

    MessageCapture capture;
    header.show();
    EXPECT_EQ(capture.all(), "mdhd: 32b@0,v0,f=0,48000hz,len=481024=00:00:10.021,lang=21956,q=256\n");
}

TEST(QtAtomMediaHdr, GrowingDurationAloneLeavesTheHeaderClean) {
    QtAtomMediaHdr header(nullptr);
    header.set(100, 25);
    header.setClean();
    header.set(200, 25);
    EXPECT_FALSE(header.isDirty());
    EXPECT_EQ(header.getDuration(), 200u);
    header.set(200, 30);
    EXPECT_TRUE(header.isDirty());
    EXPECT_EQ(header.getTimeScale(), 30u);
}

TEST(QtAtomMediaHdr, GivesItsTimeScaleToTheAtomsOfItsTrack) {
    QtAtomHeader trak(qtId("trak"), nullptr);
    auto* edts = new QtAtomHeader(qtId("edts"), &trak);
    auto* elst = new QtAtomHeader(qtId("elst"), edts);
    auto* mdia = new QtAtomHeader(qtId("mdia"), &trak);
    auto* header = new QtAtomMediaHdr(mdia);
    auto* minf = new QtAtomHeader(qtId("minf"), mdia);
    header->set(0, 12800);
    EXPECT_EQ(elst->getMediaTimeScale(), 12800u);  // through the track
    EXPECT_EQ(minf->getMediaTimeScale(), 12800u);  // through the media
}
