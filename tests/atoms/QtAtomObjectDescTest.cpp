#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomObjectDesc.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomObjectDesc, NewAtomCarriesThePlaceholderIdAndFixedSize) {
    QtAtomObjectDesc descriptor(nullptr);
    EXPECT_EQ(descriptor.getId(), qtId("hmhd"));
    EXPECT_EQ(descriptor.getSize(), 13u);
    EXPECT_EQ(descriptor.getLength(), 0u);
    EXPECT_EQ(encodeToBytes(descriptor).size(), 13u);
}

TEST(QtAtomObjectDesc, KeepsTheDescriptorBytesAndPrintsThemInHex) {
    Bytes bytes;
    putAtomHeader(bytes, 23, "iods");
    putUint32(bytes, 0);
    for (unsigned char c : {0x10, 0x80, 0x80, 0x80, 0x07, 0x00, 0x4F, 0xFF, 0xFF, 0x29, 0xAB})
        bytes.push_back(c);
    QtAtomObjectDesc descriptor(nullptr);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(descriptor, bytes, &consumed));
    EXPECT_EQ(consumed, 23u);
    EXPECT_EQ(descriptor.getId(), qtId("iods"));
    EXPECT_EQ(descriptor.getTag(), 0x10u);
    EXPECT_EQ(descriptor.getLength(), 10u);
    EXPECT_EQ(descriptor.getVariableSize(), 10u);
    EXPECT_EQ(encodeToBytes(descriptor), bytes);
    MessageCapture capture;
    descriptor.show();
    EXPECT_EQ(capture.all(), "iods: 23b@0: tag=0x10, bits=80808007004fffff29ab\n");
}
