// The movie structure atoms: one table of byte literals, each decoded by its class, written back
// and printed; then the rules that a table row cannot show (what marks an atom changed, what it asks
// of the atoms around it, names that do not fit), and the printouts of a real movie through
// `qtmovie dump`.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "quicktime/quicktime.h"
#include "tests/tools/QtMovieRun.h"

namespace {

using Make = std::function<BaseQtAtom*()>;

template <class T>
Make make() {
    return [] { return new T(nullptr); };
}
Make apert(char const* type) {
    return [type] { return new QtAtomApertDimensions(nullptr, QtIdName(type).getId()); };
}

Bytes apertureBytes(char const* type, uint32_t width, uint32_t height) {
    return fullAtom(type, {width, height});
}

Bytes handlerFields(uint32_t size, char const* type, char const* subtype) {
    Bytes b;
    putAtomHeader(b, size, "hdlr");
    put32(b, 0);
    putType(b, type);
    putType(b, subtype);
    putType(b, "appl");
    putBytes(b, words({0x40000000, 0x0001003F}));
    return b;
}

Bytes withText(Bytes b, std::string const& text) {
    putText(b, text);
    return b;
}

// tcmi as ffmpeg writes it: font 0, face 0, 12 pt, black on cyan, then the Pascal name.
Bytes timecodeInfBytes(uint32_t size, std::string const& pascalName) {
    Bytes b;
    putAtomHeader(b, size, "tcmi");
    put32(b, 0);
    for (unsigned int v : {0, 0, 12, 0, 0, 0, 0, 0xFFFF, 0xFFFF, 0xFFFF}) put16(b, v);
    putText(b, pascalName);
    return b;
}

// tkhd of track 7, duration 3000, layer 1, group 2, volume 1.0, the reserved bytes kept.
Bytes trackHeaderBytes(uint32_t flags, uint32_t width, uint32_t height) {
    Bytes b;
    putAtomHeader(b, 92, "tkhd");
    putBytes(b, words({flags, 0xC0000001u, 0xC0000002u, 7u, 0x11111111u, 3000u}));
    for (int i = 0; i < 8; ++i) put8(b, 0xB0 + i);
    for (unsigned int v : {1, 2, 0x0100, 0x2222}) put16(b, v);
    putBytes(b, words({0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000, width, height}));
    return b;
}

// mvhd at 600 Hz, duration 1200, rate 1.5, volume 0.75, reserved bytes kept, next track 3.
Bytes movieHeaderBytes(uint32_t versionAndFlags) {
    Bytes b;
    putAtomHeader(b, 108, "mvhd");
    putBytes(b, words({versionAndFlags, 0xD0000001, 0xD0000002, 600, 1200, 0x00018000}));
    put16(b, 0x00C0);
    for (int i = 0; i < 10; ++i) put8(b, 0xA0 + i);
    putBytes(b, words({0x10000, 0, 0, 0, 0x10000, 0, 0x20000, 0x30000, 0x40000000}));
    putBytes(b, words({60, 120, 180, 240, 300, 360, 3}));
    return b;
}

// tref entries have the shape of atom headers: (size, type, track IDs).
Bytes trefBytes(std::vector<Bytes> const& entries, unsigned int trailingZeros = 0) {
    Bytes body = concat(entries);
    body.resize(body.size() + trailingZeros, 0);
    return atomBytes("tref", body);
}
Bytes trefEntry(char const* type, std::vector<uint32_t> const& ids) { return atomBytes(type, words(ids)); }

struct Row {
    char const* what;
    Make make;
    Bytes bytes;
    unsigned int consumed;  // 0: all of them
    Bytes written;          // empty: the bytes read
    char const* shown;      // null: not compared
};

std::vector<Row> rows() {
    Bytes hmhd = fullAtom("hmhd", {1450 << 16 | 1200, 4000000, 3000000, 3500000});
    Bytes mdhd = fullAtom("mdhd", {0xC1, 0xC2, 48000, 481024, 0x55C40100});
    Bytes iods = fullAtom("iods", {});
    putBytes(iods, Bytes{0x10, 0x80, 0x80, 0x80, 0x07, 0x00, 0x4F, 0xFF, 0xFF, 0x29, 0xAB});
    iods[3] = static_cast<unsigned char>(iods.size());
    Bytes m12v = atomBytes("m12v", concat({words({7, 8, 9}), trefEntry("abcd", {0x01020304})}));
    Bytes faced = timecodeInfBytes(33, std::string(1, '\0'));
    faced[14] = 0x12;
    faced[15] = 0x34;
    Bytes claimsPastTheAtom = withText(timecodeInfBytes(38, "\x14" "Arial"), "-bytes-of-the-next-atom");
    Bytes cutName(claimsPastTheAtom.begin(), claimsPastTheAtom.begin() + 38);
    cutName[32] = 5;
    Bytes nameless = withText(handlerFields(32, "dhlr", "alis"), std::string("Next\0more", 9));
    Bytes padded = withText(handlerFields(40, "mhlr", "vide"), std::string("\3abc\0\0\0\0", 8));
    Bytes claim = withText(handlerFields(36, "mhlr", "soun"), "\4abc");
    Make mvhd = [] { return new QtAtomMvhd(nullptr, 0); };
    Make hdlr = [] { return new QtAtomHandler(nullptr, 0, 0); };
    return {
        {"gmin fields", make<QtAtomBaseInf>(),
         atomBytes("gmin", Bytes{0, 0, 0, 0, 0, 0x24, 0x11, 0x11, 0x22, 0x22, 0x33, 0x33, 0xFF, 0x80, 0xAB, 0xCD}), 0,
         {}, "gmin: 24b@0,v0,f=0,mode36,rgb=0x1111/2222/3333,bal=0xff80\n"},
        {"vmhd", make<QtAtomVideoInf>(),
         atomBytes("vmhd", Bytes{0, 0, 0, 0, 0, 0x24, 0x11, 0x11, 0x22, 0x22, 0x33, 0x33}), 0, {},
         "vmhd: 20b@0,v0,f=0,lean,mode36,rgb=0x1111/2222/3333\n"},
        {"smhd", make<QtAtomSoundInf>(), atomBytes("smhd", Bytes{0, 0, 0, 0, 0xFF, 0x80, 0x12, 0x34}), 0, {},
         "smhd: 16b@0,v0,f=0,balance=0xff80\n"},
        {"hmhd", make<QtAtomHintMediaHdr>(), hmhd, 0, {},
         "hmhd: 28b@0,v0,f=0,max/avg pdu=1450/1200, max/avg/sliding bps=4000000/3000000/3500000\n"},
        {"mdhd", make<QtAtomMediaHdr>(), mdhd, 0, {},
         "mdhd: 32b@0,v0,f=0,48000hz,len=481024=00:00:10.021,lang=21956,q=256\n"},
        {"mvhd", mvhd, movieHeaderBytes(0), 0, {},
         "mvhd: 108b@0,v0,f=0,600hz,len=1200(movie)=00:00:02.000,next trak=3\n"
         "  cre=0xd0000001,mod=0xd0000002,cur=0x168\n"
         "  preview: start=00:00:00.100(60:movie),len=00:00:00.200(120:movie)\n"
         "  selection: start=00:00:00.400(240:movie),len=00:00:00.500(300:movie)\n"},
        {"mvhd version 1 keeps the 32-bit layout", mvhd, movieHeaderBytes(0x01000000), 0, {}, nullptr},
        {"tkhd", make<QtAtomTrakHdr>(), trackHeaderBytes(3, 0x02D00000, 0x01E00000), 0, {}, nullptr},
        {"tkhd keeps whole pixels", make<QtAtomTrakHdr>(), trackHeaderBytes(3, 0x02D08000, 0x01E0FFFF), 0,
         trackHeaderBytes(3, 0x02D00000, 0x01E00000), nullptr},
        {"iods", make<QtAtomObjectDesc>(), iods, 0, {}, "iods: 23b@0: tag=0x10, bits=80808007004fffff29ab\n"},
        {"name without terminator", [] { return new QtAtomString(nullptr, 0); },
         withText(atomBytes("name", Bytes{'x', 'y', 'z'}), "NEXT"), 11, atomBytes("name", Bytes{'x', 'y', 'z'}),
         "name: 11b@0,\"xyz\"\n"},
        {"m12v leaves its children to the reader", make<QtAtomM12v>(), m12v, 20,
         Bytes(m12v.begin(), m12v.begin() + 20), "m12v: 32b@0,v{1,2,3}=7,8,9,\n"},
        {"ftyp", make<QtAtomFileType>(), atomBytes("ftyp", withText(Bytes{'q', 't', ' ', ' ', 0, 0, 2, 0}, "qt  isom")), 0, {}, "ftyp: 24b@0,major_brand=qt  ,minor_version=0x200,compatible_brands={qt  ,isom}\n"},
        {"enof whole numbers become fractions", apert("enof"), apertureBytes("enof", 0x02D00000, 0x01E00000), 0,
         apertureBytes("enof", 0x02D00001, 0x01E00001), "enof: 20b@0,v0,f=0,720x480\n"},
        {"clef fractions reduce", apert("clef"), apertureBytes("clef", 0x02D00001, 0x0A000004), 0,
         apertureBytes("clef", 0x02D00001, 0x02800001), "clef: 20b@0,v0,f=0,720x640\n"},
        {"tcmi", make<QtAtomTimecodeInf>(), timecodeInfBytes(46, "\x0d" "Lucida Grande"), 0, {},
         "tcmi: 46b@0,v0,f=0,f=0/0x0/12pt,\n  Lucida Grande,fg=0x0/0/0,bg=0x0/ffff/ffff\n"},
        {"tcmi face is 16 bits", make<QtAtomTimecodeInf>(), faced, 0, {}, nullptr},
        {"tcmi name cut at the atom", make<QtAtomTimecodeInf>(), claimsPastTheAtom, 38, cutName, nullptr},
        {"tcmi without a name", make<QtAtomTimecodeInf>(), timecodeInfBytes(32, ""), 0, {},
         "tcmi: 32b@0,v0,f=0,f=0/0x0/12pt,\n  <>,fg=0x0/0/0,bg=0x0/ffff/ffff\n"},
        {"tref entries of one type merge", make<QtAtomTrakRef>(),
         trefBytes({trefEntry("tmcd", {3}), trefEntry("chap", {4, 5}), trefEntry("tmcd", {6})}), 0,
         trefBytes({trefEntry("tmcd", {3, 6}), trefEntry("chap", {4, 5})}, 8), "tref: 48b@0,tmcd[2]=3,6 chap[2]=4,5\n"},
        {"hdlr Pascal name", hdlr, withText(handlerFields(45, "mhlr", "vide"), "\x0c" "VideoHandler"), 0, {},
         "hdlr: 45b@0,v0,f=0,type=mhlr.vide,VideoHandler\n"},
        {"hdlr C name written as Pascal", hdlr,
         withText(handlerFields(45, "mhlr", "vide"), std::string("VideoHandler\0", 13)), 0,
         withText(handlerFields(45, "mhlr", "vide"), "\x0c" "VideoHandler"), nullptr},
        {"hdlr without room names itself from what follows", hdlr, nameless, 32, handlerFields(32, "dhlr", "alis"),
         "hdlr: 32b@0,v0,f=0,type=dhlr.alis,Next\n"},
        {"hdlr C name filling the room loses a character", hdlr,
         withText(handlerFields(44, "mhlr", "soun"), "SoundHandler"), 0,
         withText(handlerFields(44, "mhlr", "soun"), "\x0b" "SoundHandle"), nullptr},
        {"hdlr Pascal length one past the atom", hdlr, claim, 0, withText(handlerFields(36, "mhlr", "soun"), "\3abc"),
         nullptr},
        {"hdlr padding after the name", hdlr, padded, 0, {}, nullptr},
    };
}

}  // namespace

