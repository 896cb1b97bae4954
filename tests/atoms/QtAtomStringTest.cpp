#include <gtest/gtest.h>

#include "quicktime/atoms/QtAtomString.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

TEST(QtAtomString, TextIsStoredWithItsTerminatorSoTheSizeCoversIt) {
    QtAtomString text(nullptr, qtId("name"));
    EXPECT_EQ(text.resetSize(), 8u);
    text.setText("abc");
    EXPECT_EQ(text.resetSize(), 12u);
    EXPECT_EQ(encodeToBytes(text), (Bytes{0, 0, 0, 12, 'n', 'a', 'm', 'e', 'a', 'b', 'c', 0}));
    text.setText(nullptr);
    EXPECT_STREQ(text.getText(), "");
    EXPECT_EQ(text.resetSize(), 8u);
}

TEST(QtAtomString, BodyWithoutTerminatorIsKeptAsItIs) {
    Bytes bytes{0, 0, 0, 11, 'n', 'a', 'm', 'e', 'x', 'y', 'z', 'N', 'E', 'X', 'T'};
    QtAtomString text(nullptr, 0);
    unsigned int consumed = 0;
    ASSERT_TRUE(decodeFrom(text, bytes, &consumed));
    EXPECT_EQ(consumed, 11u);
    EXPECT_STREQ(text.getText(), "xyz");
    EXPECT_EQ(encodeToBytes(text), Bytes(bytes.begin(), bytes.begin() + 11));
    MessageCapture capture;
    text.show();
    EXPECT_EQ(capture.all(), "name: 11b@0,\"xyz\"\n");
}
