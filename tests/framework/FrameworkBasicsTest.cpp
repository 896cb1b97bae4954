// The small framework pieces: atom buffers, messages, shared buffers, paths, fixed point numbers,
// alias text and bit sets.
#include <gtest/gtest.h>

#include "framework/AliasText.h"
#include "framework/Bitset.h"
#include "framework/FixedPoint.h"
#include "framework/PathParser.h"
#include "framework/QtAtomBuffer.h"
#include "framework/SharedCharPtr.h"
#include "tests/TestSupport.h"

TEST(QtAtomBuffer, TracksOccupiedBytesAndReadPosition) {
    unsigned char text[] = "abcdefgh";
    QtAtomBuffer buffer(text, 8, QtAtomBuffer::Full);
    buffer.removeInput(4);
    buffer.prepend(4);
    EXPECT_EQ(buffer.nOccupied(), 8u);
    EXPECT_EQ(buffer.ptrData(), text);
    buffer.setFileOffset(1000);
    buffer.removeInput(8);
    EXPECT_EQ(buffer.nOccupied(), 0u);
    EXPECT_EQ(buffer.fileOffset(), 1008u);
}

TEST(QtAtomBuffer, CallerStorageRefusesWhatDoesNotFitReportsOnceAndStaysRefused) {
    unsigned char storage[6] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
    QtAtomBuffer buffer(storage, 4, QtAtomBuffer::Empty);
    unsigned char const bytes[3] = {1, 2, 3};
    MessageCapture capture;
    EXPECT_TRUE(buffer.append(bytes, 3));
    EXPECT_FALSE(buffer.append(bytes, 2));
    EXPECT_FALSE(buffer.append(1, true));  // would fit, but the encoding already lost a field
    EXPECT_TRUE(buffer.overflowed());
    EXPECT_EQ(buffer.nOccupied(), 3u);
    EXPECT_EQ(std::vector<unsigned char>(storage + 3, storage + 6), std::vector<unsigned char>(3, 0xEE));
    EXPECT_EQ(capture.count(MsgLevel::Error), 1u);
    buffer.reset(QtAtomBuffer::Empty);
    EXPECT_TRUE(buffer.append(bytes, 3));
}

TEST(Messages, GoToTheInstalledSinkWithTheirLevel) {
    MessageCapture capture;
    errorMsg("e%d\n", 1);
    warningMsg("w\n");
    infoMsg("i\n");
    debugMsg("d\n");
    ASSERT_EQ(capture.messages().size(), 4u);
    EXPECT_EQ(capture.messages()[0].level, MsgLevel::Error);
    EXPECT_EQ(capture.messages()[0].text, "e1\n");
    EXPECT_EQ(capture.messages()[3].level, MsgLevel::Debug);
    int value = 0;
    EXPECT_EQ(logIfNull(&value, "f", "quicktimeutil.cpp", 1), &value);
    EXPECT_EQ(logIfNull<int>(nullptr, "decode", "quicktimeutil.cpp", 42), nullptr);
    EXPECT_FALSE(logIfFalse(false, "adjustCache", "quicktimeutil.cpp", 9254));
    EXPECT_TRUE(capture.contains("decode"));
    EXPECT_TRUE(capture.contains("quicktimeutil.cpp:9254"));
}

TEST(MsgClamp, LetsABurstThroughAndThenOneInN) {
    MsgClamp clamp(2, 3);
    std::vector<bool> allowed;
    for (int i = 0; i < 8; ++i) allowed.push_back(clamp.allow());
    EXPECT_EQ(allowed, (std::vector<bool>{true, true, true, false, false, true, false, false}));
}

TEST(SharedCharPtrSet, RecyclesBuffersAndGrowsThem) {
    SharedCharPtrSet set;
    SharedCharPtr* a = set.alloc(10);
    EXPECT_GE(a->size(), 10u);
    a->release();
    SharedCharPtr* b = set.alloc(100);
    EXPECT_EQ(a, b);
    EXPECT_GE(b->size(), 100u);
    EXPECT_EQ(set.created(), 1u);
    EXPECT_EQ(set.recycled(), 1u);
    b->release();
}

TEST(PathParser, SplitsDirectoryNamePrefixAndExtension) {
    PathParser p("/media/clips/._take1.mov");
    EXPECT_STREQ(p.getDirectory(), "/media/clips/");
    EXPECT_STREQ(p.getName(), "._take1.mov");
    EXPECT_STREQ(p.getPrefix(), "._take1");
    EXPECT_STREQ(p.getExtension(), "mov");
    PathParser bare("._hidden");
    EXPECT_STREQ(bare.getPrefix(), "._hidden");
    EXPECT_STREQ(bare.getExtension(), "");
}

TEST(PathParser, RerootPlacesARelativePathBelowTheBaseAndResolvesDots) {
    PathParser path("./clips/../media//a.mov");
    ASSERT_TRUE(path.reroot("/vol/project/"));
    EXPECT_EQ(path.getPath(1), "/vol/project/media/a.mov");
    EXPECT_STREQ(path.getPath(), "/vol/project/media/a.mov");
    EXPECT_STREQ(path.getName(), "a.mov");
    EXPECT_STREQ(path.getDirectory(), "/vol/project/media/");
}

