// The extension atoms of a description, one table of byte literals: each read by its class, printed
// and written back; the atoms it must refuse, with the message a user sees; and what the recorder's
// setters build.
#include <gtest/gtest.h>

#include "quicktime/descriptions/QtxACLR.h"
#include "quicktime/descriptions/QtxARES.h"
#include "quicktime/descriptions/QtxAvcDecoderInfo.h"
#include "quicktime/descriptions/QtxCleanAperture.h"
#include "quicktime/descriptions/QtxMpeg4ElementaryStreamDescriptor.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

using Esds = Qtx::Mpeg4ElementaryStreamDescriptor;

Bytes pairBody(char const* type, uint32_t second, unsigned int tailLength) {
    Bytes body;
    putType(body, type);
    putType(body, "0001");
    put32(body, second);
    putBytes(body, zeros(tailLength));
    return body;
}

Bytes aresBody(uint32_t compressionId, uint32_t fields, uint32_t format, unsigned int tailLength) {
    Bytes body{'A', 'R', 'E', 'S', '0', '0', '0', '1'};
    putBytes(body, words({compressionId, 1440, 1080, fields, 7, format}));
    for (unsigned int i = 0; i < tailLength; ++i) put8(body, i);
    return body;
}

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

// An SPS of profile 77, compatibility 0x40, level 41.
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

// The header's profile (100) is replaced by the SPS's when the atom is read.
Bytes avcWithProfileOfSps(Bytes bytes) {
    bytes[9] = 77;
    bytes[10] = 0x40;
    bytes[11] = 41;
    return bytes;
}

Bytes esdsOf128() {
    Bytes body{1, 0, 0, 2};
    for (unsigned int i = 0; i < 128; ++i) put8(body, i);
    return atomBytes("esds", body);
}

}  // namespace

TEST(QtxExtensionAtoms, EachIsReadPrintedAndWrittenBackAsItsRowSays) {
    Bytes avc = atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(25), 1, Bytes{0x68, 0xEB, 0xE3, 0xCB}));
    Bytes avcTail = avcBody(0xFF, 0xE1, spsOf(8), 1, Bytes{0x68, 1});
    putBytes(avcTail, Bytes{0xFD, 0xF8, 0xF8, 0x00});
    Bytes clap = atomBytes("clap", words({1439, 2, 1080, 1, 0xFFFFFFFE, 2, 0, 1}));
    struct Row {
        Bytes bytes;
        char const* text;  // null: not compared
        Bytes written;     // empty: the bytes read
    } const rows[] = {
        {atomBytes("ACLR", pairBody("ACLR", 2, 4)), "ACLR={color=2}", {}},
        {atomBytes("APRG", pairBody("APRG", 1, 4)), "APRG={prg=1}", {}},
        {atomBytes("ACLR", pairBody("ACLR", 1, 0)), nullptr, {}},  // without the zero word
        {atomBytes("ARES", aresBody(1253, 2, 3, 80)), "ARES={cid=1253, width=1440, height=1080, fields=2, format=3 (\?\?\?)}", {}},
        {atomBytes("ARES", aresBody(1253, 1, 5, 0)), nullptr, {}},
        {atomBytes("ARES", aresBody(1253, 1, 5, 3)), nullptr, {}},
        {atomBytes("ARES", aresBody(1253, 1, 5, 100)), nullptr, {}},
        {clap, "clap={width=1439/2, height=1080, horizOff=-2/2, vertOff=0}", {}},
        {atomBytes("fiel", Bytes{2, 1}), "fiel={ fields=2, detail=topFirst}", {}},
        {atomBytes("fiel", Bytes{2, 6}), "fiel={ fields=2, detail=bottomFirst}", {}},
        {atomBytes("fiel", Bytes{2, 9}), "fiel={ fields=2, detail=firstLineEarly}", {}},
        {atomBytes("fiel", Bytes{2, 14}), "fiel={ fields=2, detail=firstLineLate}", {}},
        {atomBytes("fiel", Bytes{1, 3}), "fiel={ fields=1, detail=onlyOneField}", {}},
        {atomBytes("fiel", Bytes{2, 0}), "fiel={ fields=2, detail=unknown}", {}},
        {atomBytes("fiel", Bytes{0, 7}), "fiel={ fields=0, detail=unknown}", {}},
        {esdsOf128(), "esds={version=1, esds=128b}", {}},
        {avc, "avcC={version=1, profile=77, profile_compat=64, level=41, nalUnitLengthSize=4, sps=25b, pps=4b}",
         avcWithProfileOfSps(avc)},
        {avcWithProfileOfSps(atomBytes("avcC", avcTail)), nullptr, {}},  // bytes after the PPS are kept
        {avcWithProfileOfSps(atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(64), 1, Bytes(64, 0x68)))), nullptr,
         {}},  // the largest sets
    };
    for (Row const& row : rows) {
        AutoPtr<Qtx::Atom> atom = createFrom(row.bytes);
        ASSERT_TRUE(atom) << row.bytes.size();
        if (row.text) {
            EXPECT_STREQ(atom->toString().get(), row.text);
        }
        EXPECT_EQ(atom->getSize(), row.bytes.size());
        EXPECT_EQ(encoded(*atom), row.written.empty() ? row.bytes : row.written) << atom->toString().get();
    }
}

