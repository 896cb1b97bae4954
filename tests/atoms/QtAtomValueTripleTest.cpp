#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomM12v.h"
#include "quicktime/atoms/QtAtomSean.h"
#include "quicktime/atoms/QtAtomValueTriple.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomValueTriple, NewSeanAndM12vCarryTheTrackHeaderIdUntilDecoded) {
    QtAtomSean sean(nullptr);
    QtAtomM12v m12v(nullptr);
    for (QtAtomValueTriple const* atom :
         {static_cast<QtAtomValueTriple const*>(&sean), static_cast<QtAtomValueTriple const*>(&m12v)}) {
        EXPECT_EQ(atom->getId(), qtId("tkhd"));
        EXPECT_EQ(atom->getSize(), 20u);
        EXPECT_EQ(atom->getValue(0), 1u);
        EXPECT_EQ(atom->getValue(1), 2u);
        EXPECT_EQ(atom->getValue(2), 0u);
        EXPECT_TRUE(atom->hasEncodedChildren());
    }
    Bytes expected;
    putAtomHeader(expected, 20, "tkhd");
    for (uint32_t v : {1u, 2u, 0u}) putUint32(expected, v);
    EXPECT_EQ(encodeToBytes(sean), expected);
}

TEST(QtAtomValueTriple, DecodedAtomTakesItsIdFromTheFileAndLeavesChildrenToTheReader) {
    Bytes bytes;
    putAtomHeader(bytes, 32, "m12v");
    for (uint32_t v : {7u, 8u, 9u}) putUint32(bytes, v);
    putAtomHeader(bytes, 12, "abcd");  // a child atom
    putUint32(bytes, 0x01020304);
    QtAtomM12v m12v(nullptr);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(m12v, bytes, &consumed));
    EXPECT_EQ(consumed, 20u);
    EXPECT_EQ(m12v.getId(), qtId("m12v"));
    EXPECT_EQ(m12v.getValue(2), 9u);
    EXPECT_EQ(encodeToBytes(m12v), Bytes(bytes.begin(), bytes.begin() + 20));
    MessageCapture capture;
    m12v.show();
    EXPECT_EQ(capture.all(), "m12v: 32b@0,v{1,2,3}=7,8,9,\n");
}
