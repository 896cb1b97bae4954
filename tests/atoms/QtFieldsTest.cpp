#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "quicktime/atoms/QtFields.h"
#include "tests/TestSupport.h"

TEST(QtPascalString, FixedStringDecodeConsumesItsCapacityWhateverTheLength) {
    unsigned char bytes[40] = {2, 'h', 'i'};
    bytes[32] = 0xEE;
    QtAtomBuffer buffer(bytes, sizeof bytes, QtAtomBuffer::Full);
    QtFixedPascalString<32> s;
    s.decode(buffer);
    EXPECT_STREQ(s.getString(), "hi");
    EXPECT_EQ(buffer.bufferOffset(), 32u);
    EXPECT_EQ(BaseQtAtom::decodeUint8(buffer), 0xEE);
}

TEST(QtPascalString, ZeroLengthByteMeasuresUpToTheNextZeroWithinTheBuffer) {
    unsigned char bytes[] = {0, 'a', 'b', 'c', 0, 'z'};
    QtAtomBuffer buffer(bytes, sizeof bytes, QtAtomBuffer::Full);
    QtPascalString s;
    s.decode(buffer);
    EXPECT_STREQ(s.getString(), "abc");
    EXPECT_EQ(buffer.bufferOffset(), 4u);

    unsigned char unterminated[] = {0, 'a', 'b'};
    QtAtomBuffer short_buffer(unterminated, sizeof unterminated, QtAtomBuffer::Full);
    QtPascalString t;
    t.decode(short_buffer);
    EXPECT_STREQ(t.getString(), "ab");
    EXPECT_EQ(short_buffer.nOccupied(), 0u);
}

TEST(QtFraction, ReducesAndReplacesAZeroDenominator) {
    auto reduced = [](uint32_t n, uint32_t d) {
        QtFraction f(n, d);
        return std::pair(f.numerator(), f.denominator());
    };
    EXPECT_EQ(reduced(30000, 0), std::pair(30000u, 1u));
    EXPECT_EQ(reduced(30000, 1001), std::pair(30000u, 1001u));
    EXPECT_EQ(reduced(60, 2), std::pair(30u, 1u));
    EXPECT_EQ(QtFraction(4, 3).encoded4ByteValue(), 0x00040003u);
    EXPECT_STREQ(QtFraction(3, 2).toString().get(), "1.5");
}

TEST(MacTime, ConvertsBetween1904SecondsAnd1970Microseconds) {
    EXPECT_EQ(BaseQtAtom::fromMacTime(0), 0);
    EXPECT_EQ(BaseQtAtom::toMacTime(0), 2082844800u);
    for (uint32_t t : {2082844800u, 3000000000u, 0xFFFFFFFFu})
        EXPECT_EQ(BaseQtAtom::toMacTime(BaseQtAtom::fromMacTime(t)), t);
    EXPECT_EQ(BaseQtAtom::fromMacTime(2082844801u), 1000000);
    EXPECT_GT(BaseQtAtom::getMacTimeNow(), 3700000000u);  // after 2021
}

TEST(FieldCodecs, AreBigEndianAndConsumeExactly) {
    QtAtomBuffer buffer(32);
    BaseQtAtom::encode(buffer, static_cast<unsigned short>(0x1234));
    BaseQtAtom::encode(buffer, 0xDEADBEEFu);
    BaseQtAtom::encode(buffer, 0x0102030405060708ul);
    BaseQtAtom::encode(buffer, 1.5);
    BaseQtAtom::encode(buffer, "hey");
    EXPECT_EQ(buffer.nOccupied(), 2u + 4 + 8 + 8 + 4);
    EXPECT_EQ(buffer.ptrData()[0], 0x12);
    EXPECT_EQ(BaseQtAtom::decodeUint16(buffer), 0x1234);
    EXPECT_EQ(BaseQtAtom::decodeUint32(buffer), 0xDEADBEEFu);
    EXPECT_EQ(BaseQtAtom::decodeUint64(buffer), 0x0102030405060708ul);
    EXPECT_EQ(BaseQtAtom::decodeFloat64(buffer), 1.5);
    char* text = BaseQtAtom::decodeString(buffer, 0);
    EXPECT_STREQ(text, "hey");
    delete[] text;
    EXPECT_EQ(buffer.nOccupied(), 0u);
    EXPECT_EQ(BaseQtAtom::swap(0x11223344u), 0x44332211u);
    EXPECT_EQ(BaseQtAtom::swap(0x1122334455667788ul), 0x8877665544332211ul);
}

TEST(FieldCodecs, TextLongerThan255CharactersFollowsItsTruncatedLengthByteWhole) {
    std::string text;
    for (int i = 0; i < 300; ++i) text += static_cast<char>('a' + i % 26);
    QtAtomBuffer buffer(400);
    BaseQtAtom::encode(buffer, text.c_str());
    ASSERT_EQ(buffer.nOccupied(), 301u);
    EXPECT_EQ(buffer.ptrData()[0], 0x2C);
    EXPECT_EQ(std::string(buffer.ptrData() + 1, buffer.ptrEnd()), text);
}
