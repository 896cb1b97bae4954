// The sample tables of the movies of tests/data: against their expectations (samples.csv), key flags
// in any order, display offsets walked run by run and decoded from several agents, and whole samples
// walked or looked up; a track's table put together from its atoms; and a track cut short.
#include <algorithm>
#include <fstream>
#include <map>
#include <random>

#include "framework/FileIoClientRec.h"
#include "quicktime/atoms/QtAtomHeader.h"
#include "quicktime/tables/QtAtomEditList.h"
#include "quicktime/tables/QtAtomSampleChunk.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"
#include "quicktime/tables/QtAtomSampleSize.h"
#include "quicktime/tables/QtTrackSamples.h"
#include "tests/tables/CompTimeTestSupport.h"
#include "tests/tools/QtMovieRun.h"

using namespace CompTest;

namespace {

std::vector<unsigned long> queryOrders(unsigned long frames, unsigned int seed) {
    std::vector<unsigned long> order;
    for (unsigned long f = 0; f < frames; ++f) order.push_back(f);               // forward
    for (unsigned long f = frames; f-- > 0;) order.push_back(f);                 // backward
    for (unsigned long f = 0; f < frames; f += 37) order.push_back(f);           // strided
    std::vector<unsigned long> shuffled(order.begin(), order.begin() + frames);  // random
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(seed));
    order.insert(order.end(), shuffled.begin(), shuffled.end());
    return order;
}

// Every sample asked in `order`, through one agent, against the reference decode.
void expectAll(QtAtomCompTime const& ctts, std::vector<Sample> const& expected, std::vector<unsigned long> const& order,
               FileIoClientRec* agent, std::string const& what) {
    for (unsigned long s : order)
        ASSERT_EQ(text(ctts.getSample(s, agent)), text(expected[s])) << what << " sample " << s;
}

// Unit boundaries first (each unit's last and first sample), then everything backwards.
std::vector<unsigned long> boundariesThenBackwards(unsigned long n) {
    std::vector<unsigned long> order;
    for (unsigned long s = 256; s < n; s += 256) order.insert(order.end(), {s, s - 1});
    for (unsigned long s = n; s-- > 0;) order.push_back(s);
    return order;
}

std::string rowOf(unsigned int track, QtSampleInfo const& s) {
    char row[160];
    snprintf(row, sizeof row, "%u,%lu,%lu,%u,%lu,%ld,%d", track, s.sample, s.offset, s.size, s.dts, s.pts,
             s.key ? 1 : 0);
    return row;
}

// One row of a movie's samples.csv, and its text.
struct SampleRow {
    unsigned long sample;
    long dts, pts;
    bool key;
    std::string text;
};

// Rows by 1-based track number, in sample order.
std::map<unsigned int, std::vector<SampleRow>> readSampleRows(std::string const& movie) {
    std::map<unsigned int, std::vector<SampleRow>> rows;
    std::ifstream in(testDataPath(movie + ".samples.csv"));
    std::string line;
    std::getline(in, line);  // header
    while (std::getline(in, line)) {
        unsigned int track, key;
        unsigned long sample, offset, size;
        long dts, pts;
        if (sscanf(line.c_str(), "%u,%lu,%lu,%lu,%ld,%ld,%u", &track, &sample, &offset, &size, &dts, &pts, &key) == 7)
            rows[track].push_back({sample, dts, pts, key == 1, line});
    }
    return rows;
}

// The n-th (0-based) track's sample table.
BaseQtAtom const* trackTable(QtAtomRoot const& root, unsigned int track) {
    BaseQtAtom const* trak = root.findAtom("moov.trak", track);
    return trak ? trak->findAtom("mdia.minf.stbl", 0) : nullptr;
}

}  // namespace

class TableCorpus : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override { ASSERT_TRUE(root); }
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(GetParam()).c_str());
};

INSTANTIATE_TEST_SUITE_P(Corpus, TableCorpus, ::testing::ValuesIn(corpusMovies()), corpusName);