TEST(StructureAtoms, EachDecodesWritesBackAndPrintsAsItsTableRowSays) {
    for (Row const& row : rows()) {
        SCOPED_TRACE(row.what);
        std::unique_ptr<BaseQtAtom> atom(row.make());
        unsigned int consumed = 0;
        ASSERT_TRUE(decodeFrom(*atom, row.bytes, &consumed));
        EXPECT_EQ(consumed, row.consumed ? row.consumed : row.bytes.size());
        EXPECT_EQ(encodeToBytes(*atom), row.written.empty() ? row.bytes : row.written);
        if (!row.shown) continue;
        MessageCapture capture;
        atom->show();
        EXPECT_EQ(capture.all(), row.shown);
    }
}

TEST(StructureAtoms, ATrackHeaderCutShortIsRefused) {
    Bytes whole = trackHeaderBytes(3, 0x02D00000, 0x01E00000);
    QtAtomTrakHdr track(nullptr);
    EXPECT_FALSE(decodeFrom(track, Bytes(whole.begin(), whole.end() - 4)));
}

TEST(StructureAtoms, OnlyARealChangeMarksAnAtomChanged) {
    QtAtomMediaHdr media(nullptr);
    media.set(100, 25);
    media.setClean();
    media.set(200, 25);  // a longer duration alone is written with the movie
    EXPECT_FALSE(media.isDirty());
    media.set(200, 30);
    EXPECT_TRUE(media.isDirty());

    QtAtomMvhd movie(nullptr, 600);
    movie.setClean();
    movie.set(5000, 0, 0);
    EXPECT_FALSE(movie.isDirty());
    EXPECT_EQ(movie.getDuration(), 5000u);
    movie.set(6000, 100, 0);
    EXPECT_TRUE(movie.isDirty());
    ASSERT_TRUE(decodeFrom(movie, movieHeaderBytes(0)));
    movie.setClean();
    movie.setTime(movie.getCreateTime());  // the modification time differs: both become the creation time
    EXPECT_TRUE(movie.isDirty());
    EXPECT_EQ(movie.getModTime(), movie.getCreateTime());
    movie.setClean();
    movie.setTime(movie.getCreateTime() + 999999);  // the same whole second
    EXPECT_FALSE(movie.isDirty());

    QtAtomTrakHdr track(nullptr);
    track.setSize(1920, 1080, 0x100);
    track.setDuration(500);
    track.setClean();
    track.setSize(1920, 1080, 0x100);
    track.setDuration(500);
    EXPECT_FALSE(track.isDirty());
    track.setDuration(501);
    EXPECT_TRUE(track.isDirty());
    track.setClean();
    track.setSize(1920, 1080, 0);
    EXPECT_TRUE(track.isDirty());
    EXPECT_EQ(encodeToBytes(track)[84], 0x07);  // 1920 << 16

    QtAtomTimecodeInf info(nullptr);
    info.setClean();
    info.setFontName("Courier");
    EXPECT_TRUE(info.isDirty());
    EXPECT_EQ(info.resetSize(), 32u + 8u);
    Bytes written = encodeToBytes(info);
    ASSERT_EQ(written.size(), 40u);
    EXPECT_EQ(Bytes(written.begin() + 32, written.end()), withText({7}, "Courier"));
}

