#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomApertDimensions.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

Bytes apertureBytes(char const* type, uint32_t width, uint32_t height) {
    Bytes b;
    putAtomHeader(b, 20, type);
    putUint32(b, 0);
    putUint32(b, width);
    putUint32(b, height);
    return b;
}

}  // namespace

TEST(QtAtomApertDimensions, PlainFixedPointValuesReadAsWholeFractionsAndWriteBackAsFractions) {
    QtAtomApertDimensions encoded(nullptr, qtId("enof"));
    ASSERT_TRUE(decodeFrom(encoded, apertureBytes("enof", 0x02D00000, 0x01E00000)));
    EXPECT_EQ(encoded.getId(), qtId("enof"));
    EXPECT_EQ(encoded.getWidth(), QtFraction(720, 1));
    EXPECT_EQ(encoded.getHeight(), QtFraction(480, 1));
    EXPECT_EQ(encodeToBytes(encoded), apertureBytes("enof", 0x02D00001, 0x01E00001));
}

TEST(QtAtomApertDimensions, WrittenFormReadsBackUnchangedAndFractionsReduce) {
    QtAtomApertDimensions clean(nullptr, qtId("clef"));
    ASSERT_TRUE(decodeFrom(clean, apertureBytes("clef", 0x02D00001, 0x0A000004)));  // 720/1, 2560/4
    EXPECT_EQ(clean.getHeight(), QtFraction(640, 1));
    EXPECT_EQ(encodeToBytes(clean), apertureBytes("clef", 0x02D00001, 0x02800001));
    ASSERT_TRUE(decodeFrom(clean, apertureBytes("clef", 0x02D00001, 0x02800001)));
    EXPECT_EQ(encodeToBytes(clean), apertureBytes("clef", 0x02D00001, 0x02800001));
}

TEST(QtAtomApertDimensions, NewDimensionsAreOneByOneAndShowAsNumbers) {
    QtAtomApertDimensions production(nullptr, qtId("prof"));
    EXPECT_EQ(production.getSize(), 20u);
    EXPECT_EQ(encodeToBytes(production), apertureBytes("prof", 0x00010001, 0x00010001));
    production.setDimensions(QtFraction(1440, 2), QtFraction(1080, 1));
    MessageCapture capture;
    production.show();
    EXPECT_EQ(capture.all(), "prof: 20b@0,v0,f=0,720x1080\n");
}
