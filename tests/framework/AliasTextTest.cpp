#include <gtest/gtest.h>

#include <string>

#include "framework/AliasText.h"

namespace {

std::string toAlias(char const* utf8, unsigned int* lost = nullptr) {
    return utf8_to_qtalias(utf8, lost).get();
}
std::string toUtf8(char const* alias) { return qtalias_to_utf8(alias).get(); }

}  // namespace

TEST(AliasText, EveryAliasByteRoundTripsThroughUtf8) {
    for (int byte = 1; byte < 256; ++byte) {
        char alias[2] = {static_cast<char>(byte), 0};
        std::string utf8 = toUtf8(alias);
        unsigned int lost = 99;
        EXPECT_EQ(toAlias(utf8.c_str(), &lost), std::string(alias)) << "byte 0x" << std::hex << byte;
        EXPECT_EQ(lost, 0u);
    }
}

TEST(AliasText, ReplacesWhatItCannotHoldWithAVisibleSubstitute) {
    unsigned int lost = 0;
    EXPECT_EQ(toAlias("a\xE6\x97\xA5\xF0\x9F\x8E\xA5.mov", &lost), "a??.mov");  // CJK and an emoji
    EXPECT_EQ(lost, 2u);
    EXPECT_EQ(toAlias("q\xCC\x81", &lost), "q?");  // a mark with no composed form
    EXPECT_EQ(lost, 1u);
    EXPECT_EQ(toAlias("\xCC\x81x", &lost), "?x");  // a mark with nothing before it
}

TEST(AliasText, MalformedUtf8BecomesSubstitutesWithoutReadingPastTheEnd) {
    unsigned int lost = 0;
    EXPECT_EQ(toAlias("a\xC3", &lost), "a?");               // cut before its continuation
    EXPECT_EQ(toAlias("\xE2\x82", &lost), "??");            // three-byte form cut short
    EXPECT_EQ(toAlias("\xC0\xAF", &lost), "??");            // overlong '/'
    EXPECT_EQ(toAlias("\xED\xA0\x80", &lost), "???");       // surrogate
    EXPECT_EQ(toAlias("\xF4\x90\x80\x80", &lost), "????");  // beyond U+10FFFF
    EXPECT_EQ(toAlias("\xFF"
                      "b",
                      &lost),
              "?b");
    EXPECT_EQ(lost, 1u);
}
