// QtSampleDesc and its small entry classes: text, MPEG-2 and unknown entries read and written back,
// and equality limited to sound and video.
#include <gtest/gtest.h>

#include "tests/descriptions/SampleDescFixture.h"

namespace {

Bytes textEntry(char const* fontName, Bytes const& after = {}) {
    Bytes fields;
    put32(fields, 0x2001);  // display flags
    put32(fields, 1);       // justification
    putBytes(fields, Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
    for (unsigned int v : {0u, 0u, 480u, 640u}) put16(fields, v);
    putBytes(fields, zeros(8));
    put16(fields, 3);  // font number
    put16(fields, 1);  // face
    putBytes(fields, zeros(3));
    putBytes(fields, zeros(6));
    if (fontName) {
        put8(fields, static_cast<unsigned int>(strlen(fontName)));
        for (char const* c = fontName; *c; ++c) put8(fields, static_cast<unsigned char>(*c));
    }
    putBytes(fields, after);
    Bytes entry = entryHeader(static_cast<unsigned int>(16 + fields.size()), "text");
    putBytes(entry, fields);
    return entry;
}

TEST(QtSampleDesc, TextEntriesKeepTheirFontNameAndWhatFollowsIt) {
    Bytes entry = textEntry("Helvetica", atomBytes("ftab", Bytes{0, 1, 0, 3, 4, 'T', 'i', 'm', 'e'}));
    ReadTrack track(trackMovie(handlerBytes("mhlr", "text"), stsdBytes(1, entry)));
    ASSERT_NE(track.stsd, nullptr);
    auto const* text = dynamic_cast<QtTextSampleDesc const*>(track.stsd->getDesc(1));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text->getFontName(), "Helvetica");
    EXPECT_EQ(text->getDisplayFlags(), 0x2001u);
    EXPECT_EQ(encodedAtom(*track.stsd), stsdBytes(1, entry));
    MessageCapture messages;
    text->show(0);
    EXPECT_EQ(messages.all(),
              "text: sz=" + std::to_string(entry.size()) + ",fmt=text,idx=1,display=0x2001,font=Helvetica");

    ReadTrack nameless(trackMovie(handlerBytes("mhlr", "text"), stsdBytes(1, textEntry(nullptr))));
    auto const* plain = dynamic_cast<QtTextSampleDesc const*>(nameless.stsd->getDesc(1));
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->getFontName(), nullptr);
    EXPECT_EQ(encodedAtom(*nameless.stsd), stsdBytes(1, textEntry(nullptr)));
}

TEST(QtSampleDesc, Mpeg2AndUnknownEntriesAreWrittenBackAsRead) {
    Bytes mpeg2 = entryHeader(28, "m2v1", 2);
    for (unsigned int i = 0; i < 12; ++i) put8(mpeg2, i + 1);
    ReadTrack track(trackMovie(handlerBytes("mhlr", "m2v "), stsdBytes(1, mpeg2)));
    ASSERT_NE(track.stsd->getMpeg2Desc(1), nullptr);
    EXPECT_EQ(track.stsd->getDrefIndex(1), 2u);
    EXPECT_EQ(encodedAtom(*track.stsd), stsdBytes(1, mpeg2));

    Bytes other = entryHeader(36, "sbtl");
    for (unsigned int i = 0; i < 20; ++i) put8(other, 0x30 + i);
    ReadTrack unknown(trackMovie(handlerBytes("mhlr", "sbtl"), stsdBytes(1, other)));
    EXPECT_EQ(unknown.stsd->getDesc(1)->getOpaque().getSize(), 20u);
    EXPECT_EQ(encodedAtom(*unknown.stsd), stsdBytes(1, other));
    MessageCapture messages;
    unknown.stsd->getDesc(1)->show(2);
    EXPECT_EQ(messages.all(), "  unknown: sz=36,fmt=sbtl,idx=1\n");
}

}  // namespace
