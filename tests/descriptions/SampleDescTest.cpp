// The sample descriptions ('stsd') and their entry classes. Each table is read from a one-track movie
// by the library's reader, so that it finds its handlers (and so its entry classes) as in a real file.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"

namespace {

// A handler reference with the given component type and subtype and no name.
Bytes handlerBytes(char const* type, char const* subtype) {
    Bytes body = words({0});
    putType(body, type);
    putType(body, subtype);
    putBytes(body, zeros(13));
    return atomBytes("hdlr", body);
}

// An 'stsd' whose count field says `count` around the given entry bytes.
Bytes stsdBytes(unsigned int count, Bytes const& entries) {
    return atomBytes("stsd", concat({words({0, count}), entries}));
}

// The common 16-byte entry header.
Bytes entryHeader(unsigned int size, char const* format, unsigned int dataRefIndex = 1) {
    Bytes out = words({size});
    putType(out, format);
    putBytes(out, zeros(6));
    put16(out, dataRefIndex);
    return out;
}
Bytes entryOf(char const* format, Bytes const& fields) {
    return concat({entryHeader(static_cast<unsigned int>(16 + fields.size()), format), fields});
}

// A video entry: the 86 fixed bytes (width x height, no colour table) followed by `rest`.
Bytes videoEntry(char const* format, unsigned int width, unsigned int height, Bytes const& rest = {},
                 char const* compressor = "test") {
    Bytes fields = words({0});
    putType(fields, "FFMP");
    putBytes(fields, words({0, 512, width << 16 | height, 72 << 16, 72 << 16, 0}));
    put16(fields, 1);
    Bytes name(32, 0);
    name[0] = static_cast<unsigned char>(strlen(compressor));
    memcpy(name.data() + 1, compressor, name[0]);
    putBytes(fields, name);
    putBytes(fields, words({0x0018FFFF}));  // depth 24, colour table id -1
    return entryOf(format, concat({fields, rest}));
}

// A movie of one track of media `subtype` whose table holds `entry` (no entry: an empty table), read back.
struct ReadTrack {
    TempFile file;
    AutoPtr<QtAtomRoot> root;
    QtAtomSampleDesc const* stsd = nullptr;

    ReadTrack(char const* subtype, Bytes const& entry, Bytes const& moreStbl = {},
              BasicFileIO::Mode mode = BasicFileIO::ReadOnly) {
        Bytes stbl = concat({stsdBytes(!entry.empty(), entry), moreStbl});
        Bytes minf = concat({handlerBytes("dhlr", "alis"), atomBytes("stbl", stbl)});
        Bytes mdia = concat({handlerBytes("mhlr", subtype), atomBytes("minf", minf)});
        file.write(atomBytes("moov", atomBytes("trak", atomBytes("mdia", mdia))));
        root = QtAtomReader::readFile(file.c_str(), mode);
        if (root)
            stsd = dynamic_cast<QtAtomSampleDesc const*>(root->findAtom("moov.trak.mdia.minf.stbl.stsd", 0));
    }
    QtAudioSampleDesc const* audio() const { return stsd ? stsd->getAudioDesc(1) : nullptr; }
    QtVideoSampleDesc const* video() const { return stsd ? stsd->getVideoDesc(1) : nullptr; }
    Bytes written() const { return encodedAtom(*stsd); }
};

Bytes textEntry(char const* fontName, Bytes const& after = {}) {
    Bytes fields = words({0x2001, 1});  // display flags, justification
    putBytes(fields, Bytes(6, 0xFF));
    putBytes(fields, words({0, 480u << 16 | 640}));
    putBytes(fields, zeros(8));
    putBytes(fields, words({0x00030001}));  // font number 3, face 1
    putBytes(fields, zeros(9));
    if (fontName) putText(fields, std::string(1, static_cast<char>(strlen(fontName))) + fontName);
    return entryOf("text", concat({fields, after}));
}

TEST(QtSampleDesc, TextEntriesKeepTheirFontNameAndWhatFollowsIt) {
    Bytes entry = textEntry("Helvetica", atomBytes("ftab", Bytes{0, 1, 0, 3, 4, 'T', 'i', 'm', 'e'}));
    ReadTrack track("text", entry);
    ASSERT_NE(track.stsd, nullptr);
    auto const* text = dynamic_cast<QtTextSampleDesc const*>(track.stsd->getDesc(1));
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text->getFontName(), "Helvetica");
    EXPECT_EQ(text->getDisplayFlags(), 0x2001u);
    EXPECT_EQ(track.written(), stsdBytes(1, entry));
    MessageCapture messages;
    text->show(0);
    EXPECT_EQ(messages.all(),
              "text: sz=" + std::to_string(entry.size()) + ",fmt=text,idx=1,display=0x2001,font=Helvetica");

