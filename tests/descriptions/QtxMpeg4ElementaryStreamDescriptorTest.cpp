// Qtx::Mpeg4ElementaryStreamDescriptor ('esds'): the AAC descriptor that set() builds, reading and
// refusing descriptors, and the reservation an empty one writes.
#include <gtest/gtest.h>

#include "quicktime/descriptions/QtxMpeg4ElementaryStreamDescriptor.h"
#include "tests/TestSupport.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

using Esds = Qtx::Mpeg4ElementaryStreamDescriptor;

Bytes descriptorOf(Esds const& esds) { return Bytes(esds.getEsds(), esds.getEsds() + esds.getEsdsLength()); }

TEST(QtxMpeg4ElementaryStreamDescriptor, BuildsTheAacDescriptorByteForByte) {
    Esds esds;
    esds.set(128000, 48000, 2);
    Bytes expected{0x03, 0x80, 0x80, 0x80, 34,   0,    0,    0,    0x04, 0x80, 0x80, 0x80, 20,
                   0x40, 0x15, 0x00, 0x18, 0x00, 0x00, 0x01, 0xF4, 0x00, 0x00, 0x01, 0xF4, 0x00,
                   0x05, 0x80, 0x80, 0x80, 2,    0x11, 0x90, 0x06, 0x80, 0x80, 0x80, 1,    2};
    EXPECT_EQ(descriptorOf(esds), expected);
    EXPECT_EQ(esds.getSize(), 51u);
    Bytes atom{0, 0, 0, 51, 'e', 's', 'd', 's', 0, 0, 0, 0};
    putBytes(atom, expected);
    EXPECT_EQ(encoded(esds), atom);
    EXPECT_STREQ(esds.toString().get(), "esds={version=0, esds=39b}");
}

TEST(QtxMpeg4ElementaryStreamDescriptor, CodesRateAndChannelsIntoTheDecoderConfig) {
    Esds esds;
    esds.set(64000, 44100, 8);
    EXPECT_EQ(esds.getEsds()[31], 0x12);
    EXPECT_EQ(esds.getEsds()[32], 0x38);

    struct Rate {
        unsigned int hz, index;
    } rates[] = {{96000, 0},  {88200, 1}, {64000, 2}, {48000, 3}, {44100, 4},
                 {32000, 5},  {24000, 6}, {22050, 7}, {16000, 8}, {12000, 9},
                 {11025, 10}, {8000, 11}, {7350, 12}, {47999, 3}, {0, 3}};
    for (Rate const& rate : rates) EXPECT_EQ(Esds::frequencyIndex(rate.hz), rate.index) << rate.hz;
    unsigned int configurations[] = {0, 1, 2, 3, 4, 5, 6, 0, 7, 0};
    for (unsigned int channels = 0; channels < 10; ++channels)
        EXPECT_EQ(Esds::channelConfiguration(channels), configurations[channels]) << channels;
}

TEST(QtxMpeg4ElementaryStreamDescriptor, KeepsADescriptorOfUpTo128BytesAsRead) {
    Bytes body{1, 0, 0, 2};
    for (unsigned int i = 0; i < 128; ++i) put8(body, i);
    Bytes bytes = atomBytes("esds", body);
    AutoPtr<Qtx::Atom> atom = createFrom(bytes);
    ASSERT_TRUE(atom);
    EXPECT_EQ(atom->getEsdsLength(), 128u);
    EXPECT_EQ(dynamic_cast<Esds*>(atom.get())->getVersionAndFlags(), 0x01000002u);
    EXPECT_STREQ(atom->toString().get(), "esds={version=1, esds=128b}");
    EXPECT_EQ(encoded(*atom), bytes);
}

TEST(QtxMpeg4ElementaryStreamDescriptor, RefusesADescriptorOver128BytesAndAnAtomWithoutVersion) {
    MessageCapture messages;
    Bytes tooBig = atomBytes("esds", zeros(4 + 129));
    ASSERT_EQ(tooBig.size(), 141u);
    EXPECT_EQ(createFrom(tooBig).get(), nullptr);
    EXPECT_TRUE(messages.contains("Error: esds atom is too big\n"));
    messages.clear();
    EXPECT_EQ(createFrom(atomBytes("esds", zeros(3))).get(), nullptr);
    EXPECT_EQ(messages.count(MsgLevel::Error), 0u);
}

TEST(QtxMpeg4ElementaryStreamDescriptor, AnEmptyOneWritesAPlaceholderOfItsReservedSize) {
    Esds esds;
    EXPECT_EQ(esds.getSize(), 132u);
    EXPECT_EQ(encoded(esds), (Bytes{0, 0, 0, 132, 0, 0, 0, 0}));
    EXPECT_EQ(esds.getEsdsLength(), 0u);
}

}  // namespace
