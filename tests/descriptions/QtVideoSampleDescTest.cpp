// QtVideoSampleDesc: colour tables, extension areas and their terminator, setters keeping the size,
// field mode and equality.
#include <gtest/gtest.h>

#include "tests/descriptions/SampleDescFixture.h"

namespace {

struct VideoTrack : ReadTrack {
    explicit VideoTrack(Bytes const& entry)
        : ReadTrack(trackMovie(handlerBytes("mhlr", "vide"), stsdBytes(1, entry))) {}
    QtVideoSampleDesc const* video() const { return stsd ? stsd->getVideoDesc(1) : nullptr; }
    QtVideoSampleDesc* writable() const { return stsd->write()->getVideoDesc(1); }
};

TEST(QtVideoSampleDesc, SettersPlaceOneAtomEachAndKeepTheSizeWithATerminator) {
    VideoTrack track(videoEntry("avc1", 64, 64));
    QtVideoSampleDesc* video = track.writable();
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->getExtensionSize(), 0u);
    video->setFieldInfo(2, FieldDetailTopFirst);
    EXPECT_EQ(video->getFieldMode(), 1u);
    EXPECT_EQ(video->getSize(), 86u + 10 + 4) << "the first extension brings the terminator";
    EXPECT_EQ(track.stsd->getSize(), 16u + 86 + 10 + 4);
    video->setFieldInfo(1, FieldDetailUnknown);
    EXPECT_EQ(video->getFieldMode(), 2u);
    EXPECT_EQ(video->getSize(), 86u + 10 + 4);
    video->setColorInfo(qtId("nclc"), ColorPrimariesBT709, ColorTransferBT709, ColorMatrixBT709);
    video->setCleanApertureDimensions(64, 1, 64, 1);
    video->setACLR(0x30303031, 1);
    video->setAPRG(0x30303031, 1);
    video->setARES(0x30303031, 1253, 64, 64, 1, 6);
    EXPECT_EQ(video->getSize(), 86u + 10 + 18 + 40 + 24 + 24 + 120 + 4);

    Bytes written = encodedAtom(*track.stsd);
    ASSERT_EQ(written.size(), track.stsd->getSize());
    EXPECT_EQ(Bytes(written.end() - 4, written.end()), zeros(4));
}

TEST(QtVideoSampleDesc, EqualityIgnoresNamesQualitiesAndOtherExtensions) {
    VideoTrack a(videoEntry("jpeg", 160, 120, atomBytes("pasp", zeros(8)), 0xFFFF, "one"));
    VideoTrack b(videoEntry("jpeg", 160, 120, {}, 0xFFFF, "another"));
    VideoTrack c(videoEntry("jpeg", 160, 121));
    VideoTrack d(videoEntry("mjpa", 160, 120));
    ASSERT_TRUE(a.video() && b.video() && c.video() && d.video());
    EXPECT_TRUE(*a.video() == *b.video());
    EXPECT_TRUE(static_cast<QtSampleDesc const&>(*a.video()) == *b.video());
    EXPECT_FALSE(*a.video() == *c.video());
    EXPECT_FALSE(static_cast<QtSampleDesc const&>(*a.video()) == *d.video()) << "formats differ";

    VideoTrack fields(videoEntry("jpeg", 160, 120, atomBytes("fiel", Bytes{2, 1})));
    EXPECT_FALSE(*a.video() == *fields.video()) << "the field mode is compared";
}

}  // namespace
