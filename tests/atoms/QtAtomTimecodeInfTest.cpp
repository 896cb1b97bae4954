#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomTimecodeInf.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

// The fixed part as ffmpeg writes it in h264_bframes_aac_tc.mov, followed by the Pascal name.
Bytes timecodeInfBytes(uint32_t size, std::string const& pascalName) {
    Bytes b;
    putAtomHeader(b, size, "tcmi");
    putUint32(b, 0);
    for (uint16_t v : {0, 0, 12}) putUint16(b, v);           // font, face, size
    for (uint16_t v : {0, 0, 0}) putUint16(b, v);            // text colour
    for (uint16_t v : {0, 0xFFFF, 0xFFFF}) putUint16(b, v);  // background colour
    putUint16(b, 0xFFFF);
    putText(b, pascalName);
    return b;
}

}  // namespace

TEST(QtAtomTimecodeInf, NewHeaderIs33BytesEndingInTheEmptyName) {
    QtAtomTimecodeInf header(nullptr);
    EXPECT_EQ(header.getSize(), 33u);
    Bytes bytes = encodeToBytes(header);
    ASSERT_EQ(bytes.size(), 33u);
    EXPECT_EQ(bytes[17], 12);  // text size
    EXPECT_EQ(Bytes(bytes.end() - 3, bytes.end()), (Bytes{0x00, 0xFF, 0x00}));
    EXPECT_EQ(header.getSize(), header.getFixedSize() + header.getVariableSize());
}

TEST(QtAtomTimecodeInf, ReadsTheFontNameAfterTheColours) {
    Bytes bytes = timecodeInfBytes(46, std::string("\x0d") + "Lucida Grande");
    QtAtomTimecodeInf header(nullptr);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(header, bytes, &consumed));
    EXPECT_EQ(consumed, 46u);
    EXPECT_EQ(header.getTextSize(), 12u);
    EXPECT_EQ(header.getBackgroundColor().green, 0xFFFFu);
    EXPECT_EQ(header.getTrailer(), 0xFFFFu);
    EXPECT_STREQ(header.getFontName().getString(), "Lucida Grande");
    EXPECT_EQ(encodeToBytes(header), bytes);
    MessageCapture capture;
    header.show();
    EXPECT_EQ(capture.all(),
              "tcmi: 46b@0,v0,f=0,f=0/0x0/12pt,\n  Lucida Grande,fg=0x0/0/0,bg=0x0/ffff/ffff\n");
}

TEST(QtAtomTimecodeInf, NameIsReadFromTheAtomOnlyAndNeverWrittenPastIt) {
    // The length byte claims 20 characters, but the atom ends after 5.
    Bytes bytes = timecodeInfBytes(38, std::string("\x14") + "Arial");
    putText(bytes, "-bytes-of-the-next-atom");
    QtAtomTimecodeInf header(nullptr);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(header, bytes, &consumed));
    EXPECT_EQ(consumed, 38u);
    EXPECT_STREQ(header.getFontName().getString(), "Arial");
    Bytes written = encodeToBytes(header);
    ASSERT_EQ(written.size(), 38u);
    EXPECT_EQ(written[32], 5);

    // An atom with no room for a name writes none.
    Bytes bare = timecodeInfBytes(32, "");
    ASSERT_TRUE(decodeFrom(header, bare));
    EXPECT_EQ(encodeToBytes(header), bare);
    MessageCapture capture;
    header.show();
    EXPECT_TRUE(capture.contains("  <>,fg="));
}

TEST(QtAtomTimecodeInf, FaceIsWrittenAsItsLow16Bits) {
    Bytes bytes = timecodeInfBytes(33, std::string(1, '\0'));
    bytes[14] = 0x12;
    bytes[15] = 0x34;
    QtAtomTimecodeInf header(nullptr);
    ASSERT_TRUE(decodeFrom(header, bytes));
    EXPECT_EQ(header.getTextFace(), 0x1234u);
    EXPECT_EQ(encodeToBytes(header), bytes);
}

TEST(QtAtomTimecodeInf, SettingTheFontNameChangesTheVariableSize) {
    QtAtomTimecodeInf header(nullptr);
    header.setClean();
    header.setFontName("Courier");
    EXPECT_TRUE(header.isDirty());
    EXPECT_EQ(header.resetSize(), 32u + 8u);
    Bytes bytes = encodeToBytes(header);
    ASSERT_EQ(bytes.size(), 40u);
    EXPECT_EQ(bytes[32], 7);
    EXPECT_EQ(std::string(bytes.begin() + 33, bytes.end()), "Courier");
}
