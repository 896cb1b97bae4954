// QtAtomSampleDesc ('stsd'): every table of the real movies read and written back byte for byte,
// entry classes chosen by the media handler, damaged counts and sizes, the data reference index
// of new descriptions, and a description built from nothing and filled in while recording.
#include <gtest/gtest.h>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"
#include "tests/descriptions/SampleDescFixture.h"

namespace {

void collectTables(BaseQtAtom const* atom, std::vector<QtAtomSampleDesc const*>& out) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        if (auto const* stsd = dynamic_cast<QtAtomSampleDesc const*>(child)) out.push_back(stsd);
        collectTables(child, out);
    }
}

TEST(QtAtomSampleDesc, EntryClassFollowsTheMediaHandlerNotTheFormat) {
    Bytes entry = videoEntry("avc1", 64, 48);
    struct Case {
        char const* subtype;
        bool video, audio;
    } cases[] = {{"vide", true, false}, {"soun", false, true}, {"tmcd", false, false}};
    for (Case const& c : cases) {
        ReadTrack track(trackMovie(handlerBytes("mhlr", c.subtype), stsdBytes(1, entry)));
        ASSERT_NE(track.stsd, nullptr);
        EXPECT_EQ(track.stsd->findMediaType(), QtIdName(c.subtype).getId());
        EXPECT_EQ(track.stsd->getVideoDesc(1) != nullptr, c.video) << c.subtype;
        EXPECT_EQ(track.stsd->getAudioDesc(1) != nullptr, c.audio) << c.subtype;
        EXPECT_EQ(encodedAtom(*track.stsd), stsdBytes(1, entry)) << c.subtype;
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
    Bytes twoEntries = entryHeader(20, "abcd");
    putBytes(twoEntries, zeros(4));
    putBytes(twoEntries, entryHeader(16, "efgh"));
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
            auto* dinf = new QtAtomHeader(qtId("dinf"), &minf);
            auto* dref = new QtAtomDataRefHdr(dinf);
            for (unsigned int i = 1; i <= aliases; ++i) {
                auto* alias = new QtAtomDataAlias(dref);
                alias->setPath("/media/movie.mov", ("/media/clip" + std::to_string(i) + ".mov").c_str());
            }
        }
        auto* stbl = new QtAtomHeader(qtId("stbl"), &minf);
        stsd = new QtAtomSampleDesc(stbl);
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

    QtVideoSampleDesc* video = two.stsd->addVideoDesc("/media/clip2.mov");
    QtAudioSampleDesc* audio = two.stsd->addAudioDesc("/media/clip1.mov");
    EXPECT_EQ(video->getDataRefIndex(), 2u);
    EXPECT_EQ(audio->getDataRefIndex(), 1u);
    EXPECT_EQ(two.stsd->addMpeg2Desc()->getDataRefIndex(), 3u) << "its own entry number";
    EXPECT_EQ(two.stsd->getSize(), 16u + 86 + 52 + 28);
    EXPECT_TRUE(two.stsd->isDirty());
}

// The recorder's sequence: a description made before the first frame, with the 'avcC' reserved,
// filled in once the encoder has produced its parameter sets.
TEST(QtAtomSampleDesc, ADescriptionBuiltFromNothingKeepsItsSizeWhenTheAvcCIsFilledIn) {
    Bytes emptyTable = stsdBytes(0, {});
    ReadTrack track(trackMovie(handlerBytes("mhlr", "vide"), emptyTable));
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
    Bytes written = encodedAtom(*track.stsd);
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

}  // namespace
