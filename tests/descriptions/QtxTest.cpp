// A description's extension area: Qtx keeps the raw bytes whole on reading and re-encodes its tree into
// them on every setter; Qtx::create reads one extension atom by its class, refuses the ones it must
// with the message a user sees; and the recorder's setters build the AAC and AVC atoms.
#include <gtest/gtest.h>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"

namespace {

using Esds = Qtx::Mpeg4ElementaryStreamDescriptor;

// Reads one atom with Qtx::create from exactly these bytes.
AutoPtr<Qtx::Atom> createFrom(Bytes bytes) {
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    return AutoPtr<Qtx::Atom>(Qtx::create(buffer, static_cast<unsigned int>(bytes.size())));
}

// What the atom writes, in a buffer of its size.
Bytes encoded(Qtx::Atom& atom) {
    QtAtomBuffer out(atom.getSize());
    atom.encode(out);
    return Bytes(out.ptrData(), out.ptrEnd());
}

// An 'frma' of in24 inside `levels` 'wave' groups.
Bytes inWaves(unsigned int levels) {
    Bytes atom = atomBytes("frma", Bytes{'i', 'n', '2', '4'});
    while (levels--) atom = atomBytes("wave", atom);
    return atom;
}

TEST(QtxCreate, RefusesHeadersThatDoNotFitOrAreTooSmall) {
    Bytes fiel = atomBytes("fiel", {1, 0});
    QtAtomBuffer shortBuffer(fiel.data(), 7, QtAtomBuffer::Full);
    EXPECT_EQ(Qtx::create(shortBuffer, 10), nullptr);
    EXPECT_EQ(shortBuffer.nOccupied(), 7u) << "fewer than 8 bytes: nothing is consumed";

    QtAtomBuffer claimsMore(fiel.data(), 10, QtAtomBuffer::Full);
    EXPECT_EQ(Qtx::create(claimsMore, 9), nullptr) << "the size exceeds what the caller allows";
    QtAtomBuffer bufferShort(fiel.data(), 9, QtAtomBuffer::Full);
    EXPECT_EQ(Qtx::create(bufferShort, 10), nullptr) << "the size exceeds what the buffer holds";

    for (unsigned int size : {1u, 4u, 7u})
        EXPECT_EQ(createFrom(concat({words({size}), Bytes{'a', 'b', 'c', 'd', 0, 0, 0, 0}})).get(), nullptr) << size;
}

TEST(QtxAtomChildren, ReadsAGroupThatItsChildrenFillExactly) {
    Bytes terminator{0, 0, 0, 8, 0, 0, 0, 0};
    Bytes wave = atomBytes("wave", concat({inWaves(0), atomBytes("enda", Bytes{0, 1}), terminator}));
    AutoPtr<Qtx::Atom> atom = createFrom(wave);
    ASSERT_TRUE(atom);
    EXPECT_STREQ(atom->treeString().get(), "wave{frma={in24},enda={little},pad}");
    EXPECT_TRUE(atom->findChild(qtId("enda"))->isLittleEndian());
    EXPECT_EQ(encoded(*atom), wave);
}

TEST(QtxAtomChildren, RefusesGroupsNestedBeyondTheLimit) {
    EXPECT_EQ(createFrom(inWaves(Qtx::Atom::kMaxNesting + 4)).get(), nullptr);
    Bytes shallow = inWaves(Qtx::Atom::kMaxNesting - 1);
    AutoPtr<Qtx::Atom> atom = createFrom(shallow);
    ASSERT_TRUE(atom);
    EXPECT_EQ(encoded(*atom), shallow);
}

TEST(QtxAtomTree, AppendReplaceAndRemoveKeepTheChildOrder) {
    Qtx::Root root;
    auto* first = new Qtx::FieldInfo();
    auto* second = new Qtx::PixelAspectRatio();
    auto* third = new Qtx::FieldInfo();
    root.appendChild(first);
    root.appendChild(second);
    first->appendSibling(third);  // directly after `first`
    EXPECT_STREQ(root.treeString().get(),
                 "{fiel={ fields=1, detail=onlyOneField},fiel={ fields=1, detail=onlyOneField},"
                 "pasp={hSpacing=0, vSpacing=0}}");
    EXPECT_EQ(third->getParent(), &root);

    auto* colr = new Qtx::ColorInfo();
    root.replaceChild(new Qtx::FieldInfo());  // both 'fiel' go, the new one comes last
    root.appendChild(colr);
    EXPECT_STREQ(root.treeString().get(),
                 "{pasp={hSpacing=0, vSpacing=0},fiel={ fields=1, detail=onlyOneField},"
                 "colr={ type='nclc', primaries=1, xferFunc=1, matrix=1}}");

    Qtx::Atom* middle = root.findChild(qtId("fiel"));
    middle->removeSelf();
    EXPECT_EQ(middle->getParent(), nullptr);
    EXPECT_EQ(middle->getSibling(), nullptr);
    EXPECT_STREQ(root.treeString().get(),
                 "{pasp={hSpacing=0, vSpacing=0},colr={ type='nclc', primaries=1, xferFunc=1, matrix=1}}");
    delete middle;

    root.getChild()->removeSelf();  // the first child
    EXPECT_EQ(root.getChild(), colr);
    delete second;
}

Bytes rawOf(Qtx const& qtx) { return Bytes(qtx.getData(), qtx.getData() + qtx.getSize()); }

void decodeArea(Qtx& qtx, Bytes& area) {
    QtAtomBuffer buffer(area.data(), static_cast<unsigned int>(area.size()), QtAtomBuffer::Full);
    qtx.decode(buffer, static_cast<unsigned int>(area.size()));
}

Bytes encodedArea(Qtx const& qtx) {
    QtAtomBuffer out(qtx.getSize());
    qtx.encode(out);
    return Bytes(out.ptrData(), out.ptrEnd());
}

unsigned int countChildren(Qtx const& qtx) {
    unsigned int n = 0;
    for (Qtx::Atom const* child = qtx.getRoot().getChild(); child; child = child->getSibling()) ++n;
    return n;
}

TEST(QtxDecode, AFieldAtomAndAZeroWordGiveOneChildAndPaddingFour) {
    Bytes area = concat({atomBytes("fiel", Bytes{2, 6}), zeros(4)});
    Qtx qtx;
    decodeArea(qtx, area);
    EXPECT_EQ(countChildren(qtx), 1u);
    EXPECT_EQ(qtx.getPaddingSize(), 4u);
    EXPECT_EQ(qtx.getNumFields(0), 2);
    EXPECT_EQ(encodedArea(qtx), area);
}

TEST(QtxQueries, FieldCountComesFromFielThenAresThenTheDefault) {
    Qtx qtx;
    EXPECT_EQ(qtx.getNumFields(0), 0);
    EXPECT_EQ(qtx.getNumFields(7), 7);
    qtx.setARES(0x30303031, 1253, 1920, 540, 2, 4);
    EXPECT_EQ(qtx.getNumFields(0), 2);
    qtx.setFieldInfo(1, FieldDetailUnknown);
    EXPECT_EQ(qtx.getNumFields(0), 1) << "'fiel' is asked before 'ARES'";
}

TEST(QtxQueries, ByteOrderComesFromEndaAnywhereElseTheDefault) {
    Qtx qtx;
    EXPECT_FALSE(qtx.isLittleEndian(false));
    EXPECT_TRUE(qtx.isLittleEndian(true));
    Bytes wave = atomBytes("wave", atomBytes("enda", Bytes{0, 0}));
    decodeArea(qtx, wave);
    EXPECT_FALSE(qtx.isLittleEndian(true)) << "an enda of 0 says big-endian";
}

TEST(QtxSetters, EachSetterLeavesOneAtomOfItsTypeAndTheRawBytesEncodeTheTree) {
    Qtx qtx;
    qtx.setFieldInfo(2, FieldDetailBottomFirst);
    qtx.setFieldInfo(2, FieldDetailTopFirst);
    EXPECT_EQ(countChildren(qtx), 1u);
    EXPECT_EQ(rawOf(qtx), atomBytes("fiel", Bytes{2, 1}));
    EXPECT_EQ(qtx.getPaddingSize(), 0u);

    qtx.setColorInfo(qtId("nclc"), ColorPrimariesBT2020, ColorTransferHLG, ColorMatrixBT2020);
    qtx.setPixelAspectInfo(40, 33);
    qtx.setCleanAptInfo(704, 1, 480, 1);
    Bytes expected = concat({atomBytes("fiel", Bytes{2, 1}),
                             atomBytes("colr", Bytes{'n', 'c', 'l', 'c', 0, 9, 0, 18, 0, 9}),
                             atomBytes("pasp", words({40, 33})), atomBytes("clap", words({704, 1, 480, 1, 0, 1, 0, 1}))});
    EXPECT_EQ(rawOf(qtx), expected);
    EXPECT_STREQ(qtx.toString().get(),
                 "{fiel={ fields=2, detail=topFirst},colr={ type='nclc', primaries=9, xferFunc=18, matrix=9},"
                 "pasp={hSpacing=40, vSpacing=33},clap={width=704, height=480, horizOff=0, vertOff=0}}");

    qtx.setPixelAspectInfo(1, 1);  // replaced, and moved to the end
    EXPECT_EQ(countChildren(qtx), 4u);
    EXPECT_EQ(qtx.getSize(), expected.size());
}

TEST(QtxAvc, ParameterSetsThatDoNotFitTheAreaAreRefusedAndNothingChanges) {
    // An 'avcC' read from a file has only the room its own sets took.
    Bytes body{1, 77, 0, 30, 0xFF, 0xE1, 0, 4, 0x67, 77, 0, 30, 1, 0, 2, 0x68, 0xCE};
    Bytes area = atomBytes("avcC", body);
    Qtx qtx;
    decodeArea(qtx, area);
    ASSERT_NE(qtx.findAtom(qtId("avcC")), nullptr);
    Bytes sps(30, 0x67), pps(4, 0x68);
    MessageCapture messages;
    EXPECT_FALSE(qtx.setAvcSpsPps(30, sps.data(), 4, pps.data()));
    EXPECT_TRUE(messages.contains("do not fit"));
    EXPECT_EQ(rawOf(qtx), area);

    Bytes smaller(2, 0x67);
    smaller[1] = 66;
    EXPECT_TRUE(qtx.setAvcSpsPps(2, smaller.data(), 2, pps.data()));
    EXPECT_EQ(qtx.getSize(), area.size());
    EXPECT_EQ(qtx.findAtom(qtId("avcC"))->getSize(), 23u);
}

Bytes pairBody(char const* type, uint32_t second, unsigned int tailLength) {
    return concat({Bytes(type, type + 4), Bytes{'0', '0', '0', '1'}, words({second}), zeros(tailLength)});
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
    return concat({Bytes{0x67, 77, 0x40, 41}, Bytes(length - 4, 0x11)});
}

// The header's profile (100) is replaced by the SPS's when the atom is read.
Bytes avcWithProfileOfSps(Bytes bytes) {
    Bytes sps = spsOf(4);
    std::copy(sps.begin() + 1, sps.end(), bytes.begin() + 9);
    return bytes;
}

Bytes esdsOf128() {
    Bytes body{1, 0, 0, 2};
    for (unsigned int i = 0; i < 128; ++i) put8(body, i);
    return atomBytes("esds", body);
}

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

}  // namespace
