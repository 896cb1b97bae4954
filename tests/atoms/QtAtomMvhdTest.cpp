#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/atoms/QtAtomMvhd.h"
#include "quicktime/atoms/QtDebug.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

// A movie header as a recorder would write it: time scale 600, duration 1200, next track 3.
Bytes movieHeaderBytes(uint32_t versionAndFlags) {
    Bytes b;
    putAtomHeader(b, 108, "mvhd");
    putUint32(b, versionAndFlags);
    putUint32(b, 0xD0000001);  // creation
    putUint32(b, 0xD0000002);  // modification
    putUint32(b, 600);
    putUint32(b, 1200);
    putUint32(b, 0x00018000);                                                        // rate 1.5
    putUint16(b, 0x00C0);                                                            // volume 0.75
    for (int i = 0; i < 10; ++i) b.push_back(static_cast<unsigned char>(0xA0 + i));  // reserved, kept
    for (uint32_t v : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0x20000u, 0x30000u, 0x40000000u}) putUint32(b, v);
    for (uint32_t v : {60u, 120u, 180u, 240u, 300u, 360u}) putUint32(b, v);  // preview .. current time
    putUint32(b, 3);                                                         // next track ID
    return b;
}

}  // namespace

TEST(QtAtomMvhd, NewHeaderHasDefaultTimeScaleRateVolumeMatrixAndTrackId) {
    QtAtomMvhd header(nullptr, 0);
    EXPECT_EQ(header.getTimeScale(), 600u);
    EXPECT_EQ(QtAtomMvhd(nullptr, 2997).getTimeScale(), 2997u);
    Bytes expected;
    putAtomHeader(expected, 108, "mvhd");
    for (uint32_t v : {0u, 0u, 0u, 600u, 0u, 0x10000u}) putUint32(expected, v);
    putUint16(expected, 0x0100);
    expected.insert(expected.end(), 10, 0);
    for (uint32_t v : {0x10000u, 0u, 0u, 0u, 0x10000u, 0u, 0u, 0u, 0x40000000u}) putUint32(expected, v);
    for (int i = 0; i < 6; ++i) putUint32(expected, 0);
    putUint32(expected, 1);
    EXPECT_EQ(encodeToBytes(header), expected);
}

TEST(QtAtomMvhd, DecodesEveryFieldInOrderAndWritesTheSameBytes) {
    Bytes bytes = movieHeaderBytes(0);
    QtAtomMvhd header(nullptr, 0);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(header, bytes, &consumed));
    EXPECT_EQ(consumed, 108u);
    EXPECT_EQ(header.getTimeScale(), 600u);
    EXPECT_EQ(header.getDuration(), 1200u);
    EXPECT_EQ(header.getPreferredRate(), 0x18000u);
    EXPECT_EQ(header.getPreferredVolume(), 0xC0u);
    EXPECT_EQ(header.getMatrix().values[6], 0x20000u);
    EXPECT_EQ(header.getSelectionTime(), 240u);
    EXPECT_EQ(header.getSelectionDuration(), 300u);
    EXPECT_EQ(header.getNextTrackId(), 3u);
    EXPECT_EQ(encodeToBytes(header), bytes);
}

TEST(QtAtomMvhd, VersionOneIsReadWithThe32BitLayout) {
    Bytes bytes = movieHeaderBytes(0x01000000);
    QtAtomMvhd header(nullptr, 0);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getVersionAndFlags().version, 1u);
    EXPECT_EQ(header.getTimeScale(), 600u);
    EXPECT_EQ(header.getDuration(), 1200u);
    EXPECT_EQ(header.getNextTrackId(), 3u);
    EXPECT_EQ(encodeToBytes(header), bytes);
}

TEST(QtAtomMvhd, TimesConvertBetween1904SecondsAnd1970Microseconds) {
    QtAtomMvhd header(nullptr, 0);
    ASSERT_TRUE(decodeFrom(header, movieHeaderBytes(0)));
    EXPECT_EQ(header.getCreateTime(), int64_t(0xD0000001u - 2082844800u) * 1000000);
    EXPECT_EQ(header.getModTime(), int64_t(0xD0000002u - 2082844800u) * 1000000);
    header.setClean();
    header.setTime(header.getCreateTime());  // modification differs: both become the creation time
    EXPECT_TRUE(header.isDirty());
    EXPECT_EQ(header.getModTime(), header.getCreateTime());
    header.setClean();
    header.setTime(header.getCreateTime() + 999999);  // same whole second
    EXPECT_FALSE(header.isDirty());
}

TEST(QtAtomMvhd, GrowingDurationAloneLeavesTheHeaderClean) {
    QtAtomMvhd header(nullptr, 600);
    header.setClean();
    header.set(5000, 0, 0);
    EXPECT_EQ(header.getDuration(), 5000u);
    EXPECT_FALSE(header.isDirty());
    header.set(6000, 100, 0);
    EXPECT_TRUE(header.isDirty());
    EXPECT_EQ(header.getSelectionTime(), 100u);
    header.setClean();
    header.set(7000, 100, 0);
    EXPECT_FALSE(header.isDirty());
}

TEST(QtAtomMvhd, AllocatesTrackIdsInTurn) {
    QtAtomMvhd header(nullptr, 600);
    header.setClean();
    EXPECT_EQ(header.allocTrackId(), 1u);
    EXPECT_EQ(header.allocTrackId(), 2u);
    EXPECT_EQ(header.getNextTrackId(), 3u);
    EXPECT_TRUE(header.isDirty());
}

TEST(QtAtomMvhd, GivesItsTimeScaleToTheAtomsOfItsMovie) {
    QtAtomHeader moov(qtId("moov"), nullptr);
    new QtAtomMvhd(&moov, 2997);
    auto* trak = new QtAtomHeader(qtId("trak"), &moov);
    auto* edts = new QtAtomHeader(qtId("edts"), trak);
    EXPECT_EQ(edts->getMovieTimeScale(), 2997u);
}

TEST(QtAtomMvhd, ShowPrintsTimesAsTimecodeAndHonoursNoDates) {
    QtAtomMvhd header(nullptr, 0);
    ASSERT_TRUE(decodeFrom(header, movieHeaderBytes(0)));
    {
        MessageCapture capture;
        header.show();
        EXPECT_EQ(capture.all(),
                  "mvhd: 108b@0,v0,f=0,600hz,len=1200(movie)=00:00:02.000,next trak=3\n"
                  "  cre=0xd0000001,mod=0xd0000002,cur=0x168\n"
                  "  preview: start=00:00:00.100(60:movie),len=00:00:00.200(120:movie)\n"
                  "  selection: start=00:00:00.400(240:movie),len=00:00:00.500(300:movie)\n");
        EXPECT_EQ(capture.count(MsgLevel::Info), 4u);
    }
    ScopedDebugFlag noDates("quicktimeDbg", "no dates");
    ASSERT_TRUE(noDates.ok());
    MessageCapture capture;
    header.show();
    EXPECT_FALSE(capture.contains("cre="));
    EXPECT_TRUE(capture.contains("selection:"));
}

TEST(QtAtomMvhd, RefusesABodyShorterThanItsFields) {
    Bytes bytes = movieHeaderBytes(0);
    bytes.resize(60);
    QtAtomMvhd header(nullptr, 0);
    EXPECT_FALSE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getTimeScale(), 600u);  // untouched
}
