// Qtx::AvcDecoderInfo ('avcC'): reading and refusing configurations, set() and its length-prefixed
// parameter sets, and the 8-byte reservation an empty one writes.
#include <gtest/gtest.h>

#include "quicktime/descriptions/QtxAvcDecoderInfo.h"
#include "tests/TestSupport.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

Bytes avcBody(unsigned int lengthSizeByte, unsigned int spsCountByte, Bytes const& sps, unsigned int ppsCount,
              Bytes const& pps) {
    Bytes body{1, 100, 0, 31};
    put8(body, lengthSizeByte);
    put8(body, spsCountByte);
    put16(body, static_cast<unsigned int>(sps.size()));
    putBytes(body, sps);
    put8(body, ppsCount);
    put16(body, static_cast<unsigned int>(pps.size()));
    putBytes(body, pps);
    return body;
}

Bytes spsOf(size_t length) {
    Bytes sps(length, 0x11);
    sps[0] = 0x67;
    if (length > 3) {
        sps[1] = 77;
        sps[2] = 0x40;
        sps[3] = 41;
    }
    return sps;
}

TEST(QtxAvcDecoderInfo, ReadsOneSpsAndOnePpsAndWritesThemBack) {
    Bytes bytes = atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(25), 1, Bytes{0x68, 0xEB, 0xE3, 0xCB}));
    AutoPtr<Qtx::Atom> atom = createFrom(bytes);
    ASSERT_TRUE(atom);
    auto* avc = dynamic_cast<Qtx::AvcDecoderInfo*>(atom.get());
    ASSERT_NE(avc, nullptr);
    EXPECT_EQ(avc->getSize(), 25u + 4 + 19);
    EXPECT_EQ(avc->getProfile(), 77) << "profile, compatibility and level come from the SPS";
    EXPECT_EQ(avc->getProfileCompatibility(), 0x40);
    EXPECT_EQ(avc->getLevel(), 41);
    EXPECT_EQ(avc->getAvcNalUnitLengthSize(), 4);
    EXPECT_STREQ(
        avc->toString().get(),
        "avcC={version=1, profile=77, profile_compat=64, level=41, nalUnitLengthSize=4, sps=25b, pps=4b}");
    // The header's profile (100) is replaced by the SPS's, so only that byte differs on rewrite.
    Bytes expected = bytes;
    expected[9] = 77;
    expected[10] = 0x40;
    expected[11] = 41;
    EXPECT_EQ(encoded(*avc), expected);
}

TEST(QtxAvcDecoderInfo, KeepsBytesAfterThePpsAsPartOfTheAtom) {
    Bytes body = avcBody(0xFF, 0xE1, spsOf(8), 1, Bytes{0x68, 1});
    putBytes(body, Bytes{0xFD, 0xF8, 0xF8, 0x00});
    Bytes bytes = atomBytes("avcC", body);
    bytes[9] = 77;
    bytes[10] = 0x40;
    bytes[11] = 41;
    AutoPtr<Qtx::Atom> atom = createFrom(bytes);
    ASSERT_TRUE(atom);
    EXPECT_EQ(atom->getSize(), bytes.size());
    EXPECT_EQ(encoded(*atom), bytes);
}

TEST(QtxAvcDecoderInfo, RefusesLengthSizesOtherThanFourWhenReading) {
    MessageCapture messages;
    EXPECT_EQ(createFrom(atomBytes("avcC", avcBody(0xFD, 0xE1, spsOf(8), 1, Bytes{0x68}))).get(), nullptr);
    EXPECT_TRUE(messages.contains("Error: NAL unit length size of 2 in 'stsd:avcC' atom is not supported\n"));
    EXPECT_EQ(messages.count(MsgLevel::Error), 1u);
}

TEST(QtxAvcDecoderInfo, RefusesMoreThanOneParameterSetOfEitherKind) {
    MessageCapture messages;
    EXPECT_EQ(createFrom(atomBytes("avcC", avcBody(0xFF, 0xE2, spsOf(8), 1, Bytes{0x68}))).get(), nullptr);
    EXPECT_TRUE(
        messages.contains("Error: multiple sequence parameter sets in 'stsd:avcC' atom is not supported\n"));
    EXPECT_EQ(createFrom(atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(8), 2, Bytes{0x68}))).get(), nullptr);
    EXPECT_TRUE(
        messages.contains("Error: multiple picture parameter sets in 'stsd:avcC' atom is not supported\n"));
}