    ReadTrack nameless("text", textEntry(nullptr));
    auto const* plain = dynamic_cast<QtTextSampleDesc const*>(nameless.stsd->getDesc(1));
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->getFontName(), nullptr);
    EXPECT_EQ(nameless.written(), stsdBytes(1, textEntry(nullptr)));
}

TEST(QtSampleDesc, Mpeg2AndUnknownEntriesAreWrittenBackAsRead) {
    Bytes mpeg2 = entryHeader(28, "m2v1", 2);
    for (unsigned int i = 0; i < 12; ++i) put8(mpeg2, i + 1);
    ReadTrack track("m2v ", mpeg2);
    ASSERT_NE(track.stsd->getMpeg2Desc(1), nullptr);
    EXPECT_EQ(track.stsd->getDrefIndex(1), 2u);
    EXPECT_EQ(track.written(), stsdBytes(1, mpeg2));

    Bytes other = entryHeader(36, "sbtl");
    for (unsigned int i = 0; i < 20; ++i) put8(other, 0x30 + i);
    ReadTrack unknown("sbtl", other);
    EXPECT_EQ(unknown.stsd->getDesc(1)->getOpaque().getSize(), 20u);
    EXPECT_EQ(unknown.written(), stsdBytes(1, other));
    MessageCapture messages;
    unknown.stsd->getDesc(1)->show(2);
    EXPECT_EQ(messages.all(), "  unknown: sz=36,fmt=sbtl,idx=1\n");
}

TEST(QtAtomSampleDesc, EntryClassFollowsTheMediaHandlerNotTheFormat) {
    Bytes entry = videoEntry("avc1", 64, 48);
    struct Case {
        char const* subtype;
        bool video, audio;
    } cases[] = {{"vide", true, false}, {"soun", false, true}, {"tmcd", false, false}};
    for (Case const& c : cases) {
        SCOPED_TRACE(c.subtype);
        ReadTrack track(c.subtype, entry);
        ASSERT_NE(track.stsd, nullptr);
        EXPECT_EQ(track.stsd->findMediaType(), QtIdName(c.subtype).getId());
        EXPECT_EQ(track.video() != nullptr, c.video);
        EXPECT_EQ(track.audio() != nullptr, c.audio);
        EXPECT_EQ(track.written(), stsdBytes(1, entry));
    }
}

// Decodes an 'stsd' on its own (no handler: every entry is kept as an unknown one).
AutoPtr<QtAtomSampleDesc> decodeTable(Bytes bytes) {
    AutoPtr<QtAtomSampleDesc> stsd(new QtAtomSampleDesc(nullptr));
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    stsd->decode(buffer);
    EXPECT_EQ(buffer.nOccupied(), 0u) << "the whole atom is consumed";
    return stsd;
}

TEST(QtAtomSampleDesc, CountsAreCheckedAsA32BitProduct) {
    QtAtomSampleDesc empty(nullptr);
    EXPECT_TRUE(decodeFrom(empty, stsdBytes(0, {}))) << "a table without entries is a table";
    Bytes twoEntries = concat({entryHeader(20, "abcd"), zeros(4), entryHeader(16, "efgh")});
    // 0x10000000 x 16 wraps to 0 and 0x08000000 x 16 is negative as a signed value: both pass, and
    // reading stops where the entries stop.
    for (unsigned int count : {0x10000000u, 0x08000000u}) {
        AutoPtr<QtAtomSampleDesc> stsd = decodeTable(stsdBytes(count, twoEntries));
        EXPECT_EQ(stsd->getCount(), 2u) << count;
        EXPECT_EQ(stsd->getDrefIndex(2), 1u);
    }
    AutoPtr<QtAtomSampleDesc> tooMany = decodeTable(stsdBytes(3, twoEntries));
    EXPECT_EQ(tooMany->getCount(), 0u) << "48 bytes of entries claimed, 36 present";
    EXPECT_EQ(tooMany->getDesc(1), nullptr);
}