TEST(StructureAtoms, TimeScalesAndTrackIdsComeFromTheHeadersAbove) {
    QtAtomHeader moov(qtId("moov"), nullptr);
    auto* movieHeader = new QtAtomMvhd(&moov, 2997);
    movieHeader->allocTrackId();
    movieHeader->allocTrackId();
    auto* trak = new QtAtomHeader(qtId("trak"), &moov);
    auto* elst = new QtAtomHeader(qtId("elst"), new QtAtomHeader(qtId("edts"), trak));
    auto* mdia = new QtAtomHeader(qtId("mdia"), trak);
    (new QtAtomMediaHdr(mdia))->set(0, 12800);
    auto* minf = new QtAtomHeader(qtId("minf"), mdia);
    EXPECT_EQ(elst->getMovieTimeScale(), 2997u);
    EXPECT_EQ(elst->getMediaTimeScale(), 12800u);  // through the track
    EXPECT_EQ(minf->getMediaTimeScale(), 12800u);  // through the media
    auto* header = new QtAtomTrakHdr(trak);
    EXPECT_EQ(header->allocTrackId(), 3u);
    EXPECT_EQ(movieHeader->getNextTrackId(), 4u);
    EXPECT_EQ(QtAtomTrakHdr(nullptr).allocTrackId(), 0u) << "no movie header above";
}