TEST_P(TableCorpus, KeyOfEverySampleMatchesTheExpectationsInAnyOrder) {
    for (auto const& [track, rows] : readSampleRows(GetParam())) {
        BaseQtAtom const* stbl = trackTable(*root, track - 1);
        ASSERT_NE(stbl, nullptr);
        auto const* stss = dynamic_cast<QtAtomSampleSync const*>(stbl->findAtom("stss", 0));
        FileIoClientRec agent;
        for (unsigned long s : queryOrders(rows.size(), track)) {
            bool key = stss ? stss->isKey(s, &agent) : true;
            ASSERT_EQ(key, rows[s].key) << GetParam() << " track " << track << " sample " << s;
        }
        if (!stss) continue;
        for (SampleRow const& row : rows) {
            AutoReleasePtr<QtAtomSampleSync::KeySet> keys =
                stss->getKeySet(QtFrameSet::frameToUnit(row.sample), &agent);
            ASSERT_EQ(keys->isKey(row.sample), row.key)
                << GetParam() << " track " << track << " sample " << row.sample;
        }
    }
}

TEST_P(TableCorpus, WalkingTheCompositionRunsGivesEverySamplesDisplayOffset) {
    for (auto const& [track, rows] : readSampleRows(GetParam())) {
        QtAtomCompTime const* ctts = compTable(trackTable(*root, track - 1));
        if (!ctts) {
            for (SampleRow const& row : rows) ASSERT_EQ(row.pts, row.dts) << GetParam() << " track " << track;
            continue;
        }
        FileIoClientRec agent;
        QtAtomCompTime::DiskIterator it(ctts->getArray(), 0, &agent);
        QtAtomCompTime::SparseArray anchors;
        for (size_t s = 0; s < rows.size(); ++s) {
            ASSERT_EQ(it.getSample(), s);
            ASSERT_EQ(it.getOffset(), rows[s].pts - rows[s].dts)
                << GetParam() << " track " << track << " sample " << s;
            if (it.onSparse()) anchors.update(it);
            bool more = it++;
            ASSERT_EQ(more, s + 1 < rows.size()) << "the walk ends with the last sample";
        }
        // Any unit is reached again from its anchor.
        for (unsigned int unit = anchors.size(); unit-- > 0;) {
            QtAtomCompTime::Sparse anchor = anchors.get(unit);
            ASSERT_TRUE(anchor.valid());
            QtAtomCompTime::DiskIterator from(ctts->getArray(), 0, &agent);
            from.seek(anchor);
            for (size_t s = anchor.sample; s < std::min<size_t>(rows.size(), anchor.sample + 256); ++s) {
                ASSERT_EQ(from.getOffset(), rows[s].pts - rows[s].dts) << "unit " << unit << " sample " << s;
                from++;
            }
        }
    }
}

TEST_P(TableCorpus, EveryCompositionSampleMatchesAFullDecodeFromEveryAgentInAnyOrder) {
    for (unsigned int track = 0; BaseQtAtom const* stbl = trackTable(*root, track); ++track) {
        QtAtomCompTime const* ctts = compTable(stbl);
        if (!ctts) continue;
        unsigned long n = dynamic_cast<QtAtomSampleSize const*>(stbl->findAtom("stsz", 0))->getSampleCount();
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

TEST_P(TableCorpus, WalkGivesEverySampleOfTheExpectation) {
    std::vector<std::string> walked, expected;
    for (auto const& [track, rows] : readSampleRows(GetParam()))
        for (SampleRow const& row : rows) expected.push_back(row.text);
    for (unsigned int t = 1; t <= QtTrackSamples::countTracks(*root); ++t) {
        QtTrackSamples track(QtTrackSamples::findTrackMedia(*root, t));
        ASSERT_TRUE(track.valid());
        QtTrackSamples::Iterator it(track, 0);
        QtSampleInfo info;
        unsigned long n = 0;
        for (; it.next(info); ++n) walked.push_back(rowOf(t, info));
        EXPECT_EQ(n, track.getNumSamples());
    }
    EXPECT_EQ(walked, expected);
}

TEST_P(TableCorpus, DirectLookupsAgreeWithTheWalk) {
    auto expected = readSampleRows(GetParam());
    for (unsigned int t = 1; t <= QtTrackSamples::countTracks(*root); ++t) {
        QtTrackSamples track(QtTrackSamples::findTrackMedia(*root, t));
        unsigned long n = track.getNumSamples();
        ASSERT_EQ(expected[t].size(), n);
        // Across chunk and run boundaries, backwards so that no state cached by a lookup can help.
        for (unsigned long s : {n - 1, n / 2 + 1, n / 3, 17ul, 1ul, 0ul}) {
            if (s >= n) continue;
            QtSampleInfo info;
            ASSERT_TRUE(track.getSample(s, info));
            EXPECT_EQ(rowOf(t, info), expected[t][s].text) << GetParam() << " track " << t << " sample " << s;
        }
        QtSampleInfo past;
        EXPECT_FALSE(track.getSample(n, past));
    }
}

TEST(QtSampleTable, MakesUpAnEditListForATrackWithoutOne) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath("hevc_sdtp.mov").c_str());
    ASSERT_TRUE(root);
    BaseQtAtom const* trak = root->findAtom("moov.trak", 0);
    BaseQtAtom const* edts = trak->findAtom("edts", 0);
    ASSERT_NE(edts, nullptr);
    auto const* media = dynamic_cast<QtAtomHeader const*>(trak->findAtom("mdia", 0));
    {
        QtSampleTable table(media);
        EXPECT_TRUE(table.validate());
        EXPECT_EQ(table.getSpareAtom(), nullptr);
        EXPECT_EQ(table.getEdts(), edts);
    }
    // Without the file's edit list the table makes a one-edit list of the whole media.
    edts->removeSelf(false);
    {
        QtSampleTable table(media);
        EXPECT_TRUE(table.validate());
        ASSERT_NE(table.getSpareAtom(), nullptr);
        EXPECT_EQ(table.getSpareAtom()->getId(), qtId("edts"));
        ASSERT_NE(table.getElst(), nullptr);
        EXPECT_EQ(table.getElst()->getNumEdits(), 1u);
        EXPECT_EQ((*table.getElst())[0].numSamples, 60u);
        QtSampleTable copy(table);
        EXPECT_NE(copy.getSpareAtom(), table.getSpareAtom());
        EXPECT_EQ((*copy.getElst())[0].numSamples, 60u);
        EXPECT_TRUE(copy.allAtomsDefined());
    }
    delete edts;
}