// A track whose 'dinf' holds `aliases` alias references to /media/clip<i>.mov.
struct AliasTrack {
    explicit AliasTrack(unsigned int aliases, bool withDinf = true) : minf(qtId("minf"), nullptr) {
        if (withDinf) {
            auto* dref = new QtAtomDataRefHdr(new QtAtomHeader(qtId("dinf"), &minf));
            for (unsigned int i = 1; i <= aliases; ++i)
                (new QtAtomDataAlias(dref))
                    ->setPath("/media/movie.mov", ("/media/clip" + std::to_string(i) + ".mov").c_str());
        }
        stsd = new QtAtomSampleDesc(new QtAtomHeader(qtId("stbl"), &minf));
    }
    QtAtomHeader minf;
    QtAtomSampleDesc* stsd;
};

TEST(QtAtomSampleDesc, FindsTheAliasOfAPathOrTheIndexANewOneWouldTake) {
    EXPECT_EQ(AliasTrack(0, false).stsd->findAliasIndex("/media/clip1.mov"), 1u) << "no dinf";
    EXPECT_EQ(AliasTrack(0).stsd->findAliasIndex("/media/clip1.mov"), 1u) << "no alias";
    EXPECT_EQ(AliasTrack(1).stsd->findAliasIndex("/media/clip1.mov"), 1u);
    EXPECT_EQ(AliasTrack(1).stsd->findAliasIndex("/media/clip2.mov"), 2u);
    AliasTrack two(2);
    EXPECT_EQ(two.stsd->findAliasIndex("/media/clip2.mov"), 2u);
    EXPECT_EQ(two.stsd->findAliasIndex("/media/./other/../clip2.mov"), 2u) << "compared after normalising";
    EXPECT_EQ(two.stsd->findAliasIndex("/media/clip3.mov"), 3u);

    EXPECT_EQ(two.stsd->addVideoDesc("/media/clip2.mov")->getDataRefIndex(), 2u);
    EXPECT_EQ(two.stsd->addAudioDesc("/media/clip1.mov")->getDataRefIndex(), 1u);
    EXPECT_EQ(two.stsd->addMpeg2Desc()->getDataRefIndex(), 3u) << "its own entry number";
    EXPECT_EQ(two.stsd->getSize(), 16u + 86 + 52 + 28);
    EXPECT_TRUE(two.stsd->isDirty());
}

// The recorder's sequence: a description made before the first frame, with the 'avcC' reserved,
// filled in once the encoder has produced its parameter sets.
TEST(QtAtomSampleDesc, ADescriptionBuiltFromNothingKeepsItsSizeWhenTheAvcCIsFilledIn) {
    ReadTrack track("vide", {});
    ASSERT_NE(track.stsd, nullptr);
    QtVideoSampleDesc* video = track.stsd->addVideoDesc(track.file.c_str());
    video->setFormat(qtId("avc1"));
    video->setDimensions(1920, 1080);
    video->setCompressorName("H.264");
    video->setAvcDecoderInfo();
    video->setPixelAspectRatio(1, 1);
    EXPECT_EQ(video->getSize(), 86u + 147 + 16 + 4);
    unsigned long tableSize = track.stsd->getSize();
    EXPECT_EQ(tableSize, 16u + video->getSize());

    Bytes sps(24, 0x42), pps(5, 0x68);
    sps[0] = 0x67;
    sps[1] = 100;
    sps[3] = 40;
    ASSERT_TRUE(video->setAvcSpsPps(24, sps.data(), 5, pps.data()));
    EXPECT_EQ(video->getSize(), 86u + 147 + 16 + 4);
    EXPECT_EQ(track.stsd->getSize(), tableSize);

    // Written and read again, the entry holds the filled 'avcC' and the 'pasp' after it.
    Bytes written = track.written();
    ASSERT_EQ(written.size(), tableSize);
    auto* again = new QtAtomSampleDesc(track.stsd->getParent());
    QtAtomBuffer buffer(written.data(), static_cast<unsigned int>(written.size()), QtAtomBuffer::Full);
    again->decode(buffer);
    QtVideoSampleDesc const* reread = again->getVideoDesc(1);
    ASSERT_NE(reread, nullptr);
    EXPECT_EQ(reread->getWidth(), 1920);
    EXPECT_STREQ(reread->getCompressorName(), "H.264");
    EXPECT_EQ(reread->getSize(), video->getSize());
    EXPECT_STREQ(
        reread->getExtensions().toString().get(),
        "{avcC={version=1, profile=100, profile_compat=66, level=40, nalUnitLengthSize=4, sps=24b, pps=5b},"
        "pasp={hSpacing=1, vSpacing=1}}");
    EXPECT_EQ(encodedAtom(*again), written);
    again->removeSelf(false);
    delete again;
}

