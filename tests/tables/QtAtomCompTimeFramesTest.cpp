// Samples of a composition offset table (type, anchor, display offset) against a decode of every
// run from entry 0: on the corpus from several agents, and rule by rule on small tables.
#include "framework/FileIoClientRec.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "tests/tables/CompTimeTestSupport.h"

using namespace CompTest;

namespace {

unsigned int sampleCount(BaseQtAtom const* stbl) {
    auto const* stsz = dynamic_cast<QtAtomSampleSize const*>(stbl->findAtom("stsz", 0));
    return stsz ? stsz->getSampleCount() : 0;
}

std::string text(Sample const& sample) {
    return std::string(sample.toString().get()) + (sample.reserved ? ",r" : "");
}

// Every sample asked in `order`, through one agent, against the reference.
void expectAll(QtAtomCompTime const& ctts, std::vector<Sample> const& expected, std::vector<unsigned long> const& order,
               FileIoClientRec* agent, std::string const& what) {
    for (unsigned long s : order) {
        Sample got = ctts.getSample(s, agent);
        ASSERT_EQ(text(got), text(expected[s])) << what << " sample " << s;
    }
}

// Unit boundaries first (each unit's last and first sample), then everything backwards.
std::vector<unsigned long> boundariesThenBackwards(unsigned long n) {
    std::vector<unsigned long> order;
    for (unsigned long s = 256; s < n; s += 256) order.insert(order.end(), {s, s - 1});
    for (unsigned long s = n; s-- > 0;) order.push_back(s);
    return order;
}

}  // namespace

class CompTimeFramesCorpus : public ::testing::TestWithParam<std::string> {};

TEST_P(CompTimeFramesCorpus, EverySampleMatchesAFullDecodeFromEveryAgentInAnyOrder) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
    ASSERT_TRUE(root);
    for (unsigned int track = 0; BaseQtAtom const* stbl = trackTable(*root, track); ++track) {
        QtAtomCompTime const* ctts = compTable(stbl);
        if (!ctts) continue;
        unsigned long n = sampleCount(stbl);
        std::vector<Sample> expected = referenceDecode(*ctts, n);
        std::vector<unsigned long> forwards(n);
        for (unsigned long s = 0; s < n; ++s) forwards[s] = s;
        FileIoClientRec first, second;
        std::string what = GetParam() + " track " + std::to_string(track + 1);
        expectAll(*ctts, expected, boundariesThenBackwards(n), &first, what + " (boundaries, backwards)");
        expectAll(*ctts, expected, forwards, &second, what + " (forwards)");
        expectAll(*ctts, expected, forwards, nullptr, what + " (owner)");
        ctts->closeVirtualTable(&first);
        ctts->closeVirtualTable(&second);
    }
}

INSTANTIATE_TEST_SUITE_P(Corpus, CompTimeFramesCorpus, ::testing::ValuesIn(corpusMovies()), corpusName);

TEST(QtAtomCompTimeFrames, TypesComeFromZeroOffsetsAndKeyFrames) {
    // (1,1) then (2,0), no 'cslg': the first sample is I or P by the key set, the others B.
    for (bool key : {true, false}) {
        MovieOnDisk movie(movieWithTable({stszAtom(3), syncAtom("stss", {key ? 1u : 3u}), cttsAtom({{1, 1}, {2, 0}})}));
        auto const* ctts = movie.table<QtAtomCompTime>("ctts");
        EXPECT_EQ(ctts->getSample(0, nullptr).type, key ? SampleCodingI : SampleCodingP);
        EXPECT_EQ(text(ctts->getSample(1, nullptr)), "p=B1,a=0,d=-1");
        EXPECT_EQ(text(ctts->getSample(2, nullptr)), "p=B2,a=0,d=-1");
    }
}

TEST(QtAtomCompTimeFrames, OffsetsAreInFramesOneLowerWithoutAShift) {
    Bytes stts = fullAtom("stts", {1, 3, 100});
    MovieOnDisk plain(movieWithTable({stts, stszAtom(3), syncAtom("stss", {1}), cttsAtom({{1, 200}, {2, 0}})}));
    EXPECT_EQ(plain.table<QtAtomCompTime>("ctts")->getSample(0, nullptr).offset, 1);  // 2 frames stored
    // With a 'cslg', a shift of one frame: the B frames stored at -100 are the zeros.
    Bytes cslg = fullAtom("cslg", {100, static_cast<uint32_t>(-100), 200, 0, 300});
    MovieOnDisk shifted(movieWithTable({stts, stszAtom(3), syncAtom("stss", {1}), cslg, cttsAtom({{1, 200}, {2, -100}})}));
    auto const* ctts = shifted.table<QtAtomCompTime>("ctts");
    EXPECT_EQ(text(ctts->getSample(0, nullptr)), "p=I0,a=0,d=+2");
    EXPECT_EQ(text(ctts->getSample(2, nullptr)), "p=B2,a=0,d=-1");
}

TEST(QtAtomCompTimeFrames, DependencyBytesTurnUnreferencedFramesIntoBFrames) {
    Bytes sdtp = atomBytes("sdtp", Bytes{0, 0, 0, 0, 0x20, 0x08, 0x10, 0x18, 0x20});
    // I P P P P, the last four marked: not depended on; depends, depended on; not depended on;
    // independent but not a key frame.
    MovieOnDisk movie(movieWithTable({stszAtom(5), syncAtom("stss", {1}), cttsAtom({{5, 1}}), sdtp}));
    auto const* ctts = movie.table<QtAtomCompTime>("ctts");
    EXPECT_EQ(text(ctts->getSample(1, nullptr)), "p=B1,a=0,d=+0");
    EXPECT_EQ(text(ctts->getSample(2, nullptr)), "p=P2,a=0,d=+0");  // reference before the disposable one
    EXPECT_EQ(text(ctts->getSample(3, nullptr)), "p=B3,a=2,d=+0");
    EXPECT_EQ(text(ctts->getSample(4, nullptr)), "p=B4,a=2,d=+0,r");
}

TEST(QtAtomCompTimeFrames, AWalkStoresTheAnchorsItPassesAndDropsOnesThatDoNotFit) {
    std::string types = repeat("IBBPBBPBBPBB", 300);
    MovieOnDisk movie(gopMovie(types, 1));
    auto const* ctts = movie.table<QtAtomCompTime>("ctts");
    std::vector<Sample> expected = referenceDecode(*ctts, types.size());
    EXPECT_EQ(text(ctts->getSample(3500, nullptr)), text(expected[3500]));
    QtAtomCompTime::SparseArray& anchors = ctts->getSparseArray();
    EXPECT_EQ(anchors.size(), 15u);  // up to the unit after the one asked for
    for (unsigned int unit = 0; unit < 15; ++unit) EXPECT_TRUE(anchors.get(unit).valid()) << unit;
    // An anchor past its run (a damaged seed, say) is dropped and the walk starts lower.
    QtAtomCompTime::Sparse good = anchors.get(5), bad = good;
    bad.count = 99;
    anchors.set(5, bad);
    FileIoClientRec agent;
    EXPECT_EQ(text(ctts->getSample(5 * 256 + 5, &agent)), text(expected[5 * 256 + 5]));
    EXPECT_EQ(anchors.get(5), good) << "rebuilt by the walk from unit 4";
}
