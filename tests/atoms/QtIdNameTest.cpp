#include <gtest/gtest.h>

#include "quicktime/atoms/QtIdName.h"

TEST(QtIdName, RendersPrintableIdsAsTheirCharacters) {
    EXPECT_STREQ(QtIdName(qtId("udta")).render(), "udta");
    EXPECT_STREQ(QtIdName(qtId("url ")).render(), "url ");
    EXPECT_TRUE(QtIdName(qtId("moov")).valid());
}

TEST(QtIdName, ShowsALeadingCopyrightSignAsAt) {
    QtIdName name(0xA96E616Du);  // (c) n a m
    EXPECT_TRUE(name.valid());
    EXPECT_STREQ(name.render(), "@nam");
}

TEST(QtIdName, RendersInvalidIdsWithQuestionMarksAndReversedHex) {
    QtIdName name(0x00016162u);
    EXPECT_FALSE(name.valid());
    EXPECT_STREQ(name.render(), "??ab(62.61.01.00)");
}

TEST(QtIdName, CopyrightSignIsOnlyAcceptedInFirstPlace) {
    // 'a' 'b' 0x00 0xA9: the sign is not the leading byte.
    EXPECT_FALSE(QtIdName(0x616200A9u).valid());
    EXPECT_FALSE(QtIdName(0xA9A96162u).valid());  // two bytes outside the set
}

TEST(QtIdName, SetFromTextTakesFourCharactersAndRejectsLongerText) {
    QtIdName name;
    name.set("trak");
    EXPECT_EQ(name.getId(), qtId("trak"));
    EXPECT_STREQ(name.render(), "trak");
    name.set("traks");
    EXPECT_EQ(name.getId(), 0u);
    // Setting again clears the cached rendering.
    name.set(qtId("mdia"));
    EXPECT_STREQ(name.render(), "mdia");
}