TEST(StructureAtoms, TrackReferencesKeepOpenSlotsAndStopAtABrokenEntry) {
    QtAtomTrakRef refs(nullptr);
    refs.addSlots(qtId("tmcd"), 1);
    EXPECT_TRUE(refs.hasOpenSlots(qtId("tmcd")));
    EXPECT_FALSE(refs.hasOpenSlots(qtId("chap")));
    EXPECT_EQ(refs.getQtTrackId(qtId("tmcd"), 0), 0u);
    QtAtomTrakRef one(nullptr);
    one.addTrackId(qtId("tmcd"), 2);
    EXPECT_EQ(one.resetSize(), 20u);
    EXPECT_EQ(encodeToBytes(one), trefBytes({trefEntry("tmcd", {2})}));
    for (uint32_t badSize : {0u, 4u, 7u, 200u}) {
        Bytes bad = trefEntry("hint", {9});
        bad[3] = static_cast<unsigned char>(badSize);
        QtAtomTrakRef broken(nullptr);
        unsigned int consumed = 0;
        ASSERT_TRUE(decodeFrom(broken, trefBytes({trefEntry("tmcd", {3}), bad}), &consumed)) << badSize;
        EXPECT_EQ(consumed, 32u) << badSize;
        EXPECT_EQ(broken.getNumTrackIds(qtId("tmcd")), 1u) << badSize;
        EXPECT_EQ(broken.getNumTrackIds(qtId("hint")), 0u) << badSize;
        EXPECT_EQ(encodeToBytes(broken).size(), 32u) << badSize;
    }
}