// A movie cut short in the middle of a flush: its chunk offset count (written last) still says
// fewer chunks than the other tables cover. The track counts the samples those chunks hold, and so
// do `qtmovie info` and `samples`.
TEST(QtTrackSamples, CountsOnlyTheSamplesThatTheChunkOffsetsReach) {
    Bytes source = readFileBytes(testDataPath("h264_faststart.mov"));
    unsigned long stcoAt = 0;
    {
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath("h264_faststart.mov").c_str());
        ASSERT_TRUE(root);
        QtTrackSamples sound(QtTrackSamples::findTrackMedia(*root, 2));
        ASSERT_EQ(sound.getSampleTable().getStco()->getNumChunks(), 249u);
        ASSERT_EQ(sound.getNumSamples(), 470u);
        stcoAt = sound.getSampleTable().getStco()->getFileOffset();
    }
    // Chunks of the sound track here hold 1 to 3 samples.
    for (unsigned int chunks : {1u, 97u, 248u}) {
        SCOPED_TRACE(chunks);
        Bytes cut = source;
        for (int i = 0; i < 4; ++i) cut[stcoAt + 12 + i] = static_cast<unsigned char>(chunks >> (24 - 8 * i));
        TempFile temp("cut.mov");
        temp.write(cut);
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(temp.c_str());
        ASSERT_TRUE(root);
        QtTrackSamples sound(QtTrackSamples::findTrackMedia(*root, 2));
        unsigned long count = sound.getNumSamples();
        // The last sample counted lies in the last chunk listed; the next one past it.
        QtChunkSet set;
        unsigned long first = 0;
        ASSERT_TRUE(sound.getSampleTable().getStsc()->getChunkSet(count - 1, set));
        EXPECT_EQ(set.getChunk(count - 1, first), chunks - 1);
        ASSERT_TRUE(sound.getSampleTable().getStsc()->getChunkSet(count, set));
        EXPECT_EQ(set.getChunk(count, first), chunks);
        QtTrackSamples::Iterator walk(sound, 0);
        QtSampleInfo info;
        unsigned long walked = 0;
        while (walk.next(info)) ++walked;
        EXPECT_EQ(walked, count);
        EXPECT_NE(runQtMovie("info " + temp.path()).out.find(", " + std::to_string(count) + " samples"), std::string::npos);
        std::string rows = runQtMovie("samples " + temp.path() + " --track 2").out;
        EXPECT_EQ(static_cast<unsigned long>(std::count(rows.begin(), rows.end(), '\n')), count + 1);
    }
}