TEST(PathParser, RerootNormalisesAnAbsolutePathAndStopsAtTheRoot) {
    PathParser path("/../a/./b/../../../c/");
    ASSERT_TRUE(path.reroot("/ignored"));
    EXPECT_EQ(path.getPath(1), "/c");
    PathParser root("/..");
    ASSERT_TRUE(root.reroot());
    EXPECT_EQ(root.getPath(1), "/");
}

TEST(PathParser, TrimTailDropsTrailingElementsAndStopsAtTheRoot) {
    PathParser path("/a/b/movie.mov");
    EXPECT_TRUE(path.trimTail(2));
    EXPECT_EQ(path.getPath(1), "/a");
    EXPECT_FALSE(path.trimTail(3));
    EXPECT_EQ(path.getPath(1), "/");
    PathParser relative("a/b");
    EXPECT_TRUE(relative.trimTail(2));
    EXPECT_EQ(relative.getPath(1), ".");
}

TEST(PathParser, RendersTheColonForm) {
    PathParser path("/Media/clips/a.mov");
    EXPECT_EQ(path.getPath(3), "Media:clips:a.mov");
    EXPECT_EQ(PathParser("clips/a.mov").getPath(3), ":clips:a.mov");
}

using Fixed = FixedPoint<16u>;

TEST(FixedPoint, PrintsShortestDecimal) {
    EXPECT_STREQ(Fixed(1u).toString().get(), "1");
    EXPECT_STREQ((Fixed(1u) / 2).toString().get(), "0.5");
    EXPECT_STREQ((Fixed(30000u) / Fixed(1001u)).toString().get(), "29.97002");
    EXPECT_STREQ(Fixed(-3).toString().get(), "-3");
}

TEST(FixedPoint, MultipliesWithoutOverflowForLargeOperands) {
    Fixed big(100000u);  // raw value above 2^31
    EXPECT_EQ((big * Fixed(3u)).uintValue(), 300000u);
    EXPECT_EQ((Fixed(3u) * Fixed(AlreadyFixed{}, 0x8000)).raw(), 0x18000);  // 3 * 0.5
    EXPECT_EQ((big * 2).uintValue(), 200000u);
}

TEST(FixedPoint, DividesLargeDividendsInParts) {
    Fixed huge(AlreadyFixed{}, int64_t(1) << 50);
    Fixed q = huge / Fixed(4u);
    EXPECT_EQ(q.raw(), int64_t(1) << 48);
    EXPECT_EQ((Fixed(10u) / Fixed(4u)).raw(), 0x28000);
    // An unsigned divisor that is negative as a signed value goes through the fixed division.
    EXPECT_EQ((Fixed(AlreadyFixed{}, int64_t(1) << 40) / 0x80000000u).raw(), 0x200);
}

TEST(FixedPoint, RoundsAndTruncates) {
    Fixed v(AlreadyFixed{}, 0x18000);  // 1.5
    EXPECT_EQ(v.uintValue(), 1u);
    EXPECT_EQ(v.round().uintValue(), 2u);
    EXPECT_EQ(Fixed(AlreadyFixed{}, 0x17FFF).round().uintValue(), 1u);
    EXPECT_DOUBLE_EQ(v.floatValue(), 1.5);
}

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
    EXPECT_EQ(toAlias("\xFF\x62", &lost), "?b");            // a byte no form starts with, then b
    EXPECT_EQ(lost, 1u);
}

TEST(Bitset, SetOutsideTheSizeIsIgnoredButSetAndGrowExtendsIt) {
    Bitset bits(256);
    bits.resize(0);
    EXPECT_FALSE(bits.set(10));
    EXPECT_FALSE(bits.get(10));
    bits.setAndGrow(10);
    EXPECT_EQ(bits.size(), 11u);
    EXPECT_TRUE(bits.get(10));
    bits.setAndGrow(4);
    EXPECT_EQ(bits.size(), 11u);  // never shrinks
    bits.setAndGrow(300);         // past the capacity: reallocates and keeps the bits
    EXPECT_EQ(bits.size(), 301u);
    EXPECT_TRUE(bits.get(4));
    EXPECT_TRUE(bits.get(10));
    EXPECT_TRUE(bits.get(300));
    EXPECT_EQ(bits.count(), 3u);
}

TEST(Bitset, OrMergesBitsAndTakesTheLargerSize) {
    Bitset a(10), b(100);
    a.set(1);
    b.set(1);
    b.set(99);
    a |= b;
    EXPECT_EQ(a.size(), 100u);
    EXPECT_EQ(a.count(), 2u);
    Bitset c(5);
    c.set(4);
    a |= c;
    EXPECT_EQ(a.size(), 100u);
    EXPECT_TRUE(a.get(4));
    EXPECT_TRUE(a.get(99));
}

TEST(Bitset, FindNextWalksSetBitsAcrossWords) {
    Bitset bits(256);
    for (unsigned b : {0u, 63u, 64u, 190u, 255u}) bits.set(b);
    std::vector<unsigned> found;
    for (unsigned b = bits.findNext(0); b < bits.size(); b = bits.findNext(b + 1)) found.push_back(b);
    EXPECT_EQ(found, (std::vector<unsigned>{0, 63, 64, 190, 255}));
    bits.resize(190);
    EXPECT_EQ(bits.findNext(65), 190u);  // nothing left: the size
}
