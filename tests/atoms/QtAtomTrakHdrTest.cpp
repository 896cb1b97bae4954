#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomMvhd.h"
#include "quicktime/atoms/QtAtomTrakHdr.h"
#include "quicktime/atoms/QtDebug.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

Bytes trackHeaderBytes(uint32_t flags, uint32_t width, uint32_t height) {
    Bytes b;
    putAtomHeader(b, 92, "tkhd");
    for (uint32_t v : {flags, 0xC0000001u, 0xC0000002u, 7u, 0x11111111u, 3000u}) putUint32(b, v);
    for (int i = 0; i < 8; ++i) b.push_back(static_cast<unsigned char>(0xB0 + i));  // reserved, kept
    for (uint16_t v : {uint16_t(1), uint16_t(2), uint16_t(0x0100), uint16_t(0x2222)}) putUint16(b, v);
    for (uint32_t v : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) putUint32(b, v);
    putUint32(b, width);
    putUint32(b, height);
    return b;
}

}  // namespace

TEST(QtAtomTrakHdr, NewHeaderIsEnabledInMoviePreviewAndPoster) {
    QtAtomTrakHdr header(nullptr);
    EXPECT_EQ(header.getSize(), 92u);
    EXPECT_EQ(header.getVersionAndFlags().flags, 0x0Fu);
    EXPECT_STREQ(header.flagText().get(), "enabled,movie,preview,poster");
    Bytes bytes = encodeToBytes(header);
    ASSERT_EQ(bytes.size(), 92u);
    EXPECT_EQ(bytes[11], 0x0F);
    EXPECT_EQ(bytes[48 + 32], 0x40);  // the identity matrix ends in 0x40000000
}

TEST(QtAtomTrakHdr, FlagWordsNameOnlyTheBitsThatAreSet) {
    QtAtomTrakHdr header(nullptr);
    ASSERT_TRUE(decodeFrom(header, trackHeaderBytes(0x000002, 0, 0)));
    EXPECT_STREQ(header.flagText().get(), "disabled,movie");
    ASSERT_TRUE(decodeFrom(header, trackHeaderBytes(0x000009, 0, 0)));
    EXPECT_STREQ(header.flagText().get(), "enabled,poster");
}

TEST(QtAtomTrakHdr, DecodesEveryFieldAndWritesTheSameBytes) {
    Bytes bytes = trackHeaderBytes(3, 0x02D00000, 0x01E00000);
    QtAtomTrakHdr header(nullptr);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getTrackId(), 7u);
    EXPECT_EQ(header.getDuration(), 3000u);
    EXPECT_EQ(header.getLayer(), 1u);
    EXPECT_EQ(header.getAlternateGroup(), 2u);
    EXPECT_EQ(header.getVolume(), 0x0100u);
    EXPECT_EQ(header.getWidth(), 720u);
    EXPECT_EQ(header.getHeight(), 480u);
    EXPECT_EQ(encodeToBytes(header), bytes);
}

TEST(QtAtomTrakHdr, SizeIsKeptInWholePixelsSoAFractionIsDropped) {
    QtAtomTrakHdr header(nullptr);
    ASSERT_TRUE(decodeFrom(header, trackHeaderBytes(3, 0x02D08000, 0x01E0FFFF)));  // 720.5 x 480.99
    EXPECT_EQ(header.getWidth(), 720u);
    EXPECT_EQ(header.getHeight(), 480u);
    Bytes bytes = encodeToBytes(header);
    EXPECT_EQ(bytes, trackHeaderBytes(3, 0x02D00000, 0x01E00000));
}

TEST(QtAtomTrakHdr, SetSizeAndDurationMarkDirtyOnlyOnChange) {
    QtAtomTrakHdr header(nullptr);
    header.setSize(1920, 1080, 0x100);
    header.setDuration(500);
    header.setClean();
    header.setSize(1920, 1080, 0x100);
    header.setDuration(500);
    EXPECT_FALSE(header.isDirty());
    header.setSize(1920, 1080, 0);
    EXPECT_TRUE(header.isDirty());
    header.setClean();
    header.setDuration(501);
    EXPECT_TRUE(header.isDirty());
    Bytes bytes = encodeToBytes(header);
    EXPECT_EQ(bytes[84], 0x07);  // 1920 << 16 = 0x07800000
    EXPECT_EQ(bytes[85], 0x80);
}

TEST(QtAtomTrakHdr, TakesItsTrackIdFromTheMovieHeaderAbove) {
    QtAtomTrakHdr alone(nullptr);
    EXPECT_EQ(alone.allocTrackId(), 0u);
    EXPECT_EQ(alone.getTrackId(), 0u);

    QtAtomHeader moov(qtId("moov"), nullptr);
    auto* movieHeader = new QtAtomMvhd(&moov, 600);
    for (int i = 0; i < 2; ++i) movieHeader->allocTrackId();  // next track ID is now 3
    auto* trak = new QtAtomHeader(qtId("trak"), &moov);
    auto* header = new QtAtomTrakHdr(trak);
    EXPECT_EQ(header->allocTrackId(), 3u);
    EXPECT_EQ(header->getTrackId(), 3u);
    EXPECT_EQ(movieHeader->getNextTrackId(), 4u);
}

TEST(QtAtomTrakHdr, SetTimeNowStampsBothDates) {
    QtAtomTrakHdr header(nullptr);
    header.setClean();
    uint32_t before = BaseQtAtom::getMacTimeNow();
    header.setTimeNow();
    EXPECT_TRUE(header.isDirty());
    EXPECT_GE(header.getCreationTime(), before);
    EXPECT_LE(header.getCreationTime(), BaseQtAtom::getMacTimeNow());
    EXPECT_EQ(header.getModificationTime(), header.getCreationTime());
}

TEST(QtAtomTrakHdr, ShowPrintsDurationInMovieTimeAndTheFlagWords) {
    QtAtomHeader moov(qtId("moov"), nullptr);
    new QtAtomMvhd(&moov, 1000);
    auto* trak = new QtAtomHeader(qtId("trak"), &moov);
    auto* header = new QtAtomTrakHdr(trak);
    header->setSize(320, 240, 0);
    header->setDuration(10000);
    MessageCapture capture;
    header->show();
    EXPECT_EQ(capture.all(),
              "    tkhd: 92b@124,v0,f=f,trak0,layer=0,\n"
              "      len=00:00:10.000(10000:movie),320x240, enabled,movie,preview,poster\n"
              "      cre=0x0,mod=0x0\n");
    ScopedDebugFlag noDates("quicktimeDbg", "no dates");
    capture.clear();
    header->show();
    EXPECT_FALSE(capture.contains("cre="));
}