TEST(StructureAtoms, HandlersAreNamedAfterTheirSubtypeAndRenamedWithinTheirSize) {
    EXPECT_STREQ(QtAtomHandler(nullptr, qtId("mhlr"), qtId("soun")).getName(), "Apple Sound Media Handler");
    EXPECT_STREQ(QtAtomHandler(nullptr, qtId("dhlr"), qtId("alis")).getName(), "Apple Alias Data Handler");
    EXPECT_EQ(QtAtomHandler(nullptr, qtId("mhlr"), qtId("text")).getName(), nullptr);
    QtAtomHandler video(nullptr, qtId("mhlr"), qtId("vide"));
    EXPECT_EQ(video.getSize(), 32u) << "the name counts once the size is recomputed";
    EXPECT_EQ(video.resetSize(), 32u + 26u);
    Bytes written = encodeToBytes(video);
    ASSERT_EQ(written.size(), 58u);
    EXPECT_EQ(Bytes(written.begin() + 32, written.end()), withText({25}, "Apple Video Media Handler"));
    QtAtomHandler padded(nullptr, 0, 0);
    ASSERT_TRUE(decodeFrom(padded, withText(handlerFields(40, "mhlr", "vide"), std::string("\3abc\0\0\0\0", 8))));
    padded.setName("x");
    EXPECT_TRUE(padded.isDirty());
    EXPECT_EQ(encodeToBytes(padded), withText(handlerFields(40, "mhlr", "vide"), std::string("\1x\0\0\0\0\0\0", 8)));
}

TEST(StructureAtoms, QtMovieDumpShowsEachWithItsOwnPrintout) {
    std::string dump = runQtMovie("dump " + testDataPath("h264_bframes_aac_tc.mov")).out;
    for (char const* line : {
             "  ftyp: 20b@0,major_brand=qt  ,minor_version=0x200,compatible_brands={qt  }\n",
             "    mvhd: 108b@499950,v0,f=0,1000hz,len=10000(movie)=00:00:10.000,next trak=4\n",
             "      tkhd: 92b@500066,v0,f=3,trak1,layer=0,\n        len=00:00:10.000(10000:movie),320x240, "
             "enabled,movie\n",
             "        elst: 28b@500166,v0,f=0,cap=1,nedits=1\n",
             "      tref: 20b@500194,tmcd[1]=3\n",
             "        mdhd: 32b@500222,v0,f=0,12800hz,len=128000=00:00:10.000,lang=32767,q=0\n",
             "          vmhd: 20b@500307,v0,f=1,mode0,rgb=0x0/0/0\n",
             "          hdlr: 44b@500327,v0,f=0,type=dhlr.url ,DataHandler\n",
             "          smhd: 16b@504384,v0,f=0,balance=0x0\n",
             "            gmin: 24b@508684,v0,f=0,mode64,rgb=0x8000/8000/8000,bal=0x0\n",
         })
        EXPECT_NE(dump.find(line), std::string::npos) << line;
    std::string aperture = runQtMovie("dump " + testDataPath("dnxhd_avid.mov")).out;
    EXPECT_NE(aperture.find("        clef: 20b@942977,v0,f=0,2560x1080\n"), std::string::npos);
}