// A sound entry of 8 kHz, 16-bit samples: the classic fields, then the version 1 fields of
// `bytesPerPacket`, then `rest`.
Bytes soundEntry(char const* format, unsigned int channels, unsigned int compressionId,
                 unsigned int bytesPerPacket, Bytes const& rest = {}) {
    Bytes fields = words({0x00010000});  // version 1
    putType(fields, "FFMP");
    putBytes(fields, words({channels << 16 | 16, compressionId << 16, 8000u << 16, 1, bytesPerPacket,
                            2 * bytesPerPacket, bytesPerPacket}));
    return entryOf(format, concat({fields, rest}));
}

TEST(QtAudioSampleDesc, AVersion1EntryOf52BytesReadsItsFieldsAndNoExtensions) {
    Bytes entry = soundEntry("twos", 2, 0, 3);
    ASSERT_EQ(entry.size(), 52u);
    ReadTrack track("soun", entry);
    ASSERT_NE(track.audio(), nullptr);
    EXPECT_EQ(track.audio()->getBytesPerPacket(), 3u);
    EXPECT_EQ(track.audio()->getBitsPerSample(), 24u)
        << "twos, version 1, compression id 0: bytes per packet x 8";
    EXPECT_TRUE(track.audio()->getExtensions().isEmpty());
    EXPECT_EQ(track.written(), stsdBytes(1, entry));

    EXPECT_EQ(ReadTrack("soun", soundEntry("twos", 2, 0xFFFE, 3)).audio()->getBitsPerSample(), 16u);
}

TEST(QtAudioSampleDesc, SetBitsPerSampleChoosesTheFormat) {
    ReadTrack track("soun", soundEntry("raw ", 2, 0, 4));
    QtAudioSampleDesc* audio = track.stsd->write()->getAudioDesc(1);
    ASSERT_NE(audio, nullptr);
    EXPECT_TRUE(audio->setBitsPerSample(24, false, 0));
    EXPECT_EQ(audio->getFormat(), qtId("in24"));
    EXPECT_EQ(audio->getSampleSize(), 16);
    EXPECT_TRUE(audio->isLittleEndian());
    EXPECT_EQ(audio->getSize(), 52u + 30 + 8) << "the wave group and the terminator after it";
    EXPECT_EQ(track.stsd->getSize(), 16u + audio->getSize());

    EXPECT_TRUE(audio->setBitsPerSample(16, true, qtId("mp4a")));
    EXPECT_EQ(audio->getFormat(), qtId("mp4a"));
    EXPECT_TRUE(audio->setBitsPerSample(16, false, 0));
    EXPECT_EQ(audio->getFormat(), qtId("sowt"));
    EXPECT_TRUE(audio->setBitsPerSample(16, true, 0));
    EXPECT_EQ(audio->getFormat(), qtId("twos"));
    EXPECT_FALSE(audio->setBitsPerSample(16, true, qtId("ac-3")));
    EXPECT_EQ(audio->getFormat(), qtId("twos"));
    EXPECT_FALSE(audio->setBitsPerSample(20, true, 0));
}

TEST(QtAudioSampleDesc, EqualityComparesTheSoundNotTheVendorOrExtensions) {
    ReadTrack a("soun", soundEntry("twos", 2, 0, 2));
    ReadTrack b("soun", soundEntry("twos", 2, 0, 2, atomBytes("chan", zeros(16))));
    ReadTrack c("soun", soundEntry("twos", 1, 0, 2));
    EXPECT_TRUE(*a.audio() == *b.audio());
    EXPECT_FALSE(*a.audio() == *c.audio());
}

