#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomHandler.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

Bytes handlerFields(uint32_t size, char const* type, char const* subtype) {
    Bytes b;
    putAtomHeader(b, size, "hdlr");
    putUint32(b, 0);
    putType(b, type);
    putType(b, subtype);
    putType(b, "appl");
    putUint32(b, 0x40000000);
    putUint32(b, 0x0001003F);
    return b;
}

}  // namespace

TEST(QtAtomHandler, NewHandlerIsNamedAfterItsSubtype) {
    EXPECT_STREQ(QtAtomHandler(nullptr, qtId("mhlr"), qtId("vide")).getName(), "Apple Video Media Handler");
    EXPECT_STREQ(QtAtomHandler(nullptr, qtId("mhlr"), qtId("soun")).getName(), "Apple Sound Media Handler");
    EXPECT_STREQ(QtAtomHandler(nullptr, qtId("mhlr"), qtId("tmcd")).getName(), "Time Code Media Handler");
    EXPECT_STREQ(QtAtomHandler(nullptr, qtId("dhlr"), qtId("alis")).getName(), "Apple Alias Data Handler");
    EXPECT_EQ(QtAtomHandler(nullptr, qtId("mhlr"), qtId("text")).getName(), nullptr);
}

TEST(QtAtomHandler, NewVideoHandlerEncodesItsNameOnceItsSizeIsRecomputed) {
    QtAtomHandler handler(nullptr, qtId("mhlr"), qtId("vide"));
    EXPECT_EQ(handler.getSize(), 32u);
    EXPECT_EQ(handler.resetSize(), 32u + 26u);
    Bytes bytes = encodeToBytes(handler);
    ASSERT_EQ(bytes.size(), 58u);
    EXPECT_EQ(bytes[3], 58);
    EXPECT_EQ(Bytes(bytes.begin() + 12, bytes.begin() + 20), (Bytes{'m', 'h', 'l', 'r', 'v', 'i', 'd', 'e'}));
    EXPECT_EQ(bytes[32], 25);
    EXPECT_EQ(std::string(bytes.begin() + 33, bytes.end()), "Apple Video Media Handler");
}

TEST(QtAtomHandler, ReadsAPascalNameThatFitsTheAtom) {
    Bytes bytes = handlerFields(45, "mhlr", "vide");
    bytes.push_back(12);
    putText(bytes, "VideoHandler");
    QtAtomHandler handler(nullptr, 0, 0);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(handler, bytes, &consumed));
    EXPECT_EQ(consumed, 45u);
    EXPECT_STREQ(handler.getName(), "VideoHandler");
    EXPECT_EQ(handler.getComponentType(), qtId("mhlr"));
    EXPECT_EQ(handler.getComponentSubtype(), qtId("vide"));
    EXPECT_EQ(handler.getManufacturer(), qtId("appl"));
    EXPECT_EQ(handler.getComponentFlags(), 0x40000000u);
    EXPECT_EQ(handler.getComponentFlagsMask(), 0x0001003Fu);
    EXPECT_EQ(encodeToBytes(handler), bytes);
}

TEST(QtAtomHandler, ReadsACStringNameAndWritesItBackAsPascal) {
    // "VideoHandler" and its terminator: the first byte ('V', 86) is larger than the 13 bytes left.
    Bytes bytes = handlerFields(45, "mhlr", "vide");
    putText(bytes, "VideoHandler");
    bytes.push_back(0);
    QtAtomHandler handler(nullptr, 0, 0);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(handler, bytes, &consumed));
    EXPECT_EQ(consumed, 45u);
    EXPECT_STREQ(handler.getName(), "VideoHandler");
    Bytes pascal = handlerFields(45, "mhlr", "vide");
    pascal.push_back(12);
    putText(pascal, "VideoHandler");
    EXPECT_EQ(encodeToBytes(handler), pascal);
}

TEST(QtAtomHandler, NamelessAtomTakesItsNameFromTheBytesThatFollowButConsumesNone) {
    Bytes bytes = handlerFields(32, "dhlr", "alis");
    putText(bytes, "Next");
    bytes.push_back(0);
    putText(bytes, "more");
    QtAtomHandler handler(nullptr, 0, 0);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(handler, bytes, &consumed));
    EXPECT_EQ(consumed, 32u);
    EXPECT_STREQ(handler.getName(), "Next");
    // The atom leaves no room for a name, so it writes back as its 32 bytes.
    EXPECT_EQ(encodeToBytes(handler), handlerFields(32, "dhlr", "alis"));
}

TEST(QtAtomHandler, NeverEncodesPastItsOwnSize) {
    // A C string that fills the whole room, without a terminator: its Pascal form would need one
    // byte more than the atom has, so the name is cut by one character.
    Bytes bytes = handlerFields(44, "mhlr", "soun");
    putText(bytes, "SoundHandler");
    QtAtomHandler handler(nullptr, 0, 0);
    ASSERT_TRUE(decodeFrom(handler, bytes));
    EXPECT_STREQ(handler.getName(), "SoundHandler");
    Bytes written = encodeToBytes(handler);
    ASSERT_EQ(written.size(), 44u);
    EXPECT_EQ(written[32], 11);
    EXPECT_EQ(std::string(written.begin() + 33, written.end()), "SoundHandle");

    // A Pascal length equal to the room claims one character beyond the atom.
    Bytes claim = handlerFields(36, "mhlr", "soun");
    claim.push_back(4);
    putText(claim, "abc");
    ASSERT_TRUE(decodeFrom(handler, claim));
    EXPECT_STREQ(handler.getName(), "abc");
    Bytes expected(claim.begin(), claim.begin() + 32);
    expected.push_back(3);
    putText(expected, "abc");
    EXPECT_EQ(encodeToBytes(handler), expected);
}

TEST(QtAtomHandler, ShorterNameIsFollowedByZerosUpToTheSize) {
    Bytes bytes = handlerFields(40, "mhlr", "vide");
    bytes.push_back(3);
    putText(bytes, "abc");
    bytes.insert(bytes.end(), 4, 0);  // padding after the name
    QtAtomHandler handler(nullptr, 0, 0);
    ASSERT_TRUE(decodeFrom(handler, bytes));
    EXPECT_EQ(encodeToBytes(handler), bytes);
    handler.setName("x");
    EXPECT_TRUE(handler.isDirty());
    Bytes renamed = encodeToBytes(handler);
    ASSERT_EQ(renamed.size(), 40u);
    EXPECT_EQ(Bytes(renamed.begin() + 32, renamed.end()), (Bytes{1, 'x', 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(handler.getVariableSize(), 2u);
}

TEST(QtAtomHandler, ShowPrintsTypesAndName) {
    QtAtomHandler handler(nullptr, qtId("mhlr"), qtId("tmcd"));
    MessageCapture capture;
    handler.show();
    EXPECT_EQ(capture.all(), "hdlr: 32b@0,v0,f=0,type=mhlr.tmcd,Time Code Media Handler\n");
}