TEST(QtxExtensionAtoms, AtomsThatCannotBeReadAreRefusedWithTheirMessage) {
    Bytes aclr = atomBytes("ACLR", pairBody("ACLR", 1, 0));
    Bytes aresFields = aresBody(1253, 1, 5, 0);
    aresFields.pop_back();
    struct Row {
        Bytes bytes;
        char const* message;  // null: refused silently
    } const rows[] = {
        {Bytes(aclr.begin(), aclr.end() - 1), nullptr},
        {atomBytes("ARES", aresFields), nullptr},  // one byte short of the format code
        {atomBytes("esds", zeros(4 + 129)), "Error: esds atom is too big\n"},
        {atomBytes("esds", zeros(3)), nullptr},
        {atomBytes("avcC", avcBody(0xFD, 0xE1, spsOf(8), 1, Bytes{0x68})),
         "Error: NAL unit length size of 2 in 'stsd:avcC' atom is not supported\n"},
        {atomBytes("avcC", avcBody(0xFF, 0xE2, spsOf(8), 1, Bytes{0x68})),
         "Error: multiple sequence parameter sets in 'stsd:avcC' atom is not supported\n"},
        {atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(8), 2, Bytes{0x68})),
         "Error: multiple picture parameter sets in 'stsd:avcC' atom is not supported\n"},
        {atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(65), 1, Bytes{0x68})),
         "Error: sequence parameter set in 'stsd:avcC' is too big (65 bytes, max supported is 64)\n"},
        {atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(8), 1, Bytes(65, 0x68))),
         "Error: picture parameter set in 'stsd:avcC' is too big (65 bytes, max supported is 64)\n"},
    };
    for (Row const& row : rows) {
        MessageCapture messages;
        EXPECT_EQ(createFrom(row.bytes).get(), nullptr) << (row.message ? row.message : "");
        if (row.message) {
            EXPECT_TRUE(messages.contains(row.message)) << messages.all();
        } else {
            EXPECT_EQ(messages.count(MsgLevel::Error), 0u) << messages.all();
        }
    }
    Bytes avc = atomBytes("avcC", avcBody(0xFF, 0xE1, spsOf(30), 1, Bytes{0x68, 1, 2, 3}));
    for (size_t cut = 1; cut + 8 < avc.size(); ++cut) {
        Bytes shorter = atomBytes("avcC", Bytes(avc.begin() + 8, avc.end() - static_cast<long>(cut)));
        MessageCapture quiet;
        EXPECT_EQ(createFrom(shorter).get(), nullptr) << "a length running past the atom, cut by " << cut;
    }
}