TEST(QtTimecodeSampleDesc, EntryIsReadAndWrittenBackByteForByte) {
    Bytes entry = concat({entryHeader(36, "tmcd"), words({0, 0x3, 30000, 1001}), Bytes{30, 0, 0xAB, 0xCD}});
    ReadTrack track("tmcd", entry);
    QtTimecodeSampleDesc const* desc = track.stsd->getTimecodeDesc(1);
    ASSERT_NE(desc, nullptr);
    EXPECT_EQ(track.written(), stsdBytes(1, entry));
    MessageCapture messages;
    desc->show(2);
    EXPECT_EQ(messages.all(),
              "  timecode: sz=36,fmt=tmcd,idx=1,frame=1001/30000,30fps\n  drop,wrap@24,discrete,tc=");

    // Too short for the fixed fields: kept as read.
    Bytes cut = concat({entryHeader(20, "tmcd"), words({0x01020304})});
    ReadTrack shortTrack("tmcd", cut);
    ASSERT_NE(shortTrack.stsd->getTimecodeDesc(1), nullptr);
    EXPECT_EQ(shortTrack.written(), stsdBytes(1, cut));
    EXPECT_FALSE(static_cast<QtSampleDesc const&>(*desc) == *shortTrack.stsd->getTimecodeDesc(1))
        << "only sound and video entries compare equal";

    // Samples with no chunk offsets to place them: nothing is written.
    ReadTrack sizesOnly("tmcd", entry, atomBytes("stsz", words({0, 4, 1})), BasicFileIO::ReadWrite);
    ASSERT_NE(sizesOnly.stsd->getTimecodeDesc(1), nullptr);
    EXPECT_FALSE(sizesOnly.stsd->getTimecodeDesc(1)->writeTimecodes());
}

TEST(QtVideoSampleDesc, SettersPlaceOneAtomEachAndKeepTheSizeWithATerminator) {
    ReadTrack track("vide", videoEntry("avc1", 64, 64));
    QtVideoSampleDesc* video = track.stsd->write()->getVideoDesc(1);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(video->getExtensionSize(), 0u);
    video->setFieldInfo(2, FieldDetailTopFirst);
    EXPECT_EQ(video->getFieldMode(), 1u);
    EXPECT_EQ(video->getSize(), 86u + 10 + 4) << "the first extension brings the terminator";
    EXPECT_EQ(track.stsd->getSize(), 16u + 86 + 10 + 4);
    video->setFieldInfo(1, FieldDetailUnknown);
    EXPECT_EQ(video->getFieldMode(), 2u);
    EXPECT_EQ(video->getSize(), 86u + 10 + 4);
    video->setColorInfo(qtId("nclc"), ColorPrimariesBT709, ColorTransferBT709, ColorMatrixBT709);
    video->setCleanApertureDimensions(64, 1, 64, 1);
    video->setACLR(0x30303031, 1);
    video->setAPRG(0x30303031, 1);
    video->setARES(0x30303031, 1253, 64, 64, 1, 6);
    EXPECT_EQ(video->getSize(), 86u + 10 + 18 + 40 + 24 + 24 + 120 + 4);

    Bytes written = track.written();
    ASSERT_EQ(written.size(), track.stsd->getSize());
    EXPECT_EQ(Bytes(written.end() - 4, written.end()), zeros(4));
}

TEST(QtVideoSampleDesc, ExtensionsAfterAColourTableAreRead) {
    Bytes table = words({24});
    putType(table, "ctab");
    putBytes(table, concat({words({0, 0x80000000}), zeros(8)}));  // seed, flags, one entry
    Bytes entry = videoEntry("jpeg", 160, 120, concat({table, atomBytes("fiel", Bytes{2, 1})}));
    entry[84] = entry[85] = 0;  // colour table id 0: the table follows the fixed fields
    ReadTrack track("vide", entry);
    ASSERT_NE(track.video(), nullptr);
    EXPECT_EQ(track.video()->getColorTableId(), 0);
    EXPECT_EQ(track.video()->getFieldMode(), 1u);
}

TEST(QtVideoSampleDesc, EqualityIgnoresNamesQualitiesAndOtherExtensions) {
    ReadTrack a("vide", videoEntry("jpeg", 160, 120, atomBytes("pasp", zeros(8)), "one"));
    ReadTrack b("vide", videoEntry("jpeg", 160, 120, {}, "another"));
    ReadTrack c("vide", videoEntry("jpeg", 160, 121));
    ReadTrack d("vide", videoEntry("mjpa", 160, 120));
    ReadTrack fields("vide", videoEntry("jpeg", 160, 120, atomBytes("fiel", Bytes{2, 1})));
    ASSERT_TRUE(a.video() && b.video() && c.video() && d.video() && fields.video());
    EXPECT_TRUE(*a.video() == *b.video());
    EXPECT_TRUE(static_cast<QtSampleDesc const&>(*a.video()) == *b.video());
    EXPECT_FALSE(*a.video() == *c.video());
    EXPECT_FALSE(static_cast<QtSampleDesc const&>(*a.video()) == *d.video()) << "formats differ";
    EXPECT_FALSE(*a.video() == *fields.video()) << "the field mode is compared";
}

}  // namespace