TEST(QtxAvcDecoderInfo, AcceptsSetsOf64BytesAndRefuses65) {
    AutoPtr<Qtx::Atom> largest =
        createFrom(atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(64), 1, Bytes(64, 0x68))));
    ASSERT_TRUE(largest);
    EXPECT_EQ(largest->getSize(), Qtx::AvcDecoderInfo::kReservedSize);

    MessageCapture messages;
    EXPECT_EQ(createFrom(atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(65), 1, Bytes{0x68}))).get(), nullptr);
    EXPECT_TRUE(messages.contains(
        "Error: sequence parameter set in 'stsd:avcC' is too big (65 bytes, max supported is 64)\n"));
    EXPECT_EQ(createFrom(atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(8), 1, Bytes(65, 0x68)))).get(),
              nullptr);
    EXPECT_TRUE(messages.contains(
        "Error: picture parameter set in 'stsd:avcC' is too big (65 bytes, max supported is 64)\n"));
}

TEST(QtxAvcDecoderInfo, RefusesLengthsThatRunPastTheAtom) {
    Bytes body = avcBody(0xFF, 0xE1, spsOf(30), 1, Bytes{0x68, 1, 2, 3});
    for (size_t cut = 1; cut < body.size(); ++cut) {
        Bytes shorter(body.begin(), body.end() - static_cast<long>(cut));
        MessageCapture quiet;
        EXPECT_EQ(createFrom(atomBytes("avcC", shorter)).get(), nullptr) << cut;
    }
}

TEST(QtxAvcDecoderInfo, SetStoresEachSetBehindAFourByteLength) {
    Qtx::AvcDecoderInfo avc;
    Bytes sps = spsOf(20), pps(4, 0x68);
    ASSERT_TRUE(avc.set(20, sps.data(), 4, pps.data()));
    EXPECT_EQ(avc.getSize(), 43u);
    ASSERT_EQ(avc.getAvcSpsPpsLength(), 32u);
    Bytes prefixed(avc.getAvcSpsPps(), avc.getAvcSpsPps() + 32);
    Bytes expected{0, 0, 0, 20};
    putBytes(expected, sps);
    putBytes(expected, Bytes{0, 0, 0, 4});
    putBytes(expected, pps);
    EXPECT_EQ(prefixed, expected);
    EXPECT_EQ(avc.getVersion(), 1) << "the version is kept";

    Bytes written = encoded(avc);
    ASSERT_EQ(written.size(), 43u);
    EXPECT_EQ(Bytes(written.begin() + 8, written.begin() + 16), (Bytes{1, 77, 0x40, 41, 0xFF, 0xE1, 0, 20}));
}

TEST(QtxAvcDecoderInfo, AFailedSetKeepsThePreviousSize) {
    Qtx::AvcDecoderInfo avc;
    Bytes sps = spsOf(65), pps(4, 0x68);
    MessageCapture messages;
    EXPECT_FALSE(avc.set(65, sps.data(), 4, pps.data()));
    EXPECT_FALSE(avc.set(8, sps.data(), 65, pps.data()));
    EXPECT_EQ(avc.getSize(), Qtx::AvcDecoderInfo::kReservedSize);
    EXPECT_EQ(avc.getAvcSpsPpsLength(), 0u);
    EXPECT_EQ(messages.count(MsgLevel::Error), 2u);
}

TEST(QtxAvcDecoderInfo, AnEmptyOneWritesAPlaceholderOfItsReservedSize) {
    Qtx::AvcDecoderInfo avc;
    EXPECT_EQ(avc.getSize(), 147u);
    EXPECT_EQ(encoded(avc), (Bytes{0, 0, 0, 147, 0, 0, 0, 0}));
    EXPECT_EQ(avc.getAvcSpsPpsLength(), 0u);
    EXPECT_STREQ(
        avc.toString().get(),
        "avcC={version=1, profile=0, profile_compat=0, level=0, nalUnitLengthSize=4, sps=0b, pps=0b}");
}

}  // namespace