TEST(QtxExtensionAtoms, DerivedValuesFollowTheCodecTables) {
    EXPECT_STREQ(Qtx::ARES::formatName(4), "1080i");
    EXPECT_STREQ(Qtx::ARES::formatName(5), "1080p");
    EXPECT_STREQ(Qtx::ARES::formatName(6), "720p");
    for (unsigned int id : {1235u, 1241u, 1250u}) EXPECT_EQ(Qtx::ARES::bitDepthOf(id), 10u) << id;
    for (unsigned int id : {0u, 1237u, 1253u, 1274u}) EXPECT_EQ(Qtx::ARES::bitDepthOf(id), 8u) << id;
    AutoPtr<Qtx::Atom> clap = createFrom(atomBytes("clap", words({1439, 2, 1080, 1, 0, 0, 0, 0})));
    EXPECT_DOUBLE_EQ(dynamic_cast<Qtx::CleanAperture*>(clap.get())->getAptWidth(), 719.5);
    EXPECT_EQ(dynamic_cast<Qtx::CleanAperture*>(clap.get())->getHorizOffset(), 0.0) << "a zero denominator";
    struct Rate {
        unsigned int hz, index;
    } const rates[] = {{96000, 0}, {88200, 1}, {64000, 2}, {48000, 3}, {44100, 4}, {32000, 5}, {24000, 6},
                       {22050, 7}, {16000, 8}, {12000, 9}, {11025, 10}, {8000, 11}, {7350, 12}, {47999, 3}, {0, 3}};
    for (Rate const& rate : rates) EXPECT_EQ(Esds::frequencyIndex(rate.hz), rate.index) << rate.hz;
    unsigned int const configurations[] = {0, 1, 2, 3, 4, 5, 6, 0, 7, 0};
    for (unsigned int channels = 0; channels < 10; ++channels)
        EXPECT_EQ(Esds::channelConfiguration(channels), configurations[channels]) << channels;
}

TEST(QtxExtensionAtoms, SettersBuildTheAacDescriptorAndLengthPrefixedParameterSets) {
    Esds esds;
    esds.set(128000, 48000, 2);
    Bytes descriptor{0x03, 0x80, 0x80, 0x80, 34,   0,    0,    0,    0x04, 0x80, 0x80, 0x80, 20,
                     0x40, 0x15, 0x00, 0x18, 0x00, 0x00, 0x01, 0xF4, 0x00, 0x00, 0x01, 0xF4, 0x00,
                     0x05, 0x80, 0x80, 0x80, 2,    0x11, 0x90, 0x06, 0x80, 0x80, 0x80, 1,    2};
    EXPECT_EQ(encoded(esds), concat({Bytes{0, 0, 0, 51, 'e', 's', 'd', 's', 0, 0, 0, 0}, descriptor}));
    esds.set(64000, 44100, 8);
    EXPECT_EQ(esds.getEsds()[31], 0x12);
    EXPECT_EQ(esds.getEsds()[32], 0x38);

    Qtx::AvcDecoderInfo avc;
    Bytes sps = spsOf(20), pps(4, 0x68);
    ASSERT_TRUE(avc.set(20, sps.data(), 4, pps.data()));
    ASSERT_EQ(avc.getAvcSpsPpsLength(), 32u);
    EXPECT_EQ(Bytes(avc.getAvcSpsPps(), avc.getAvcSpsPps() + 32), concat({Bytes{0, 0, 0, 20}, sps, Bytes{0, 0, 0, 4}, pps}));
    Bytes written = encoded(avc);
    ASSERT_EQ(written.size(), 43u);
    EXPECT_EQ(Bytes(written.begin() + 8, written.begin() + 16), (Bytes{1, 77, 0x40, 41, 0xFF, 0xE1, 0, 20}));
    MessageCapture messages;
    Bytes big = spsOf(65);
    EXPECT_FALSE(avc.set(65, big.data(), 4, pps.data()));
    EXPECT_EQ(avc.getSize(), 43u) << "a failed set keeps the previous size";
}
