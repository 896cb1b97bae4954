// Qtx, the container of a description's extension area: raw bytes kept whole on reading, the tree
// re-encoded into them by every setter, the queries, and the fill-in-later 'avcC'.
#include <gtest/gtest.h>

#include "quicktime/descriptions/Qtx.h"
#include "quicktime/descriptions/QtxAtom.h"
#include "quicktime/descriptions/QtxAvcDecoderInfo.h"
#include "tests/TestSupport.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

Bytes rawOf(Qtx const& qtx) { return Bytes(qtx.getData(), qtx.getData() + qtx.getSize()); }

void decodeArea(Qtx& qtx, Bytes& area) {
    QtAtomBuffer buffer(area.data(), static_cast<unsigned int>(area.size()), QtAtomBuffer::Full);
    qtx.decode(buffer, static_cast<unsigned int>(area.size()));
}

Bytes encodedArea(Qtx const& qtx) {
    QtAtomBuffer out(qtx.getSize());
    qtx.encode(out);
    return Bytes(out.ptrData(), out.ptrEnd());
}

unsigned int countChildren(Qtx const& qtx) {
    unsigned int n = 0;
    for (Qtx::Atom const* child = qtx.getRoot().getChild(); child; child = child->getSibling()) ++n;
    return n;
}

TEST(QtxDecode, AFieldAtomAndAZeroWordGiveOneChildAndPaddingFour) {
    Bytes area = atomBytes("fiel", Bytes{2, 6});
    putBytes(area, zeros(4));
    Qtx qtx;
    decodeArea(qtx, area);
    EXPECT_EQ(countChildren(qtx), 1u);
    EXPECT_EQ(qtx.getPaddingSize(), 4u);
    EXPECT_EQ(qtx.getNumFields(0), 2);
    EXPECT_EQ(encodedArea(qtx), area);
}

TEST(QtxQueries, FieldCountComesFromFielThenAresThenTheDefault) {
    Qtx qtx;
    EXPECT_EQ(qtx.getNumFields(0), 0);
    EXPECT_EQ(qtx.getNumFields(7), 7);
    qtx.setARES(0x30303031, 1253, 1920, 540, 2, 4);
    EXPECT_EQ(qtx.getNumFields(0), 2);
    qtx.setFieldInfo(1, FieldDetailUnknown);
    EXPECT_EQ(qtx.getNumFields(0), 1) << "'fiel' is asked before 'ARES'";
}

TEST(QtxQueries, ByteOrderComesFromEndaAnywhereElseTheDefault) {
    Qtx qtx;
    EXPECT_FALSE(qtx.isLittleEndian(false));
    EXPECT_TRUE(qtx.isLittleEndian(true));
    Bytes wave = atomBytes("wave", atomBytes("enda", Bytes{0, 0}));
    decodeArea(qtx, wave);
    EXPECT_FALSE(qtx.isLittleEndian(true)) << "an enda of 0 says big-endian";
}

TEST(QtxSetters, EachSetterLeavesOneAtomOfItsTypeAndTheRawBytesEncodeTheTree) {
    Qtx qtx;
    qtx.setFieldInfo(2, FieldDetailBottomFirst);
    qtx.setFieldInfo(2, FieldDetailTopFirst);
    EXPECT_EQ(countChildren(qtx), 1u);
    EXPECT_EQ(rawOf(qtx), atomBytes("fiel", Bytes{2, 1}));
    EXPECT_EQ(qtx.getPaddingSize(), 0u);

    qtx.setColorInfo(qtId("nclc"), ColorPrimariesBT2020, ColorTransferHLG, ColorMatrixBT2020);
    qtx.setPixelAspectInfo(40, 33);
    qtx.setCleanAptInfo(704, 1, 480, 1);
    Bytes expected = atomBytes("fiel", Bytes{2, 1});
    putBytes(expected, atomBytes("colr", Bytes{'n', 'c', 'l', 'c', 0, 9, 0, 18, 0, 9}));
    putBytes(expected, atomBytes("pasp", Bytes{0, 0, 0, 40, 0, 0, 0, 33}));
    Bytes clap;
    for (unsigned int v : {704u, 1u, 480u, 1u, 0u, 1u, 0u, 1u}) put32(clap, v);
    putBytes(expected, atomBytes("clap", clap));
    EXPECT_EQ(rawOf(qtx), expected);
    EXPECT_STREQ(qtx.toString().get(),
                 "{fiel={ fields=2, detail=topFirst},colr={ type='nclc', primaries=9, xferFunc=18, matrix=9},"
                 "pasp={hSpacing=40, vSpacing=33},clap={width=704, height=480, horizOff=0, vertOff=0}}");

    qtx.setPixelAspectInfo(1, 1);  // replaced, and moved to the end
    EXPECT_EQ(countChildren(qtx), 4u);
    EXPECT_EQ(qtx.getSize(), expected.size());
}

TEST(QtxAvc, ParameterSetsThatDoNotFitTheAreaAreRefusedAndNothingChanges) {
    // An 'avcC' read from a file has only the room its own sets took.
    Bytes body{1, 77, 0, 30, 0xFF, 0xE1, 0, 4, 0x67, 77, 0, 30, 1, 0, 2, 0x68, 0xCE};
    Bytes area = atomBytes("avcC", body);
    Qtx qtx;
    decodeArea(qtx, area);
    ASSERT_NE(qtx.findAtom(qtId("avcC")), nullptr);
    Bytes sps(30, 0x67), pps(4, 0x68);
    MessageCapture messages;
    EXPECT_FALSE(qtx.setAvcSpsPps(30, sps.data(), 4, pps.data()));
    EXPECT_TRUE(messages.contains("do not fit"));
    EXPECT_EQ(rawOf(qtx), area);

    Bytes smaller(2, 0x67);
    smaller[1] = 66;
    EXPECT_TRUE(qtx.setAvcSpsPps(2, smaller.data(), 2, pps.data()));
    EXPECT_EQ(qtx.getSize(), area.size());
    EXPECT_EQ(qtx.findAtom(qtId("avcC"))->getSize(), 23u);
}

}  // namespace
